#include "general/glob.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

/// A string in a block of exactly its size, so that the sanitizers see reading past its end.
struct Exact : std::vector<char> {
    explicit Exact(const std::string &text) : std::vector<char>(text.c_str(), text.c_str() + text.size() + 1) {}
    operator const char *() const { return data(); }
};

/// One element of a pattern, made together with what it matches, so that no pattern has to be read.
struct Element {
    std::string text;
    std::set<char> members = {}; ///< the characters that it matches
    bool negated = true;         ///< all others instead
    bool star = false;           ///< any number of them
};

using Pattern = std::vector<Element>;

bool matches(std::span<const Element> pattern, std::string_view string)
{
    if (pattern.empty())
        return string.empty();
    auto [element, rest] = std::pair(pattern.front(), pattern.subspan(1));
    if (element.star) {
        for (size_t taken = 0; taken < string.size() && !rest.empty(); ++taken)
            if (matches(rest, string.substr(taken)))
                return true;
        return rest.empty(); // a star that another one follows never starts at the string's end
    }
    if (string.empty() || element.members.contains(string[0]) == element.negated)
        return false;
    return matches(rest, string.substr(1));
}

std::mt19937 randomNumbers(8);

char randomCharacter(size_t kinds)
{
    return "ab\x80\xFF]-^*?[\\"[randomNumbers() % kinds];
}

/// A character as a pattern writes it.
std::string written(char character)
{
    bool special = std::strchr("]-^*?[\\", character) != nullptr;
    return special || randomNumbers() % 4 == 0 ? std::string{'\\', character} : std::string{character};
}

Element randomSet()
{
    Element set = {.text = "[", .negated = randomNumbers() % 3 == 0};
    set.text += set.negated ? "^" : "";
    for (unsigned members = 1 + randomNumbers() % 3; members > 0; --members) {
        signed char left = randomCharacter(11), right = randomNumbers() % 2 == 0 ? left : randomCharacter(11);
        set.text += written(left) + (left < right ? "-" + written(right) : "");
        do
            set.members.insert(left);
        while (left++ < right);
    }
    set.text += ']';
    return set;
}

Element randomElement(size_t kinds)
{
    switch (randomNumbers() % 8) {
    case 0:
        return {.text = "?"};
    case 1:
        return randomSet();
    case 2:
    case 3:
    case 4:
        return {.text = "*", .star = true};
    default:
        char character = randomCharacter(kinds);
        return {.text = written(character), .members = {character}, .negated = false};
    }
}

TEST(Glob, MatchesWhatItsElementsMatch)
{
    int matched = 0;
    for (int i = 0; i < 500000; ++i) {
        size_t kinds = i % 2 == 0 ? 2 : 11; // of characters
        std::string string, text;
        Pattern pattern;
        for (unsigned length = randomNumbers() % 9; length > 0; --length)
            string += randomCharacter(kinds);
        for (unsigned length = randomNumbers() % 8; length > 0; --length)
            text += pattern.emplace_back(randomElement(kinds)).text;
        bool expected = matches(pattern, string);
        ASSERT_EQ(GlobEval(Exact(string), Exact(text)), expected) << string << " with " << text;
        matched += expected;
    }
    EXPECT_GT(matched, 50000);
}

// The guide's tables are run by tests/documents.
TEST(Glob, TakesNothingAndBytesThatAreNoLetters)
{
    int flags = 77;
    EXPECT_EQ(GlobCheck("[\x80-a]", nullptr), GLOB_VALID) << "bytes are signed";
    EXPECT_EQ(GlobCheck("[a-\x80]", nullptr), GLOB_REVERSED_RANGE);
    EXPECT_EQ(GlobCheck(nullptr, &flags), GLOB_VALID);
    EXPECT_EQ(flags + GlobEval(nullptr, "*") + GlobEval("a", nullptr), 0);
    for (int status : {-1, 6, 7, INT_MIN, INT_MAX})
        EXPECT_STREQ(GlobError(status), "<unknown status>");
}

// Tried star by star, each of these would take longer than the test may.
TEST(Glob, CostsAtMostTheProductOfTheLengths)
{
    std::string letters(10000000, 'a'), stars;
    for (int i = 0; i < 1000; ++i)
        stars += "*a";
    EXPECT_EQ(GlobEval(letters.c_str(), (stars + "*b").c_str()), 0);
    EXPECT_EQ(GlobEval(letters.c_str(), (stars + "*b*").c_str()), 0);
    EXPECT_EQ(GlobEval(letters.c_str(), ("*[^b]?[a-c]*" + letters.substr(9)).c_str()), 1);
}

} // namespace
