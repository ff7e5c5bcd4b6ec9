#include "fuzz/fuzz_input.h"

#include "general/strings.h"

void runWith(const std::string &input)
{
    fuzz::ExactString source(input);
    std::size_t length = std::strlen(source.data());
    std::vector<char> visible(12 * length + 1);
    fuzz::require(strcntrl(visible.data(), source.data()) == 1, "a copy is always made");

    fuzz::require(std::strlen(visible.data()) >= length, "no byte gets lost");
    for (const char *c = visible.data(); *c != '\0'; ++c)
        fuzz::require(*c == '\t' || (*c >= ' ' && *c < 0x7F), "every byte is visible");
}
