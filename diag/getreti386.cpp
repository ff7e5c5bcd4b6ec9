#include "base/module_id.h"
#include "diag/stack_walk.h"

#include "general/stacktrace.h"

GENERAL_MODULE_ID("$Id$");

namespace {

uint32_t chosenFrame; ///< 0: the walk starts in the caller's own

ADDRESS64 flatAddress(uint32_t offset)
{
    return ADDRESS64{.Offset = offset, .Segment = 0, .Mode = AddrModeFlat};
}

} // namespace

namespace general {

StackWalk::StackWalk(const CONTEXT &start) : context_(start), frame_{}, help_(imageHelp())
{
    if (chosenFrame != 0)
        context_.Ebp = chosenFrame; // some walkers follow this register and not the frame address
    frame_.AddrPC = flatAddress(context_.Eip);
    frame_.AddrStack = flatAddress(context_.Esp);
    frame_.AddrFrame = flatAddress(context_.Ebp);
}

bool StackWalk::next(uint32_t &address)
{
    if (help_ == nullptr)
        return false;
    BOOL stepped =
        help_->StackWalk64(IMAGE_FILE_MACHINE_I386, GetCurrentProcess(), GetCurrentThread(), &frame_, &context_,
                           nullptr, help_->SymFunctionTableAccess64, help_->SymGetModuleBase64, nullptr);
    if (stepped == FALSE || frame_.AddrFrame.Offset == 0)
        return false;
    address = static_cast<uint32_t>(frame_.AddrPC.Offset);
    return true;
}

} // namespace general

uint32_t QVSsetFramePointer(uint32_t framePointer)
{
    chosenFrame = framePointer;
    return framePointer;
}

int QVSgetStackTrace(uint32_t *addresses, int max)
{
    CONTEXT here;
    general::captureHere(here);
    if (addresses == nullptr || max <= 0)
        return 0;
    general::StackWalk walk(here);
    uint32_t address = 0;
    if (chosenFrame == 0 && !walk.next(address)) // this function's own
        return 0;
    int count = 0;
    while (count < max && walk.next(address))
        addresses[count++] = address;
    return count;
}
