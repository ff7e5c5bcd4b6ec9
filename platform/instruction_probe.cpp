#include "platform/instruction_probe.h"
#include "base/module_id.h"

#include <stddef.h>
#include <windows.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

/// An entry of the thread's list of exception handlers, which starts at fs:[0], with what is needed
/// to go on behind the call that failed.
struct ProbeFrame {
    ProbeFrame *next;
    EXCEPTION_DISPOSITION(__cdecl *handler)(EXCEPTION_RECORD *, ProbeFrame *, CONTEXT *, void *);
    void *resumeAt;
    void *resumeStack;
};

static_assert(offsetof(ProbeFrame, resumeAt) == 8 && offsetof(ProbeFrame, resumeStack) == 12); // used below

EXCEPTION_DISPOSITION __cdecl resumeBehindCall(EXCEPTION_RECORD *exception, ProbeFrame *frame, CONTEXT *context, void *)
{
    constexpr DWORD unwinding = 0x2 | 0x4;
    if ((exception->ExceptionFlags & unwinding) != 0)
        return ExceptionContinueSearch;
    context->Eip = reinterpret_cast<DWORD>(frame->resumeAt);
    context->Esp = reinterpret_cast<DWORD>(frame->resumeStack);
    return ExceptionContinueExecution;
}

} // namespace

bool runsWithoutException(void (*attempt)())
{
    ProbeFrame frame = {.next = nullptr, .handler = resumeBehindCall, .resumeAt = nullptr, .resumeStack = nullptr};
    ProbeFrame *registration = &frame;
    int completed = 0;
    // The compiler knows no structured exception handling for this processor. A failed attempt
    // leaves every register but the stack pointer undefined; the frame pointer and the frame are
    // therefore kept on the stack.
    asm volatile("pushl %%ebp\n\t"
                 "pushl %[frame]\n\t"
                 "movl %%fs:0, %%eax\n\t"
                 "movl %%eax, (%[frame])\n\t"
                 "movl $1f, 8(%[frame])\n\t"
                 "movl %%esp, 12(%[frame])\n\t"
                 "movl %[frame], %%fs:0\n\t"
                 "call *%[attempt]\n\t"
                 "movl $1, %%eax\n\t"
                 "jmp 2f\n"
                 "1:\n\t"
                 "xorl %%eax, %%eax\n"
                 "2:\n\t"
                 "popl %[frame]\n\t"
                 "popl %%ebp\n\t"
                 "movl (%[frame]), %%ecx\n\t"
                 "movl %%ecx, %%fs:0"
                 : "=&a"(completed), [frame] "+S"(registration), [attempt] "+D"(attempt)
                 :
                 : "ebx", "ecx", "edx", "memory", "cc");
    return completed != 0;
}

} // namespace general
