/// @file
/// Size arithmetic on numbers that a caller chose. An overflow is reported, never wrapped.

#pragma once

#include <stddef.h>
#include <stdint.h>

namespace general {

/// Computes count * size.
/// @return false, with product untouched, when it does not fit
[[nodiscard]] inline bool checkedProduct(size_t count, size_t size, size_t &product)
{
    size_t result = 0;
    if (__builtin_mul_overflow(count, size, &result))
        return false;
    product = result;
    return true;
}

/// Computes left + right.
/// @return false, with sum untouched, when it does not fit
[[nodiscard]] inline bool checkedSum(size_t left, size_t right, size_t &sum)
{
    size_t result = 0;
    if (__builtin_add_overflow(left, right, &result))
        return false;
    sum = result;
    return true;
}

} // namespace general
