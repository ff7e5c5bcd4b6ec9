// The lowest bits of the input's first byte choose the ends to strip; the text follows.

#include "fuzz/fuzz_input.h"

#include "general/strings.h"

void runWith(const std::string &input)
{
    if (input.empty())
        return;
    int lead = input[0] & 1;
    int trail = input[0] & 2;
    fuzz::ExactString text(input.substr(1));
    std::string before = text.data();
    std::string after = strstrip(text.data(), lead, trail);

    const char *white = " \t\n\v\f\r";
    if (lead != 0)
        before.erase(0, before.find_first_not_of(white));
    if (trail != 0)
        before.erase(before.find_last_not_of(white) + 1);
    fuzz::require(after == before, "white space goes, and nothing else");
}
