// The input's first line is the option string, each further one an element of argv.

#include "fuzz/fuzz_input.h"

#include "general/getopt.h"

#include "base/host_names.h"

void runWith(const std::string &input)
{
    static FILE *const nowhere = std::fopen("/dev/null", "w");
    stderr = nowhere; // messages are made, but not shown; the sanitizers write to the descriptor itself

    fuzz::Lines lines = fuzz::splitFirstLine(input);
    fuzz::ExactString optstring(lines.first);
    std::vector<fuzz::ExactString> elements;
    std::size_t characters = 0;
    while (!lines.rest.empty()) {
        lines = fuzz::splitFirstLine(lines.rest);
        elements.emplace_back(lines.first);
        characters += lines.first.size();
    }
    std::vector<char *> argv;
    argv.reserve(elements.size() + 1);
    for (fuzz::ExactString &element : elements)
        argv.push_back(element.data());
    argv.push_back(nullptr);
    int argc = static_cast<int>(elements.size());

    optind = 1;
    for (std::size_t calls = 0; calls < characters + 2; ++calls) {
        int before = optind;
        int option = getopt(argc, argv.data(), optstring.data());
        fuzz::require(optind >= before && optind <= argc + (argc == 0), "the index goes forward, and not past the end");
        if (option != -1 && option != '?')
            fuzz::require(std::strchr(optstring.data(), option) != nullptr, "options are of the option string");
    }
    // What an end inside an element has left is used up, so that the next input starts afresh.
    for (std::size_t calls = 0; calls < characters + 1; ++calls)
        getopt(0, argv.data(), optstring.data());
}
