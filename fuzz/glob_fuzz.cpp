// The input's first line is the string, the rest the pattern.

#include "fuzz/fuzz_input.h"

#include "general/glob.h"

namespace {

/// A pattern of escapes that matches one string only.
std::string escaped(const char *string)
{
    std::string pattern;
    for (; *string != '\0'; ++string)
        pattern += {'\\', *string};
    return pattern;
}

} // namespace

void runWith(const std::string &input)
{
    fuzz::Lines lines = fuzz::splitFirstLine(input);
    fuzz::ExactString string(lines.first);
    fuzz::ExactString pattern(lines.rest);

    int flags = -1;
    int status = GlobCheck(pattern.data(), &flags);
    fuzz::require(status >= GLOB_VALID && status <= GLOB_REVERSED_RANGE, "a status is in the table");
    fuzz::require(flags == (std::strpbrk(pattern.data(), "*?[\\") != nullptr), "the flag tells special characters");

    int matched = GlobEval(string.data(), pattern.data());
    fuzz::require(matched == 0 || matched == 1, "a match is 1, none 0");
    if (flags == 0)
        fuzz::require(matched == (std::strcmp(string.data(), pattern.data()) == 0), "a literal matches itself");

    fuzz::ExactString literal(escaped(string.data()));
    fuzz::require(GlobEval(string.data(), literal.data()) == 1, "an escaped string matches itself");
    fuzz::ExactString around("*" + escaped(string.data()) + "*");
    bool empty = string.data()[0] == '\0'; // then one star follows the other, which needs a character
    fuzz::require(GlobEval(string.data(), around.data()) == !empty, "stars around match the empty run");
}
