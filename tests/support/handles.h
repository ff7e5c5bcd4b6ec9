/// @file
/// What the tests of handles share.

#pragma once

#include "tests/support/heap_watch.h"

#include <cstdint>
#include <initializer_list>

namespace test_support {

/// Runs random traffic on a container beside its model: short with each of its allocations failing
/// in turn, then long.
/// @param traffic  called with the watch, the number of steps and the container; when a call finds
///                 memory exhausted, `watch.justFailed()` has to say so, and the model stays as it is
template<typename Create, typename Destroy, typename Traffic>
void runTraffic(int shortRun, int longRun, Create create, Destroy destroy, Traffic traffic)
{
    auto run = [&](HeapWatch &watch, int steps) {
        auto *handle = create();
        EXPECT_EQ(handle == nullptr, watch.justFailed());
        if (handle == nullptr)
            return;
        traffic(watch, steps, handle);
        destroy(handle);
    };
    failEachAllocation([&](HeapWatch &watch) { run(watch, shortRun); });
    HeapWatch watch;
    if (!testing::Test::HasFailure())
        run(watch, longRun);
    EXPECT_EQ(watch.liveBlocks(), 0);
}

/// Calls functions with a null handle and with a record that lacks the magic. Whatever else they take is 0:
/// one that did not look at its handle first would follow a null pointer.
template<typename... Functions>
void expectRefusal(int64_t expected, Functions... functions)
{
    uint32_t record[8] = {};
    int number = 0;
    auto call =
        [&]<typename Result, typename Handle, typename... Arguments>(Result (*function)(Handle *, Arguments...)) {
            ++number;
            for (uint32_t *none : {static_cast<uint32_t *>(nullptr), record}) {
                Result result = function(reinterpret_cast<Handle *>(none), Arguments{}...);
                EXPECT_EQ((intptr_t)result, expected) << "function " << number << " of the list";
            }
        };
    (call(functions), ...);
}

/// Expects one result of several calls, listed in the order in which they are made.
inline void expectEach(int64_t expected, std::initializer_list<int64_t> results)
{
    int call = 0;
    for (int64_t result : results)
        EXPECT_EQ(result, expected) << "call " << ++call << " of the list";
}

/// Expects a name for each result from 0 on, and one text for all other numbers.
inline void expectNames(const char *(*nameOf)(int32_t), std::initializer_list<const char *> names, const char *unknown)
{
    int32_t result = 0;
    for (const char *name : names)
        EXPECT_STREQ(nameOf(result++), name);
    EXPECT_STREQ(nameOf(result), unknown);
    EXPECT_STREQ(nameOf(-1), unknown);
}

/// A field of a handle's record.
template<typename Handle>
uint32_t &fieldOf(Handle *handle, size_t number)
{
    return reinterpret_cast<uint32_t *>(handle)[number];
}

/// Expects a handle's magic in a field, and what its destruction leaves there.
template<typename Handle, typename Destroy>
void expectMagic(uint32_t magic, HeapWatch &watch, Handle *handle, Destroy destroy, uint32_t left = 0, size_t field = 0)
{
    EXPECT_EQ(fieldOf(handle, field), magic);
    destroy(handle);
    EXPECT_EQ(watch.wordOfLastFreedBlock(field), left) << "of the magic " << magic;
}

} // namespace test_support
