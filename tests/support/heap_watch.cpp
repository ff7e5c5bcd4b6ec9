#include "tests/support/heap_watch.h"
#include "tests/support/heap_watch_record.h"

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace test_support {

namespace {

constexpr std::uintptr_t emptyPlace = 0;
constexpr std::uintptr_t removedPlace = 1;

/// Fixed tables, so that watching the heap never uses it.
struct Record {
    bool active;
    bool failed;
    bool failedUnasked; ///< and nobody has asked since
    int failingAllocation;
    int allocations;
    int liveBlocks;
    std::size_t lastSize;
    unsigned lastFreed[8];          ///< the first words of the last block freed
    std::uintptr_t blocks[1 << 16]; ///< open-addressed set of the blocks obtained

    static constexpr std::size_t places = sizeof blocks / sizeof blocks[0];

    static std::size_t firstPlace(const void *block) { return (reinterpret_cast<std::uintptr_t>(block) >> 3) % places; }

    bool nextFails(std::size_t size)
    {
        if (!active)
            return false;
        lastSize = size;
        if (++allocations != failingAllocation)
            return false;
        failed = failedUnasked = true;
        return true;
    }

    void *obtained(void *block)
    {
        if (!active || block == nullptr)
            return block;
        std::size_t place = firstPlace(block);
        while (blocks[place] > removedPlace)
            place = (place + 1) % places;
        blocks[place] = reinterpret_cast<std::uintptr_t>(block);
        ++liveBlocks;
        return block;
    }

    bool released(const void *block)
    {
        if (!active || block == nullptr)
            return false;
        for (std::size_t place = firstPlace(block); blocks[place] != emptyPlace; place = (place + 1) % places)
            if (blocks[place] == reinterpret_cast<std::uintptr_t>(block)) {
                blocks[place] = removedPlace;
                --liveBlocks;
                return true;
            }
        return false;
    }
};

Record record;

std::size_t sizeOf(void *block)
{
#ifdef _WIN32
    return _msize(block);
#else
    return malloc_usable_size(block);
#endif
}

} // namespace

HeapWatch::HeapWatch(int failingAllocation)
{
    std::memset(&record, 0, sizeof record);
    record.failingAllocation = failingAllocation;
    record.active = true;
    catchHeapCalls();
}

HeapWatch::~HeapWatch()
{
    releaseHeapCalls();
    record.active = false;
}

int HeapWatch::allocations() const
{
    return record.allocations;
}

int HeapWatch::liveBlocks() const
{
    return record.liveBlocks;
}

std::size_t HeapWatch::lastSize() const
{
    return record.lastSize;
}

bool HeapWatch::failed() const
{
    return record.failed;
}

bool HeapWatch::justFailed()
{
    return std::exchange(record.failedUnasked, false);
}

unsigned HeapWatch::wordOfLastFreedBlock(std::size_t index) const
{
    return record.lastFreed[index];
}

void *watchedMalloc(std::size_t size, MallocFunction *real)
{
    return record.nextFails(size) ? nullptr : record.obtained(real(size));
}

void *watchedCalloc(std::size_t count, std::size_t size, CallocFunction *real)
{
    return record.nextFails(count * size) ? nullptr : record.obtained(real(count, size));
}

void *watchedRealloc(void *block, std::size_t size, ReallocFunction *real)
{
    if (record.nextFails(size))
        return nullptr;
    bool wasWatched = record.released(block);
    void *moved = real(block, size);
    if (moved != nullptr)
        return record.obtained(moved);
    if (wasWatched && size != 0)
        record.obtained(block);
    return nullptr;
}

void watchedFree(void *block, FreeFunction *real)
{
    if (record.released(block)) {
        std::memset(record.lastFreed, 0, sizeof record.lastFreed);
        std::memcpy(record.lastFreed, block, std::min(sizeOf(block), sizeof record.lastFreed));
    }
    real(block);
}

} // namespace test_support
