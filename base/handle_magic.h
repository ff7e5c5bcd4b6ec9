/// @file
/// The magic number that marks a live handle.

#pragma once

#include <stdint.h>

namespace general {

/// The magic of a kind of record. Each kind gives its own, not 0.
template<typename Record>
constexpr uint32_t liveMagic = 0;

/// Whether a handle is not null and leads to a record with its kind's magic.
template<typename Record>
bool isLive(const Record *record)
{
    static_assert(liveMagic<Record> != 0);
    return record != nullptr && record->magic == liveMagic<Record>;
}

/// Clears the magic of a record that is about to be freed, so that a stale handle is refused for as
/// long as its memory is not reused. The compiler would drop a plain store into a dying block.
inline void clearMagic(uint32_t &magic)
{
    *const_cast<volatile uint32_t *>(&magic) = 0;
}

} // namespace general
