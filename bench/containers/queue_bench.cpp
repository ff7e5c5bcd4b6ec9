#include "bench/support/row.h"

#include "general/queue.h"

#include <deque>

namespace {

constexpr int depth = 1000;

void fillAndDrainQueue(benchmark::State &state)
{
    Queue *queue = QueCreate(sizeof(int));
    for (auto _ : state) {
        for (int i = 0; i < depth; ++i)
            QueAdd(queue, &i);
        int oldest = 0;
        while (QueRmv(queue, &oldest) == QUE_OK)
            benchmark::DoNotOptimize(oldest);
    }
    QueDestroy(queue);
}

void fillAndDrainDeque(benchmark::State &state)
{
    std::deque<int> queue;
    for (auto _ : state) {
        for (int i = 0; i < depth; ++i)
            queue.push_back(i);
        while (!queue.empty()) {
            int oldest = queue.front();
            queue.pop_front();
            benchmark::DoNotOptimize(oldest);
        }
    }
}

const bool registered = [] {
    bench::contend("queue: add 1000 integers, remove 1000", "general", fillAndDrainQueue, 0.5);
    bench::contend("queue: add 1000 integers, remove 1000", "std::deque", fillAndDrainDeque);
    return true;
}();

} // namespace
