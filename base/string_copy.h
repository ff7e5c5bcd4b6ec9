/// @file
/// Copies of strings on the library's own heap.

#pragma once

#include <stdlib.h>
#include <string.h>

namespace general {

/// @return a copy, which the caller frees; null if memory is exhausted
[[nodiscard]] inline char *copyString(const char *string)
{
    size_t size = strlen(string) + 1;
    auto *copy = static_cast<char *>(malloc(size));
    if (copy != nullptr)
        memcpy(copy, string, size);
    return copy;
}

} // namespace general
