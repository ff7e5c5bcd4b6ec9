/// @file
/// What the matchers are timed at: patterns that people write for file names, and a hard one.

#pragma once

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace bench {

struct PatternTask {
    const char *row;
    std::vector<const char *> patterns;
};

/// Each is matched against every file name.
inline const std::vector<PatternTask> patternTasks = {
    {"endings: *.h *.html *.so *.py", {"*.h", "*.html", "*.so", "*.py"}},
    {"beginnings: lib* std* README*", {"lib*", "std*", "README*"}},
    {"both: lib*.so a*.h c*.1.gz", {"lib*.so", "a*.h", "c*.1.gz"}},
    {"parts: *test* *a*e* *-*.*.*", {"*test*", "*a*e*", "*-*.*.*"}},
    {"single characters: ?????.h *.??", {"?????.h", "*.??"}},
};

/// All of the above in one row.
inline PatternTask allTogether()
{
    PatternTask all{"all these patterns", {}};
    for (const PatternTask &task : patternTasks)
        all.patterns.insert(all.patterns.end(), task.patterns.begin(), task.patterns.end());
    return all;
}

/// The same with sets, which not every matcher has.
inline const PatternTask setTask = {"sets: [a-m]*.h *[0-9].[ch] [^a-z]*", {"[a-m]*.h", "*[0-9].[ch]", "[^a-z]*"}};

inline std::vector<std::string> readNames(const char *path)
{
    std::ifstream file(path);
    std::vector<std::string> names;
    for (std::string line; std::getline(file, line);)
        names.push_back(line);
    if (names.empty()) {
        std::fprintf(stderr, "%s is missing: run this through script/bench text\n", path);
        std::exit(1);
    }
    return names;
}

/// Matches every name with every pattern.
/// @return how many matched
template<typename Match>
size_t matchAll(const std::vector<std::string> &names, const std::vector<const char *> &patterns, Match match)
{
    size_t matched = 0;
    for (const char *pattern : patterns)
        for (const std::string &name : names)
            matched += match(name.c_str(), pattern) ? 1 : 0;
    return matched;
}

inline std::string manyStars(int stars)
{
    std::string pattern;
    for (int i = 0; i < stars; ++i)
        pattern += "*a";
    return pattern + "*b*";
}

} // namespace bench
