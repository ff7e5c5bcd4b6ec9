#include "bench/support/row.h"

namespace bench {

benchmark::internal::Benchmark *contend(const std::string &row, const std::string &contender,
                                        std::function<void(benchmark::State &)> work, double aim)
{
    auto timed = [work = std::move(work), aim](benchmark::State &state) {
        work(state);
        if (aim > 0)
            state.SetLabel("aim " + std::to_string(aim));
    };
    return benchmark::RegisterBenchmark((row + " | " + contender).c_str(), timed);
}

} // namespace bench

BENCHMARK_MAIN();
