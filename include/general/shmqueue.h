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
/// Threads: every call holds the connection's named mutex while it looks at the rings, so both
/// processes may call at any time. Within one process a handle may be used by several threads, except
/// that one thread at a time sleeps in ShmQueueSelect and that nobody uses a handle any more once
/// ShmQueueDestroy has been called on it.
///
/// The shared objects are open to every user of the machine, so what lies in a segment is not
/// believed: a ring header that contradicts what this process knows of the ring counts as a closed
/// connection.

#ifndef GENERAL_SHMQUEUE_H
#define GENERAL_SHMQUEUE_H

#include "general/api.h"

/// A listener, or one end of a connection. Opaque to callers and private to a process.
typedef struct ShmQueue ShmQueue;

/// Outcome of every call but those that return a handle.
typedef enum ShmQueueStat {
    SHMQUEUE_OK = 0,
    SHMQUEUE_FULL = 1,      ///< the ring has no room; nothing was added
    SHMQUEUE_EMPTY = 2,     ///< the ring holds nothing; nothing was removed
    SHMQUEUE_CLOSED = 3,    ///< either end has destroyed the connection, or its segment is damaged
    SHMQUEUE_BAD_HANDLE = 4 ///< null or not a live handle, a required pointer is null, or the mutex could not
                            ///< be taken: among others once after a process died while it held it
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
    SHMQUEUE_EVENT_CLOSE = 32  ///< the peer destroyed its end, or the connecting process ended
};

/// Starts to listen under a name.
/// @param name  at most 15 characters, no backslash. One listener per name and session
/// @return the listener, which the caller hands to ShmQueueDestroy; null if the name is null or too
///         long, if anybody holds one of its objects already (a listener, or a client of an earlier
///         one), if memory is exhausted, or if the system refuses an object. Where a client that
///         connects too early may be in the way, it tries for 0.2 s
GENERAL_API ShmQueue *GENERAL_CALL ShmQueueListen(const char *name);

/// Connects to the listener of a name, and waits until the request is accepted: without limit for as
/// long as the listener has not been destroyed.
/// @param name  what the server listens under, at most 15 characters
/// @return this end of the connection, which the caller hands to ShmQueueDestroy; null if the name is
///         null or longer than 15 characters, if nobody listens on it or the listener is destroyed, if
///         its request ring is full, if the accepting side failed to set the connection up or set it up
///         with a segment that is too small, if memory is exhausted, or if the system refuses an object
GENERAL_API ShmQueue *GENERAL_CALL ShmQueueConnect(const char *name);

/// Accepts one connection request. It does not wait for one: sleep in ShmQueueSelect (read) or on
/// ShmQueueGetEvent (accept) first.
///
/// A request may outlive the client that sent it; ShmQueueDestroy is the way to get rid of a connection
/// that nobody uses.
/// @param listener  from ShmQueueListen
/// @param number    tells the connections of one listener apart; not one that is still in use
/// @param size      capacity of each of the two rings in bytes, at most 0x7FFFFFD5. With 0 the rings
///                  are always both full and empty
/// @return this end of the connection, which the caller hands to ShmQueueDestroy; null if the handle is
///         no live listener or the size is too large (with nothing changed), if no request is
///         pending, if the number is in use, if memory is exhausted, or if the system refuses an
///         object. In the last three cases the request is used up and the client's connect returns null
GENERAL_API ShmQueue *GENERAL_CALL ShmQueueAccept(ShmQueue *listener, uint32_t number, uint32_t size);

/// Closes a connection or a listener and frees the handle. The peer's adds return SHMQUEUE_CLOSED
/// from now on, its removes too once they have drained the ring. A peer that sleeps in ShmQueueSelect
/// is woken if it waits to read and nothing is left to read; one that waits only to write is not.
///
/// Not to be called from a DllMain: it waits for the end of the thread that watches the client. Destroy
/// every connection before the library is unloaded.
/// @param queue  a live connection or listener
/// @return SHMQUEUE_OK; SHMQUEUE_BAD_HANDLE if the handle is not live, or if the mutex or the thread
///         could not be waited for. In the latter case nothing is freed, the handle is still live, and
///         a second call will usually succeed
GENERAL_API uint32_t GENERAL_CALL ShmQueueDestroy(ShmQueue *queue);

/// Tells whether applications on this machine are to use this transport for a name. The registry key
/// HKEY_LOCAL_MACHINE\\Software\\Borvik\\FastConnection says so: its default value must be "on", and no
/// value called exactly like the name may be "off". Case counts in the names and not in the data. Values
/// listed behind one whose name has 16 or more characters are not seen.
/// @param name  the name of a queue
/// @return 1 or 0
GENERAL_API int GENERAL_CALL ShmQueueEnabled(const char *name);

/// Adds bytes to the outgoing ring, as many as fit.
/// @param queue   a live connection
/// @param data    *length bytes
/// @param length  in: how many bytes to add; out: how many were added, untouched unless the result is
///                SHMQUEUE_OK
/// @return SHMQUEUE_OK (also for a part of the bytes, and at once for a length of 0),
///         SHMQUEUE_BAD_HANDLE (also if the peer could not be told), SHMQUEUE_CLOSED or SHMQUEUE_FULL,
///         looked for in that order. Only an add that finds the ring full makes the next remove raise
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
///         SHMQUEUE_EVENT_CLOSE to tell
GENERAL_API uint32_t GENERAL_CALL ShmQueueRemove(ShmQueue *queue, void *buffer, uint32_t *length);

/// Sleeps until the connection is ready. Where there are several processors it first watches for the peer
/// for up to 0.1 ms, giving way to whoever wants the processor, unless the time-out is 0.
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

#endif
