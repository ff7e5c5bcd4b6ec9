#include "general/glob.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

/// A string in a block of exactly its size, so that the sanitizers see reading past its end.
struct Exact : std::vector<char> {
    explicit Exact(const std::string &text) : std::vector<char>(text.c_str(), text.c_str() + text.size() + 1) {}
    operator const char *() const { return data(); }
};

/// A set, written down as it is defined. The terminator ends an unfinished one.
/// @return the position after the set that starts at p, after its `[`; npos for no match
size_t defineSet(signed char c, const std::string &pattern, size_t p)
{
    bool negated = pattern[p] == '^';
    size_t first = negated ? ++p : p;
    bool hit = false;
    for (; pattern[p] != ']' || p == first; ++p) {
        if (pattern[p] == '-' && p != first) {
            char right = pattern[p + 1] == '\\' ? pattern[p + 2] : pattern[p + 1];
            hit |= static_cast<signed char>(pattern[p - 1]) < c && c <= static_cast<signed char>(right);
            continue;
        }
        p += pattern[p] == '\\';
        if (p == pattern.size())
            return std::string::npos;
        hit |= pattern[p] == c;
    }
    return hit == negated ? std::string::npos : p + 1;
}

/// The pattern language, written down as it is defined: recursion at each star.
bool define(const std::string &string, size_t s, const std::string &pattern, size_t p)
{
    for (; p < pattern.size(); ++s) {
        if (pattern[p] == '*') {
            if (p + 1 == pattern.size())
                return true;
            while (s < string.size())
                if (define(string, s++, pattern, p + 1))
                    return true;
            return false;
        }
        if (s == string.size())
            return false;
        if (pattern[p] == '[') {
            p = defineSet(static_cast<signed char>(string[s]), pattern, p + 1);
            if (p == std::string::npos)
                return false;
            continue;
        }
        bool any = pattern[p] == '?';
        p += pattern[p] == '\\';
        if (!any && pattern[p++] != string[s])
            return false;
        p += any;
    }
    return s == string.size();
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
        bool expected = define(string, 0, pattern, 0);
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
            if (cell[0] == '`' && cell.back() == '`')
                cell = cell.substr(1, cell.size() - 2);
            rows.back().push_back(cell == "(empty)" ? "" : cell);
        }
    }
    return rows;
}

TEST(Glob, MatchesAsDocumented)
{
    auto rows = tableAfter("### Matching, by example");
    EXPECT_GT(rows.size(), 40u);
    for (const auto &row : rows) {
        ASSERT_GE(row.size(), 3u) << row[0];
        EXPECT_EQ(GlobEval(Exact(row[0]), Exact(row[1])), std::stoi(row[2])) << row[0] << " with " << row[1];
    }
}

TEST(Glob, ChecksAsDocumented)
{
    auto rows = tableAfter("### What the check says");
    EXPECT_GT(rows.size(), 25u);
    for (const auto &row : rows) {
        ASSERT_EQ(row.size(), 4u) << row[0];
        int flags = 77;
        int status = GlobCheck(Exact(row[0]), &flags);
        EXPECT_EQ(status, std::stoi(row[1])) << row[0];
        EXPECT_EQ(flags, std::stoi(row[2])) << row[0];
        EXPECT_EQ(GlobError(status), row[3]);
    }
    EXPECT_EQ(GlobCheck("[\x80-a]", nullptr), GLOB_VALID) << "bytes are signed";
    EXPECT_EQ(GlobCheck("[a-\x80]", nullptr), GLOB_REVERSED_RANGE);
    int flags = 77;
    EXPECT_TRUE(GlobCheck(nullptr, &flags) == GLOB_VALID && flags == 0);
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
