#include "base/crt_stdio.h"

#include "ipc/shm_segment.h"

#include "base/handle_magic.h"
#include "base/module_id.h"

#include <stdlib.h>
#include <string.h>

#include <initializer_list>

GENERAL_MODULE_ID("$Id$");

namespace {

using namespace general::shm;

/// What the objects of one segment are called, up to the suffix.
struct Prefix {
    char text[40];
};

struct ObjectName {
    char text[sizeof(Prefix) + sizeof "ProcessWaitEvent"];
};

constexpr bool manualReset = true;
constexpr bool autoReset = false;

/// An event of a segment and the handle that a side keeps it in.
struct EventSlot {
    const char *suffix;
    bool isManualReset;
    HANDLE ShmQueue::*field;
};

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
/// How often a destroy repeats its signal to the watcher, which any process can take away.
constexpr DWORD dismissalRepeat = 100; // ms

/// How often, and after how many milliseconds each, a listen tries again that was crossed by a client.
constexpr int clashAttempts = 20;
constexpr DWORD clashPause = 10;

constexpr DWORD watcherFailed = static_cast<DWORD>(-1);
constexpr SIZE_T watcherStack = 64 * 1024;

bool nameFits(const char *name)
{
    return name != nullptr && strnlen(name, longestName + 1) <= longestName;
}

Prefix initPrefix(const char *name)
{
    Prefix prefix;
    snprintf(prefix.text, sizeof prefix.text, "QVSShmInit%.15s", name);
    return prefix;
}

/// Numbers from 2^31 on show as negative ones.
Prefix connectionPrefix(const char *name, uint32_t number)
{
    Prefix prefix;
    snprintf(prefix.text, sizeof prefix.text, "QVSShm%.15s%02d", name, static_cast<int>(number));
    return prefix;
}

ObjectName objectName(const Prefix &prefix, const char *suffix)
{
    ObjectName name;
    snprintf(name.text, sizeof name.text, "%s%s", prefix.text, suffix);
    return name;
}

/// Security attributes that give everyone full access.
class AccessForAll {
public:
    AccessForAll()
        : attributes_{.nLength = sizeof attributes_,
                      .lpSecurityDescriptor = malloc(SECURITY_DESCRIPTOR_MIN_LENGTH),
                      .bInheritHandle = FALSE}
    {
        void *descriptor = attributes_.lpSecurityDescriptor;
        isReady_ = descriptor != nullptr && InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION) &&
                   SetSecurityDescriptorDacl(descriptor, TRUE, nullptr, FALSE);
    }
    ~AccessForAll() { free(attributes_.lpSecurityDescriptor); }
    AccessForAll(const AccessForAll &) = delete;
    AccessForAll &operator=(const AccessForAll &) = delete;

    bool isReady() const { return isReady_; }
    SECURITY_ATTRIBUTES *attributes() { return &attributes_; }

private:
    SECURITY_ATTRIBUTES attributes_;
    bool isReady_;
};

/// The named objects of a segment, to be made or to be opened.
class SegmentObjects {
public:
    static SegmentObjects toOpen(const Prefix &prefix) { return {prefix, nullptr}; }
    static SegmentObjects toMake(const Prefix &prefix, AccessForAll &access) { return {prefix, access.attributes()}; }

    HANDLE mapping(uint32_t size)
    {
        if (attributes_ == nullptr)
            return OpenFileMappingA(FILE_MAP_WRITE, FALSE, prefix_.text);
        SetLastError(ERROR_SUCCESS);
        return checked(CreateFileMappingA(INVALID_HANDLE_VALUE, attributes_, PAGE_READWRITE, 0, size, prefix_.text));
    }

    HANDLE mutex()
    {
        SetLastError(ERROR_SUCCESS);
        return checked(CreateMutexA(attributes_, FALSE, objectName(prefix_, "Mutex").text));
    }

    HANDLE event(const char *suffix, bool isManualReset)
    {
        SetLastError(ERROR_SUCCESS);
        return checked(CreateEventA(attributes_, isManualReset, FALSE, objectName(prefix_, suffix).text));
    }

    template<size_t Count>
    bool events(ShmQueue *queue, const EventSlot (&slots)[Count])
    {
        for (const EventSlot &slot : slots) {
            queue->*slot.field = event(slot.suffix, slot.isManualReset);
            if (queue->*slot.field == nullptr)
                return false;
        }
        return true;
    }

    /// Whether something that was to be made was there already.
    bool clashed() const { return clashed_; }

private:
    SegmentObjects(const Prefix &prefix, SECURITY_ATTRIBUTES *attributes) : prefix_(prefix), attributes_(attributes) {}

    /// What is to be made must not have been there.
    HANDLE checked(HANDLE object)
    {
        if (attributes_ == nullptr || object == nullptr || GetLastError() != ERROR_ALREADY_EXISTS)
            return object;
        CloseHandle(object);
        clashed_ = true;
        return nullptr;
    }

    Prefix prefix_;
    SECURITY_ATTRIBUTES *attributes_;
    bool clashed_ = false;
};

ShmQueue *newQueue()
{
    return static_cast<ShmQueue *>(calloc(1, sizeof(ShmQueue)));
}

void closeIfOpen(HANDLE handle)
{
    if (handle != nullptr)
        CloseHandle(handle);
}

/// Gives back everything that a record holds, and the record; null is fine. The shared state is not touched.
void release(ShmQueue *queue)
{
    if (queue == nullptr)
        return;
    for (HANDLE event : {queue->peerEvent, queue->ownEvent, queue->peerWake, queue->ownWake})
        closeIfOpen(event);
    closeIfOpen(queue->mutex);
    if (queue->view != nullptr)
        UnmapViewOfFile(queue->view);
    closeIfOpen(queue->mapping);
    closeIfOpen(queue->watcherThread);
    closeIfOpen(queue->processWaitEvent);
    general::clearMagic(queue->tag);
    free(queue);
}

/// Maps the segment. It was made by another process perhaps, so all of it must really be there.
bool mapView(ShmQueue *queue, uint32_t size)
{
    queue->view = static_cast<uint8_t *>(MapViewOfFile(queue->mapping, FILE_MAP_WRITE, 0, 0, size));
    if (queue->view == nullptr)
        return false;
    MEMORY_BASIC_INFORMATION memory{};
    return VirtualQuery(queue->view, &memory, sizeof memory) != 0 && memory.State == MEM_COMMIT &&
           memory.RegionSize >= size;
}

/// Opens all that a side has of an existing segment.
template<size_t Count>
bool openSegment(ShmQueue *queue, const Prefix &prefix, const EventSlot (&slots)[Count], uint32_t size)
{
    SegmentObjects objects = SegmentObjects::toOpen(prefix);
    queue->mapping = objects.mapping(size);
    if (queue->mapping == nullptr)
        return false;
    queue->mutex = objects.mutex();
    return queue->mutex != nullptr && objects.events(queue, slots) && mapView(queue, size);
}

RingHeader *ringAt(const ShmQueue *queue, uint32_t offset)
{
    return reinterpret_cast<RingHeader *>(queue->view + offset);
}

/// Places the rings: the maker of the segment writes the first, its peer the second.
void placeRings(ShmQueue *queue, uint32_t firstOffset, uint32_t capacity, bool isMaker)
{
    RingHeader *first = ringAt(queue, firstOffset);
    RingHeader *second = ringAt(queue, firstOffset + ringSize(capacity));
    queue->sendRing = isMaker ? first : second;
    queue->recvRing = isMaker ? second : first;
    queue->capacity = capacity;
}

void initialiseRings(const ShmQueue *queue)
{
    for (RingHeader *ring : {queue->sendRing, queue->recvRing}) {
        memset(reinterpret_cast<uint8_t *>(ring), 0, sizeof *ring);
        ring->end = queue->capacity;
    }
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

/// The watcher may go on: a destroy is not under way. The mutex is held.
bool isWatched(const ShmQueue *connection)
{
    return isLive(connection) && !connection->closing;
}

/// Tells the acceptor that the connector's process has ended. The mutex is held.
void announceDeath(ShmQueue *connection)
{
    if (connection->recvRing->count == 0)
        wakeFor(thisSide(connection), SHMQUEUE_SELECT_READ);
    raiseEvents(thisSide(connection), SHMQUEUE_EVENT_CLOSE);
}

/// Waits until the connector's process ends or a destroy is under way.
bool waitForDeath(const ShmQueue *connection, HANDLE process)
{
    HANDLE objects[] = {process, connection->processWaitEvent};
    DWORD outcome = WaitForMultipleObjects(2, objects, FALSE, INFINITE);
    CloseHandle(process);
    return outcome == WAIT_OBJECT_0 || outcome == WAIT_OBJECT_0 + 1;
}

/// Opens the process that has connected. The mutex is held.
HANDLE openConnector(const ShmQueue *connection)
{
    uint32_t processId = 0;
    memcpy(&processId, connection->view, sizeof processId);
    return OpenProcess(SYNCHRONIZE, FALSE, processId);
}

DWORD acknowledge(const ShmQueue *connection)
{
    SetEvent(connection->ownEvent);
    releaseMutex(connection->mutex);
    return 0;
}

/// Ends a watcher that cannot go on. The mutex is held and is left abandoned, so that the next call of
/// either side fails once; whoever sleeps on this side is woken to make that call.
DWORD giveUp(const ShmQueue *connection)
{
    if (connection->sendRing->waitMask != 0)
        SetEvent(connection->ownWake);
    if ((connection->sendRing->eventMask & SHMQUEUE_EVENT_CLOSE) != 0)
        SetEvent(connection->ownEvent);
    return watcherFailed;
}

/// A thread that looks after one accepted connection. Until it ends, nothing that it uses is released:
/// destroy waits for its end.
DWORD WINAPI watchConnector(void *context)
{
    auto *connection = static_cast<ShmQueue *>(context);
    if (WaitForSingleObject(connection->processWaitEvent, INFINITE) != WAIT_OBJECT_0)
        return watcherFailed;
    DWORD outcome = WaitForSingleObject(connection->mutex, INFINITE);
    if (outcome == WAIT_ABANDONED) { // the connector died inside its first call
        raiseEvents(thisSide(connection), SHMQUEUE_EVENT_CLOSE);
        return giveUp(connection);
    }
    if (outcome != WAIT_OBJECT_0)
        return watcherFailed;
    if (!isWatched(connection))
        return acknowledge(connection);
    HANDLE process = openConnector(connection);
    if (process == nullptr)
        return giveUp(connection);

    releaseMutex(connection->mutex);
    if (!waitForDeath(connection, process))
        return watcherFailed;
    outcome = WaitForSingleObject(connection->mutex, INFINITE);
    if (outcome != WAIT_OBJECT_0 && outcome != WAIT_ABANDONED)
        return watcherFailed;
    if (!isWatched(connection))
        return acknowledge(connection);
    if (outcome == WAIT_ABANDONED) {
        raiseEvents(thisSide(connection), SHMQUEUE_EVENT_CLOSE); // the connector died inside a call
        return giveUp(connection);
    }

    CloseHandle(connection->watcherThread);
    connection->watcherThread = nullptr;
    announceDeath(connection);
    releaseMutex(connection->mutex); // the record may be gone from here on
    return 0;
}

bool startWatcher(ShmQueue *connection, SegmentObjects &objects)
{
    connection->processWaitEvent = objects.event("ProcessWaitEvent", autoReset);
    if (connection->processWaitEvent == nullptr)
        return false;
    connection->watcherThread =
        CreateThread(nullptr, watcherStack, watchConnector, connection, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    return connection->watcherThread != nullptr;
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

// ---- destroying ----

/// Marks both rings closed and tells the peer. The mutex is held.
void announceClose(ShmQueue *queue)
{
    queue->sendRing->closed = 1;
    queue->recvRing->closed = 1;
    if (queue->sendRing->count == 0)
        wakeFor(peerSide(queue), SHMQUEUE_SELECT_READ);
    raiseEvents(peerSide(queue), SHMQUEUE_EVENT_CLOSE);
}

/// Waits for the watcher's end. Its acknowledgement alone would not do: that event is set already when
/// events are pending, and a watcher that has failed never acknowledges.
bool waitForWatcher(const ShmQueue *queue)
{
    DWORD outcome = WAIT_TIMEOUT;
    while (outcome == WAIT_TIMEOUT) {
        if (!SetEvent(queue->processWaitEvent))
            return false;
        outcome = WaitForSingleObject(queue->watcherThread, dismissalRepeat);
    }
    return outcome == WAIT_OBJECT_0;
}

/// Sends the watcher home. The mutex is held on entry and, after success, on return. After a failure
/// the handle is live, so that a second destroy can finish.
bool dismissWatcher(ShmQueue *queue)
{
    general::clearMagic(queue->tag);
    releaseMutex(queue->mutex);
    if (waitForWatcher(queue) && takeMutex(queue->mutex))
        return true;
    queue->tag = liveTag;
    return false;
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

uint32_t ShmQueueDestroy(ShmQueue *queue)
{
    if (!isLive(queue) || !takeMutex(queue->mutex))
        return SHMQUEUE_BAD_HANDLE;
    if (!queue->closing) {
        announceClose(queue);
        queue->closing = true;
    }
    if (queue->watcherThread != nullptr && !dismissWatcher(queue))
        return SHMQUEUE_BAD_HANDLE;
    releaseMutex(queue->mutex);
    release(queue);
    return SHMQUEUE_OK;
}
