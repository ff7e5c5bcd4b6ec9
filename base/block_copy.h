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

/// Sixteen bytes at any address, copied in one piece where the processor can.
typedef unsigned char Block __attribute__((vector_size(16), aligned(1)));

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

constexpr size_t longCopy = 256;

/// memcpy of more than one block.
/// @return 0
[[gnu::noinline, gnu::regparm(3)]] inline uint32_t copyBlocks(unsigned char *to, const unsigned char *from, size_t size)
{
    if (size > longCopy) {
        memcpy(to, from, size);
        return 0;
    }
    copyPiece<Block>(to + size - sizeof(Block), from + size - sizeof(Block));
    for (size_t done = 0; done < size - sizeof(Block); done += sizeof(Block))
        copyPiece<Block>(to + done, from + done);
    return 0;
}

/// memcpy, also of nothing from or to nowhere: one function that whoever copies short blocks shares.
///
/// Up to 16 bytes go as words. Most of what is copied was written a moment ago, field by field, and a
/// processor has to wait for such stores to reach the cache before it can load several as one piece.
/// @return 0, which stands for success wherever a copy is the last thing that a call does
[[gnu::noinline, gnu::regparm(3)]] inline uint32_t copyBytes(void *destination, const void *source, size_t size)
{
    auto *to = static_cast<unsigned char *>(destination);
    auto *from = static_cast<const unsigned char *>(source);
    constexpr size_t twoWords = 2 * wordSize;
    if (size > sizeof(Block))
        return copyBlocks(to, from, size);
    if (size >= twoWords) {
        copyEnds<uint32_t>(to, from, twoWords);
        copyEnds<uint32_t>(to + size - twoWords, from + size - twoWords, twoWords);
    } else if (size >= wordSize) {
        copyEnds<uint32_t>(to, from, size);
    } else if (size >= sizeof(uint16_t)) {
        copyEnds<uint16_t>(to, from, size);
    } else if (size == 1) {
        *to = *from;
    }
    return 0;
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
