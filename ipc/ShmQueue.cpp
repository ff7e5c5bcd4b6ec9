#include "ipc/shm_objects.h"
#include "ipc/shm_watcher.h"

#include "base/module_id.h"

#include <string.h>

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

constexpr uint32_t request = 0; // its value means nothing

/// How long an accept waits for the connector before to have seen its signal.
constexpr DWORD signalPatience = 500; // ms
/// How often a waiting connector looks whether the listener is still there.
constexpr DWORD replyPoll = 250; // ms
/// How often, and after how many milliseconds each, a listen tries again that was crossed by a client.
constexpr int clashAttempts = 20;
constexpr DWORD clashPause = 10;

bool nameFits(const char *name)
{
    return name != nullptr && strnlen(name, longestName + 1) <= longestName;
}

// ---- listening ----

/// Sets a listener up, and leaves its mutex as it found it.
bool setUpListener(ShmQueue *listener, const char *name, SegmentObjects &objects)
{
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

enum class Clash { none, segment, otherObject };

/// @param clash  receives what was there already, if that is why null is returned
ShmQueue *listenOnce(const char *name, Clash &clash)
{
    ShmQueue *listener = newQueue();
    AccessForAll access;
    SegmentObjects objects = SegmentObjects::toMake(initPrefix(name), access);
    clash = Clash::none;
    if (listener != nullptr && access.isReady() && setUpListener(listener, name, objects))
        return listener;
    if (objects.clashed())
        clash = listener->mapping == nullptr ? Clash::segment : Clash::otherObject;
    release(listener);
    return nullptr;
}

// ---- connecting ----

/// Adds or removes one record of the handshake. A part of a record is as bad as none.
template<typename Record>
bool addRecord(ShmQueue *queue, const Record &record)
{
    uint32_t length = sizeof record;
    return ShmQueueAdd(queue, &record, &length) == SHMQUEUE_OK && length == sizeof record;
}

template<typename Record>
bool removeRecord(ShmQueue *queue, Record &record)
{
    uint32_t length = sizeof record;
    return ShmQueueRemove(queue, &record, &length) == SHMQUEUE_OK && length == sizeof record;
}

/// Waits for the signal that a request was accepted, for as long as there is a listener to give it.
bool waitForReply(const ShmQueue *requester)
{
    DWORD outcome = WAIT_TIMEOUT;
    bool isOver = false;
    while (outcome == WAIT_TIMEOUT && !isOver) {
        isOver = requester->recvRing->closed != 0; // what was accepted before that has been signalled
        outcome = WaitForSingleObject(requester->ownEvent, isOver ? 0 : replyPoll);
    }
    return outcome == WAIT_OBJECT_0;
}

/// The client's half of the handshake up to the reply, on a record for the init segment.
bool requestConnection(ShmQueue *requester, const char *name, Reply &reply)
{
    if (!openSegment(requester, initPrefix(name), requesterEvents, initSize))
        return false;
    placeRings(requester, 0, initCapacity, false);
    requester->tag = liveTag;
    return addRecord(requester, request) && waitForReply(requester) && removeRecord(requester, reply);
}

/// Starts the acceptor's watcher, which reads this process's id. Where another's stands already, the
/// number in the reply is that of somebody else's connection, which an accept was refused for.
bool announceProcess(const ShmQueue *connection, const Prefix &prefix)
{
    auto *processId = reinterpret_cast<volatile LONG *>(connection->view);
    if (InterlockedCompareExchange(processId, static_cast<LONG>(GetCurrentProcessId()), 0) != 0)
        return false;
    HANDLE processWait = SegmentObjects::toOpen(prefix).event("ProcessWaitEvent", autoReset);
    if (processWait == nullptr)
        return false;
    bool isSet = SetEvent(processWait) != FALSE;
    CloseHandle(processWait);
    return isSet;
}

bool setUpConnector(ShmQueue *connection, const char *name, const Reply &reply)
{
    if (reply.capacity > greatestCapacity)
        return false;
    Prefix prefix = connectionPrefix(name, reply.number);
    if (!openSegment(connection, prefix, connectorEvents, connectionSize(reply.capacity)))
        return false;
    placeRings(connection, processIdSize, reply.capacity, false);
    if (!announceProcess(connection, prefix))
        return false;
    connection->tag = liveTag;
    return true;
}

// ---- accepting ----

/// Lets one waiting connector go. Two signals in a row are one to the system, so a connector that has
/// not yet seen the one before is given time to.
bool signalReply(const ShmQueue *listener)
{
    DWORD start = GetTickCount();
    for (;;) {
        DWORD outcome = WaitForSingleObject(listener->peerEvent, 0);
        bool isSeen = outcome == WAIT_TIMEOUT;
        if (!isSeen && outcome != WAIT_OBJECT_0)
            return false;
        if (!SetEvent(listener->peerEvent))
            return false;
        if (isSeen || GetTickCount() - start >= signalPatience)
            return true;
        Sleep(1);
    }
}

/// Sets the accepting end up. Starting the watcher is the last thing that can fail.
bool setUpAcceptor(ShmQueue *connection, const Prefix &prefix, uint32_t capacity, AccessForAll &access)
{
    SegmentObjects objects = SegmentObjects::toMake(prefix, access);
    uint32_t size = connectionSize(capacity);
    connection->mapping = objects.mapping(size);
    if (connection->mapping == nullptr)
        return false;
    connection->mutex = objects.mutex();
    if (connection->mutex == nullptr || !objects.events(connection, acceptorEvents) || !mapView(connection, size))
        return false;
    placeRings(connection, processIdSize, capacity, true);
    initialiseRings(connection);
    memset(connection->view, 0, processIdSize);
    if (!startWatcher(connection, objects))
        return false;
    connection->tag = liveTag;
    return true;
}

} // namespace

ShmQueue *ShmQueueListen(const char *name)
{
    if (!nameFits(name))
        return nullptr;
    // A client that connects just now may have made an object that it meant to open. It finds the rings
    // not set up and gives everything back, so the clash passes; one with another listener does not.
    Clash clash = Clash::none;
    ShmQueue *listener = listenOnce(name, clash);
    if (clash != Clash::otherObject)
        return listener;
    for (int attempt = 0; clash != Clash::none && attempt < clashAttempts; ++attempt) {
        Sleep(clashPause);
        listener = listenOnce(name, clash);
    }
    return listener;
}

ShmQueue *ShmQueueConnect(const char *name)
{
    if (!nameFits(name))
        return nullptr;
    Reply reply{};
    ShmQueue *requester = newQueue();
    ShmQueue *connection = nullptr;
    if (requester != nullptr && requestConnection(requester, name, reply))
        connection = newQueue();
    bool isSetUp = connection != nullptr && setUpConnector(connection, name, reply);
    release(requester);
    if (isSetUp)
        return connection;
    release(connection);
    return nullptr;
}

ShmQueue *ShmQueueAccept(ShmQueue *listener, uint32_t number, uint32_t size)
{
    if (!isLive(listener) || !listener->isListener || size > greatestCapacity)
        return nullptr;
    uint32_t anyRequest = 0;
    if (!removeRecord(listener, anyRequest) || !addRecord(listener, Reply{.number = number, .capacity = size}))
        return nullptr;

    // The connector cannot read its reply before this lock is gone, and by then all objects are there.
    Lock lock(listener);
    if (!lock.isHeld() || !signalReply(listener))
        return nullptr;
    ShmQueue *connection = newQueue();
    AccessForAll access;
    if (connection != nullptr && access.isReady() &&
        setUpAcceptor(connection, connectionPrefix(listener->name, number), size, access))
        return connection;
    release(connection);
    return nullptr;
}
