#include "tests/support/heap_watch.h"
#include "tests/support/heap_watch_record.h"

#include <malloc.h>

#include <cstdint>
#include <cstring>

namespace test_support {

/// What is caught while a watch lives. Fixed tables, so that watching the heap never uses it.
struct HeapRecord {
    static constexpr std::uintptr_t emptyPlace = 0;
    static constexpr std::uintptr_t removedPlace = 1;
    static constexpr std::size_t places = 1 << 16;

    HeapWatch::Counts *counts; ///< null: no watch lives
    int failingAllocation;
    std::uintptr_t blocks[places]; ///< open-addressed set of the blocks obtained

    static std::size_t firstPlace(const void *block) { return (reinterpret_cast<std::uintptr_t>(block) >> 3) % places; }

    void begin(HeapWatch::Counts &watched, int failing)
    {
        std::memset(blocks, 0, sizeof blocks);
        failingAllocation = failing;
        counts = &watched;
    }

    bool nextFails(std::size_t size)
    {
        if (counts == nullptr)
            return false;
        counts->lastSize = size;
        if (++counts->allocations != failingAllocation)
            return false;
        counts->failed = true;
        return true;
    }

    void *obtained(void *block)
    {
        if (counts == nullptr || block == nullptr)
            return block;
        std::size_t place = firstPlace(block);
        while (blocks[place] > removedPlace)
            place = (place + 1) % places;
        blocks[place] = reinterpret_cast<std::uintptr_t>(block);
        ++counts->liveBlocks;
        return block;
    }

    bool released(const void *block)
    {
        if (counts == nullptr || block == nullptr)
            return false;
        for (std::size_t place = firstPlace(block); blocks[place] != emptyPlace; place = (place + 1) % places)
            if (blocks[place] == reinterpret_cast<std::uintptr_t>(block)) {
                blocks[place] = removedPlace;
                --counts->liveBlocks;
                return true;
            }
        return false;
    }

    void keepFirstWord(void *block)
    {
#ifdef _WIN32
        std::size_t size = _msize(block);
#else
        std::size_t size = malloc_usable_size(block);
#endif
        if (size >= sizeof counts->firstWordOfLastFreed)
            std::memcpy(&counts->firstWordOfLastFreed, block, sizeof counts->firstWordOfLastFreed);
    }
};

static HeapRecord record;

HeapWatch::HeapWatch(int failingAllocation)
{
    record.begin(counts_, failingAllocation);
    catchHeapCalls();
}

HeapWatch::~HeapWatch()
{
    releaseHeapCalls();
    record.counts = nullptr;
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
    if (record.released(block))
        record.keepFirstWord(block);
    real(block);
}

} // namespace test_support
