#include "base/element_storage.h"
#include "base/module_id.h"

#include "general/pqueue.h"

#include <stddef.h>

GENERAL_MODULE_ID("$Id$");

/// A sorted array; slot 0 is the next to come out.
struct PQueue {
    uint32_t magic;
    PQCompare compare;
    uint32_t elementSize;
    uint32_t count;
    uint32_t capacity; ///< element slots
    unsigned char *storage;
};

static_assert(offsetof(PQueue, compare) == 4 && offsetof(PQueue, elementSize) == 8 && offsetof(PQueue, count) == 12);
static_assert(offsetof(PQueue, capacity) == 16 && offsetof(PQueue, storage) == 20 && sizeof(PQueue) == 24);

template<>
constexpr uint32_t general::liveMagic<PQueue> = 0x50517565;

namespace {

using general::isLive;
using general::slot;

/// The slot for a new element: behind every queued one that does not have to come after it. A
/// comparison's outcome is a coin toss for the branch predictor, so it selects values instead.
uint32_t insertionSlot(const PQueue *queue, const void *element)
{
    uint32_t low = 0;
    uint32_t high = queue->count;
    uint32_t middle = high / 2;
    while (high > low) {
        bool goesBefore = queue->compare(slot(queue, middle), element) < 0;
        high = goesBefore ? middle : high;
        low = goesBefore ? low : middle + 1;
        middle = low + (high - low) / 2;
    }
    return middle;
}

void removeSlot(PQueue *queue, uint32_t number)
{
    --queue->count;
    if (queue->count > number)
        general::moveDown(slot(queue, number), slot(queue, number + 1),
                          size_t{queue->count - number} * queue->elementSize);
}

/// What is wrong with the element at an index.
PQStat checkIndex(const PQueue *queue, int32_t index)
{
    if (!isLive(queue))
        return PQ_BAD_HANDLE;
    return index >= 0 && static_cast<uint32_t>(index) < queue->count ? PQ_OK : PQ_BAD_INDEX;
}

} // namespace

PQueue *PQCreate(uint32_t elementSize, PQCompare compare)
{
    auto *queue = general::createContainer<PQueue>(elementSize);
    if (queue != nullptr)
        queue->compare = compare;
    return queue;
}

uint32_t PQDestroy(PQueue *queue)
{
    if (!isLive(queue))
        return PQ_BAD_HANDLE;

    general::destroyContainer(queue);
    return PQ_OK;
}

uint32_t PQAdd(PQueue *queue, const void *element)
{
    if (!isLive(queue))
        return PQ_BAD_HANDLE;
    if (queue->count >= queue->capacity && !general::growStorage(queue))
        return PQ_NO_MEMORY;

    uint32_t number = insertionSlot(queue, element);
    unsigned char *place = slot(queue, number);
    if (queue->count > number)
        general::moveUp(place + queue->elementSize, place, size_t{queue->count - number} * queue->elementSize);
    ++queue->count;
    return general::putElement(queue, number, element);
}

uint32_t PQRmv(PQueue *queue, void *element)
{
    return PQRmvIndex(queue, 0, element);
}

uint32_t PQDel(PQueue *queue)
{
    return PQDelIndex(queue, 0);
}

uint32_t PQRmvIndex(PQueue *queue, int32_t index, void *element)
{
    PQStat stat = checkIndex(queue, index);
    if (stat != PQ_OK)
        return stat;

    general::takeElement(queue, static_cast<uint32_t>(index), element);
    removeSlot(queue, static_cast<uint32_t>(index));
    return PQ_OK;
}

uint32_t PQDelIndex(PQueue *queue, int32_t index)
{
    PQStat stat = checkIndex(queue, index);
    if (stat != PQ_OK)
        return stat;

    removeSlot(queue, static_cast<uint32_t>(index));
    return PQ_OK;
}

uint32_t PQLength(const PQueue *queue, uint32_t *length)
{
    if (!isLive(queue))
        return PQ_BAD_HANDLE;

    *length = queue->count;
    return PQ_OK;
}

uint32_t PQLook(const PQueue *queue, int32_t index, void *element)
{
    PQStat stat = checkIndex(queue, index);
    if (stat != PQ_OK)
        return stat;

    return general::takeElement(queue, static_cast<uint32_t>(index), element);
}

uint32_t PQPeek(const PQueue *queue, int32_t index, void **element)
{
    PQStat stat = checkIndex(queue, index);
    if (stat != PQ_OK)
        return stat;

    *element = slot(queue, static_cast<uint32_t>(index));
    return PQ_OK;
}
