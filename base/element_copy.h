/// @file
/// Arrays of fixed-size elements that a container holds by value, and copying in and out of them.
///
/// The word-sized element is by far the commonest. A container handles it in the body of its call,
/// at any alignment and without a call of its own; every other size goes to a function out of line.

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace general {

constexpr uint32_t wordSize = sizeof(uint32_t);

/// Sixteen bytes at any address, copied in one piece where the processor can.
typedef unsigned char Block __attribute__((vector_size(16), aligned(1), may_alias));

/// The address of an element in an array.
inline unsigned char *elementAt(unsigned char *storage, uint32_t index, uint32_t elementSize)
{
    return storage + size_t{index} * elementSize;
}

inline void copyWord(void *destination, const void *source)
{
    memcpy(destination, source, wordSize);
}

inline void copyElement(void *destination, const void *source, uint32_t elementSize)
{
    memcpy(destination, source, elementSize);
}

} // namespace general
