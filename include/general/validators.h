/// @file
/// Yes-or-no tests: of textual option values, paths, host names, and the running system's version.
///
/// Not 0 means yes. A null pointer is never a yes. Digits and letters are what the C runtime takes for
/// such in its current locale, which belongs to the whole process: set it before other threads call.
/// Any number of threads may ask at once; those that ask for the Windows version first at the same time
/// all read it, and read the same.

#ifndef GENERAL_VALIDATORS_H
#define GENERAL_VALIDATORS_H

#include "general/api.h"

/// The room that isloadable needs for a directory, in bytes.
#define ISLOADABLE_DIR_SIZE 512

/// Tells whether a string is a whole number: an optional `-`, then digits.
/// @param s  the text
/// @return 1 or 0; no `+`, no white space
GENERAL_API int GENERAL_CALL isinteger(const char *s);

/// Tells whether a string is a whole number without sign: digits only.
/// @param s  the text
/// @return 1 or 0
GENERAL_API int GENERAL_CALL isnatural(const char *s);

/// Tells whether a string is a real number: an optional minus, then digits with at most one point among
/// them. No exponent, no plus, no white space. A point without digits is accepted: kept for compatibility.
/// @param s  the text
/// @return 1 or 0
GENERAL_API int GENERAL_CALL isreal(const char *s);

/// Reads a boolean word, ignoring case: on, yes, true or 1; off, no, false or 0.
/// @param s      the text
/// @param value  receives 1 or 0; untouched if s is no such word
/// @return 1 or 0
GENERAL_API int GENERAL_CALL isboolean(const char *s, int *value);

/// Reads a size: a number as strtol does with base 0 (white space and a sign before it, 0x for
/// hexadecimal, 0 for octal), multiplied by 1024 if `K` or `k` follows it, by 1048576 if `M` or `m`
/// does. Whatever else follows is ignored: "12abc" is 12.
/// @param s     the text
/// @param size  receives the size modulo 2^32, untouched if there is no number; may be null
/// @return 1, or 0 if s does not start with a number
GENERAL_API int GENERAL_CALL issize(const char *s, unsigned *size);

/// Tells whether a string is an identifier: a letter or `_`, then letters, digits and `_`.
/// @param s  the text
/// @return the string's length, or 0
GENERAL_API int GENERAL_CALL isident(const char *s);

#ifdef _WIN32

/// Tells whether a path exists and is a directory.
/// @param path     relative paths begin at the current directory
/// @param ignored  any value
/// @return 1; 0 also if the path cannot be queried
GENERAL_API int GENERAL_CALL isdirectory(const char *path, int ignored);

/// Tells whether a path exists and is no directory.
/// @param path     relative paths begin at the current directory
/// @param ignored  any value
/// @return 1; 0 also if the path cannot be queried
GENERAL_API int GENERAL_CALL isfile(const char *path, int ignored);

/// Tells whether a host name or a dotted IPv4 address is this machine: whether the official name
/// that the system's look-up gives, up to its first dot, is this machine's host name, in the same
/// case. A look-up may ask the network and take as long as that does. Winsock is loaded on first use,
/// and started for the length of the call.
/// @param host  what holds a dot and starts with a digit is an address; it is looked up by address,
///              and the name found by name
/// @return 1; 0 also if a look-up fails
GENERAL_API int GENERAL_CALL islocal(const char *host);

/// Finds a file on the system's standard search path: the program's directory, the current one, the
/// system's, and those of PATH, in this order. Where the system or the process is set to safe search
/// (SafeProcessSearchMode in the registry, SetSearchPathMode), the current directory comes last.
/// @param file       the name with its extension, none is added; or a path
/// @param directory  ISLOADABLE_DIR_SIZE bytes; receives the file's directory without a separator at
///                   the end ("C:" for a root directory), then zeros. Unspecified if the result is 0
/// @return 1; 0 also if the path takes more than the room in directory
GENERAL_API int GENERAL_CALL isloadable(const char *file, char *directory);

// The version tests read the system's version on their first call and keep the answer. It is what
// the system tells this program, which may be less than the truth for programs in a compatibility
// mode. Systems other than these four, and later ones, make all four 0.

/// Tells whether this is Windows 95 or one of its family.
/// @return 1 or 0
GENERAL_API int GENERAL_CALL iswin95(void);

/// Tells whether this is Windows NT 4.0.
/// @return 1 or 0; on the Windows 95 family -1, which is not 0 either: ask iswin95 first
GENERAL_API int GENERAL_CALL iswinNT(void);

/// Tells whether this is Windows 2000 (5.0).
/// @return 1 or 0
GENERAL_API int GENERAL_CALL iswin2K(void);

/// Tells whether this is Windows XP (5.1).
/// @return 1 or 0
GENERAL_API int GENERAL_CALL iswinXP(void);

#endif

#endif
