#include "base/element_storage.h"
#include "base/module_id.h"

#include "general/queue.h"

#include <stddef.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

/// A ring buffer. The element at index i, 0 being the oldest, is in slot head + i, wrapped once.
struct Queue {
    uint32_t magic;
    uint32_t capacity; ///< element slots
    uint32_t elementSize;
    uint32_t count;
    uint32_t tail; ///< slot that the next element goes to
    uint32_t head; ///< slot of the oldest element
    unsigned char *storage;
};

static_assert(offsetof(Queue, capacity) == 4 && offsetof(Queue, elementSize) == 8 && offsetof(Queue, count) == 12);
static_assert(offsetof(Queue, tail) == 16 && offsetof(Queue, head) == 20 && offsetof(Queue, storage) == 24);
static_assert(sizeof(Queue) == 28);

template<>
constexpr uint32_t general::liveMagic<Queue> = 0x51756531;

namespace {

using general::isLive;
using general::slot;

uint32_t slotOfIndex(const Queue *queue, uint32_t index)
{
    uint32_t untilEnd = queue->capacity - queue->head;
    return index < untilEnd ? queue->head + index : index - untilEnd;
}

/// Takes the head or the tail one slot on.
void advance(const Queue *queue, uint32_t &number)
{
    if (++number == queue->capacity)
        number = 0;
}

/// Moves count slots; source and destination may overlap.
void moveSlots(const Queue *queue, uint32_t destination, uint32_t source, uint32_t count)
{
    memmove(slot(queue, destination), slot(queue, source), size_t{count} * queue->elementSize);
}

/// Makes room in a full queue. The slots from head to the old end move up to the new end, which
/// leaves the new room between tail and head.
bool grow(Queue *queue)
{
    uint32_t formerCapacity = queue->capacity;
    if (!general::growStorage(queue))
        return false;
    moveSlots(queue, queue->head + general::growthStep, queue->head, formerCapacity - queue->head);
    queue->head += general::growthStep;
    return true;
}

/// Closes the gap at a slot; head stays, the later elements come down.
void closeGap(Queue *queue, uint32_t gap)
{
    if (queue->tail > gap) {
        moveSlots(queue, gap, gap + 1, queue->tail - gap - 1);
        --queue->tail;
        return;
    }
    uint32_t last = queue->capacity - 1;
    moveSlots(queue, gap, gap + 1, last - gap);
    if (queue->tail == 0) {
        queue->tail = last;
        return;
    }
    moveSlots(queue, last, 0, 1);
    moveSlots(queue, 0, 1, queue->tail - 1);
    --queue->tail;
}

void dropOldest(Queue *queue)
{
    advance(queue, queue->head);
    --queue->count;
}

[[gnu::noinline]] uint32_t growAndAdd(Queue *queue, const void *element)
{
    return grow(queue) ? QueAdd(queue, element) : uint32_t{QUE_NO_MEMORY};
}

/// What is wrong with reading the element at an index.
QueStat checkIndex(const Queue *queue, uint32_t index)
{
    if (!isLive(queue))
        return QUE_BAD_HANDLE;
    if (queue->count == 0)
        return QUE_EMPTY;
    return index < queue->count ? QUE_OK : QUE_BAD_ARG;
}

} // namespace

Queue *QueCreate(uint32_t elementSize)
{
    return elementSize == 0 ? nullptr : general::createContainer<Queue>(elementSize);
}

uint32_t QueDestroy(Queue *queue)
{
    if (!isLive(queue))
        return QUE_BAD_HANDLE;

    general::destroyContainer(queue);
    return QUE_OK;
}

uint32_t QueLength(const Queue *queue, uint32_t *length)
{
    if (!isLive(queue))
        return QUE_BAD_HANDLE;
    if (length == nullptr)
        return QUE_BAD_ARG;

    *length = queue->count;
    return QUE_OK;
}

uint32_t QueAdd(Queue *queue, const void *element)
{
    if (!isLive(queue))
        return QUE_BAD_HANDLE;
    if (element == nullptr)
        return QUE_BAD_ARG;
    if (queue->count == queue->capacity)
        return growAndAdd(queue, element);

    uint32_t number = queue->tail;
    advance(queue, queue->tail);
    ++queue->count;
    return general::putElement(queue, number, element);
}

uint32_t QueRmv(Queue *queue, void *element)
{
    if (!isLive(queue))
        return QUE_BAD_HANDLE;
    if (queue->count == 0)
        return QUE_EMPTY;
    if (element == nullptr)
        return QUE_BAD_ARG;

    uint32_t number = queue->head;
    dropOldest(queue);
    return general::takeElement(queue, number, element);
}

uint32_t QueDel(Queue *queue)
{
    if (!isLive(queue))
        return QUE_BAD_HANDLE;
    if (queue->count == 0)
        return QUE_EMPTY;

    dropOldest(queue);
    return QUE_OK;
}

uint32_t QueDelIndex(Queue *queue, uint32_t index)
{
    QueStat stat = checkIndex(queue, index);
    if (stat != QUE_OK)
        return stat;

    closeGap(queue, slotOfIndex(queue, index));
    --queue->count;
    return QUE_OK;
}

uint32_t QueLook(const Queue *queue, uint32_t index, void *element)
{
    QueStat stat = checkIndex(queue, index);
    if (stat != QUE_OK)
        return stat;
    if (element == nullptr)
        return QUE_BAD_ARG;

    return general::takeElement(queue, slotOfIndex(queue, index), element);
}

uint32_t QuePeek(const Queue *queue, uint32_t index, void **element)
{
    QueStat stat = checkIndex(queue, index);
    if (stat != QUE_OK)
        return stat;
    if (element == nullptr)
        return QUE_BAD_ARG;

    *element = slot(queue, slotOfIndex(queue, index));
    return QUE_OK;
}
