/// @file
/// The command line in a loop, over getopt.h.
///
///     for (auto option : general::options(argc, argv, "n:v"))
///         switch (option.letter) {
///         case 'n': count = std::atoi(option.argument); break;
///         case 'v': verbose = true; break;
///         default: return 2; // getopt has said what is wrong
///         }
///     for (const char *operand : general::operands(argc, argv))
///         use(operand);

#ifndef GENERAL_OPTIONS_HPP
#define GENERAL_OPTIONS_HPP

#include "general/core.hpp"
#include "general/getopt.h"

#ifndef GENERAL_NO_GETOPT

#ifndef _WIN32 // the names are the C library's there; see base/host_names.h
#define getopt general_getopt
#define optarg general_optarg
#define optind general_optind
#endif

namespace general {

/// An option of the command line.
struct Option {
    char letter;    ///< '?' for one that is not allowed or lacks its argument
    char *argument; ///< null for a letter that takes none, and for '?'
};

/// getopt: the options of a command line, for one loop. There is one parser for the process: see getopt.h.
inline auto options(int argc, char *const *argv, const char *letters) noexcept
{
    struct Options {
        int argc;
        char *const *argv;
        const char *letters;
        int letter;

        Options &begin() noexcept { return ++*this; }
        detail::End end() const noexcept { return {}; }
        Option operator*() const noexcept { return {static_cast<char>(letter), letter == '?' ? nullptr : optarg}; }
        Options &operator++() noexcept
        {
            letter = getopt(argc, argv, letters);
            return *this;
        }
        bool operator!=(detail::End) const noexcept { return letter != -1; }
    };
    return Options{argc, argv, letters, 0};
}

/// optind: what stands behind the options.
inline Span<char *const> operands(int argc, char *const *argv) noexcept
{
    return {argv + optind, static_cast<std::size_t>(argc - optind)};
}

} // namespace general

#ifndef _WIN32
#undef getopt
#undef optarg
#undef optind
#endif

#endif

#endif
