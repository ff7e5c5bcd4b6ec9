#include "base/checked_size.h"
#include "base/element_copy.h"
#include "base/handle_magic.h"
#include "base/module_id.h"

#include "general/pqueue.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

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

namespace {

constexpr uint32_t pqueueMagic = 0x50517565;
constexpr uint32_t initialCapacity = 20;
constexpr uint32_t growthStep = 10;

using general::Block;

bool isLive(const PQueue *queue)
{
    return queue != nullptr && queue->magic == pqueueMagic;
}

unsigned char *slot(const PQueue *queue, uint32_t number)
{
    return general::elementAt(queue->storage, number, queue->elementSize);
}

/// Bytes of storage for a number of slots; never 0, because a heap may answer a request for nothing
/// with null, or take it as a request to free.
bool storageSize(uint32_t capacity, uint32_t elementSize, size_t &size)
{
    if (!general::checkedProduct(capacity, elementSize, size))
        return false;
    size = size == 0 ? 1 : size;
    return true;
}

[[gnu::noinline]] bool grow(PQueue *queue)
{
    size_t capacity = 0;
    size_t size = 0;
    if (!general::checkedSum(queue->capacity, growthStep, capacity) || !storageSize(capacity, queue->elementSize, size))
        return false;
    void *storage = realloc(queue->storage, size);
    if (storage == nullptr)
        return false;
    queue->storage = static_cast<unsigned char *>(storage);
    queue->capacity = capacity;
    return true;
}

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

// Most moves are short: they are spared the call to memmove.

constexpr size_t longMove = 1024;

/// memmove to a lower address.
void moveDown(unsigned char *to, const unsigned char *from, size_t size)
{
    if (size >= longMove) {
        memmove(to, from, size);
        return;
    }
    for (; size >= sizeof(Block); size -= sizeof(Block), to += sizeof(Block), from += sizeof(Block))
        *reinterpret_cast<Block *>(to) = *reinterpret_cast<const Block *>(from);
    for (; size >= general::wordSize; size -= general::wordSize, to += general::wordSize, from += general::wordSize)
        general::copyWord(to, from);
    for (; size != 0; --size)
        *to++ = *from++;
}

/// memmove to a higher address.
void moveUp(unsigned char *to, const unsigned char *from, size_t size)
{
    if (size >= longMove) {
        memmove(to, from, size);
        return;
    }
    for (; size >= sizeof(Block); size -= sizeof(Block))
        *reinterpret_cast<Block *>(to + size - sizeof(Block)) =
            *reinterpret_cast<const Block *>(from + size - sizeof(Block));
    for (; size >= general::wordSize; size -= general::wordSize)
        general::copyWord(to + size - general::wordSize, from + size - general::wordSize);
    while (size-- != 0)
        to[size] = from[size];
}

void removeSlot(PQueue *queue, uint32_t number)
{
    --queue->count;
    if (queue->count > number)
        moveDown(slot(queue, number), slot(queue, number + 1), size_t{queue->count - number} * queue->elementSize);
}

/// What is wrong with the element at an index.
PQStat checkIndex(const PQueue *queue, int32_t index)
{
    if (!isLive(queue))
        return PQ_BAD_HANDLE;
    return index >= 0 && static_cast<uint32_t>(index) < queue->count ? PQ_OK : PQ_BAD_INDEX;
}

void copyOne(void *destination, const void *source, uint32_t elementSize)
{
    if (elementSize == general::wordSize)
        general::copyWord(destination, source);
    else
        general::copyElement(destination, source, elementSize);
}

void copyOut(const PQueue *queue, uint32_t number, void *element)
{
    copyOne(element, slot(queue, number), queue->elementSize);
}

} // namespace

PQueue *PQCreate(uint32_t elementSize, PQCompare compare)
{
    size_t size = 0;
    if (!storageSize(initialCapacity, elementSize, size))
        return nullptr;
    auto *queue = static_cast<PQueue *>(malloc(sizeof(PQueue)));
    auto *storage = static_cast<unsigned char *>(malloc(size));
    if (queue == nullptr || storage == nullptr) {
        free(queue);
        free(storage);
        return nullptr;
    }
    *queue = PQueue{.magic = pqueueMagic,
                    .compare = compare,
                    .elementSize = elementSize,
                    .count = 0,
                    .capacity = initialCapacity,
                    .storage = storage};
    return queue;
}

uint32_t PQDestroy(PQueue *queue)
{
    if (!isLive(queue))
        return PQ_BAD_HANDLE;

    general::clearMagic(queue->magic);
    free(queue->storage);
    free(queue);
    return PQ_OK;
}

uint32_t PQAdd(PQueue *queue, const void *element)
{
    if (!isLive(queue))
        return PQ_BAD_HANDLE;
    if (queue->count >= queue->capacity && !grow(queue))
        return PQ_NO_MEMORY;

    uint32_t number = insertionSlot(queue, element);
    unsigned char *place = slot(queue, number);
    if (queue->count > number)
        moveUp(place + queue->elementSize, place, size_t{queue->count - number} * queue->elementSize);
    copyOne(place, element, queue->elementSize);
    ++queue->count;
    return PQ_OK;
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

    copyOut(queue, static_cast<uint32_t>(index), element);
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

    copyOut(queue, static_cast<uint32_t>(index), element);
    return PQ_OK;
}

uint32_t PQPeek(const PQueue *queue, int32_t index, void **element)
{
    PQStat stat = checkIndex(queue, index);
    if (stat != PQ_OK)
        return stat;

    *element = slot(queue, static_cast<uint32_t>(index));
    return PQ_OK;
}
