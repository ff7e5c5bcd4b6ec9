#include "bench/support/row.h"

#include "general/action.h"
#include "general/bufpool.h"
#include "general/cbuf.h"
#include "general/verystupidfunction.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr uint32_t quantum = 4096;
constexpr uint32_t appends = 1000;
const char source[64] = {};

/// The length of each append: `size` bytes, or 1 to 64 in turn for 0.
uint32_t lengthOf(uint32_t append, uint32_t size)
{
    return size == 0 ? 1 + append * 37 % 64 : size;
}

void appendToBuffer(benchmark::State &state, uint32_t size)
{
    CBuf *buffer = CBufCreate(quantum);
    for (auto _ : state) {
        CBufReset(buffer);
        for (uint32_t i = 0; i < appends; ++i)
            CBufAppend(buffer, source, lengthOf(i, size));
    }
    CBufDestroy(buffer);
}

void appendToString(benchmark::State &state, uint32_t size)
{
    std::string buffer;
    for (auto _ : state) {
        buffer.clear();
        for (uint32_t i = 0; i < appends; ++i)
            buffer.append(source, lengthOf(i, size));
        benchmark::DoNotOptimize(buffer.data());
    }
}

/// As many calls into the DLL that do nothing.
void callAsOften(benchmark::State &state)
{
    for (auto _ : state)
        for (uint32_t i = 0; i < appends; ++i)
            benchmark::DoNotOptimize(VeryStupidFunction(static_cast<int>(i)));
}

void grabAndRelease(benchmark::State &state, uint32_t size)
{
    BufPool *pool = BufPoolCreate(8, size);
    for (auto _ : state) {
        void *first = BufPoolGrab(pool, size);
        void *second = BufPoolGrab(pool, size / 2);
        benchmark::DoNotOptimize(first);
        benchmark::DoNotOptimize(second);
        BufPoolRelease(pool, first);
        BufPoolRelease(pool, second);
    }
    BufPoolDestroy(pool);
}

void mallocAndFree(benchmark::State &state, uint32_t size)
{
    for (auto _ : state) {
        void *first = std::malloc(size);
        void *second = std::malloc(size / 2);
        benchmark::DoNotOptimize(first);
        benchmark::DoNotOptimize(second);
        std::free(first);
        std::free(second);
    }
}

void count(void *, void *counter, void *)
{
    ++*static_cast<int *>(counter);
}

void dispatchRegistry(benchmark::State &state)
{
    int counter = 0;
    Action *action = ActionCreate();
    for (int i = 0; i < 100; ++i)
        ActionAdd(action, count, &counter);
    for (auto _ : state)
        ActionDo(action, nullptr, nullptr);
    benchmark::DoNotOptimize(counter);
    ActionDestroy(action);
}

void dispatchVector(benchmark::State &state)
{
    int counter = 0;
    std::vector<std::pair<ActionCallback, void *>> callbacks(100, {count, &counter});
    benchmark::DoNotOptimize(callbacks.data());
    for (auto _ : state) {
        benchmark::ClobberMemory();
        for (auto [callback, data] : callbacks)
            callback(nullptr, data, nullptr);
    }
    benchmark::DoNotOptimize(counter);
}

/// Entries linked in order, as callbacks need them that add and remove entries while they run.
void dispatchLinked(benchmark::State &state)
{
    struct Entry {
        ActionCallback callback;
        void *data;
        Entry *next;
    };
    int counter = 0;
    std::vector<Entry> entries(100, {count, &counter, nullptr});
    for (size_t i = 1; i < entries.size(); ++i)
        entries[i - 1].next = &entries[i];
    benchmark::DoNotOptimize(entries.data());
    for (auto _ : state) {
        benchmark::ClobberMemory();
        for (const Entry *entry = &entries[0]; entry != nullptr; entry = entry->next)
            entry->callback(nullptr, entry->data, nullptr);
    }
    benchmark::DoNotOptimize(counter);
}

const bool registered = [] {
    for (uint32_t size : {1u, 16u, 64u, 0u}) {
        std::string row =
            "character buffer: 1000 appends of " + (size == 0 ? "1 to 64" : std::to_string(size)) + " bytes";
        bench::contend(row, "general", [size](benchmark::State &state) { appendToBuffer(state, size); }, 0.8);
        bench::contend(row, "std::string", [size](benchmark::State &state) { appendToString(state, size); });
        if (size == 1)
            bench::contend(row, "limit: empty calls", callAsOften);
    }
    for (uint32_t size : {64u, 4096u, 65536u}) {
        std::string row = "buffer pool: grab and release two of up to " + std::to_string(size) + " bytes";
        bench::contend(row, "general", [size](benchmark::State &state) { grabAndRelease(state, size); }, 3.0);
        bench::contend(row, "malloc, free", [size](benchmark::State &state) { mallocAndFree(state, size); });
    }
    bench::contend("callbacks: dispatch 100 entries", "general", dispatchRegistry, 0.8);
    bench::contend("callbacks: dispatch 100 entries", "vector of function pointers", dispatchVector);
    bench::contend("callbacks: dispatch 100 entries", "limit: linked entries", dispatchLinked);
    return true;
}();

} // namespace
