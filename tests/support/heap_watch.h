/// @file
/// Watches the library's use of the heap: counts the blocks that it holds, and makes one chosen
/// allocation fail. In the Windows build it hooks the shipped DLL's imports; in the host build the
/// linker wraps the allocation functions of the whole test program.

#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <utility>

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
    int allocations() const { return allocations_; }
    /// Blocks obtained since the watch began that have not been freed.
    int liveBlocks() const { return static_cast<int>(sizes_.size()); }
    /// Bytes asked for by the last malloc, calloc or realloc.
    std::size_t lastSize() const { return lastSize_; }
    /// Whether the chosen allocation has been made to fail.
    bool failed() const { return failingAllocation_ > 0 && allocations_ >= failingAllocation_; }
    /// Whether the chosen allocation has failed since this was last asked.
    bool justFailed() { return std::exchange(failedUnasked_, false); }
    /// A word of the last block freed, as it stood then; one of the first eight. 0 beyond its end.
    unsigned wordOfLastFreedBlock(std::size_t index = 0) const { return lastFreed_[index]; }

    /// What an allocation of the library's goes through.
    /// @param former  the block that is reallocated, or null
    /// @param real    does what was asked for
    static void *allocate(std::size_t size, void *former, const std::function<void *()> &real);
    /// The library is about to free a block.
    static void release(void *block);

private:
    struct Hooks;

    static inline HeapWatch *active_; ///< null: no watch lives
    const int failingAllocation_;
    int allocations_ = 0;
    std::size_t lastSize_ = 0;
    bool failedUnasked_ = false;
    std::map<void *, std::size_t> sizes_; ///< of the live blocks
    unsigned lastFreed_[8] = {};
    std::shared_ptr<Hooks> hooks_;
};

/// Runs a scenario with its first allocation failing, then with its second, and so on until one
/// run goes through without a failure. The scenario makes what it needs, checks that a failed call
/// left everything as it was, and destroys what it made: after each run every block must be free.
///
/// @param scenario  called with the watch; reads `watch.failed()` to tell what to expect
/// @return how many allocations were made to fail
inline int failEachAllocation(const std::function<void(HeapWatch &watch)> &scenario)
{
    for (int failing = 1; !testing::Test::HasFailure(); ++failing) {
        SCOPED_TRACE("allocation " + std::to_string(failing) + " failing");
        HeapWatch watch(failing);
        scenario(watch);
        EXPECT_EQ(watch.liveBlocks(), 0) << "leaked";
        if (watch.failed())
            continue;
        EXPECT_GT(failing, 1) << "the scenario allocates nothing";
        return failing - 1;
    }
    return 0;
}

} // namespace test_support
