#include "base/checked_size.h"
#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/bufpool.h"

#include <stddef.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

/// The header of one block; `slotCount` slots follow it.
struct BufPool {
    uint32_t magic;
    uint32_t maximumSize;
    int32_t slotCount;
    int32_t available; ///< free slots, and one more for every buffer released twice
};

template<>
constexpr uint32_t general::liveMagic<BufPool> = 0x00048FB2;

namespace {

struct Slot {
    void *buffer; ///< null until first used
    uint32_t size;
    uint32_t isFree;
};

static_assert(offsetof(BufPool, maximumSize) == 4 && offsetof(BufPool, slotCount) == 8);
static_assert(offsetof(BufPool, available) == 12 && sizeof(BufPool) == 16);
static_assert(offsetof(Slot, size) == 4 && offsetof(Slot, isFree) == 8 && sizeof(Slot) == 12);

constexpr int32_t failure = -1;

using general::isLive;

Slot *slotsOf(BufPool *pool)
{
    return reinterpret_cast<Slot *>(pool + 1);
}

Slot *endOfSlots(BufPool *pool)
{
    return slotsOf(pool) + pool->slotCount;
}

/// Gives a slot a buffer of at least a size. A failure leaves the slot as it was.
[[gnu::noinline]] bool enlarge(Slot *slot, uint32_t size)
{
    void *buffer = slot->buffer == nullptr ? malloc(size) : realloc(slot->buffer, size);
    if (buffer == nullptr)
        return false;
    slot->buffer = buffer;
    slot->size = size;
    return true;
}

} // namespace

BufPool *BufPoolCreate(int32_t slotCount, uint32_t maximumSize)
{
    size_t size = 0;
    if (slotCount < 1 || maximumSize == 0 ||
        !general::checkedProduct(static_cast<uint32_t>(slotCount), sizeof(Slot), size) ||
        !general::checkedSum(size, sizeof(BufPool), size))
        return nullptr;
    auto *pool = static_cast<BufPool *>(malloc(size));
    if (pool == nullptr)
        return nullptr;
    *pool = BufPool{.magic = general::liveMagic<BufPool>,
                    .maximumSize = maximumSize,
                    .slotCount = slotCount,
                    .available = slotCount};
    for (Slot *slot = slotsOf(pool); slot != endOfSlots(pool); ++slot)
        *slot = Slot{.buffer = nullptr, .size = 0, .isFree = 1};
    return pool;
}

int32_t BufPoolDestroy(BufPool *pool)
{
    if (pool == nullptr)
        return 0;
    if (!isLive(pool))
        return failure;

    for (Slot *slot = slotsOf(pool); slot != endOfSlots(pool); ++slot)
        free(slot->buffer);
    general::clearMagic(pool->magic);
    free(pool);
    return 0;
}

void *BufPoolGrab(BufPool *pool, uint32_t size)
{
    if (!isLive(pool) || size > pool->maximumSize || pool->available == 0)
        return nullptr;

    Slot *slot = slotsOf(pool);
    Slot *end = endOfSlots(pool);
    while (slot != end && slot->isFree == 0)
        ++slot;
    if (slot == end)
        return nullptr;
    if ((slot->buffer == nullptr || size > slot->size) && !enlarge(slot, size))
        return nullptr;
    slot->isFree = 0;
    --pool->available;
    return slot->buffer;
}

int32_t BufPoolRelease(BufPool *pool, const void *buffer)
{
    if (!isLive(pool) || buffer == nullptr)
        return failure;

    for (Slot *slot = slotsOf(pool), *end = endOfSlots(pool); slot != end; ++slot)
        if (slot->buffer == buffer) {
            slot->isFree = 1;
            ++pool->available; // also when the slot was free already: callers see the double count
            return 0;
        }
    return failure;
}

int32_t BufPoolAvail(const BufPool *pool)
{
    return isLive(pool) ? pool->available : failure;
}

int32_t BufPoolResetMaxSize(BufPool *pool, uint32_t maximumSize)
{
    if (!isLive(pool))
        return failure;

    pool->maximumSize = maximumSize;
    return 0;
}
