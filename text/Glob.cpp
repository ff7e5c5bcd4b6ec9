#include "base/module_id.h"

#include "text/byte_set.h"

#include "general/glob.h"

#include <stddef.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

// Every element of a pattern but `*` takes exactly one character. So a pattern is cut into segments
// at its stars: the first one is matched where the string starts, the last one where it ends, and
// each between them at the first place after the one before it, which leaves most to those behind.

/// The frame of a set.
struct SetFrame {
    const char *end; ///< after the `]`; null if there is none
    bool negated;
};

/// Goes through a set, handing out its characters, and its ranges without their left ends.
template<typename TakeCharacter, typename TakeRange>
SetFrame scanSet(const char *set, TakeCharacter takeCharacter, TakeRange takeRange)
{
    const char *member = set + 1;
    bool negated = *member == '^';
    if (negated)
        ++member;
    for (const char *first = member; *member != ']' || member == first; ++member) {
        if (*member == '-' && member != first) {
            char right = member[1] == '\\' ? member[2] : member[1];
            takeRange(static_cast<signed char>(member[-1]), static_cast<signed char>(right));
            continue; // the right end is handed out as a character too
        }
        if (*member == '\\')
            ++member;
        if (*member == '\0')
            return {.end = nullptr, .negated = negated};
        takeCharacter(*member);
    }
    return {.end = member + 1, .negated = negated};
}

/// Matches one character against a set.
/// @return the end of the set; null if they do not match or if the set has no end
const char *matchSet(const char *set, signed char character)
{
    bool found = false;
    SetFrame frame = scanSet(
        set, [&](char member) { found |= member == character; },
        [&](signed char left, signed char right) { found |= left < character && character <= right; });
    return found != frame.negated ? frame.end : nullptr;
}

/// A set made ready for trying many characters.
struct SetTable {
    general::ByteSet members;
    bool negated;

    explicit SetTable(const char *set)
    {
        auto addRange = [this](signed char left, signed char right) {
            for (int member = left + 1; member <= right; ++member)
                members.add(static_cast<char>(member));
        };
        negated = scanSet(
                      set, [this](char member) { members.add(member); }, addRange)
                      .negated;
    }
    bool matches(char character) const { return members.holds(character) != negated; }
};

/// Matches one character, which is not the terminator, against one element, which is not a star.
/// @return the end of the element; null if they do not match or if the element is unfinished
[[gnu::always_inline]] inline const char *matchElement(const char *element, char character)
{
    switch (*element) {
    case '?':
        return element + 1;
    case '[':
        return matchSet(element, static_cast<signed char>(character));
    case '\\':
        ++element;
        [[fallthrough]];
    default: // the pattern's terminator equals no character
        return *element == character ? element + 1 : nullptr;
    }
}

/// Where a segment has been found.
struct Place {
    const char *string;  ///< after the characters that it takes; null if it is nowhere
    const char *pattern; ///< after the segment: at the next star or at the terminator
};

constexpr Place nowhere{.string = nullptr, .pattern = nullptr};

/// Matches a segment against the characters from string on.
Place matchSegment(const char *string, const char *segment)
{
    do {
        if (*string == '\0')
            return nowhere;
        segment = matchElement(segment, *string++);
        if (segment == nullptr)
            return nowhere;
    } while (*segment != '*' && *segment != '\0');
    return {.string = string, .pattern = segment};
}

/// Finds a segment at the characters that it can start with.
template<typename CanStart>
Place findWhere(CanStart canStart, const char *string, const char *segment)
{
    for (; *string != '\0'; ++string) {
        if (!canStart(*string))
            continue;
        Place place = matchSegment(string, segment);
        if (place.string == nullptr)
            continue;
        if (*place.pattern == '*' || *place.string == '\0')
            return place;
        return matchSegment(string + strlen(place.string), segment); // as many characters, up to the end
    }
    return nowhere;
}

/// Finds a segment that follows a star: the first place of one that another star follows, the place at
/// the string's end of the last one.
Place findSegment(const char *string, const char *segment)
{
    switch (*segment) {
    case '?':
        return findWhere([](char) { return true; }, string, segment);
    case '[': {
        SetTable set(segment);
        return findWhere([&set](char character) { return set.matches(character); }, string, segment);
    }
    default: {
        char first = *segment == '\\' ? segment[1] : segment[0];
        return findWhere([first](char character) { return character == first; }, string, segment);
    }
    }
}

/// The characters that end a run of literal ones.
struct SpecialCharacters {
    bool isSpecial[256] = {};
    constexpr SpecialCharacters()
    {
        isSpecial['\0'] = isSpecial['*'] = isSpecial['?'] = isSpecial['['] = isSpecial['\\'] = true;
    }
};

constexpr SpecialCharacters special;

/// The end of the literal characters that a pattern starts with.
const char *skipLiterals(const char *pattern)
{
    while (!special.isSpecial[static_cast<unsigned char>(*pattern)])
        ++pattern;
    return pattern;
}

/// Whether a string starts with the characters from literal to end.
bool startsWith(const char *string, const char *literal, const char *end)
{
    while (literal != end && *string == *literal) {
        ++string;
        ++literal;
    }
    return literal == end;
}

/// Finds a segment of literal characters, in the manner of findSegment.
Place findLiteral(const char *string, const char *literal, const char *end)
{
    if (*end == '\0') {
        size_t stringLength = strlen(string);
        auto length = static_cast<size_t>(end - literal);
        if (stringLength < length || !startsWith(string + stringLength - length, literal, end))
            return nowhere;
        return {.string = string + stringLength, .pattern = end};
    }
    for (; *string != '\0'; ++string)
        if (*string == *literal && startsWith(string + 1, literal + 1, end))
            return {.string = string + (end - literal), .pattern = end};
    return nowhere;
}

/// Matches a string against a pattern that starts with a star.
bool matchesAfterStar(const char *string, const char *pattern)
{
    for (;;) {
        bool several = pattern[1] == '*';
        while (*pattern == '*')
            ++pattern;
        if (*pattern == '\0')
            return !several || *string != '\0'; // a star that another one follows never tries the end
        const char *end = skipLiterals(pattern);
        bool literal = end != pattern && (*end == '*' || *end == '\0');
        Place place = literal ? findLiteral(string, pattern, end) : findSegment(string, pattern);
        if (place.string == nullptr)
            return false;
        if (*place.pattern == '\0')
            return true;
        string = place.string;
        pattern = place.pattern;
    }
}

} // namespace

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
