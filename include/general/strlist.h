/// @file
/// List of strings packed back to back, each with its terminating NUL, in one growable buffer.
///
/// The record is the caller's: StrListInit fills it, StrListDestroy empties it, and its fields may be
/// read. StrVecCreate makes an array of string pointers from `buffer` and `count`. A list is not
/// locked: callers serialise access to one list.

#ifndef GENERAL_STRLIST_H
#define GENERAL_STRLIST_H

#include "general/api.h"
#include "general/names.h"

/// A list. Its fields are read, and changed by these functions only.
typedef struct StrList {
    char *buffer;             ///< the strings, back to back; null without memory
    uint32_t allocated;       ///< bytes of memory; less than there is after a failed append
    uint32_t growthIncrement; ///< least number of bytes to grow by
    uint32_t used;            ///< bytes taken by the strings and their terminators
    uint32_t count;           ///< strings
} StrList;

/// Fills a record as an empty list with memory to begin with. When memory is exhausted, `allocated`
/// is 0 and the list is usable all the same.
/// @param list             the caller's record
/// @param size             bytes to begin with; 2^31 and more count as exhausted memory
/// @param growthIncrement  least number of bytes to grow by; may be 0. From 2^31 on, and as soon as the
///                         buffer and the increment together reach it, every growth fails
GENERAL_API void GENERAL_CALL StrListInit(StrList *list, uint32_t size, uint32_t growthIncrement);

/// Appends a copy of a string.
/// @param list    an initialised record
/// @param string  may not lie inside this list's buffer
/// @return the copy, valid until the next append; null if memory is exhausted. The strings then stay
///         as they were, but `allocated` goes down by the bytes that the string would have taken,
///         below 0 (modulo 2^32) if need be; the next growth makes up for it
GENERAL_API char *GENERAL_CALL StrListAppend(StrList *list, const char *string);

/// Frees the buffer and sets every field to zero.
/// @param list  an initialised record
GENERAL_API void GENERAL_CALL StrListDestroy(StrList *list);

#include "general/names.h"

#endif
