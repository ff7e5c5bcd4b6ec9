/// @file
/// A full-duplex byte stream between two processes of one machine, over named shared memory.
///
/// It follows the socket model: a server listens under a name, clients connect to that name, the
/// server accepts each request and gets a connection of its own, and both ends add and remove bytes
/// without blocking, sleep in a select call, or have events raised on a Win32 event object.
///
///     ShmQueue *listener = ShmQueueListen("spool");            // the server
///     ShmQueue *connection = ShmQueueAccept(listener, 1, 65536);
///
///     ShmQueue *connection = ShmQueueConnect("spool");         // the client
///     uint32_t length = 5;
///     ShmQueueAdd(connection, "hello", &length);               // length is now what fitted
///
/// The stream has no message boundaries: what is longer than the room in the ring goes in pieces.
/// docs/shmqueue.md describes the protocol down to the byte, and what each side sees when the other
/// one dies.
///
/// Threads: every call but ShmQueueGetEvent holds the connection's named mutex while it looks at the rings,
/// so both processes may call at any time. Within one process any of these calls may run at the same time
/// on one handle, with three exceptions:
///   - one thread at a time sleeps in ShmQueueSelect on a handle, and one calls ShmQueueEnumEvents: each
///     signal is handed out once, to whoever comes first;
///   - several threads may add at the same time, and several may remove, but the stream's bytes then are
///     in the order in which the calls got the mutex;
///   - while ShmQueueDestroy runs on a handle, and after it, no other call may. It wakes nobody who sleeps
///     on the handle in this process: end those calls first.
/// Several threads may accept on one listener, and any number may connect.
///
/// The shared objects are open to every user of the machine, so what lies in a segment is not
/// believed: a ring header that contradicts what this process knows of the ring counts as a closed
/// connection.

#ifndef GENERAL_SHMQUEUE_H
#define GENERAL_SHMQUEUE_H

#include "general/api.h"
#include "general/names.h"

/// A listener, or one end of a connection. Opaque to callers and private to a process.
typedef struct ShmQueue ShmQueue;

/// Outcome of every call but those that return a handle.
typedef enum ShmQueueStat {
    SHMQUEUE_OK = 0,
    SHMQUEUE_FULL = 1,      ///< the ring has no room; nothing was added
    SHMQUEUE_EMPTY = 2,     ///< the ring holds nothing; nothing was removed
    SHMQUEUE_CLOSED = 3,    ///< either end has destroyed the connection, or its segment is damaged
    SHMQUEUE_BAD_HANDLE = 4 ///< null or not a live handle, a required pointer is null, the system refuses, or
                            ///< the mutex could not be taken: among others once after a process died while it
                            ///< held it. Nothing was added or removed, and *length is as it was; a second
                            ///< call tells whether that was all
} ShmQueueStat;

/// What ShmQueueSelect waits for.
enum {
    SHMQUEUE_SELECT_READ = 1, ///< bytes can be removed, or the connection is closed
    SHMQUEUE_SELECT_WRITE = 2 ///< bytes can be added
};

/// Network events, with the values of the Windows Sockets events of those names.
enum {
    SHMQUEUE_EVENT_READ = 1,   ///< bytes have arrived
    SHMQUEUE_EVENT_WRITE = 2,  ///< there is room again in a ring that an add had found full
    SHMQUEUE_EVENT_ACCEPT = 8, ///< raised together with READ; to a listener it means a connection request
    SHMQUEUE_EVENT_CLOSE = 32  ///< the peer destroyed its end, or its process ended
};

/// Starts to listen under a name.
/// @param name  at most 15 characters, no backslash. One listener per name and session. Let it not end in a
///              digit nor begin with "Init": such names can collide with those of connections
/// @return the listener, which the caller hands to ShmQueueDestroy; null if the name is null or too
///         long or has a backslash, if anybody holds one of its objects already (a listener, a client of one
///         that was built separately, a connection whose name and number are spelt alike), if memory is
///         exhausted, or if the system refuses an object. Unless it sees a listener of this library's, it tries for
///         0.4 s: what is in the way of it may be clients that came too early or still wait for one that died
GENERAL_API ShmQueue *GENERAL_CALL ShmQueueListen(const char *name);

/// Connects to the listener of a name, and waits until the request is accepted: without limit for as
/// long as the listener's process lives and has not destroyed it. It may take a second more where another
/// client has just died in the middle of its request.
/// @param name  what the server listens under, at most 15 characters
/// @return this end of the connection, which the caller hands to ShmQueueDestroy; null if the name is
///         null or longer than 15 characters, if nobody listens on it, if the listener is destroyed or its
///         process ends, if its request ring is full, if a process has just died in the middle of its
///         request (the next try will do), if what is mapped under the name is no plain memory that can
///         be written, if the accepting side failed to set the connection up, has destroyed it already or
///         set it up with a segment that is too small, if memory is exhausted, or if the system refuses an
///         object or a thread
GENERAL_API ShmQueue *GENERAL_CALL ShmQueueConnect(const char *name);

/// Accepts one connection request. It does not wait for one: sleep in ShmQueueSelect (read) or on
/// ShmQueueGetEvent (accept) first.
///
/// A request may outlive the client that sent it. Its connection goes to the next client; or nobody ever
/// speaks on it, and ShmQueueDestroy is the way to get rid of it.
/// @param listener  from ShmQueueListen
/// @param number    tells the connections of one listener apart; not one that is still in use, be it by a
///                  client of a listener before this one
/// @param size      capacity of each of the two rings in bytes, at most 0x7FFFFFD5. With 0 the rings
///                  are always both full and empty
/// @return this end of the connection, which the caller hands to ShmQueueDestroy; null with nothing
///         changed if the handle is no live listener (a connection is none), if the size is too large, if no
///         request is pending, or once if a process died while it held the mutex; null with the request used
///         up if 32 replies wait for their clients, if the number is in use, if memory is exhausted, or if
///         the system refuses an object or a thread. In the last three cases the client's connect returns
///         null, and the call may take 0.1 s to let it know
GENERAL_API ShmQueue *GENERAL_CALL ShmQueueAccept(ShmQueue *listener, uint32_t number, uint32_t size);

/// Closes a connection or a listener and frees the handle. The peer's adds return SHMQUEUE_CLOSED
/// from now on, its removes too once they have drained the ring. A peer that sleeps in ShmQueueSelect
/// is woken if it waits to read and nothing is left to read; one that waits only to write is not.
///
/// Not to be called under the loader lock, that is from a DllMain or from the destructor of a static object in a DLL.
/// It waits for the end of the thread that watches the peer, which a connecting end has as well as an accepted one,
/// and no thread comes to its end while that lock is held: it would wait for ever. Destroy every connection before
/// the library is unloaded; it may be unloaded as soon as the last destroy has returned.
/// @param queue  a live connection or listener
/// @return SHMQUEUE_OK; SHMQUEUE_BAD_HANDLE if the handle is not live, or if the mutex or the thread
///         could not be waited for, among others once after a process died while it held the mutex. In the latter case
///         nothing is freed, the handle is still live, and a second call will usually succeed
GENERAL_API uint32_t GENERAL_CALL ShmQueueDestroy(ShmQueue *queue);

/// Tells whether applications on this machine are to use this transport for a name. The registry key
/// HKEY_LOCAL_MACHINE\\Software\\Borvik\\FastConnection says so: its default value must be "on", and no
/// value called exactly like the name may be "off". Case counts in the names and not in the data. Values
/// listed behind one whose name has 16 or more characters are not seen. On 64-bit Windows the system redirects
/// a 32-bit program, and so this library, to Software\\WOW6432Node\\Borvik\\FastConnection.
/// @param name  the name of a queue
/// @return 1 or 0
GENERAL_API int GENERAL_CALL ShmQueueEnabled(const char *name);

/// Adds bytes to the outgoing ring, as many as fit.
/// @param queue   a live connection
/// @param data    *length bytes
/// @param length  in: how many bytes to add; out: how many were added, untouched unless the result is
///                SHMQUEUE_OK
/// @return SHMQUEUE_OK (also for a part of the bytes, and at once for a length of 0),
///         SHMQUEUE_BAD_HANDLE (also if the peer could not be told; nothing was added then), SHMQUEUE_CLOSED
///         or SHMQUEUE_FULL, looked for in that order. Only an add that finds the ring full makes the next remove raise
///         SHMQUEUE_EVENT_WRITE
GENERAL_API uint32_t GENERAL_CALL ShmQueueAdd(ShmQueue *queue, const void *data, uint32_t *length);

/// Removes bytes from the incoming ring, as many as it holds.
/// @param queue   a live connection
/// @param buffer  room for *length bytes
/// @param length  in: how many bytes to remove at most; out: how many were removed, 0 when there were
///                none
/// @return SHMQUEUE_OK (at once for a length of 0); SHMQUEUE_BAD_HANDLE; when the ring holds nothing,
///         SHMQUEUE_CLOSED if the connection was destroyed and SHMQUEUE_EMPTY if not. A client that
///         ended without destroying its end leaves the ring open: SHMQUEUE_EMPTY, with
///         SHMQUEUE_EVENT_CLOSE to tell. A server that did closes it
GENERAL_API uint32_t GENERAL_CALL ShmQueueRemove(ShmQueue *queue, void *buffer, uint32_t *length);

/// Sleeps until the connection is ready. Where the wait before was short and this process may use several
/// processors, it first watches for the peer for up to 0.5 ms, giving way to whoever wants the processor,
/// unless the time-out is 0. A program that polls in vain sleeps at once.
/// @param queue    a live connection or listener
/// @param flags    in: SHMQUEUE_SELECT_READ and SHMQUEUE_SELECT_WRITE as wanted, other bits are ignored;
///                 out: those of them that are ready. With neither the call returns at once
/// @param timeout  milliseconds; 0 polls, 0xFFFFFFFF waits without limit
/// @param ready    receives how many of the two are ready: 0 (time-out), 1 or 2
/// @return SHMQUEUE_OK, or SHMQUEUE_BAD_HANDLE with nothing received
///
/// After a call that timed out, the next one that has to sleep may return early with nothing ready: the
/// peer's signal for the first can still arrive. Callers loop.
GENERAL_API uint32_t GENERAL_CALL ShmQueueSelect(ShmQueue *queue, uint32_t *flags, uint32_t timeout, uint32_t *ready);

/// Chooses the network events that this end wants to see on its event object. Those newly chosen are
/// raised at once if they are due by the present state: read and accept if bytes are waiting, write if
/// there is room, close if the connection is closed. Raised events that are no longer chosen are dropped.
/// @param queue  a live connection or listener
/// @param mask   any of SHMQUEUE_EVENT_*; 0 for none
/// @return SHMQUEUE_OK or SHMQUEUE_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL ShmQueueEventSelect(ShmQueue *queue, uint32_t mask);

/// Hands over the events raised since the last call, and resets the event object. Call it each time the
/// event object was found set, before removing or adding: an event that is raised a second time is added
/// to the first as a number, not merged with it, so that READ twice reads like WRITE.
/// @param queue   a live connection or listener
/// @param events  receives the events
/// @return SHMQUEUE_OK or SHMQUEUE_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL ShmQueueEnumEvents(ShmQueue *queue, uint32_t *events);

/// Tells the Win32 event object (manual reset) that chosen events are raised on. It may be waited on
/// together with other objects. It belongs to the connection: never close it, leave setting and
/// resetting it to the library.
/// @param queue  a live connection or listener
/// @return the event's HANDLE, or null for null or a handle that is not live
GENERAL_API void *GENERAL_CALL ShmQueueGetEvent(const ShmQueue *queue);

#include "general/names.h"

#endif
