/// @file
/// Growable NUL-terminated string that is appended to.
///
/// A string is not locked: callers serialise access to one string.

#ifndef GENERAL_VSTR_H
#define GENERAL_VSTR_H

#include "general/api.h"
#include "general/names.h"

/// A variable string. Opaque to callers.
typedef struct Vstr Vstr;

/// Outcome of the calls that return one. After any but VSTR_OK the string is unchanged.
typedef enum VstrStat {
    VSTR_OK = 0,         ///< done
    VSTR_BAD_HANDLE = 1, ///< null, or not a live string
    VSTR_NO_MEMORY = 2   ///< memory is exhausted, or the length would exceed 2^31 - 1
} VstrStat;

/// Makes an empty string, without memory for text yet.
/// @param growthIncrement  least number of bytes to grow by, at least 1. As soon as the memory and the
///                         increment together pass 2^31 - 1, growth fails
/// @return the string, which the caller hands to VstrDestroy; null if the increment is below 1 or
///         memory is exhausted
GENERAL_API Vstr *GENERAL_CALL VstrCreate(int32_t growthIncrement);

/// Frees the string. Nothing marks a destroyed string: do not use it again.
/// @param string  a live string
/// @return VSTR_OK or VSTR_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL VstrDestroy(Vstr *string);

/// Appends a copy of a text.
/// @param string  a live string
/// @param text    may not lie inside this string's buffer
/// @return VSTR_OK, VSTR_BAD_HANDLE or VSTR_NO_MEMORY
GENERAL_API uint32_t GENERAL_CALL VstrAppend(Vstr *string, const char *text);

/// Sets the length to 0. Memory and bytes stay: until the next append, VstrGet shows the old text.
/// @param string  a live string
/// @return VSTR_OK or VSTR_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL VstrEmpty(Vstr *string);

/// Shows the text in place.
/// @param string  a live string
/// @param text    receives its address, null if nothing was ever appended; valid until the next append;
///                not null
/// @return VSTR_OK or VSTR_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL VstrGet(const Vstr *string, char **text);

/// Tells how long the text is.
/// @param string  a live string
/// @param length  receives the number of bytes with the terminating NUL: 4 for "abc", 0 for an empty
///                string; not null
/// @return VSTR_OK or VSTR_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL VstrLength(const Vstr *string, int32_t *length);

#include "general/names.h"

#endif
