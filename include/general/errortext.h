/// @file
/// Numbers into text, for log and diagnostic messages: signals and the system's error codes.

#ifndef GENERAL_ERRORTEXT_H
#define GENERAL_ERRORTEXT_H

#include "general/api.h"

#include <stddef.h>

/// Writes a signal's name: SIGINT (2), SIGILL (4), SIGFPE (8), SIGSEGV (11), SIGTERM (15), SIGABRT (22).
/// Any other number is written in decimal.
///
/// Two rules about the length differ, and both are kept for compatibility. A name is copied as strncpy does: a
/// len not above the name's length cuts it and leaves buf unterminated, a greater len fills up with
/// zero bytes. A decimal number is written whole, whatever len is: provide 12 bytes at least.
/// @param sig  any number
/// @param buf  room for len bytes, and for 12; null is handed back
/// @param len  0 leaves buf untouched
/// @return buf
GENERAL_API char *GENERAL_CALL signal_name(int sig, char *buf, size_t len);

/// Names the detail code of a signal: there are none on this platform.
/// @return "unknown", whatever the arguments
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 202311L)
GENERAL_API const char *GENERAL_CALL signal_code_name(...);
#else // C before C23 spells "any arguments" like this
#ifdef __GNUC__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstrict-prototypes"
#endif
GENERAL_API const char *GENERAL_CALL signal_code_name();
#ifdef __GNUC__
#pragma GCC diagnostic pop
#endif
#endif

/// Looks an error code of the system up in its message table, in US English.
///
/// The calling thread's last error stays as it is.
/// @param code  as GetLastError gives it
/// @return the system's text with its line break at the end; the code in decimal, as a signed number,
///         where the system has no text or one of more than 127 characters. A system that was installed
///         without English texts has none: there every code comes out in decimal. Never null. One static
///         buffer of 128 bytes, which every call overwrites: not to be called by two threads at once
GENERAL_API const char *GENERAL_CALL GetErrorText(unsigned code);

#endif
