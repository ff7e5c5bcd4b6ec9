/// @file
/// How the labelled measurements hand out milliseconds.

#pragma once

#include <stdint.h>

namespace general {

/// Truncates to whole milliseconds. What a 32-bit number does not hold (24.8 days and more) is cut
/// to the largest that it does.
inline int32_t wholeMilliseconds(double milliseconds)
{
    return milliseconds < INT32_MAX ? static_cast<int32_t>(milliseconds) : INT32_MAX;
}

} // namespace general
