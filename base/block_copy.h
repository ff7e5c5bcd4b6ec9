/// @file
/// Copying and moving of short blocks, in pieces that fit into registers. The C runtime's memcpy and
/// memmove are calls into another DLL, which cost several times what they do for a few dozen bytes;
/// they are left to longer blocks.

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace general {

constexpr uint32_t wordSize = sizeof(uint32_t);

/// Sixteen bytes, copied in one piece where the processor can.
typedef unsigned char Block __attribute__((vector_size(16)));

/// Copies what a type holds, read as a whole before it is written: the two places may overlap.
template<typename Piece>
[[gnu::always_inline]] inline void copyPiece(void *destination, const void *source)
{
    Piece piece;
    memcpy(&piece, source, sizeof piece);
    memcpy(destination, &piece, sizeof piece);
}

inline void copyWord(void *destination, const void *source)
{
    copyPiece<uint32_t>(destination, source);
}

/// Copies at least one piece and at most two, as two that may overlap.
template<typename Piece>
[[gnu::always_inline]] inline void copyEnds(unsigned char *to, const unsigned char *from, size_t size)
{
    copyPiece<Piece>(to, from);
    copyPiece<Piece>(to + size - sizeof(Piece), from + size - sizeof(Piece));
}

/// memcpy, also of nothing from or to nowhere.
[[gnu::always_inline]] inline void copyBytes(void *destination, const void *source, size_t size)
{
    auto *to = static_cast<unsigned char *>(destination);
    auto *from = static_cast<const unsigned char *>(source);
    constexpr size_t twoBlocks = 2 * sizeof(Block);
    if (size > 2 * twoBlocks) {
        memcpy(to, from, size);
    } else if (size > twoBlocks) {
        copyEnds<Block>(to, from, twoBlocks);
        copyEnds<Block>(to + size - twoBlocks, from + size - twoBlocks, twoBlocks);
    } else if (size >= sizeof(Block)) {
        copyEnds<Block>(to, from, size);
    } else if (size >= sizeof(uint64_t)) {
        copyEnds<uint64_t>(to, from, size);
    } else if (size >= sizeof(uint32_t)) {
        copyEnds<uint32_t>(to, from, size);
    } else if (size >= sizeof(uint16_t)) {
        copyEnds<uint16_t>(to, from, size);
    } else if (size == 1) {
        *to = *from;
    }
}

constexpr size_t longMove = 1024;

/// memmove to a lower address.
inline void moveDown(unsigned char *to, const unsigned char *from, size_t size)
{
    if (size >= longMove) {
        memmove(to, from, size);
        return;
    }
    for (; size >= sizeof(Block); size -= sizeof(Block), to += sizeof(Block), from += sizeof(Block))
        copyPiece<Block>(to, from);
    for (; size >= wordSize; size -= wordSize, to += wordSize, from += wordSize)
        copyWord(to, from);
    for (; size != 0; --size)
        *to++ = *from++;
}

/// memmove to a higher address.
inline void moveUp(unsigned char *to, const unsigned char *from, size_t size)
{
    if (size >= longMove) {
        memmove(to, from, size);
        return;
    }
    for (; size >= sizeof(Block); size -= sizeof(Block))
        copyPiece<Block>(to + size - sizeof(Block), from + size - sizeof(Block));
    for (; size >= wordSize; size -= wordSize)
        copyWord(to + size - wordSize, from + size - wordSize);
    while (size-- != 0)
        to[size] = from[size];
}

} // namespace general
