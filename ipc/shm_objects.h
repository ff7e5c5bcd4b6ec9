/// @file
/// The named objects of a segment, and what the handshake, the watcher and destroy need of a handle record.

#pragma once

#include "ipc/shm_segment.h"

#include <stddef.h>

namespace general::shm {

/// What the objects of one segment are called, up to the suffix.
struct Prefix {
    char text[40];
};

Prefix initPrefix(const char *name);
/// Numbers from 2^31 on show as negative ones.
Prefix connectionPrefix(const char *name, uint32_t number);

constexpr bool manualReset = true;
constexpr bool autoReset = false;

/// An event of a segment and the handle that a side keeps it in.
struct EventSlot {
    const char *suffix;
    bool isManualReset;
    HANDLE ShmQueue::*field;
};

/// Security attributes that give everyone full access.
class AccessForAll {
public:
    AccessForAll();
    ~AccessForAll();
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

    /// Makes or opens the file mapping. The other two open what is there and make what is not, for a
    /// connecting side too.
    HANDLE mapping(uint32_t size);
    HANDLE mutex();
    HANDLE event(const char *suffix, bool isManualReset);

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
    HANDLE checked(HANDLE object);

    Prefix prefix_;
    SECURITY_ATTRIBUTES *attributes_;
    bool clashed_ = false;
};

/// A zeroed record; null if memory is exhausted.
ShmQueue *newQueue();

/// Gives back everything that a record holds, and the record; null is fine. The shared state is not touched.
void release(ShmQueue *queue);

/// Opens an event that is there already.
/// @return null with GetLastError
HANDLE openEvent(const Prefix &prefix, const char *suffix);

/// Whether anybody holds an event. What the system does not want to say counts as held.
bool isHeldBySomebody(const Prefix &prefix, const char *suffix);

/// Maps the segment. It was made by another process perhaps, so all of it must really be there, and writable.
bool mapView(ShmQueue *queue, uint32_t size);

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

/// Places the rings: the maker of the segment writes the first, its peer the second.
void placeRings(ShmQueue *queue, uint32_t firstOffset, uint32_t capacity, bool isMaker);

void initialiseRings(const ShmQueue *queue);

} // namespace general::shm
