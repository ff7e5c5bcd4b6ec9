#include "ipc/shm_handshake.h"
#include "ipc/shm_objects.h"
#include "ipc/shm_watcher.h"

#include "base/module_id.h"

#include <string.h>

#include <algorithm>

GENERAL_MODULE_ID("$Id$");

namespace {

using namespace general::shm;

constexpr EventSlot listenerEvents[] = {
    {"Event1", autoReset, &ShmQueue::peerEvent}, // each set lets one waiting connector go
    {"Event2", manualReset, &ShmQueue::ownEvent},
    {"IEvent2", manualReset, &ShmQueue::ownWake},
};
constexpr EventSlot requesterEvents[] = {
    {"Event1", autoReset, &ShmQueue::ownEvent},
    {"Event2", manualReset, &ShmQueue::peerEvent},
    {"IEvent2", manualReset, &ShmQueue::peerWake},
};
constexpr EventSlot acceptorEvents[] = {
    {"Event1", manualReset, &ShmQueue::peerEvent},
    {"Event2", manualReset, &ShmQueue::ownEvent},
    {"IEvent1", manualReset, &ShmQueue::peerWake},
    {"IEvent2", manualReset, &ShmQueue::ownWake},
};
constexpr EventSlot connectorEvents[] = {
    {"Event1", manualReset, &ShmQueue::ownEvent},
    {"Event2", manualReset, &ShmQueue::peerEvent},
    {"IEvent1", manualReset, &ShmQueue::ownWake},
    {"IEvent2", manualReset, &ShmQueue::peerWake},
};

/// What the listener answers a connection request with.
struct Reply {
    uint32_t number;
    uint32_t capacity;
};
static_assert(sizeof(Reply) == 8);
constexpr uint32_t mostReplies = initCapacity / sizeof(Reply);

constexpr uint32_t request = 0; // its value means nothing

/// A listener holds both of these events, which nobody ever sets, and a client that waits for it the second.
/// The first is gone when the listener's process is; the second tells that from a listener without any.
constexpr const char *presenceSuffix = "Presence";
constexpr const char *hasPresenceSuffix = "HasPresence";

/// How often a waiting connector looks whether the listener is still there.
constexpr DWORD replyPoll = 200; // ms
/// How long a connector waits for the listener to put the request ring right, and how often it looks.
constexpr DWORD repairPatience = 1000, repairPoll = 10; // ms
/// How long a connection that nobody claimed waits for the init mutex to take its reply back.
constexpr DWORD takeBackPatience = 500; // ms
/// The longest of the pauses, each twice the one before, in which a failed accept tries to give an owed signal.
constexpr DWORD longestFailedPause = 64; // ms
/// How often, and after how many milliseconds each, a listen tries again that was crossed by a client.
constexpr int clashAttempts = 40;
constexpr DWORD clashPause = 10;

bool nameFits(const char *name)
{
    return name != nullptr && strnlen(name, longestName + 1) <= longestName;
}

// ---- the rings of the init segment ----

RingHeader *repliesOf(const ShmQueue *init)
{
    return reinterpret_cast<RingHeader *>(init->view);
}

/// Whether a header can be that of a ring which holds whole records.
bool isPossible(const RingHeader *ring, uint32_t recordSize)
{
    bool isPossible = false;
    RingState state = wordsOf(ring, initCapacity, isPossible);
    return isPossible && (state.readPos | state.count) % recordSize == 0;
}

void setRing(RingHeader *ring, uint32_t readPos, uint32_t count)
{
    ring->base = 0;
    ring->end = initCapacity;
    ring->readPos = count == 0 ? 0 : readPos;
    ring->writePos = count == 0 ? 0 : (readPos + count) % initCapacity;
    ring->count = count;
}

/// A client that died between two stores of its request moved the write position or the count. Only their
/// number matters, and the smaller of the two tells the requests of the others.
void repairRequests(RingHeader *ring)
{
    if (isPossible(ring, sizeof request))
        return;
    uint32_t read = ring->readPos % initCapacity;
    read -= read % sizeof request;
    uint32_t count = ring->count;
    uint32_t distance = (ring->writePos - read) % initCapacity;
    if (distance == 0 && count > initCapacity / 2)
        distance = initCapacity; // full and empty look alike
    uint32_t others = std::min(count, distance);
    setRing(ring, read, others - others % sizeof request);
}

/// Of a reply ring that a client left half changed nothing is believed. Who still waits gets null and can try again.
void repairReplies(const ShmQueue *listener)
{
    if (isPossible(listener->sendRing, sizeof(Reply)))
        return;
    setRing(listener->sendRing, 0, 0);
    WaitForSingleObject(listener->peerEvent, 0);
}

Reply &replyAt(RingHeader *ring, uint32_t index)
{
    auto *replies = reinterpret_cast<Reply *>(ring + 1);
    return replies[(ring->readPos / sizeof(Reply) + index) % mostReplies];
}

uint32_t replyCount(const RingHeader *ring)
{
    return std::min<uint32_t>(uint32_t{ring->count} / sizeof(Reply), mostReplies);
}

/// The place of a connection's reply, counted from the oldest one; the number of replies if it is not there.
uint32_t indexOfReply(RingHeader *ring, const ShmQueue *connection)
{
    uint32_t index = 0, count = replyCount(ring);
    while (index < count &&
           (replyAt(ring, index).number != connection->number || replyAt(ring, index).capacity != connection->capacity))
        ++index;
    return index;
}

/// Takes the reply of a connection out. The mutex is held.
void dropReply(RingHeader *ring, const ShmQueue *connection)
{
    uint32_t index = indexOfReply(ring, connection), count = replyCount(ring);
    if (index >= count)
        return;
    for (; index + 1 < count; ++index)
        replyAt(ring, index) = replyAt(ring, index + 1);
    setRing(ring, ring->readPos, (count - 1) * sizeof(Reply));
}

bool isListenerDead(const ShmQueue *init, const Prefix &prefix)
{
    return init->hasPresence != nullptr && !isHeldBySomebody(prefix, presenceSuffix);
}

/// Opens the init segment of a name as a client has it, and first what tells whether its listener lives: for as
/// long as somebody has the segment of a dead one open, it is known for that, and nobody else opens it.
/// @return null if nobody listens
ShmQueue *openInit(const char *name)
{
    ShmQueue *init = newQueue();
    if (init == nullptr)
        return nullptr;
    Prefix prefix = initPrefix(name);
    init->hasPresence = openEvent(prefix, hasPresenceSuffix);
    if (!isListenerDead(init, prefix) && openSegment(init, prefix, requesterEvents, initSize)) {
        if (init->hasPresence == nullptr) // a listener may have come in between
            init->hasPresence = openEvent(prefix, hasPresenceSuffix);
        placeRings(init, 0, initCapacity, false);
        init->tag = liveTag;
        return init;
    }
    release(init);
    return nullptr;
}

/// Holds, for a scope, the init segment that a connection was accepted through. No queue call waits for it
/// for long: where it is gone, or its mutex is not to be had, the scope holds nothing.
class InitScope {
public:
    InitScope(const ShmQueue *connection, DWORD patience) : init_(openInit(connection->name))
    {
        DWORD outcome = init_ == nullptr ? WAIT_FAILED : WaitForSingleObject(init_->mutex, patience);
        isHeld_ = outcome == WAIT_OBJECT_0 || outcome == WAIT_ABANDONED;
    }
    ~InitScope()
    {
        if (isHeld_)
            ReleaseMutex(init_->mutex);
        release(init_);
    }
    InitScope(const InitScope &) = delete;
    InitScope &operator=(const InitScope &) = delete;

    bool exists() const { return init_ != nullptr; }
    /// The ring of the replies; null if it is not held or not to be believed.
    RingHeader *replies() const
    {
        return isHeld_ && isPossible(repliesOf(init_), sizeof(Reply)) ? repliesOf(init_) : nullptr;
    }
    HANDLE replySignal() const { return init_->ownEvent; }

private:
    ShmQueue *init_;
    bool isHeld_;
};

// ---- listening ----

/// Sets a listener up, and leaves its mutex as it found it.
bool setUpListener(ShmQueue *listener, const char *name, SegmentObjects &objects)
{
    // Before the segment, so that who finds that one finds these.
    listener->hasPresence = objects.event(hasPresenceSuffix, manualReset);
    if (listener->hasPresence == nullptr)
        return false;
    listener->presence = objects.event(presenceSuffix, manualReset);
    if (listener->presence == nullptr)
        return false;
    listener->mapping = objects.mapping(initSize);
    if (listener->mapping == nullptr)
        return false;
    listener->mutex = objects.mutex();
    if (listener->mutex == nullptr)
        return false;

    Lock lock(listener);
    if (!lock.isHeld() || !objects.events(listener, listenerEvents) || !mapView(listener, initSize))
        return false;
    placeRings(listener, 0, initCapacity, true);
    initialiseRings(listener);
    memcpy(listener->name, name, strlen(name));
    listener->isListener = true;
    listener->tag = liveTag;
    return true;
}

enum class Clash { none, lasting, passing };

/// @param clash  receives why null is returned, if something was there already. What clients have open that
///               came too early, or that wait for a listener that died, passes; another listener does not
ShmQueue *listenOnce(const char *name, Clash &clash)
{
    ShmQueue *listener = newQueue();
    AccessForAll access;
    SegmentObjects objects = SegmentObjects::toMake(initPrefix(name), access);
    clash = Clash::none;
    if (listener != nullptr && access.isReady() && setUpListener(listener, name, objects))
        return listener;
    if (objects.clashed()) {
        bool isListenedOn = listener->hasPresence == nullptr && isHeldBySomebody(initPrefix(name), presenceSuffix);
        clash = isListenedOn ? Clash::lasting : Clash::passing;
    }
    release(listener);
    return nullptr;
}

// ---- connecting ----

/// Adds or removes one record of the handshake. A part of a record is as bad as none.
template<typename Record>
uint32_t addRecord(ShmQueue *queue, const Record &record)
{
    uint32_t length = sizeof record;
    uint32_t status = ShmQueueAdd(queue, &record, &length);
    bool isCut = status == SHMQUEUE_OK && length != sizeof record;
    return isCut ? uint32_t{SHMQUEUE_FULL} : status;
}

template<typename Record>
bool removeRecord(ShmQueue *queue, Record &record)
{
    uint32_t length = sizeof record;
    return ShmQueueRemove(queue, &record, &length) == SHMQUEUE_OK && length == sizeof record;
}

bool isClosed(const ShmQueue *requester)
{
    return requester->recvRing->closed != 0;
}

/// Adds a request. Where another client's death has left the ring impossible, this library's listener is waited
/// for, who was told of that client and puts it right.
bool addRequest(ShmQueue *requester)
{
    uint32_t status = addRecord(requester, request);
    DWORD patience = requester->hasPresence != nullptr ? repairPatience : 0;
    for (DWORD waited = 0; status == SHMQUEUE_CLOSED && !isClosed(requester) && waited < patience;
         waited += repairPoll) {
        Sleep(repairPoll);
        status = addRecord(requester, request);
    }
    return status == SHMQUEUE_OK;
}

/// What a connector that waits unsignalled sees of the rings. Read without the mutex this is a hint.
struct Sight {
    uint32_t requests, replies, oldestReply;

    bool operator==(const Sight &) const = default;
    bool showsReply() const { return replies != 0; }
    /// Neither requests nor replies: its own was taken back, by a server that destroyed the connection at once, or
    /// lost with a reply ring that was put right.
    bool isForgotten() const { return requests == 0 && replies == 0; }
};

Sight sightOf(const ShmQueue *requester)
{
    const RingHeader *replies = requester->recvRing;
    Sight sight{.requests = requester->sendRing->count, .replies = replies->count, .oldestReply = replies->readPos};
    if (!isPossible(replies, sizeof(Reply)))
        sight.replies = 0;
    return sight;
}

/// Waits until a request was accepted, for as long as there is a listener to do it. What is seen twice is looked
/// at once more with the mutex held: no accept is under way then, and whoever was signalled before has come.
bool waitForReply(const ShmQueue *requester, const Prefix &prefix)
{
    Sight before{.requests = 1, .replies = 0, .oldestReply = 0}; // as good as none
    for (;;) {
        bool isOver = isClosed(requester) || isListenerDead(requester, prefix); // a reply may be there all the same
        DWORD outcome = WaitForSingleObject(requester->ownEvent, isOver ? 0 : replyPoll);
        if (outcome != WAIT_TIMEOUT)
            return outcome == WAIT_OBJECT_0;
        Sight sight = sightOf(requester);
        if (isOver)
            return sight.showsReply();
        // A listener built separately may let go of the mutex between a request and its reply.
        bool isForgotten = sight.isForgotten() && requester->hasPresence != nullptr;
        if (sight == before && (sight.showsReply() || isForgotten)) {
            Lock lock(requester);
            if (lock.isHeld() && sightOf(requester) == before)
                return sight.showsReply(); // nobody is on the way to take it: its signal was lost in another
        }
        before = sight;
    }
}

/// Writes this process's id into a connection that is the reply's and nobody's yet. An accept that was refused
/// because its number was in use has left a reply that tells of another client's.
bool claim(const ShmQueue *connection)
{
    uint32_t capacity = connection->capacity;
    auto *processId = reinterpret_cast<volatile LONG *>(connection->view);
    return connection->sendRing->end == capacity && connection->recvRing->end == capacity &&
           InterlockedCompareExchange(processId, static_cast<LONG>(GetCurrentProcessId()), 0) == 0;
}

/// Starts the acceptor's watcher, which reads this process's id.
bool startAcceptorsWatcher(const Prefix &prefix)
{
    HANDLE processWait = SegmentObjects::toOpen(prefix).event("ProcessWaitEvent", autoReset);
    if (processWait == nullptr)
        return false;
    bool isSet = SetEvent(processWait) != FALSE;
    CloseHandle(processWait);
    return isSet;
}

/// @param isStale  receives whether the reply is of no use to any client: its connection is gone, or is another's
bool setUpConnector(ShmQueue *connection, const char *name, const Reply &reply, bool &isStale)
{
    isStale = false;
    if (reply.capacity > greatestCapacity)
        return false;
    Prefix prefix = connectionPrefix(name, reply.number);
    if (!openSegment(connection, prefix, connectorEvents, connectionSize(reply.capacity))) {
        isStale = connection->mapping == nullptr && GetLastError() == ERROR_FILE_NOT_FOUND;
        return false;
    }
    placeRings(connection, processIdSize, reply.capacity, false);
    isStale = !claim(connection);
    if (isStale || !startAcceptorsWatcher(prefix))
        return false;
    memcpy(connection->name, name, strlen(name));
    connection->number = reply.number;
    connection->tag = liveTag;
    return true;
}

bool takeReply(ShmQueue *requester, Reply &reply)
{
    Lock lock(requester);
    if (!lock.isHeld() || !removeRecord(requester, reply))
        return false;
    if (requester->recvRing->count == 0)
        WaitForSingleObject(requester->ownEvent,
                            0); // a signal without a reply would let the next client go for nothing
    return true;
}

/// Takes the oldest reply and the connection that it tells of. One that is gone, because it was destroyed
/// before its client came, costs a reply and no more, if there is another one.
/// @param isEarly  receives whether there was no reply to take
ShmQueue *takeConnection(ShmQueue *requester, const char *name, bool &isEarly)
{
    Reply reply{};
    bool isStale = true;
    for (isEarly = true; isStale && takeReply(requester, reply);) {
        isEarly = false;
        ShmQueue *connection = newQueue();
        if (connection == nullptr || setUpConnector(connection, name, reply, isStale))
            return connection;
        release(connection);
    }
    return nullptr;
}

/// The client's half of the handshake. Where the listener is this library's, a signal without a reply was
/// another client's, and the wait goes on.
ShmQueue *requestConnection(ShmQueue *requester, const char *name)
{
    if (!addRequest(requester))
        return nullptr;
    ShmQueue *connection = nullptr;
    bool isEarly = true;
    while (connection == nullptr && isEarly && waitForReply(requester, initPrefix(name))) {
        connection = takeConnection(requester, name, isEarly);
        isEarly = isEarly && requester->hasPresence != nullptr && !isClosed(requester);
    }
    return connection;
}

// ---- accepting ----

/// Lets one waiting connector go. Two signals in a row are one to the system: where the one before was not
/// seen yet, this one is owed, and given by the connection's watcher. The mutex is held.
bool signalReply(const ShmQueue *listener, bool &isOwed)
{
    DWORD outcome = WaitForSingleObject(listener->peerEvent, 0);
    if (outcome != WAIT_OBJECT_0 && outcome != WAIT_TIMEOUT)
        return false;
    isOwed = outcome == WAIT_OBJECT_0 && listener->sendRing->count > sizeof(Reply);
    return SetEvent(listener->peerEvent) != FALSE;
}

/// Sets the accepting end up, which is live if all went well. Starting the watcher is the last thing that can fail.
void setUpAcceptor(ShmQueue *connection, const Prefix &prefix, AccessForAll &access)
{
    SegmentObjects objects = SegmentObjects::toMake(prefix, access);
    uint32_t size = connectionSize(connection->capacity);
    connection->mapping = objects.mapping(size);
    if (connection->mapping == nullptr)
        return;
    connection->mutex = objects.mutex();
    if (connection->mutex == nullptr || !objects.events(connection, acceptorEvents) || !mapView(connection, size))
        return;
    placeRings(connection, processIdSize, connection->capacity, true);
    initialiseRings(connection);
    memset(connection->view, 0, processIdSize);
    connection->isAcceptor = true;
    connection->processWaitEvent = objects.event("ProcessWaitEvent", autoReset);
    if (connection->processWaitEvent == nullptr || !startWatcher(connection))
        return;
    connection->tag = liveTag;
}

/// Uses a request up, replies to it and sets the connection up: under one hold of the mutex, so that of two threads
/// each gets a request with its reply, and no connector reads its reply before all objects are there.
/// @return null if there is nothing to be set up; a connection that is not live if that failed
ShmQueue *answerRequest(ShmQueue *listener, uint32_t number, uint32_t size)
{
    Lock lock(listener);
    if (!lock.isHeld())
        return nullptr;
    repairRequests(listener->recvRing);
    repairReplies(listener);
    uint32_t anyRequest = 0;
    bool isOwed = false;
    if (!removeRecord(listener, anyRequest) ||
        addRecord(listener, Reply{.number = number, .capacity = size}) != SHMQUEUE_OK || !signalReply(listener, isOwed))
        return nullptr;

    ShmQueue *connection = newQueue();
    AccessForAll access;
    if (connection == nullptr)
        return nullptr;
    memcpy(connection->name, listener->name, sizeof connection->name);
    connection->number = number;
    connection->capacity = size;
    connection->owesSignal = isOwed;
    if (access.isReady())
        setUpAcceptor(connection, connectionPrefix(listener->name, number), access);
    return connection;
}

} // namespace

bool general::shm::stillOwesSignal(const ShmQueue *connection)
{
    InitScope init(connection, 0);
    if (!init.exists())
        return false;
    RingHeader *replies = init.replies();
    if (replies == nullptr)
        return true;
    if (indexOfReply(replies, connection) == replyCount(replies))
        return false; // somebody has it already
    bool isSeen = WaitForSingleObject(init.replySignal(), 0) == WAIT_TIMEOUT;
    SetEvent(init.replySignal());
    return !isSeen;
}

void general::shm::takeReplyBack(const ShmQueue *connection)
{
    InitScope init(connection, takeBackPatience);
    RingHeader *replies = init.replies();
    if (replies == nullptr)
        return;
    dropReply(replies, connection);
    if (replies->count == 0)
        WaitForSingleObject(init.replySignal(), 0); // it would let the next client go for nothing
}

ShmQueue *ShmQueueListen(const char *name)
{
    if (!nameFits(name))
        return nullptr;
    Clash clash = Clash::none;
    ShmQueue *listener = listenOnce(name, clash);
    for (int attempt = 0; clash == Clash::passing && attempt < clashAttempts; ++attempt) {
        Sleep(clashPause);
        listener = listenOnce(name, clash);
    }
    return listener;
}

ShmQueue *ShmQueueConnect(const char *name)
{
    if (!nameFits(name))
        return nullptr;
    ShmQueue *requester = openInit(name);
    if (requester == nullptr)
        return nullptr;
    ShmQueue *connection = requestConnection(requester, name);
    bool hasPresence = requester->hasPresence != nullptr;
    release(requester);
    // A listener with presence accepts with this library, whose acceptors can be seen to be gone.
    if (connection == nullptr || !hasPresence || watchAcceptor(connection))
        return connection;
    if (ShmQueueDestroy(connection) != SHMQUEUE_OK) // the acceptor has died inside a call
        ShmQueueDestroy(connection);
    return nullptr;
}

ShmQueue *ShmQueueAccept(ShmQueue *listener, uint32_t number, uint32_t size)
{
    if (!isLive(listener) || !listener->isListener || size > greatestCapacity)
        return nullptr;
    ShmQueue *connection = answerRequest(listener, number, size);
    if (connection == nullptr || isLive(connection))
        return connection;
    // There is no watcher to give an owed signal, and its client waits to hear that it failed.
    for (DWORD pause = 1; connection->owesSignal && pause <= longestFailedPause && stillOwesSignal(connection);
         pause *= 2)
        Sleep(pause);
    release(connection);
    return nullptr;
}
