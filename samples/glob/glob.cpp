// Lists the files under a folder whose names match patterns, or checks patterns and points at what is
// wrong with them.

#include "general.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr const char *usage =
    "Usage: glob [-p] [-d FOLDER] PATTERN...\n"
    "       glob -c PATTERN...\n"
    "Lists the files under a folder whose names match one of the patterns, in byte order.\n"
    "\n"
    "  -c         check the patterns instead and point at what is wrong\n"
    "  -d FOLDER  look there (default: the current folder)\n"
    "  -p         match the path below FOLDER, with slashes, not the name alone\n"
    "  -h, --help\n"
    "\n"
    "In a pattern, * is any run of characters, ? one character, [a-z] one of a set, [^a-z]\n"
    "one that is not in it, and \\ takes the next character as it is. Quote patterns, so that\n"
    "the shell leaves them alone. Exit status: 0, 1 if nothing matches, a folder cannot be\n"
    "read or a checked pattern is wrong, 2 for a wrong command line or pattern.\n";

enum ExitStatus { Success = 0, Nothing = 1, WrongUse = 2 };

struct Options {
    bool check = false;
    bool wholePath = false;
    std::string folder = ".";
    std::vector<const char *> patterns;
};

/// The part of a pattern that is at fault: from the start of the faulty construct to the character
/// that the check stops at.
struct Fault {
    size_t start, end;
};

/// Finds it by checking shorter patterns: the fault starts after the longest valid beginning, and ends
/// where the shortest beginning does that has the same fault.
Fault locateFault(const std::string &pattern, int status)
{
    Fault fault{.start = 0, .end = pattern.size()};
    for (size_t length = pattern.size(); length-- > 0;) {
        int beginning = GlobCheck(pattern.substr(0, length).c_str(), nullptr);
        if (beginning == GLOB_VALID) {
            fault.start = length;
            break;
        }
        if (beginning == status && status != GLOB_UNCLOSED_SET)
            fault.end = length;
    }
    return fault;
}

/// Prints what is wrong with a pattern, with the place marked below it.
/// @return whether it is valid
bool explain(const char *pattern, FILE *stream)
{
    int special = 0;
    int status = GlobCheck(pattern, &special);
    if (status == GLOB_VALID) {
        if (stream == stdout)
            fprintf(stream, "%s: valid%s\n", pattern, special == 0 ? ", a plain literal" : "");
        return true;
    }
    Fault fault = locateFault(pattern, status);
    fprintf(stream, "%s: %s\n%*s%s\n", pattern, GlobError(status), static_cast<int>(fault.start), "",
            ('^' + std::string(fault.end - fault.start - 1, '~')).c_str());
    return false;
}

bool matchesAny(const std::string &text, const std::vector<const char *> &patterns)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&text](const char *pattern) { return GlobEval(text.c_str(), pattern) == 1; });
}

class Finder {
public:
    explicit Finder(const Options &options) : options_(options) {}

    /// Looks through a folder and those in it.
    /// @param below  its path below the first folder, with a slash at the end; empty for the first
    void search(const std::string &below)
    {
        std::string folder = options_.folder + '/' + below;
        WIN32_FIND_DATAA entry;
        HANDLE search = FindFirstFileA((folder + '*').c_str(), &entry);
        if (search == INVALID_HANDLE_VALUE) {
            eprintf("glob: cannot read the folder %s (error %lu)\n", folder.c_str(), GetLastError());
            complete_ = false;
            return;
        }
        do
            take(entry, below);
        while (FindNextFileA(search, &entry) != 0);
        FindClose(search);
    }

    /// Prints what was found.
    ExitStatus finish()
    {
        std::sort(found_.begin(), found_.end());
        for (const std::string &path : found_)
            puts(path.c_str());
        return complete_ && !found_.empty() ? Success : Nothing;
    }

private:
    void take(const WIN32_FIND_DATAA &entry, const std::string &below)
    {
        std::string name = entry.cFileName;
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            if (matchesAny(options_.wholePath ? below + name : name, options_.patterns))
                found_.push_back(below + name);
            return;
        }
        // Links to folders are not followed: they may lead in a circle.
        bool isLink = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        if (name != "." && name != ".." && !isLink)
            search(below + name + '/');
    }

    const Options &options_;
    std::vector<std::string> found_;
    bool complete_ = true;
};

/// Reads the command line; ends the program for one that is wrong or asks for help.
Options readOptions(int argc, char **argv)
{
    Options options;
    if (argc > 1 && strcmp(argv[1], "--help") == 0) {
        fputs(usage, stdout);
        exit(Success);
    }
    int option = 0;
    while ((option = getopt(argc, argv, "cd:ph")) != -1) {
        switch (option) {
        case 'c':
            options.check = true;
            break;
        case 'd':
            options.folder = optarg;
            break;
        case 'p':
            options.wholePath = true;
            break;
        case 'h':
            fputs(usage, stdout);
            exit(Success);
        default:
            eprintf("See glob --help.\n");
            exit(WrongUse);
        }
    }
    options.patterns.assign(argv + optind, argv + argc);
    if (options.patterns.empty()) {
        eprintf("glob: a pattern is missing; see glob --help\n");
        exit(WrongUse);
    }
    return options;
}

} // namespace

// Patterns are this program's to expand, not the start-up code's.
extern "C" int _dowildcard; // NOLINT(bugprone-reserved-identifier)
int _dowildcard = 0;

int main(int argc, char **argv)
{
    _setmode(_fileno(stdout), _O_BINARY);
    Options options = readOptions(argc, argv);
    bool valid = true;
    for (const char *pattern : options.patterns)
        valid = explain(pattern, options.check ? stdout : stderr) && valid;
    if (options.check)
        return valid ? Success : Nothing;
    if (!valid)
        return WrongUse;
    Finder finder(options);
    finder.search("");
    return finder.finish();
}
