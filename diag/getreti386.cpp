#include "base/module_id.h"
#include "diag/stack_walk.h"

#include "general/stacktrace.h"

#include <string.h>

GENERAL_MODULE_ID("$Id$");

// Gets return addresses on the i386: the walk along the calling thread's frames, without names.

namespace {

uint32_t chosenFrame; ///< 0: the walk starts in the caller's own

ADDRESS64 flatAddress(uint32_t offset)
{
    return ADDRESS64{.Offset = offset, .Segment = 0, .Mode = AddrModeFlat};
}

bool isInside(DWORD64 address, DWORD size, uintptr_t start, uintptr_t end)
{
    return address >= start && address <= end && size <= end - address;
}

/// Whether these bytes are in the calling thread's stack or information block, which are always there.
bool isThreadsOwn(DWORD64 address, DWORD size)
{
    constexpr uintptr_t blockSize = 4096;
    uintptr_t stackLimit = 0;
    uintptr_t stackBase = 0;
    uintptr_t block = 0;
    asm("movl %%fs:8, %0\n"
        "movl %%fs:4, %1\n"
        "movl %%fs:0x18, %2"
        : "=&r"(stackLimit), "=&r"(stackBase), "=r"(block));
    return isInside(address, size, stackLimit, stackBase) || isInside(address, size, block, block + blockSize);
}

/// Reads memory for the walk: the thread's own directly, all else through the system, which survives a
/// wild address and takes a thousand times as long.
BOOL CALLBACK readMemory(HANDLE process, DWORD64 address, PVOID buffer, DWORD size, LPDWORD bytesRead)
{
    auto *source = reinterpret_cast<const void *>(static_cast<uintptr_t>(address));
    SIZE_T count = size;
    BOOL isRead = TRUE;
    if (isThreadsOwn(address, size))
        memcpy(buffer, source, size);
    else
        isRead = ReadProcessMemory(process, source, buffer, size, &count);
    *bytesRead = isRead != FALSE ? static_cast<DWORD>(count) : 0;
    return isRead;
}

} // namespace

namespace general {

// The system tells the registers as they are in its own function. The three that a walk starts from are
// read from this function's frame; it has to be a frame of its own.
[[gnu::noinline]] bool captureCaller(CONTEXT &context)
{
    context.ContextFlags = CONTEXT_FULL;
    if (GetThreadContext(GetCurrentThread(), &context) == FALSE)
        return false;
    struct Frame {
        uint32_t callersFrame;
        uint32_t returnAddress;
    };
    auto *frame = static_cast<const Frame *>(__builtin_frame_address(0));
    context.Ebp = frame->callersFrame;
    context.Eip = frame->returnAddress;
    context.Esp = static_cast<DWORD>(reinterpret_cast<uintptr_t>(frame + 1));
    return true;
}

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
                           readMemory, help_->SymFunctionTableAccess64, help_->SymGetModuleBase64, nullptr);
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
    if (!general::captureCaller(here) || addresses == nullptr || max <= 0)
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
