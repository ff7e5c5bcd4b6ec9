/// @file
/// Composes one mail message at a time and sends it, through Simple MAPI or by running the command
/// "qvsmail". Meant for services that report a fault with nobody at the screen.
///
///     QVSMailTo("ops@example.com,night@example.com");
///     QVSMailSubject("ingest has stopped");
///     QVSMailPrint("disk %s is full\r\n", drive);
///     QVSMailAttachment("C:\\ingest\\last.dmp");
///     QVSMailClose(0);
///
/// What was composed is kept until QVSMailClose, which discards it whether or not it could be sent.
/// Every function returns 1 for success and 0 for failure. Failures are reported through the message
/// log under the name "QVSMail", with three exceptions that only the result tells: exhausted memory
/// while a text is copied, a body file that cannot be created, and text that cannot be appended to it.
/// The message belongs to the process and is not locked.

#ifndef GENERAL_MAIL_H
#define GENERAL_MAIL_H

#include "general/api.h"

/// Sets the recipients, in place of earlier ones.
/// @param text  one or more addresses separated by commas; null, "" or blanks alone for none
/// @return 1, or 0 if memory is exhausted: there are no recipients then
GENERAL_API int GENERAL_CALL QVSMailTo(const char *text);

/// Sets the subject, in place of an earlier one. Without one, "QVSMail (no subject)" is used.
/// @param text  null for none
/// @return 1, or 0 if memory is exhausted: there is no subject then
GENERAL_API int GENERAL_CALL QVSMailSubject(const char *text);

/// Appends text to the body in the manner of printf, formatted by the system's C runtime, of any
/// length. The body is kept in a temporary file, in the folder that the environment variable TMP
/// names or else in the system's; it is written as it is, without conversion of line ends.
/// @param format  not null. An empty text makes an empty body, which is enough for a message
/// @return 1, or 0 if the file cannot be created or written
GENERAL_API int GENERAL_CALL QVSMailPrint(const char *format, ...) GENERAL_PRINTF_LIKE(1, 2);

/// Appends the whole content of a file to the body. Simple MAPI takes text, and ends it at the first
/// zero byte.
/// @param path  read whole, at once
/// @return 1, or 0, logged, if path is null or a directory, or if the file cannot be read, kept in
///         memory as a whole, or appended
GENERAL_API int GENERAL_CALL QVSMailBody(const char *path);

/// Attaches a file, which is read when the message is sent. The command does not get attachments.
/// @param path  copied
/// @return 1; 0 if path is null or memory is exhausted
GENERAL_API int GENERAL_CALL QVSMailAttachment(const char *path);

/// Sends the message and discards it. Without a body nothing is sent, which is no failure.
///
/// With viaCommand the library runs
///
///     cmd /c qvsmail -t RECIPIENTS -s "SUBJECT" -b "BODY FILE"
///
/// in a hidden console and waits at most 5 seconds for its end; its exit code is not examined. A
/// command that takes longer goes on running and the message counts as lost. The body file is deleted
/// at once, or stays behind if the command holds it open in a way that forbids deletion.
///
/// Texts pass byte by byte, blanks included (`a@x, b@y` is several words to the command), but for
/// what the interpreter would take for more than text:
/// - recipients with a control character or one of `" % & | < > ^ ( )` are refused: outside quotes
///   these end the command line, start another command, redirect it or stand for a variable;
/// - in the subject, a double quote becomes an apostrophe, for it would end the quotes; control
///   characters become spaces, for a line's end would end the command; a backslash at the end becomes
///   a slash, for the command would take `\"` for a quote; percent signs, where there are two or more,
///   become spaces, for they would stand for a variable;
/// - a command line above 8191 characters, which the interpreter would not take, is refused.
///
/// A message with a body and without recipients is refused both ways: it could reach nobody, and the
/// command would take `-s` for its recipient.
///
/// Without viaCommand, MAPISendMail of MAPI32.DLL gets the texts as they are, the recipients split at
/// the commas, and may show a logon dialogue. The library is loaded when first needed and kept.
/// @param viaCommand  0 for Simple MAPI, anything else for the command
/// @return 1 when the message was handed over, or there was no body; else 0, logged
GENERAL_API int GENERAL_CALL QVSMailClose(int viaCommand);

#endif
