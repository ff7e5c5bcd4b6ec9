/// @file
/// One ring of a shared segment: its header, what may be believed of it, and the bytes' way in and out.
/// It makes no system call, so that it is tested and fuzzed under sanitizers as well.

#pragma once

#include "general/shmqueue.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

namespace general::shm {

/// What stands in shared memory in front of a ring's bytes. Packed, because the second ring of a
/// connection begins at any address; volatile, because a peer may change a word at any time: what is
/// checked is a copy, and the copy is what is used.
struct [[gnu::packed]] RingHeader {
    volatile uint32_t base;          ///< offset of the first byte, always 0
    volatile uint32_t readPos;       ///< offset of the next byte to read
    volatile uint32_t writePos;      ///< offset of the next byte to write
    volatile uint32_t end;           ///< capacity in bytes
    volatile uint32_t count;         ///< bytes held
    volatile uint32_t writerBlocked; ///< 1 since an add found the ring full, until the next remove
    volatile uint32_t closed;        ///< 1 once either end has destroyed the connection
    volatile uint32_t waitMask;      ///< what the ring's writer sleeps on in select
    volatile uint32_t eventMask;     ///< the events that the ring's writer has chosen
    volatile uint32_t pendingEvents; ///< the events raised for the ring's writer and not yet enumerated
};

static_assert(offsetof(RingHeader, base) == 0 && offsetof(RingHeader, readPos) == 4);
static_assert(offsetof(RingHeader, writePos) == 8 && offsetof(RingHeader, end) == 12);
static_assert(offsetof(RingHeader, count) == 16 && offsetof(RingHeader, writerBlocked) == 20);
static_assert(offsetof(RingHeader, closed) == 24 && offsetof(RingHeader, waitMask) == 28);
static_assert(offsetof(RingHeader, eventMask) == 32 && offsetof(RingHeader, pendingEvents) == 36);
static_assert(sizeof(RingHeader) == 40);

/// A private copy of the words that say what a ring holds. The capacity is never taken from shared memory.
struct RingState {
    bool closed;
    uint32_t readPos;
    uint32_t writePos;
    uint32_t count;

    bool isFull(uint32_t capacity) const { return count == capacity; }
    bool isWritable(uint32_t capacity) const { return !closed && !isFull(capacity); }
};

inline uint32_t wrapped(uint32_t position, uint32_t distance, uint32_t capacity)
{
    uint32_t untilEnd = capacity - position;
    return distance < untilEnd ? position + distance : distance - untilEnd;
}

/// Whether a header can be true of a ring of this capacity.
inline bool isPlausible(const RingState &state, uint32_t base, uint32_t end, uint32_t capacity)
{
    if (base != 0 || end != capacity || state.count > capacity)
        return false;
    if (capacity == 0)
        return state.readPos == 0 && state.writePos == 0;
    return state.readPos < capacity && wrapped(state.readPos, state.count, capacity) == state.writePos;
}

/// Reads a header, each word once.
/// @param isPossible  receives whether it can be true
inline RingState wordsOf(const RingHeader *ring, uint32_t capacity, bool &isPossible)
{
    RingState state{
        .closed = ring->closed != 0, .readPos = ring->readPos, .writePos = ring->writePos, .count = ring->count};
    isPossible = isPlausible(state, ring->base, ring->end, capacity);
    return state;
}

/// Reads a header. One that cannot be true is that of a closed and empty ring.
inline RingState stateOf(const RingHeader *ring, uint32_t capacity)
{
    bool isPossible = false;
    RingState state = wordsOf(ring, capacity, isPossible);
    return isPossible ? state : RingState{.closed = true, .readPos = 0, .writePos = 0, .count = 0};
}

inline uint8_t *bytesOf(RingHeader *ring)
{
    return reinterpret_cast<uint8_t *>(ring + 1);
}

/// Copies in what fits, at most so many bytes. The header does not tell of them until finishAdd.
/// @return how many fitted
inline uint32_t copyIn(RingHeader *ring, const RingState &state, uint32_t capacity, const void *data, uint32_t length)
{
    uint32_t added = std::min(length, capacity - state.count);
    uint32_t untilEnd = std::min(added, capacity - state.writePos);
    auto *source = static_cast<const uint8_t *>(data);
    memcpy(bytesOf(ring) + state.writePos, source, untilEnd);
    memcpy(bytesOf(ring), source + untilEnd, added - untilEnd);
    return added;
}

/// The count goes last: who watches it without the mutex finds the rest in place.
inline void finishAdd(RingHeader *ring, const RingState &state, uint32_t capacity, uint32_t added)
{
    ring->writePos = wrapped(state.writePos, added, capacity);
    ring->count = state.count + added;
}

/// Copies out at most so many of the bytes that the ring holds. They stay until finishRemove.
/// @return how many there were
inline uint32_t copyOut(RingHeader *ring, const RingState &state, uint32_t capacity, void *buffer, uint32_t length)
{
    uint32_t removed = std::min(length, state.count);
    uint32_t untilEnd = std::min(removed, capacity - state.readPos);
    auto *destination = static_cast<uint8_t *>(buffer);
    memcpy(destination, bytesOf(ring) + state.readPos, untilEnd);
    memcpy(destination + untilEnd, bytesOf(ring), removed - untilEnd);
    return removed;
}

/// A drained ring begins anew, so that the next add of a full ring's worth is one copy.
inline void finishRemove(RingHeader *ring, const RingState &state, uint32_t capacity, uint32_t removed)
{
    bool isDrained = removed == state.count;
    ring->readPos = isDrained ? 0 : wrapped(state.readPos, removed, capacity);
    if (isDrained)
        ring->writePos = 0;
    ring->count = state.count - removed;
}

/// Which of the wanted SHMQUEUE_SELECT_* hold for the side that writes the outgoing and reads the incoming ring.
inline uint32_t readinessOf(const RingState &outgoing, const RingState &incoming, uint32_t capacity, uint32_t wanted)
{
    uint32_t ready = outgoing.isWritable(capacity) ? SHMQUEUE_SELECT_WRITE : 0;
    if (incoming.count != 0 || incoming.closed)
        ready |= SHMQUEUE_SELECT_READ;
    return ready & wanted;
}

/// The SHMQUEUE_EVENT_* that are due to that side by the present state alone.
inline uint32_t dueEvents(const RingState &outgoing, const RingState &incoming, uint32_t capacity)
{
    uint32_t due = outgoing.isWritable(capacity) ? SHMQUEUE_EVENT_WRITE : 0;
    if (incoming.count != 0)
        due |= SHMQUEUE_EVENT_READ | SHMQUEUE_EVENT_ACCEPT;
    if (incoming.closed)
        due |= SHMQUEUE_EVENT_CLOSE;
    return due;
}

} // namespace general::shm
