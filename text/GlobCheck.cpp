#include "base/module_id.h"

#include "general/glob.h"

GENERAL_MODULE_ID("$Id$");

// A parser of its own, beside the one that matches: the two differ, and what each of them says of odd
// patterns is kept for compatibility. Here `^` is a member like any other, a `]` always closes its set,
// and the right end of a range is looked at a second time.

namespace {

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
