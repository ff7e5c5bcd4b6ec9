/// @file
/// Priority queue of fixed-size elements, copied in and out by value.
///
/// The elements lie in one sorted array: index 0 is the next to come out, index i the (i + 1)-th, and
/// elements of equal priority come out in the order in which they were added. Adding takes a binary
/// search and one block move, removing one block move. Storage starts at 20 elements and grows by
/// 10. `Rmv` removes and hands the element out, `Del` removes and discards, `Look` copies out and
/// leaves the element queued, `Peek` shows it in place. Output pointers must not be null. A queue is
/// not locked: callers serialise access to one queue.

#ifndef GENERAL_PQUEUE_H
#define GENERAL_PQUEUE_H

#include "general/api.h"
#include "general/names.h"

/// A priority queue. Opaque to callers.
typedef struct PQueue PQueue;

/// Orders two elements. A negative result puts the new element before the queued one, so a
/// comparison that is negative when its first argument is the smaller one hands out the largest
/// element first. `added` is the address that PQAdd was given. It must not call into the queue that it is
/// called by, nor leave by longjmp or an exception.
typedef int(GENERAL_CALL *PQCompare)(const void *queued, const void *added);

/// Outcome of every priority queue call. After any but PQ_OK the queue is unchanged.
typedef enum PQStat {
    PQ_OK = 0,         ///< done
    PQ_BAD_HANDLE = 1, ///< null, or not a live queue
    PQ_BAD_INDEX = 2,  ///< nothing is queued, or the index is negative or not below the count
    PQ_NO_MEMORY = 3   ///< storage could not grow
} PQStat;

/// Makes an empty queue.
/// @param elementSize  bytes per element. With 0 the queue counts: elements can be added and removed,
///                     nothing is copied, and their addresses are not to be read through
/// @param compare      the order; not null
/// @return the queue, which the caller hands to PQDestroy; null if 20 elements of that size exceed
///         the address space or memory is exhausted
GENERAL_API PQueue *GENERAL_CALL PQCreate(uint32_t elementSize, PQCompare compare);

/// Frees the queue and the elements in it.
/// @param queue  a live queue
/// @return PQ_OK or PQ_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL PQDestroy(PQueue *queue);

/// Queues a copy of an element, behind those of equal priority.
/// @param queue    a live queue
/// @param element  elementSize bytes; may not lie inside this queue's own storage
/// @return PQ_OK, PQ_BAD_HANDLE or PQ_NO_MEMORY
GENERAL_API uint32_t GENERAL_CALL PQAdd(PQueue *queue, const void *element);

/// Removes the first element and hands it out.
/// @param queue    a live queue
/// @param element  receives elementSize bytes
/// @return PQ_OK, PQ_BAD_HANDLE or PQ_BAD_INDEX (nothing is queued)
GENERAL_API uint32_t GENERAL_CALL PQRmv(PQueue *queue, void *element);

/// Removes and discards the first element.
/// @param queue  a live queue
/// @return PQ_OK, PQ_BAD_HANDLE or PQ_BAD_INDEX (nothing is queued)
GENERAL_API uint32_t GENERAL_CALL PQDel(PQueue *queue);

/// Removes the element at an index and hands it out.
/// @param queue    a live queue
/// @param index    0 is the first element
/// @param element  receives elementSize bytes
/// @return PQ_OK, PQ_BAD_HANDLE or PQ_BAD_INDEX
GENERAL_API uint32_t GENERAL_CALL PQRmvIndex(PQueue *queue, int32_t index, void *element);

/// Removes and discards the element at an index.
/// @param queue  a live queue
/// @param index  0 is the first element
/// @return PQ_OK, PQ_BAD_HANDLE or PQ_BAD_INDEX
GENERAL_API uint32_t GENERAL_CALL PQDelIndex(PQueue *queue, int32_t index);

/// Tells how many elements are queued.
/// @param queue   a live queue
/// @param length  receives the count
/// @return PQ_OK or PQ_BAD_HANDLE
GENERAL_API uint32_t GENERAL_CALL PQLength(const PQueue *queue, uint32_t *length);

/// Copies the element at an index out. It stays queued.
/// @param queue    a live queue
/// @param index    0 is the first element
/// @param element  receives elementSize bytes
/// @return PQ_OK, PQ_BAD_HANDLE or PQ_BAD_INDEX
GENERAL_API uint32_t GENERAL_CALL PQLook(const PQueue *queue, int32_t index, void *element);

/// Shows the element at an index in place.
/// @param queue    a live queue
/// @param index    0 is the first element
/// @param element  receives the element's address, valid until the queue next changes. Writing to it must
///                 not change its place in the order
/// @return PQ_OK, PQ_BAD_HANDLE or PQ_BAD_INDEX
GENERAL_API uint32_t GENERAL_CALL PQPeek(const PQueue *queue, int32_t index, void **element);

#include "general/names.h"

#endif
