#include "bench/support/row.h"
#include "bench/text/glob_tasks.h"

#include "general/glob.h"

#include <windows.h>

#include <shlwapi.h>

#include <string>

namespace {

const std::vector<std::string> &names()
{
    static const std::vector<std::string> list = bench::readNames("build/bench/names.txt");
    return list;
}

template<typename Match>
void contendMatcher(const bench::PatternTask &task, const char *contender, Match match, double aim)
{
    bench::contend(
        std::string("5000 file names, ") + task.row, contender,
        [task, match](benchmark::State &state) {
            const auto &list = names();
            for (auto _ : state)
                benchmark::DoNotOptimize(bench::matchAll(list, task.patterns, match));
        },
        aim);
}

template<typename Match>
void contendStars(int stars, size_t letters, const char *contender, Match match, double aim)
{
    bench::contend(
        std::to_string(stars) + " stars and no match, " + std::to_string(letters) + " letters", contender,
        [=](benchmark::State &state) {
            std::string pattern = bench::manyStars(stars);
            std::string string(letters, 'a');
            for (auto _ : state)
                benchmark::DoNotOptimize(match(string.c_str(), pattern.c_str()));
        },
        aim);
}

const bool registered = [] {
    auto ours = [](const char *string, const char *pattern) { return GlobEval(string, pattern); };
    auto shell = [](const char *string, const char *pattern) { return PathMatchSpecA(string, pattern); };
    for (const auto &task : bench::patternTasks) {
        contendMatcher(task, "general", ours, 0);
        contendMatcher(task, "PathMatchSpecA", shell, 0);
    }
    contendMatcher(bench::allTogether(), "general", ours, 3.0);
    contendMatcher(bench::allTogether(), "PathMatchSpecA", shell, 0);
    contendMatcher(bench::setTask, "general", ours, 0);
    contendStars(5, 40, "general", ours, 3.0);
    contendStars(5, 40, "PathMatchSpecA", shell, 0);
    for (size_t letters : {1000u, 10000u, 100000u, 1000000u})
        contendStars(50, letters, "general", ours, 0);
    return true;
}();

} // namespace
