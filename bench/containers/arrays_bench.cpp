#include "bench/support/row.h"

#include "general/arraylst.h"
#include "general/pqueue.h"
#include "general/verystupidfunction.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

std::vector<uint32_t> randomNumbers(size_t count)
{
    std::mt19937 random(1);
    std::vector<uint32_t> numbers(count);
    for (uint32_t &number : numbers)
        number = random() >> 1;
    return numbers;
}

int smallestFirst(const void *queued, const void *added)
{
    int32_t left = 0;
    int32_t right = 0;
    std::memcpy(&left, queued, sizeof left);
    std::memcpy(&right, added, sizeof right);
    return right - left;
}

void fillAndDrainQueue(benchmark::State &state, size_t count)
{
    auto numbers = randomNumbers(count);
    PQueue *queue = PQCreate(sizeof(uint32_t), smallestFirst);
    for (auto _ : state) {
        for (uint32_t number : numbers)
            PQAdd(queue, &number);
        uint32_t first = 0;
        while (PQRmv(queue, &first) == PQ_OK)
            benchmark::DoNotOptimize(first);
    }
    PQDestroy(queue);
}

void fillAndDrainVector(benchmark::State &state, size_t count)
{
    auto numbers = randomNumbers(count);
    std::vector<uint32_t> queue;
    for (auto _ : state) {
        for (uint32_t number : numbers)
            queue.insert(std::upper_bound(queue.begin(), queue.end(), number), number);
        while (!queue.empty()) {
            uint32_t first = queue.front();
            queue.erase(queue.begin());
            benchmark::DoNotOptimize(first);
        }
    }
}

/// The order as the queue has to call it: through a pointer that the compiler does not see through.
void fillAndDrainVectorByPointer(benchmark::State &state, size_t count)
{
    auto numbers = randomNumbers(count);
    std::vector<uint32_t> queue;
    PQCompare order = smallestFirst;
    benchmark::DoNotOptimize(order);
    auto precedes = [&order](uint32_t added, uint32_t queued) { return order(&queued, &added) < 0; };
    for (auto _ : state) {
        for (uint32_t number : numbers)
            queue.insert(std::upper_bound(queue.begin(), queue.end(), number, precedes), number);
        while (!queue.empty()) {
            uint32_t first = queue.front();
            queue.erase(queue.begin());
            benchmark::DoNotOptimize(first);
        }
    }
}

void seekInList(benchmark::State &state, uint32_t count)
{
    ArrayLst *list = ArrayLstCreate();
    for (uint32_t i = 0; i < count; ++i)
        ArrayLstAdd(list, i, i);
    uint32_t key = 0;
    for (auto _ : state) {
        uint32_t object = 0;
        ArrayLstSeek(list, key, &object);
        benchmark::DoNotOptimize(object);
        key = (key + 7919) % count;
    }
    ArrayLstDestroy(list);
}

/// A call into the DLL that does nothing, in place of the scan.
void callOnly(benchmark::State &state)
{
    uint32_t key = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(VeryStupidFunction(static_cast<int>(key)));
        key = (key + 7919) % 10;
    }
}

void findInVector(benchmark::State &state, uint32_t count)
{
    std::vector<std::pair<uint32_t, uint32_t>> list;
    for (uint32_t i = 0; i < count; ++i)
        list.emplace_back(i, i);
    uint32_t key = 0;
    for (auto _ : state) {
        auto found = std::find_if(list.begin(), list.end(), [key](auto &pair) { return pair.first == key; });
        benchmark::DoNotOptimize(found->second);
        key = (key + 7919) % count;
    }
}

const bool registered = [] {
    for (size_t count : {100u, 1000u, 10000u}) {
        std::string row = "priority queue: add and remove " + std::to_string(count) + " integers";
        bench::contend(row, "general", [count](benchmark::State &state) { fillAndDrainQueue(state, count); }, 1.0);
        bench::contend(row, "sorted std::vector",
                       [count](benchmark::State &state) { fillAndDrainVector(state, count); });
        bench::contend(
            row, "limit: order called by pointer",
            [count](benchmark::State &state) { fillAndDrainVectorByPointer(state, count); }, 1.0);
    }
    for (uint32_t count : {10u, 100u, 1000u}) {
        std::string row = "array list: seek a key among " + std::to_string(count);
        bench::contend(row, "general", [count](benchmark::State &state) { seekInList(state, count); }, 0.8);
        bench::contend(row, "std::find_if", [count](benchmark::State &state) { findInVector(state, count); });
        if (count == 10)
            bench::contend(row, "limit: empty call", callOnly);
    }
    return true;
}();

} // namespace
