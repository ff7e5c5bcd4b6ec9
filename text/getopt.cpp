#include "base/crt_stdio.h"

#include "base/module_id.h"

#include "general/getopt.h"

#include <string.h>

#include "base/host_names.h"

GENERAL_MODULE_ID("$Id$");

char *optarg = nullptr;
int optind = 1;
int opterr = 1;
int optopt = 0;

namespace {

constexpr int optionsAreOver = -1;
constexpr int wrongOption = '?';
constexpr const char *endOfElement = "";

/// The next option character of the element at optind; at a zero byte between elements.
const char *position = endOfElement;

/// Goes to the first option character of the element at optind.
/// @return false when the options are over
bool startElement(int argc, char *const *argv)
{
    if (optind < 0 || optind >= argc || argv[optind] == nullptr || argv[optind][0] != '-')
        return false;
    const char *element = argv[optind];
    if (element[1] == '-') {
        ++optind;
        return false;
    }
    position = element[1] == '\0' ? element : element + 1; // a lone `-` is its own option character
    return true;
}

void finishElement()
{
    position = endOfElement;
    ++optind;
}

int complain(char *const *argv, const char *what)
{
    if (opterr != 0) {
        const char *program = argv[0] == nullptr ? "" : argv[0];
        const char *slash = strrchr(program, '/');
        fprintf(stderr, "%s: %s -- %c\n", slash == nullptr ? program : slash + 1, what, optopt);
    }
    return wrongOption;
}

int refuseOption(char *const *argv)
{
    if (optopt == '-') // optind stays: the element is the caller's to look at
        return optionsAreOver;
    if (*position == '\0')
        finishElement();
    return complain(argv, "illegal option");
}

int takeArgument(int argc, char *const *argv)
{
    if (*position != '\0') {
        optarg = const_cast<char *>(position); // argv's strings are the caller's and not constant
    } else {
        ++optind;
        if (optind >= argc || argv[optind] == nullptr) {
            position = endOfElement;
            return complain(argv, "option requires an argument");
        }
        optarg = argv[optind];
    }
    finishElement();
    return optopt;
}

} // namespace

int getopt(int argc, char *const *argv, const char *options)
{
    if (argv == nullptr || options == nullptr)
        return optionsAreOver;
    if (*position == '\0' && !startElement(argc, argv)) {
        position = endOfElement;
        return optionsAreOver;
    }
    optopt = static_cast<signed char>(*position++); // NOLINT(bugprone-signed-char-misuse): from 0x80 on, negative
    if (*position == '\0')
        position = endOfElement; // not the element's own end, which may be freed before the next call
    const char *option = optopt == ':' ? nullptr : strchr(options, optopt);
    if (option == nullptr)
        return refuseOption(argv);
    if (option[1] == ':')
        return takeArgument(argc, argv);
    optarg = nullptr;
    if (*position == '\0')
        finishElement();
    return optopt;
}
