/// @file
/// Array of string pointers, ended by a null pointer as an argument vector is, over strings that are
/// packed back to back.

#ifndef GENERAL_STRVEC_H
#define GENERAL_STRVEC_H

#include "general/api.h"

/// Makes the array.
/// @param buffer  count strings, each with its terminating NUL; it stays the caller's and must outlive
///                the array. Not read if count is 0
/// @param count   how many strings
/// @return count + 1 pointers, the last of them null, which the caller hands to StrVecDestroy; null
///         if memory is exhausted
GENERAL_API char **GENERAL_CALL StrVecCreate(char *buffer, uint32_t count);

/// Frees the array, not the strings; null is allowed.
/// @param vector  what StrVecCreate gave, or null
GENERAL_API void GENERAL_CALL StrVecDestroy(char **vector);

#endif
