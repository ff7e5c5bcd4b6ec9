#include "ipc/shm_watcher.h"

#include "ipc/shm_handshake.h"
#include "ipc/shm_objects.h"

#include "base/handle_magic.h"
#include "base/module_id.h"

#include <string.h>

#include <algorithm>

GENERAL_MODULE_ID("$Id$");

namespace {

using namespace general::shm;

/// How often a destroy repeats its signal to the watcher, which any process can take away.
constexpr DWORD dismissalRepeat = 100; // ms

/// How often a connector's watcher looks whether the acceptor is still there.
constexpr DWORD presencePoll = 250; // ms
/// The longest pause between two attempts to give an owed signal.
constexpr DWORD longestSignalPause = 128; // ms

constexpr DWORD watcherFailed = static_cast<DWORD>(-1);
constexpr SIZE_T watcherStack = 64 * 1024;

/// The watcher may go on: a destroy is not under way. The mutex is held.
bool isWatched(const ShmQueue *connection)
{
    return isLive(connection) && !connection->closing;
}

/// Waits for the connector, or for a destroy. Until then a signal is owed to a client, perhaps to this one.
bool waitForConnector(const ShmQueue *connection)
{
    DWORD pause = connection->owesSignal ? 1 : INFINITE;
    for (;;) {
        DWORD outcome = WaitForSingleObject(connection->processWaitEvent, pause);
        if (outcome != WAIT_TIMEOUT)
            return outcome == WAIT_OBJECT_0;
        pause = stillOwesSignal(connection) ? std::min(2 * pause, longestSignalPause) : INFINITE;
    }
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

/// The process that has connected; 0 until one has.
DWORD processIdOf(const ShmQueue *connection)
{
    DWORD processId = 0;
    memcpy(&processId, connection->view, processIdSize);
    return processId;
}

DWORD acknowledge(const ShmQueue *connection)
{
    SetEvent(connection->ownEvent);
    ReleaseMutex(connection->mutex);
    return 0;
}

/// Ends a watcher that cannot go on. The mutex is held and is left abandoned, so that the next call of
/// either side fails once; whoever sleeps on this side is woken to make that call.
/// @param isGone  the connector's process is known to have ended
DWORD giveUp(const ShmQueue *connection, bool isGone)
{
    if (isGone)
        raiseEvents(thisSide(connection), SHMQUEUE_EVENT_CLOSE);
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
    if (!waitForConnector(connection))
        return watcherFailed;
    DWORD outcome = WaitForSingleObject(connection->mutex, INFINITE);
    if (outcome == WAIT_ABANDONED) // the connector died inside its first call
        return giveUp(connection, true);
    if (outcome != WAIT_OBJECT_0)
        return watcherFailed;
    if (!isWatched(connection))
        return acknowledge(connection);
    HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, processIdOf(connection));
    if (process == nullptr) // of another account, if it is there at all
        return giveUp(connection, GetLastError() == ERROR_INVALID_PARAMETER);

    ReleaseMutex(connection->mutex);
    if (!waitForDeath(connection, process))
        return watcherFailed;
    outcome = WaitForSingleObject(connection->mutex, INFINITE);
    if (outcome != WAIT_OBJECT_0 && outcome != WAIT_ABANDONED)
        return watcherFailed;
    if (!isWatched(connection))
        return acknowledge(connection);
    if (outcome == WAIT_ABANDONED) // the connector died inside a call
        return giveUp(connection, true);

    connection->endedWatcher = connection->watcherThread;
    connection->watcherThread = nullptr;
    announceDeath(connection);
    ReleaseMutex(connection->mutex); // a destroy may free the record from here on, once this thread has ended
    return 0;
}

/// Waits until the acceptor is gone or a destroy is under way. A connector may not open the process of a
/// service, so it looks for an event that nobody but the acceptor keeps open.
/// @return whether the acceptor is gone
bool waitForLoss(const ShmQueue *connection)
{
    Prefix prefix = connectionPrefix(connection->name, connection->number);
    DWORD outcome = WAIT_TIMEOUT;
    bool isGone = false;
    while (outcome == WAIT_TIMEOUT && !isGone) {
        outcome = WaitForSingleObject(connection->processWaitEvent, presencePoll);
        isGone = outcome == WAIT_TIMEOUT && !isHeldBySomebody(prefix, "ProcessWaitEvent");
    }
    return isGone;
}

/// Closes the connection in the place of an acceptor that cannot any more. How far that one came with it, if it
/// died in its destroy, cannot be told; CLOSE is raised unless that was done. A select that waits only to write
/// is woken by an acceptor's death, but not by its destroy. The mutex is held.
void announceLoss(ShmQueue *connection)
{
    bool isDestroyed = connection->sendRing->closed != 0 && connection->recvRing->closed != 0;
    connection->sendRing->closed = 1;
    connection->recvRing->closed = 1;
    wakeFor(thisSide(connection), isDestroyed ? SHMQUEUE_SELECT_READ : SHMQUEUE_SELECT_READ | SHMQUEUE_SELECT_WRITE);
    if (!connection->handedOutClose && connection->sendRing->pendingEvents < SHMQUEUE_EVENT_CLOSE)
        raiseEvents(thisSide(connection), SHMQUEUE_EVENT_CLOSE);
}

/// A thread that looks after the connecting end of a connection.
DWORD WINAPI watchForLoss(void *context)
{
    auto *connection = static_cast<ShmQueue *>(context);
    if (!waitForLoss(connection))
        return 0;
    DWORD outcome = WaitForSingleObject(connection->mutex, INFINITE);
    if (outcome != WAIT_OBJECT_0 && outcome != WAIT_ABANDONED) // abandoned: it died inside a call
        return watcherFailed;
    if (isWatched(connection))
        announceLoss(connection);
    ReleaseMutex(connection->mutex);
    return 0;
}

bool startThread(ShmQueue *connection, LPTHREAD_START_ROUTINE routine)
{
    connection->watcherThread =
        CreateThread(nullptr, watcherStack, routine, connection, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    return connection->watcherThread != nullptr;
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
    ReleaseMutex(queue->mutex);
    if (waitForWatcher(queue) && takeMutex(queue->mutex))
        return true;
    queue->tag = liveTag;
    return false;
}

} // namespace

bool general::shm::startWatcher(ShmQueue *connection)
{
    return startThread(connection, watchConnector);
}

bool general::shm::watchAcceptor(ShmQueue *connection)
{
    connection->processWaitEvent = CreateEventA(nullptr, autoReset, FALSE, nullptr);
    return connection->processWaitEvent != nullptr && startThread(connection, watchForLoss);
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
    bool isUnclaimed = queue->isAcceptor && processIdOf(queue) == 0;
    ReleaseMutex(queue->mutex);
    if (isUnclaimed)
        takeReplyBack(queue);
    if (queue->endedWatcher != nullptr) // it may not have returned yet, and the library may be unloaded next
        WaitForSingleObject(queue->endedWatcher, INFINITE);
    release(queue);
    return SHMQUEUE_OK;
}
