// The input's first line holds the delimiters, the rest the text.

#include "fuzz/fuzz_input.h"

#include "general/strings.h"

void runWith(const std::string &input)
{
    fuzz::Lines lines = fuzz::splitFirstLine(input);
    fuzz::ExactString delims(lines.first);
    fuzz::ExactString text(lines.rest);
    std::string original = text.data();

    const char *expected = original.c_str();
    char *save = nullptr;
    for (char *token = strtoknst(text.data(), delims.data(), &save); token != nullptr;
         token = strtoknst(nullptr, delims.data(), &save)) {
        expected += std::strspn(expected, delims.data());
        std::size_t length = std::strcspn(expected, delims.data());
        fuzz::require(length > 0 && std::string(expected, length) == token, "tokens are what lies between delimiters");
        expected += length;
        bool last = expected[std::strspn(expected, delims.data())] == '\0';
        fuzz::require(last == (save == nullptr), "the position tells whether a token can follow");
    }
    fuzz::require(expected[std::strspn(expected, delims.data())] == '\0', "no token is left over");
}
