/// @file
/// What the containers share that hold fixed-size elements by value in one array: queue, stack and
/// priority queue. Their records have the fields magic, elementSize, count, capacity (in elements) and
/// storage, each in its own order.

#pragma once

#include "base/block_copy.h"
#include "base/checked_size.h"
#include "base/handle_magic.h"

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

namespace general {

constexpr uint32_t initialCapacity = 20;
constexpr uint32_t growthStep = 10;

/// The address of an element in an array.
inline unsigned char *elementAt(unsigned char *storage, uint32_t index, uint32_t elementSize)
{
    return storage + size_t{index} * elementSize;
}

/// The address of a slot, in use or not.
template<typename Container>
unsigned char *slot(const Container *container, uint32_t number)
{
    return elementAt(container->storage, number, container->elementSize);
}

/// Copies an element into a slot, as the last thing that a call does.
/// @return 0, which each of these containers has for success
template<typename Container>
[[gnu::always_inline]] inline uint32_t putElement(const Container *container, uint32_t number, const void *element)
{
    if (container->elementSize != wordSize)
        return copyBytes(slot(container, number), element, container->elementSize);
    copyWord(elementAt(container->storage, number, wordSize), element);
    return 0;
}

/// Copies an element out of a slot, likewise.
template<typename Container>
[[gnu::always_inline]] inline uint32_t takeElement(const Container *container, uint32_t number, void *element)
{
    if (container->elementSize != wordSize)
        return copyBytes(element, slot(container, number), container->elementSize);
    copyWord(element, elementAt(container->storage, number, wordSize));
    return 0;
}

/// Bytes of storage for a number of elements; never 0, because a heap may answer a request for nothing
/// with null, or take it as a request to free.
inline bool storageSize(size_t capacity, uint32_t elementSize, size_t &size)
{
    if (!checkedProduct(capacity, elementSize, size))
        return false;
    size = size == 0 ? 1 : size;
    return true;
}

/// Makes an empty container with storage for 20 elements; the fields of its own are 0.
/// @return null if memory is exhausted
template<typename Container>
Container *createContainer(uint32_t elementSize)
{
    size_t size = 0;
    if (!storageSize(initialCapacity, elementSize, size))
        return nullptr;
    auto *container = static_cast<Container *>(malloc(sizeof(Container)));
    auto *storage = static_cast<unsigned char *>(malloc(size));
    if (container == nullptr || storage == nullptr) {
        free(container);
        free(storage);
        return nullptr;
    }
    *container = Container{};
    container->magic = liveMagic<Container>;
    container->elementSize = elementSize;
    container->capacity = initialCapacity;
    container->storage = storage;
    return container;
}

/// Makes room for 10 more elements. A failure leaves the container as it was.
template<typename Container>
[[gnu::noinline]] bool growStorage(Container *container)
{
    size_t capacity = 0;
    size_t size = 0;
    if (!checkedSum(container->capacity, growthStep, capacity) || !storageSize(capacity, container->elementSize, size))
        return false;
    void *storage = realloc(container->storage, size);
    if (storage == nullptr)
        return false;
    container->storage = static_cast<unsigned char *>(storage);
    container->capacity = static_cast<uint32_t>(capacity);
    return true;
}

template<typename Container>
void destroyContainer(Container *container)
{
    clearMagic(container->magic);
    free(container->storage);
    free(container);
}

} // namespace general
