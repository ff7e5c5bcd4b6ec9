#include "base/module_id.h"

#include "general/glob.h"

#include <stddef.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

// --- Checking -----------------------------------------------------------------------------------

/// The part of a set that GlobCheck looks at next.
struct SetScan {
    const char *position;
    bool hasPrevious; ///< a member stands before position that may be the left end of a range
    signed char previous;
};

void takeMember(SetScan &scan)
{
    scan.previous = static_cast<signed char>(*scan.position);
    scan.hasPrevious = true;
    ++scan.position;
}

/// Checks the range whose `-` the scan has reached. The scan stays on the right end, with no previous
/// member: the right end is looked at again, as whatever it is by itself.
GlobStat checkRange(SetScan &scan)
{
    if (!scan.hasPrevious)
        return GLOB_MISSING_OPERAND;
    ++scan.position;
    if (*scan.position == '\\')
        ++scan.position;
    if (*scan.position == '\0' || *scan.position == ']')
        return GLOB_MISSING_OPERAND;
    if (static_cast<signed char>(*scan.position) < scan.previous)
        return GLOB_REVERSED_RANGE;
    scan.hasPrevious = false;
    return GLOB_VALID;
}

/// Checks the set that starts after the `[` before pattern, which ends after the set's `]`.
GlobStat checkSet(const char *&pattern)
{
    if (*pattern == ']')
        return GLOB_EMPTY_SET;
    SetScan scan{.position = pattern, .hasPrevious = false, .previous = 0};
    while (*scan.position != ']') {
        if (*scan.position == '\0')
            return GLOB_UNCLOSED_SET;
        if (*scan.position == '-') {
            GlobStat stat = checkRange(scan);
            if (stat != GLOB_VALID)
                return stat;
            continue;
        }
        if (*scan.position == '\\' && *++scan.position == '\0')
            return GLOB_DANGLING_ESCAPE;
        takeMember(scan);
    }
    pattern = scan.position + 1;
    return GLOB_VALID;
}

// --- Matching -----------------------------------------------------------------------------------
//
// Every element of a pattern but `*` takes exactly one character. So a pattern is cut into segments
// at its stars: the first one is matched where the string starts, the last one where it ends, and
// each between them at the first place after the one before it, which leaves most to those behind.

/// What became of a set and a character.
struct SetMatch {
    const char *end; ///< after the `]`; null if there is none
    bool matched;
};

SetMatch matchSet(const char *set, signed char character)
{
    const char *member = set + 1;
    bool negated = *member == '^';
    if (negated)
        ++member;
    bool found = false;
    for (const char *first = member; *member != ']' || member == first; ++member) {
        if (*member == '-' && member != first) {
            // The left end has been a member of its own, the right end will be.
            auto left = static_cast<signed char>(member[-1]);
            auto right = static_cast<signed char>(member[1] == '\\' ? member[2] : member[1]);
            found = found || (left < character && character <= right);
            continue;
        }
        if (*member == '\\')
            ++member;
        if (*member == '\0')
            return {.end = nullptr, .matched = false};
        found = found || *member == character;
    }
    return {.end = member + 1, .matched = found != negated};
}

/// Matches one character, which is not the terminator, against one element, which is not a star.
/// @return the end of the element; null if they do not match or if the element is unfinished
const char *matchElement(const char *element, char character)
{
    switch (*element) {
    case '?':
        return element + 1;
    case '[': {
        SetMatch match = matchSet(element, static_cast<signed char>(character));
        return match.matched ? match.end : nullptr;
    }
    case '\\':
        ++element;
        [[fallthrough]];
    default: // the pattern's terminator equals no character
        return *element == character ? element + 1 : nullptr;
    }
}

/// The elements between two stars, or between the last star and the pattern's end.
struct Segment {
    const char *start;
    const char *end;    ///< at the next star or the terminator; null if an element is unfinished
    size_t length;      ///< elements, and so characters
    bool startsLiteral; ///< first is the only character that the segment can start with
    char first;
};

Segment segmentAt(const char *start)
{
    bool escaped = *start == '\\';
    Segment segment{.start = start,
                    .end = start,
                    .length = 0,
                    .startsLiteral = *start != '?' && *start != '[',
                    .first = escaped ? start[1] : start[0]};
    for (const char *&end = segment.end; *end != '*' && *end != '\0'; ++segment.length) {
        if (*end == '[') {
            end = matchSet(end, '\0').end;
        } else {
            if (*end == '\\')
                ++end;
            end = *end == '\0' ? nullptr : end + 1;
        }
        if (end == nullptr)
            break;
    }
    return segment;
}

/// Matches a segment against as many characters as it has elements.
bool matchesAt(const Segment &segment, const char *string)
{
    const char *element = segment.start;
    while (element != segment.end) {
        element = matchElement(element, *string++);
        if (element == nullptr)
            return false;
    }
    return true;
}

/// The first place of a segment that starts at string or later and ends at end or before; null if
/// there is none.
const char *findSegment(const Segment &segment, const char *string, const char *end)
{
    if (segment.length > static_cast<size_t>(end - string))
        return nullptr;
    const char *last = end - segment.length;
    for (; string <= last; ++string) {
        if (segment.startsLiteral && *string != segment.first)
            continue;
        if (matchesAt(segment, string))
            return string;
    }
    return nullptr;
}

/// Matches a string against a pattern that starts with a star.
bool matchesAfterStar(const char *string, const char *pattern)
{
    const char *end = string + strlen(string);
    for (;;) {
        bool several = pattern[1] == '*';
        while (*pattern == '*')
            ++pattern;
        if (*pattern == '\0')
            return !several || string != end; // a star that another one follows never tries the end
        Segment segment = segmentAt(pattern);
        if (segment.end == nullptr)
            return false;
        if (*segment.end == '\0')
            return segment.length <= static_cast<size_t>(end - string) && matchesAt(segment, end - segment.length);
        string = findSegment(segment, string, end);
        if (string == nullptr)
            return false;
        string += segment.length;
        pattern = segment.end;
    }
}

} // namespace

int GlobCheck(const char *pattern, int *flags)
{
    int unwanted = 0;
    int &seen = flags != nullptr ? *flags : unwanted;
    seen = 0;
    if (pattern == nullptr)
        return GLOB_VALID;
    while (*pattern != '\0') {
        char character = *pattern++;
        switch (character) {
        case '*':
        case '?':
            seen = GLOB_HAS_SPECIAL;
            break;
        case '\\':
            seen = GLOB_HAS_SPECIAL;
            if (*pattern == '\0')
                return GLOB_DANGLING_ESCAPE;
            if (*pattern == '[')
                ++pattern;
            break; // any other escaped character is looked at again, even a `\`
        case '[': {
            seen = GLOB_HAS_SPECIAL;
            GlobStat stat = checkSet(pattern);
            if (stat != GLOB_VALID)
                return stat;
            break;
        }
        default:
            break;
        }
    }
    return GLOB_VALID;
}

int GlobEval(const char *string, const char *pattern)
{
    if (string == nullptr || pattern == nullptr)
        return 0;
    for (; *pattern != '*'; ++string) {
        if (*string == '\0')
            return *pattern == '\0';
        pattern = matchElement(pattern, *string);
        if (pattern == nullptr)
            return 0;
    }
    return matchesAfterStar(string, pattern);
}

const char *GlobError(int status)
{
    static const char *const texts[] = {"valid",
                                        "dangling escape at end of pattern",
                                        "[..] construct is empty",
                                        "[..] construct is missing closing bracket",
                                        "missing operand for range operator",
                                        "operands for range operator are out of order"};
    constexpr int count = sizeof texts / sizeof texts[0];
    return status >= 0 && status < count ? texts[status] : "<unknown status>";
}
