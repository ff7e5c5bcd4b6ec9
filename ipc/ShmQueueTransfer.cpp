#include "ipc/shm_segment.h"

#include "base/module_id.h"

GENERAL_MODULE_ID("$Id$");

namespace {

using namespace general::shm;

/// How long a select watches the header words before it goes to sleep, if it does.
constexpr LONGLONG lookoutsPerSecond = 2000; // 500 µs each
constexpr int greatestLooks = 10000;         // in case the clock stands still

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

RingState outgoingOf(const ShmQueue *queue)
{
    return stateOf(queue->sendRing, queue->capacity);
}

RingState incomingOf(const ShmQueue *queue)
{
    return stateOf(queue->recvRing, queue->capacity);
}

void report(uint32_t readyBits, uint32_t *flags, uint32_t *ready)
{
    *flags = readyBits;
    *ready = (readyBits & SHMQUEUE_SELECT_READ) + ((readyBits & SHMQUEUE_SELECT_WRITE) >> 1);
}

/// The time that a look-out takes. Without a clock it is over at once.
class LookoutTime {
public:
    LookoutTime()
    {
        LARGE_INTEGER frequency{}, start{};
        if (QueryPerformanceFrequency(&frequency) && QueryPerformanceCounter(&start))
            end_ = start.QuadPart + frequency.QuadPart / lookoutsPerSecond;
    }
    bool isOver() const
    {
        LARGE_INTEGER now{};
        return !QueryPerformanceCounter(&now) || now.QuadPart >= end_;
    }

private:
    LONGLONG end_ = 0;
};

/// Whether this process may run on several processors; if not, whoever looks out keeps the peer from working.
bool hasSeveralProcessors()
{
    DWORD_PTR usable = 1, present = 0;
    if (!GetProcessAffinityMask(GetCurrentProcess(), &usable, &present))
        return false;
    return (usable & (usable - 1)) != 0;
}

/// Watches the header words for a moment, without a wait mask and without the mutex: a peer that is just
/// about to move bytes then spares both sides the calls of a sleep and its end.
///
/// What it sees happen needs no second look with the mutex held: room that the peer makes and bytes that
/// it adds are there until this side itself uses them. A ring that is closed, or seen in the middle of a
/// change, is not for here to tell.
/// @return the readiness bits that came true; 0 if the mutex is to be taken to find out
uint32_t lookOut(ShmQueue *queue, uint32_t wanted)
{
    LookoutTime time;
    for (int look = 0; look < greatestLooks; ++look) {
        RingState outgoing = outgoingOf(queue), incoming = incomingOf(queue);
        uint32_t ready = readinessOf(outgoing, incoming, queue->capacity, wanted);
        if (outgoing.closed || incoming.closed || (ready != 0 && look == 0))
            return 0;
        if (ready != 0)
            return ready;
        if (time.isOver())
            break;
        Sleep(0); // whoever else wants the processor goes first; SwitchToThread is not on every Windows
    }
    queue->looksOut = false;
    return 0;
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
        ReleaseMutex(queue->mutex);
    if (outcome != WAIT_TIMEOUT)
        return outcome;
    // The time-out is that of the signal alone; the mutex is waited for however long it is held.
    outcome = WaitForSingleObject(queue->ownWake, 0);
    return outcome != WAIT_OBJECT_0 || takeMutex(queue->mutex) ? outcome : WAIT_FAILED;
}

/// Sleeps until the peer clears a wanted bit of this side's wait mask.
uint32_t sleepInSelect(ShmQueue *queue, uint32_t wanted, uint32_t timeout, uint32_t *flags, uint32_t *ready)
{
    LookoutTime lookoutTime;
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
    ReleaseMutex(queue->mutex);
    queue->looksOut = *flags != 0 && !lookoutTime.isOver() && hasSeveralProcessors();
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
    if (state.isFull(queue->capacity)) {
        ring->writerBlocked = 1;
        return SHMQUEUE_FULL;
    }

    uint32_t added = copyIn(ring, state, queue->capacity, data, *length);
    if (state.count == 0 && !announceData(queue)) // once copied, so that the peer wakes to a mutex soon free
        return SHMQUEUE_BAD_HANDLE;
    finishAdd(ring, state, queue->capacity, added);
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

    uint32_t removed = copyOut(ring, state, queue->capacity, buffer, *length);
    finishRemove(ring, state, queue->capacity, removed);
    if (removed < state.count)
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
    uint32_t readyBits = timeout != 0 && queue->looksOut ? lookOut(queue, wanted) : 0;
    if (readyBits != 0) {
        report(readyBits, flags, ready);
        return SHMQUEUE_OK;
    }
    {
        Lock lock(queue);
        if (!lock.isHeld())
            return SHMQUEUE_BAD_HANDLE;
        readyBits = readinessOf(outgoingOf(queue), incomingOf(queue), queue->capacity, wanted);
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
    uint32_t due = newlyChosen & dueEvents(outgoingOf(queue), incomingOf(queue), queue->capacity);
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
    if (queue->recvRing->closed != 0 && *events >= SHMQUEUE_EVENT_CLOSE) // 32 times READ is as much
        queue->handedOutClose = true;
    queue->sendRing->pendingEvents = 0;
    ResetEvent(queue->ownEvent);
    return SHMQUEUE_OK;
}

void *ShmQueueGetEvent(const ShmQueue *queue)
{
    return isLive(queue) ? queue->ownEvent : nullptr;
}
