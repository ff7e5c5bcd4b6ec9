/// @file
/// Finds out whether an instruction can be executed.

#pragma once

namespace general {

/// Calls a function that does nothing but try an instruction and leaves the SSE registers as they were.
/// @return false when it raised an exception, which goes no further
bool runsWithoutException(void (*attempt)());

} // namespace general
