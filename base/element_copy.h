/// @file
/// Copying of the fixed-size elements that queues, stacks and priority queues hold by value.

#pragma once

#include <stdint.h>
#include <string.h>

namespace general {

/// Copies one element of elementSize bytes. The word-sized element is by far the commonest; it is
/// moved by one load and one store, at any alignment.
inline void copyElement(void *destination, const void *source, uint32_t elementSize)
{
    if (elementSize == sizeof(uint32_t))
        memcpy(destination, source, sizeof(uint32_t));
    else
        memcpy(destination, source, elementSize);
}

} // namespace general
