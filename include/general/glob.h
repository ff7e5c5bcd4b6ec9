/// @file
/// Matching of strings against shell-style wildcard patterns.
///
///     *        any run of characters, the empty run included
///     ?        exactly one character
///     [set]    one character of the set
///     [^set]   one character that is not in the set
///     \c       the character c itself
///     else     the character itself
///
/// A set holds single characters and ranges lo-hi, both ends included; `\` takes the next character
/// as it is, the right end of a range too. Characters are bytes, compared exactly and as signed
/// numbers: in a range, the bytes 0x80 to 0xFF stand before all of ASCII. docs/text.md has a table of
/// examples.
///
/// Nothing is allocated and no state is kept: any thread may call at any time.

#ifndef GENERAL_GLOB_H
#define GENERAL_GLOB_H

#include "general/api.h"
#include "general/names.h"

/// What GlobCheck finds.
typedef enum GlobStat {
    GLOB_VALID = 0,
    GLOB_DANGLING_ESCAPE = 1, ///< the pattern ends after a `\`
    GLOB_EMPTY_SET = 2,       ///< `[]`
    GLOB_UNCLOSED_SET = 3,    ///< a `[` without its `]`
    GLOB_MISSING_OPERAND = 4, ///< a `-` in a set with no character to one side of it
    GLOB_REVERSED_RANGE = 5   ///< the left end of a range is greater than the right one
} GlobStat;

/// The bit that GlobCheck sets in its flags when a pattern is more than a plain literal.
#define GLOB_HAS_SPECIAL 1

/// Tells whether a pattern is well formed, and whether it has any special character; one that has
/// none can be compared as a plain string.
///
/// Three peculiarities are kept for compatibility. A `\` that is escaped outside a set counts as the start of
/// another escape, so that one at the end of the pattern is GLOB_DANGLING_ESCAPE. `^` is an ordinary
/// member here, so `[^]` is valid although it matches nothing. The right end of a range is looked at
/// again as a member, so `[a-c-e]` is two chained ranges, and a range that ends in an escaped `-` is
/// GLOB_MISSING_OPERAND.
///
/// @param pattern  the pattern; null counts as the empty one
/// @param flags    receives GLOB_HAS_SPECIAL if `*`, `?`, `[` or `\` was seen before the end or the
///                 first fault, else 0; may be null
/// @return a GlobStat: GLOB_VALID or the first fault from the left
GENERAL_API int GENERAL_CALL GlobCheck(const char *pattern, int *flags);

/// Matches the whole of a string against the whole of a pattern that GlobCheck calls valid.
///
/// Takes at most time in proportion to the length of the string times that of the pattern, whatever
/// they are. Two peculiarities are kept for compatibility. A `*` that another `*` follows needs a character to
/// start from, so `**` matches every string but the empty one. The first character of a set is
/// always a member, so `[^]]` matches all but a bracket.
///
/// @param string   note the order: the string comes first
/// @param pattern  an unfinished one (a `\` at the end, a set without its `]`) matches nothing
/// @return 1 for a match, else 0; 0 also if an argument is null
GENERAL_API int GENERAL_CALL GlobEval(const char *string, const char *pattern);

/// Describes a result of GlobCheck.
/// @param status  what a call returned
/// @return a constant text, never null; "<unknown status>" for a number that is no GlobStat
GENERAL_API const char *GENERAL_CALL GlobError(int status);

#include "general/names.h"

#endif
