/// @file
/// How the string list and the variable string grow.

#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>

namespace general {

/// Enlarges a block by what is missing or by the increment, whichever is more.
/// @param allocated  its size as it was recorded, in a field of either sign; a string list's may be below 0
/// @param needed     the bytes that it has to have
/// @return false, with nothing changed, if memory is exhausted or the size would exceed 2^31 - 1
template<typename Size>
bool growText(char *&block, Size &allocated, int64_t needed, int64_t increment)
{
    int64_t recorded = static_cast<int32_t>(allocated);
    int64_t size = recorded + std::max(needed - recorded, increment);
    void *grown = size > INT32_MAX ? nullptr : realloc(block, static_cast<size_t>(size));
    if (grown == nullptr)
        return false;
    block = static_cast<char *>(grown);
    allocated = static_cast<Size>(size);
    return true;
}

} // namespace general
