/// @file
/// The magic number that marks a live handle.

#pragma once

#include <stdint.h>

namespace general {

/// Clears the magic of a record that is about to be freed, so that a stale handle is refused for as
/// long as its memory is not reused. The compiler would drop a plain store into a dying block.
inline void clearMagic(uint32_t &magic)
{
    *const_cast<volatile uint32_t *>(&magic) = 0;
}

} // namespace general
