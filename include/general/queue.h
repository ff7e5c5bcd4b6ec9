/// @file
/// First-in, first-out queue of fixed-size elements, copied in and out by value.
///
/// The queue is a ring buffer. Storage starts at 20 elements and grows by 10. `Rmv` removes and
/// hands the element out, `Del` removes and discards, `Look` copies out and leaves the element
/// queued, `Peek` shows it in place. A queue is not locked: callers serialise access to one queue.

#ifndef GENERAL_QUEUE_H
#define GENERAL_QUEUE_H

#include "general/api.h"
#include "general/names.h"

/// A queue. Opaque to callers.
typedef struct Queue Queue;

/// Outcome of every queue call. After any but QUE_OK the queue is unchanged.
typedef enum QueStat {
    QUE_OK = 0,         ///< done
    QUE_BAD_HANDLE = 1, ///< null, or not a live queue
    QUE_EMPTY = 2,      ///< nothing is queued
    QUE_NO_MEMORY = 3,  ///< storage could not grow
    QUE_BAD_ARG = 4     ///< a required pointer is null, or an index is not below the count
} QueStat;

/// Makes an empty queue.
/// @param elementSize  bytes per element, not 0
/// @return the queue, which the caller hands to QueDestroy; null if elementSize is 0, if
///         20 elements of that size exceed the address space, or if memory is exhausted
GENERAL_API Queue *GENERAL_CALL QueCreate(uint32_t elementSize);

/// Frees the queue and the elements in it.
/// @param queue  a live queue
/// @return QUE_OK or QUE_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL QueDestroy(Queue *queue);

/// Tells how many elements are queued.
/// @param queue   a live queue
/// @param length  receives the count
/// @return QUE_OK, QUE_BAD_HANDLE or QUE_BAD_ARG (length is null), looked for in that order
GENERAL_API uint32_t GENERAL_CALL QueLength(const Queue *queue, uint32_t *length);

/// Appends a copy of an element. Growth is by 10 elements when the storage is full.
/// @param queue    a live queue
/// @param element  elementSize bytes; may not lie inside this queue's own storage
/// @return QUE_OK, QUE_BAD_HANDLE, QUE_BAD_ARG (element is null) or QUE_NO_MEMORY, looked for in
///         that order
GENERAL_API uint32_t GENERAL_CALL QueAdd(Queue *queue, const void *element);

/// Removes the oldest element and hands it out.
/// @param queue    a live queue
/// @param element  receives elementSize bytes
/// @return QUE_OK, QUE_BAD_HANDLE, QUE_EMPTY or QUE_BAD_ARG (element is null), looked for in that
///         order
GENERAL_API uint32_t GENERAL_CALL QueRmv(Queue *queue, void *element);

/// Removes and discards the oldest element.
/// @param queue  a live queue
/// @return QUE_OK, QUE_BAD_HANDLE or QUE_EMPTY, looked for in that order
GENERAL_API uint32_t GENERAL_CALL QueDel(Queue *queue);

/// Removes and discards the element at an index. The elements behind it move down by one, so the
/// cost is linear in their number.
/// @param queue  a live queue
/// @param index  0 is the oldest element
/// @return QUE_OK, QUE_BAD_HANDLE, QUE_EMPTY or QUE_BAD_ARG (index not below the count), looked for
///         in that order
GENERAL_API uint32_t GENERAL_CALL QueDelIndex(Queue *queue, uint32_t index);

/// Copies the element at an index out. It stays queued.
/// @param queue    a live queue
/// @param index    0 is the oldest element
/// @param element  receives elementSize bytes
/// @return QUE_OK, QUE_BAD_HANDLE, QUE_EMPTY or QUE_BAD_ARG (index not below the count, or element
///         is null), looked for in that order
GENERAL_API uint32_t GENERAL_CALL QueLook(const Queue *queue, uint32_t index, void *element);

/// Shows the element at an index in place.
/// @param queue    a live queue
/// @param index    0 is the oldest element
/// @param element  receives the element's address, valid until the queue next changes
/// @return QUE_OK, QUE_BAD_HANDLE, QUE_EMPTY or QUE_BAD_ARG (index not below the count, or element
///         is null), looked for in that order
GENERAL_API uint32_t GENERAL_CALL QuePeek(const Queue *queue, uint32_t index, void **element);

#include "general/names.h"

#endif
