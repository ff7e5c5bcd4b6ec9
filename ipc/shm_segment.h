/// @file
/// The shared segments and the handle record of the shared-memory queue, and the few operations on
/// them that the handshake and the transfer have in common.

#pragma once

#include "general/shmqueue.h"

#include "ipc/ring.h"

#include <windows.h>

namespace general::shm {

constexpr uint32_t ringSize(uint32_t capacity)
{
    return sizeof(RingHeader) + capacity;
}

/// The init segment: the listener's ring, then the ring that all connectors write.
constexpr uint32_t initCapacity = 256;
constexpr uint32_t initSize = 2 * ringSize(initCapacity);
static_assert(initSize == 592);

/// A connection segment: the connector's process id, the acceptor's ring, the connector's ring.
constexpr uint32_t processIdSize = 4;
constexpr uint32_t greatestCapacity = (UINT32_MAX - 2 * ringSize(0) - processIdSize) / 2;

constexpr uint32_t connectionSize(uint32_t capacity)
{
    return processIdSize + 2 * ringSize(capacity);
}

static_assert(connectionSize(0) == 84 && connectionSize(1000) == 2084);
static_assert(greatestCapacity == 0x7FFFFFD5);

constexpr uint32_t liveTag = 0x53484D51;
constexpr uint32_t longestName = 15;

} // namespace general::shm

struct ShmQueue {
    uint32_t tag; ///< liveTag while the handle is valid
    HANDLE mapping;
    general::shm::RingHeader *sendRing;       ///< written by this side
    general::shm::RingHeader *recvRing;       ///< read by this side
    HANDLE mutex;                             ///< guards every word of both ring headers
    HANDLE peerEvent;                         ///< what this side raises events for the peer on
    HANDLE ownEvent;                          ///< what events for this side are raised on
    HANDLE peerWake;                          ///< what the peer sleeps on in select
    HANDLE ownWake;                           ///< what this side sleeps on in select
    HANDLE watcherThread;                     ///< until it has told of the peer's end
    HANDLE processWaitEvent;                  ///< wakes the watcher
    char name[general::shm::longestName + 1]; ///< what is listened under

    uint8_t *view;
    uint32_t capacity; ///< of either ring; what the headers say is checked against it
    bool isListener;
    bool looksOut;       ///< the last wait in select was short enough to be spent looking out
    bool handedOutClose; ///< by an enumeration
    bool closing;        ///< a destroy has told the peer and has dismissed the watcher

    uint32_t number;     ///< of a connection
    bool isAcceptor;     ///< the accepting end of a connection
    bool owesSignal;     ///< its accept found an earlier reply's signal still set, so the watcher gives this one's
    HANDLE endedWatcher; ///< the watcher that has told of the peer's end, for destroy to wait for
    HANDLE presence;     ///< held by a listener alone, and so gone when its process is
    HANDLE hasPresence;  ///< held by a listener and by who waits for it, to tell a dead one from one without presence
};

static_assert(offsetof(ShmQueue, tag) == 0 && offsetof(ShmQueue, mapping) == 4 && offsetof(ShmQueue, sendRing) == 8);
static_assert(offsetof(ShmQueue, recvRing) == 12 && offsetof(ShmQueue, mutex) == 16);
static_assert(offsetof(ShmQueue, peerEvent) == 20 && offsetof(ShmQueue, ownEvent) == 24);
static_assert(offsetof(ShmQueue, peerWake) == 28 && offsetof(ShmQueue, ownWake) == 32);
static_assert(offsetof(ShmQueue, watcherThread) == 36 && offsetof(ShmQueue, processWaitEvent) == 40);
static_assert(offsetof(ShmQueue, name) == 44 && offsetof(ShmQueue, view) == 60);

namespace general::shm {

inline bool isLive(const ShmQueue *queue)
{
    return queue != nullptr && *const_cast<const volatile uint32_t *>(&queue->tag) == liveTag;
}

/// Takes the mutex, however long it is held. A mutex whose owner died is passed on, and counts as not
/// taken: whatever the owner was about to change is half changed.
[[nodiscard]] inline bool takeMutex(HANDLE mutex)
{
    DWORD outcome = WaitForSingleObject(mutex, INFINITE);
    if (outcome == WAIT_ABANDONED)
        ReleaseMutex(mutex);
    return outcome == WAIT_OBJECT_0;
}

/// Holds a queue's mutex for a scope.
class Lock {
public:
    explicit Lock(const ShmQueue *queue) : mutex_(takeMutex(queue->mutex) ? queue->mutex : nullptr) {}
    ~Lock()
    {
        if (isHeld())
            ReleaseMutex(mutex_);
    }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

    bool isHeld() const { return mutex_ != nullptr; }

private:
    HANDLE mutex_;
};

/// One side of a connection, as far as it is woken and told of events. Its words are in the header of
/// the ring that it writes.
struct Side {
    RingHeader *words;
    HANDLE event;
    HANDLE wake; ///< null where nobody selects
};

inline Side thisSide(const ShmQueue *queue)
{
    return {.words = queue->sendRing, .event = queue->ownEvent, .wake = queue->ownWake};
}

inline Side peerSide(const ShmQueue *queue)
{
    return {.words = queue->recvRing, .event = queue->peerEvent, .wake = queue->peerWake};
}

/// Wakes a side that sleeps on a readiness bit. The mutex is held.
/// @return false if the system refused; the side's words are unchanged then, so the next call tries again
inline bool wakeFor(const Side &side, uint32_t readiness)
{
    uint32_t waitMask = side.words->waitMask;
    if ((waitMask & readiness) == 0 || side.wake == nullptr)
        return true;
    if (!SetEvent(side.wake))
        return false;
    side.words->waitMask = waitMask & ~readiness;
    return true;
}

/// Raises those of the events that a side has chosen. The mutex is held. Pending events are added up as
/// numbers: one that is raised twice shows as another, which callers see and peers rely on.
/// @return false if the system refused; the side's words are unchanged then, so the next call tries again
inline bool raiseEvents(const Side &side, uint32_t events)
{
    uint32_t chosen = side.words->eventMask & events;
    if (chosen == 0)
        return true;
    uint32_t pending = side.words->pendingEvents;
    if (pending == 0 && !SetEvent(side.event))
        return false;
    side.words->pendingEvents = pending + chosen;
    return true;
}

} // namespace general::shm
