/// @file
/// The message log: the one channel for failures that no result can tell. The library's own families
/// report there, and programs may.
///
/// Where messages go is decided by the system, once per process: on the Windows NT family to the
/// event log, under an event source with the log's name; on the Windows 95 family to a text file.
/// No function reports failure. A message that cannot be delivered is dropped.
///
/// Lines in the file are never torn or mixed by threads that log at once. Choosing the name is not
/// guarded: call LogName before other threads log.

#ifndef GENERAL_MESSAGE_LOG_H
#define GENERAL_MESSAGE_LOG_H

#include "general/api.h"

/// Names the log and opens it. A log that was open under another name is closed first. There is no
/// need to call this: the first message opens the log under the name "QVS".
/// @param name  event source; the file's lines carry its first 31 characters. Null stands for "QVS"
GENERAL_API void GENERAL_CALL LogName(const char *name);

/// Logs a message: an event with two strings, or a line "TIME NAME: WHO: <TEXT>" in the file.
/// @param who   who reports; null stands for the empty string
/// @param text  what; null stands for the empty string
GENERAL_API void GENERAL_CALL LogMessage(const char *who, const char *text);

/// Logs a message that is formatted in the manner of printf, by the system's C runtime. Its length is
/// not limited; only when memory is exhausted is it cut to 1023 characters.
/// @param who     who reports; null stands for the empty string
/// @param format  null logs an empty text
GENERAL_API void GENERAL_CALL LogPrintf(const char *who, const char *format, ...) GENERAL_PRINTF_LIKE(2, 3);

#endif
