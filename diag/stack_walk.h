/// @file
/// A walk over the calling thread's stack, frame by frame.

#pragma once

#include "diag/image_help.h"

#include <stdint.h>

namespace general {

/// Captures the calling thread's registers as they are in the function that calls this, after the call:
/// a walk can only start in a frame that is still there.
/// @return false when the system does not give the thread's registers
bool captureCaller(CONTEXT &context);

/// Starts with the captured frame, or, where QVSsetFramePointer has chosen one, with that frame, as if
/// the captured program counter were in it.
class StackWalk {
public:
    explicit StackWalk(const CONTEXT &start);

    /// Steps to the next frame; the first step leads to the frame that the walk starts with.
    /// @param address  receives the program counter in it
    /// @return false at the end of the stack
    bool next(uint32_t &address);

private:
    CONTEXT context_;
    STACKFRAME64 frame_;
    const ImageHelp *help_;
};

} // namespace general
