#include "ipc/shm_segment.h"

#include "base/module_id.h"

#include <string.h>

#include <algorithm>

GENERAL_MODULE_ID("$Id$");

namespace {

using namespace general::shm;

/// How long a select watches the header words before it goes to sleep.
constexpr LONGLONG lookoutsPerSecond = 10000; // 100 µs each
constexpr int greatestLooks = 1000;           // in case the clock stands still

/// A private copy of a ring header's changing words.
struct RingState {
    bool closed;
    uint32_t readPos;
    uint32_t writePos;
    uint32_t count;
};

uint32_t wrapped(uint32_t position, uint32_t distance, uint32_t capacity)
{
    uint32_t untilEnd = capacity - position;
    return distance < untilEnd ? position + distance : distance - untilEnd;
}

/// Whether a header can be true of a ring of this capacity.
bool isPlausible(const RingState &state, uint32_t base, uint32_t end, uint32_t capacity)
{
    if (base != 0 || end != capacity || state.count > capacity)
        return false;
    if (capacity == 0)
        return state.readPos == 0 && state.writePos == 0;
    return state.readPos < capacity && wrapped(state.readPos, state.count, capacity) == state.writePos;
}

/// Reads a header once. One that cannot be true is that of a closed and empty ring.
RingState stateOf(const RingHeader *ring, uint32_t capacity)
{
    RingState state{
        .closed = ring->closed != 0, .readPos = ring->readPos, .writePos = ring->writePos, .count = ring->count};
    if (isPlausible(state, ring->base, ring->end, capacity))
        return state;
    return {.closed = true, .readPos = 0, .writePos = 0, .count = 0};
}

uint8_t *bytesOf(RingHeader *ring)
{
    return reinterpret_cast<uint8_t *>(ring + 1);
}

void copyIn(ShmQueue *queue, const RingState &state, const void *data, uint32_t length)
{
    auto *bytes = bytesOf(queue->sendRing);
    auto *source = static_cast<const uint8_t *>(data);
    uint32_t untilEnd = std::min(length, queue->capacity - state.writePos);
    memcpy(bytes + state.writePos, source, untilEnd);
    memcpy(bytes, source + untilEnd, length - untilEnd);
}

void copyOut(ShmQueue *queue, const RingState &state, void *buffer, uint32_t length)
{
    const auto *bytes = bytesOf(queue->recvRing);
    auto *destination = static_cast<uint8_t *>(buffer);
    uint32_t untilEnd = std::min(length, queue->capacity - state.readPos);
    memcpy(destination, bytes + state.readPos, untilEnd);
    memcpy(destination + untilEnd, bytes, length - untilEnd);
}

/// Tells a peer that bytes are arriving in a ring that was empty.
bool announceData(const ShmQueue *queue)
{
    Side peer = peerSide(queue);
    return wakeFor(peer, SHMQUEUE_SELECT_READ) && raiseEvents(peer, SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_ACCEPT);
}

/// Tells the peer that a remove has made room. What the system refuses is tried again by the next remove.
void announceRoom(const ShmQueue *queue)
{
    Side peer = peerSide(queue);
    wakeFor(peer, SHMQUEUE_SELECT_WRITE);
    if (queue->recvRing->writerBlocked != 0 && raiseEvents(peer, SHMQUEUE_EVENT_WRITE))
        queue->recvRing->writerBlocked = 0;
}

bool canWrite(const ShmQueue *queue)
{
    RingState state = stateOf(queue->sendRing, queue->capacity);
    return !state.closed && state.count < queue->capacity;
}

uint32_t readiness(const ShmQueue *queue, uint32_t wanted)
{
    uint32_t ready = 0;
    if ((wanted & SHMQUEUE_SELECT_WRITE) != 0 && canWrite(queue))
        ready |= SHMQUEUE_SELECT_WRITE;
    if ((wanted & SHMQUEUE_SELECT_READ) != 0) {
        RingState state = stateOf(queue->recvRing, queue->capacity);
        if (state.count != 0 || state.closed)
            ready |= SHMQUEUE_SELECT_READ;
    }
    return ready;
}

/// The events that are due by the present state alone.
uint32_t dueEvents(const ShmQueue *queue)
{
    RingState incoming = stateOf(queue->recvRing, queue->capacity);
    uint32_t due = canWrite(queue) ? SHMQUEUE_EVENT_WRITE : 0;
    if (incoming.count != 0)
        due |= SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_ACCEPT;
    if (incoming.closed)
        due |= SHMQUEUE_EVENT_CLOSE;
    return due;
}

void report(uint32_t readyBits, uint32_t *flags, uint32_t *ready)
{
    *flags = readyBits;
    *ready = (readyBits & SHMQUEUE_SELECT_READ) + ((readyBits & SHMQUEUE_SELECT_WRITE) >> 1);
}

/// Whether the header words promise readiness. Read without the mutex this is a hint and no more.
bool looksReady(const ShmQueue *queue, uint32_t wanted)
{
    if ((wanted & SHMQUEUE_SELECT_WRITE) != 0 && queue->sendRing->count < queue->capacity)
        return true;
    return (wanted & SHMQUEUE_SELECT_READ) != 0 && (queue->recvRing->count != 0 || queue->recvRing->closed != 0);
}

bool hasSeveralProcessors()
{
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    return system.dwNumberOfProcessors > 1;
}

/// Watches the header words for a moment, without a wait mask and without the mutex: a peer that is just
/// about to move bytes then spares both sides the calls of a sleep and its end.
void lookOut(const ShmQueue *queue, uint32_t wanted)
{
    if (looksReady(queue, wanted) || !hasSeveralProcessors())
        return;
    LARGE_INTEGER frequency{}, start{}, now{};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    LONGLONG end = start.QuadPart + frequency.QuadPart / lookoutsPerSecond;
    for (int look = 0; look < greatestLooks && now.QuadPart < end && !looksReady(queue, wanted); ++look) {
        Sleep(0); // whoever else wants the processor goes first; SwitchToThread is not on every Windows
        QueryPerformanceCounter(&now);
    }
}

/// Sleeps until a peer has signalled and has let go of the mutex, and takes the mutex with the same call.
/// @return WAIT_OBJECT_0 with the mutex held; WAIT_TIMEOUT; anything else is a failure
DWORD sleepAndTakeMutex(const ShmQueue *queue, uint32_t timeout)
{
    const HANDLE wakeAndMutex[] = {queue->ownWake, queue->mutex};
    DWORD outcome = WaitForMultipleObjects(2, wakeAndMutex, TRUE, timeout);
    if (outcome == WAIT_OBJECT_0 + 1)
        return WAIT_OBJECT_0;
    if (outcome == WAIT_ABANDONED_0 || outcome == WAIT_ABANDONED_0 + 1)
        releaseMutex(queue->mutex);
    if (outcome != WAIT_TIMEOUT)
        return outcome;
    // The time-out is that of the signal alone; the mutex is waited for however long it is held.
    outcome = WaitForSingleObject(queue->ownWake, 0);
    return outcome != WAIT_OBJECT_0 || takeMutex(queue->mutex) ? outcome : WAIT_FAILED;
}

/// Sleeps until the peer clears a wanted bit of this side's wait mask.
uint32_t sleepInSelect(ShmQueue *queue, uint32_t wanted, uint32_t timeout, uint32_t *flags, uint32_t *ready)
{
    DWORD outcome = sleepAndTakeMutex(queue, timeout);
    if (outcome == WAIT_TIMEOUT) {
        // The wait mask stays: a peer's later signal still finds it, and the next sleep may end early.
        report(0, flags, ready);
        return SHMQUEUE_OK;
    }
    if (outcome != WAIT_OBJECT_0)
        return SHMQUEUE_BAD_HANDLE;

    report(wanted & ~queue->sendRing->waitMask, flags, ready);
    queue->sendRing->waitMask = 0;
    ResetEvent(queue->ownWake);
    releaseMutex(queue->mutex);
    return SHMQUEUE_OK;
}

} // namespace

uint32_t ShmQueueAdd(ShmQueue *queue, const void *data, uint32_t *length)
{
    if (!isLive(queue) || length == nullptr)
        return SHMQUEUE_BAD_HANDLE;
    if (*length == 0)
        return SHMQUEUE_OK;
    if (data == nullptr)
        return SHMQUEUE_BAD_HANDLE;
    Lock lock(queue);
    if (!lock.isHeld())
        return SHMQUEUE_BAD_HANDLE;

    RingHeader *ring = queue->sendRing;
    RingState state = stateOf(ring, queue->capacity);
    if (state.closed)
        return SHMQUEUE_CLOSED;
    if (state.count == queue->capacity) {
        ring->writerBlocked = 1;
        return SHMQUEUE_FULL;
    }

    uint32_t added = std::min(*length, queue->capacity - state.count);
    copyIn(queue, state, data, added);
    if (state.count == 0 && !announceData(queue)) // once copied, so that the peer wakes to a mutex soon free
        return SHMQUEUE_BAD_HANDLE;
    ring->writePos = wrapped(state.writePos, added, queue->capacity);
    ring->count = state.count + added;
    *length = added;
    return SHMQUEUE_OK;
}

uint32_t ShmQueueRemove(ShmQueue *queue, void *buffer, uint32_t *length)
{
    if (!isLive(queue) || length == nullptr)
        return SHMQUEUE_BAD_HANDLE;
    if (*length == 0)
        return SHMQUEUE_OK;
    if (buffer == nullptr)
        return SHMQUEUE_BAD_HANDLE;
    Lock lock(queue);
    if (!lock.isHeld())
        return SHMQUEUE_BAD_HANDLE;

    RingHeader *ring = queue->recvRing;
    RingState state = stateOf(ring, queue->capacity);
    if (state.count == 0) {
        *length = 0;
        return state.closed ? SHMQUEUE_CLOSED : SHMQUEUE_EMPTY;
    }

    uint32_t removed = std::min(*length, state.count);
    copyOut(queue, state, buffer, removed);
    bool drained = removed == state.count;
    ring->readPos = drained ? 0 : wrapped(state.readPos, removed, queue->capacity);
    if (drained)
        ring->writePos = 0; // the next add of a full ring's worth is one copy
    ring->count = state.count - removed;
    if (!drained)
        raiseEvents(thisSide(queue), SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_ACCEPT);
    announceRoom(queue);
    *length = removed;
    return SHMQUEUE_OK;
}

uint32_t ShmQueueSelect(ShmQueue *queue, uint32_t *flags, uint32_t timeout, uint32_t *ready)
{
    if (!isLive(queue) || flags == nullptr || ready == nullptr)
        return SHMQUEUE_BAD_HANDLE;
    uint32_t wanted = *flags & (SHMQUEUE_SELECT_READ | SHMQUEUE_SELECT_WRITE);
    if (wanted == 0) {
        report(0, flags, ready);
        return SHMQUEUE_OK;
    }
    if (timeout != 0)
        lookOut(queue, wanted);
    {
        Lock lock(queue);
        if (!lock.isHeld())
            return SHMQUEUE_BAD_HANDLE;
        uint32_t readyBits = readiness(queue, wanted);
        if (readyBits != 0 || timeout == 0) {
            report(readyBits, flags, ready);
            return SHMQUEUE_OK;
        }
        queue->sendRing->waitMask = wanted;
    }
    return sleepInSelect(queue, wanted, timeout, flags, ready);
}

uint32_t ShmQueueEventSelect(ShmQueue *queue, uint32_t mask)
{
    if (!isLive(queue))
        return SHMQUEUE_BAD_HANDLE;
    Lock lock(queue);
    if (!lock.isHeld())
        return SHMQUEUE_BAD_HANDLE;

    RingHeader *words = queue->sendRing;
    uint32_t newlyChosen = mask & ~words->eventMask;
    uint32_t due = newlyChosen & dueEvents(queue);
    uint32_t pending = words->pendingEvents;
    uint32_t kept = pending & mask;
    if (kept == 0 && due != 0 && !SetEvent(queue->ownEvent))
        return SHMQUEUE_BAD_HANDLE; // the mask stays as it was, so that another call finds the same bits due
    if (pending != 0 && kept == 0 && due == 0)
        ResetEvent(queue->ownEvent);
    words->eventMask = mask;
    words->pendingEvents = kept + due;
    return SHMQUEUE_OK;
}

uint32_t ShmQueueEnumEvents(ShmQueue *queue, uint32_t *events)
{
    if (!isLive(queue) || events == nullptr)
        return SHMQUEUE_BAD_HANDLE;
    Lock lock(queue);
    if (!lock.isHeld())
        return SHMQUEUE_BAD_HANDLE;

    *events = queue->sendRing->pendingEvents;
    queue->sendRing->pendingEvents = 0;
    ResetEvent(queue->ownEvent);
    return SHMQUEUE_OK;
}

void *ShmQueueGetEvent(const ShmQueue *queue)
{
    return isLive(queue) ? queue->ownEvent : nullptr;
}
