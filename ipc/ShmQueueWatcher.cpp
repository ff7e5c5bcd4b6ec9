#include "ipc/shm_watcher.h"

#include "base/handle_magic.h"
#include "base/module_id.h"

#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace {

using namespace general::shm;

/// How often a destroy repeats its signal to the watcher, which any process can take away.
constexpr DWORD dismissalRepeat = 100; // ms

constexpr DWORD watcherFailed = static_cast<DWORD>(-1);
constexpr SIZE_T watcherStack = 64 * 1024;

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

bool general::shm::startWatcher(ShmQueue *connection, SegmentObjects &objects)
{
    connection->processWaitEvent = objects.event("ProcessWaitEvent", autoReset);
    if (connection->processWaitEvent == nullptr)
        return false;
    connection->watcherThread =
        CreateThread(nullptr, watcherStack, watchConnector, connection, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    return connection->watcherThread != nullptr;
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
