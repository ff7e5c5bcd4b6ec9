// Times the pattern matcher beside the C library's fnmatch on this machine and writes the figures in
// the benchmark library's format.
//
//   fnmatch_host NAMES

#include "bench/text/glob_tasks.h"

#include "general/glob.h"

#include <fnmatch.h>

#include <chrono>
#include <functional>

namespace {

bool matchOurs(const char *string, const char *pattern)
{
    return GlobEval(string, pattern) != 0;
}

bool matchTheirs(const char *string, const char *pattern)
{
    return fnmatch(pattern, string, 0) == 0;
}

volatile size_t sink;

/// Nanoseconds of one run, in the best of several rounds of at least 50 ms: the least disturbed one.
double timeOf(const std::function<size_t()> &work)
{
    using Clock = std::chrono::steady_clock;
    constexpr int rounds = 9;
    double best = 0;
    for (int round = 0; round < rounds; ++round) {
        int runs = 0;
        auto start = Clock::now();
        std::chrono::duration<double, std::nano> passed{};
        for (; passed < std::chrono::milliseconds(50); passed = Clock::now() - start, ++runs)
            sink = work();
        if (round == 0 || passed.count() / runs < best)
            best = passed.count() / runs;
    }
    return best;
}

void report(const std::string &row, const char *contender, double time, double aim, const char *separator = ",")
{
    std::printf("%s\n{\"name\": \"%s | %s\", \"run_name\": \"%s | %s\", \"real_time\": %.1f, \"time_unit\": \"ns\", "
                "\"label\": \"%s\"}",
                separator, row.c_str(), contender, row.c_str(), contender, time,
                aim > 0 ? ("aim " + std::to_string(aim)).c_str() : "");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fnmatch_host NAMES\n");
        return 2;
    }
    auto names = bench::readNames(argv[1]);
    auto tasks = bench::patternTasks;
    tasks.push_back(bench::setTask);
    bench::PatternTask all = bench::allTogether();
    all.row = "all these patterns, sets too";
    all.patterns.insert(all.patterns.end(), bench::setTask.patterns.begin(), bench::setTask.patterns.end());
    tasks.push_back(all);

    std::printf("{\"benchmarks\": [");
    const char *separator = "";
    for (const auto &task : tasks) {
        std::string row = std::string("5000 file names, ") + task.row + " (host)";
        if (bench::matchAll(names, task.patterns, matchOurs) != bench::matchAll(names, task.patterns, matchTheirs)) {
            std::fprintf(stderr, "%s: the two do not agree\n", row.c_str());
            return 1;
        }
        double aim = &task == &tasks.back() ? 3.0 : 0;
        report(row, "general", timeOf([&] { return bench::matchAll(names, task.patterns, matchOurs); }), aim,
               separator);
        report(row, "fnmatch", timeOf([&] { return bench::matchAll(names, task.patterns, matchTheirs); }), 0);
        separator = ",";
    }
    for (size_t letters : {1000, 10000}) {
        std::string row = "50 stars and no match, " + std::to_string(letters) + " letters (host)";
        std::string pattern = bench::manyStars(50);
        std::string string(letters, 'a');
        report(row, "general", timeOf([&] { return matchOurs(string.c_str(), pattern.c_str()); }), 3.0);
        report(row, "fnmatch", timeOf([&] { return matchTheirs(string.c_str(), pattern.c_str()); }), 0);
    }
    std::printf("\n]}\n");
    return 0;
}
