/// @file
/// Small functions over strings of bytes that a zero byte ends.
///
/// None allocates memory, and none keeps anything between calls but in what the caller passes: any
/// number of threads may call at once, each with strings of its own. Letters, digits, punctuation and
/// white space are what the C runtime takes for such in its current locale, which belongs to the whole
/// process: set it before other threads call.

#ifndef GENERAL_STRINGS_H
#define GENERAL_STRINGS_H

#include "general/api.h"

/// Hashes a string to 8 bits (P. K. Pearson, 1990): h = table[h XOR byte] for each byte, from h = 0.
/// @param string  null counts as the empty string
/// @param table   a permutation of 0 to 255; null for the built-in one, which makes 154 of "a"
/// @return the hash, 0 to 255; 0 for the empty string
GENERAL_API int GENERAL_CALL strhash(const char *string, const unsigned char *table);

/// Strips white space from the ends of a string, in place. No byte moves.
/// @param string  null is handed back
/// @param lead    not 0: the result starts at the first character that is not white space
/// @param trail   not 0: a zero byte is written after the last character that is not white space
/// @return the stripped string, inside the caller's buffer
GENERAL_API char *GENERAL_CALL strstrip(char *string, int lead, int trail);

/// Takes the next token off a string: a run of characters that are no delimiters, so never an empty
/// one. The delimiter after the token is overwritten with a zero byte.
/// @param string  a string to start with, or null to go on at *save
/// @param delims  the delimiters, each a byte
/// @param save    keeps the position between calls; null there means that no token can follow, as is
///                known with the last token already
/// @return the token, inside the caller's string; null if none is left (*save then stays where the
///         search for one began), or if delims or save is null (nothing then changes)
GENERAL_API char *GENERAL_CALL strtoknst(char *string, const char *delims, char **save);

/// Writes a visible copy of a string. Letters, digits, punctuation, spaces and tabs are copied;
/// control characters are named, such as `<CR>`, `<LF>`, `<XON>`, or given in hexadecimal, such as
/// `<0x1B>`. Bytes from 0x80 are given as negative numbers, kept for compatibility: 0x80 is
/// `<0xFFFFFF80>`.
/// @param dst  room for 12 bytes per byte of src and 1 more; may not overlap src
/// @param src  null makes dst empty
/// @return 1, or 0 if dst or src is null
GENERAL_API int GENERAL_CALL strcntrl(char *dst, const char *src);

/// Tells whether a word is an abbreviation of another, ignoring case: its first characters, but not
/// all of them, and at least minLength. The whole word is always accepted, however short.
/// @param full       the full word; note the order
/// @param abbrev     the abbreviation
/// @param minLength  the least length of an abbreviation
/// @return 1 or 0; a null abbreviation stands for a null word only, and a null word for no other
GENERAL_API int GENERAL_CALL isabbrev(const char *full, const char *abbrev, int minLength);

/// Prints to the standard error stream in the manner of printf. The text is formatted by the system's
/// C runtime. The stream is not flushed.
/// @param format  as for printf
/// @return what vfprintf returns: the number of characters, negative for an error; 0 if format is null
GENERAL_API int GENERAL_CALL eprintf(const char *format, ...) GENERAL_PRINTF_LIKE(1, 2);

/// Prints to the standard output stream in the manner of printf, then flushes the stream. The text is
/// formatted by the system's C runtime.
/// @param format  as for printf
/// @return what fflush returns, unlike eprintf: 0, or EOF for an error. A null format prints nothing
GENERAL_API int GENERAL_CALL uprintf(const char *format, ...) GENERAL_PRINTF_LIKE(1, 2);

#ifndef _WIN32 // the names are the C library's there; see base/host_names.h
#define index general_index
#define rindex general_rindex
#endif

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push // under -mrtd the compiler knows these two by another calling convention
#pragma GCC diagnostic ignored "-Wbuiltin-declaration-mismatch"
#endif

/// Finds the first occurrence of a byte.
/// @param string     a NUL-terminated string
/// @param character  converted to char; 0 finds the string's end
/// @return its place in the string; null if there is none, or if string is null
GENERAL_API char *GENERAL_CALL index(const char *string, int character);

/// Finds the last occurrence of a byte.
/// @param string     a NUL-terminated string
/// @param character  converted to char; 0 finds the string's end
/// @return its place in the string; null if there is none, or if string is null
GENERAL_API char *GENERAL_CALL rindex(const char *string, int character);

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#ifndef _WIN32
#undef index
#undef rindex
#endif

#endif
