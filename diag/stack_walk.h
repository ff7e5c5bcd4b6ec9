/// @file
/// A walk over the calling thread's stack, frame by frame.

#pragma once

#include "diag/image_help.h"

#include <stdint.h>

namespace general {

/// Captures the registers as they are in the function that calls this. It has to be inlined: a walk
/// can only start in a frame that is still there. The system's function looks one frame further out on
/// Windows, so the three registers that a walk starts from are read directly.
[[gnu::always_inline]] inline void captureHere(CONTEXT &context)
{
    RtlCaptureContext(&context);
    asm volatile("movl $1f, %0\n"
                 "1: movl %%esp, %1\n"
                 "movl %%ebp, %2"
                 : "=r"(context.Eip), "=r"(context.Esp), "=r"(context.Ebp));
}

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
