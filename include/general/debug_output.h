/// @file
/// Output for developers. Each call writes one text to the standard error handle and sends the same
/// text to the debugger. Nothing switches them off, and none ends the process.
///
/// The text is formatted by the system's C runtime. Its length is not limited; only when memory is
/// exhausted is the message cut, so that the text has 1023 characters. The standard error handle is
/// asked for on first use and kept; a process without one writes to the debugger only.

#ifndef GENERAL_DEBUG_OUTPUT_H
#define GENERAL_DEBUG_OUTPUT_H

#include "general/api.h"

/// Writes "WHO: MESSAGE" to the standard error handle, be it a console, a file or a pipe.
/// @param who     who reports
/// @param format  the message in the manner of printf, with a newline at its end if one is wanted;
///                null writes an empty message
GENERAL_API void GENERAL_CALL qvs_debug(const char *who, const char *format, ...) GENERAL_PRINTF_LIKE(2, 3);

/// Writes "Log: WHO: MESSAGE" and a newline to the standard error handle if that is a console.
/// A file or a pipe there gets nothing: kept for compatibility.
/// @param who     who reports
/// @param format  the message in the manner of printf; null writes an empty message
GENERAL_API void GENERAL_CALL qvs_debug_log(const char *who, const char *format, ...) GENERAL_PRINTF_LIKE(2, 3);

/// Reports an assertion that does not hold, through qvs_debug:
/// "WHO: QVS assertion failed: (EXPRESSION) at line LINE" and a newline. Then returns.
/// @param expression  what does not hold
/// @param who         who reports
/// @param line        the line number of the assertion
GENERAL_API void GENERAL_CALL qvs_assert(const char *expression, const char *who, int line);

#endif
