/// @file
/// Watches the library's use of the heap: counts the blocks that it holds, and makes one chosen
/// allocation fail. In the Windows build it hooks the shipped DLL's imports; in the host build the
/// linker wraps the allocation functions of the whole test program.

#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>

namespace test_support {

/// Watches from its making to its end. One at a time.
class HeapWatch {
public:
    /// @param failingAllocation  which call of malloc, calloc or realloc fails, from 1; 0 for none
    explicit HeapWatch(int failingAllocation = 0);
    ~HeapWatch();
    HeapWatch(const HeapWatch &) = delete;
    HeapWatch &operator=(const HeapWatch &) = delete;

    /// Allocations asked for since the watch began, the failed one included.
    int allocations() const { return counts_.allocations; }
    /// Blocks obtained since the watch began that have not been freed.
    int liveBlocks() const { return counts_.liveBlocks; }
    /// Bytes asked for by the last malloc, calloc or realloc.
    std::size_t lastSize() const { return counts_.lastSize; }
    /// Whether the chosen allocation has been made to fail.
    bool failed() const { return counts_.failed; }
    /// The first word of the last block of at least a word that was freed, as it stood then.
    unsigned firstWordOfLastFreedBlock() const { return counts_.firstWordOfLastFreed; }

private:
    friend struct HeapRecord;
    struct Counts {
        int allocations = 0;
        int liveBlocks = 0;
        std::size_t lastSize = 0;
        bool failed = false;
        unsigned firstWordOfLastFreed = 0;
    };
    Counts counts_;
};

/// Runs a scenario with its first allocation failing, then with its second, and so on until one
/// run goes through without a failure. The scenario makes what it needs, checks that a failed call
/// left everything as it was, and destroys what it made: after each run every block must be free.
///
/// @param scenario  called with the watch; reads `watch.failed()` to tell what to expect
/// @return how many allocations were made to fail
inline int failEachAllocation(const std::function<void(HeapWatch &watch)> &scenario)
{
    constexpr int tooMany = 10000;
    for (int failing = 1; failing < tooMany; ++failing) {
        HeapWatch watch(failing);
        scenario(watch);
        EXPECT_EQ(watch.liveBlocks(), 0) << "leaked with allocation " << failing << " failing";
        if (!watch.failed()) {
            EXPECT_GT(failing, 1) << "the scenario allocates nothing";
            return failing - 1;
        }
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "with allocation " << failing << " failing";
            return failing;
        }
    }
    ADD_FAILURE() << "the scenario never runs through";
    return tooMany;
}

} // namespace test_support
