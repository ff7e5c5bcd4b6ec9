#include "general/glob.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <random>

namespace {

/// A string in a block of exactly its size, so that the sanitizers see reading past its end.
struct Exact : std::vector<char> {
    explicit Exact(const std::string &text) : std::vector<char>(text.c_str(), text.c_str() + text.size() + 1) {}
    operator const char *() const { return data(); }
};

/// A set, written down as it is defined.
/// @return the pattern after the set, which starts at p, after its `[`; null for no match
const char *defineSet(signed char c, const char *p)
{
    bool negated = *p == '^', hit = false;
    for (const char *first = p += negated; *p != ']' || p == first; ++p) {
        if (*p == '-' && p != first) {
            signed char left = p[-1], right = p[1] == '\\' ? p[2] : p[1];
            hit |= left < c && c <= right;
            continue;
        }
        p += *p == '\\';
        if (*p == '\0')
            return nullptr;
        hit |= *p == c;
    }
    return hit == negated ? nullptr : p + 1;
}

/// The pattern language, written down as it is defined: recursion at each element.
bool define(const char *s, const char *p)
{
    if (*p == '*' && p[1] == '\0')
        return true;
    if (*s == '\0' || *p == '\0')
        return *s == *p;
    if (*p == '*')
        return define(s, p + 1) || (s[1] != '\0' && define(s + 1, p));
    if (*p == '[')
        return (p = defineSet(*s, p + 1)) != nullptr && define(s + 1, p);
    bool any = *p == '?';
    p += *p == '\\';
    return (any || *p == *s) && define(s + 1, p + 1);
}

TEST(Glob, EqualsItsDefinition)
{
    std::mt19937 random(8);
    auto text = [&random](const std::string &alphabet, size_t longest) {
        std::string result(random() % (longest + 1), ' ');
        std::generate(result.begin(), result.end(), [&] { return alphabet[random() % alphabet.size()]; });
        return result;
    };
    int matched = 0;
    for (int i = 0; i < 1500000; ++i) {
        std::string string = text("aab\x80\xFF]-", i % 3 == 0 ? 2 : 9);
        std::string pattern = i % 2 == 0 ? text("aab***?", 10) : text("ab\x80\xFF*?[[]]^-\\", i % 3 == 0 ? 6 : 12);
        bool expected = define(string.c_str(), pattern.c_str());
        ASSERT_EQ(GlobEval(Exact(string), Exact(pattern)), expected) << string << " with " << pattern;
        matched += expected;
    }
    EXPECT_GT(matched, 50000);
}

/// The rows of the document's tables in a section, their cells as plain text: "| `a*` | (empty) |".
std::vector<std::vector<std::string>> tableAfter(const std::string &heading)
{
    std::ifstream document(TEXT_DOCUMENT);
    std::vector<std::vector<std::string>> rows;
    std::string line;
    while (std::getline(document, line) && line != heading)
        continue;
    while (std::getline(document, line) && line[0] != '#') {
        if (line.rfind("| `", 0) != 0 && line.rfind("| (", 0) != 0)
            continue;
        rows.emplace_back();
        for (size_t start = 2, end; (end = line.find(" |", start)) != std::string::npos; start = end + 3) {
            std::string cell = line.substr(start, end - start);
            std::erase(cell, '`');
            rows.back().push_back(cell == "(empty)" ? "" : cell);
        }
    }
    return rows;
}

TEST(Glob, MatchesAsDocumented)
{
    const auto rows = tableAfter("### Matching, by example");
    EXPECT_GT(rows.size(), 40u);
    for (const auto &row : rows)
        EXPECT_EQ(GlobEval(Exact(row[0]), Exact(row[1])), std::stoi(row.at(2))) << row[0] << " with " << row[1];
}

TEST(Glob, ChecksAsDocumented)
{
    auto rows = tableAfter("### What the check says");
    EXPECT_GT(rows.size(), 25u);
    int flags;
    for (const auto &row : rows) {
        const int status = GlobCheck(Exact(row[0]), &(flags = 77));
        EXPECT_TRUE(status == std::stoi(row.at(1)) && flags == std::stoi(row.at(2))) << row[0];
        EXPECT_EQ(GlobError(status), row.at(3));
    }
    EXPECT_EQ(GlobCheck("[\x80-a]", nullptr), GLOB_VALID) << "bytes are signed";
    EXPECT_EQ(GlobCheck("[a-\x80]", nullptr), GLOB_REVERSED_RANGE);
    EXPECT_TRUE(GlobCheck(nullptr, &(flags = 77)) == GLOB_VALID && flags == 0);
    EXPECT_TRUE(GlobEval(nullptr, "*") == 0 && GlobEval("a", nullptr) == 0);
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
    EXPECT_EQ(GlobEval(letters.c_str(), (stars + "*").c_str()), 1);
    EXPECT_EQ(GlobEval(letters.c_str(), ("*[^b]?[a-c]*" + letters.substr(9)).c_str()), 1);
}

} // namespace
