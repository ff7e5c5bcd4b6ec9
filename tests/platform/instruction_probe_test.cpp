#include "platform/instruction_probe.h"

#include <gtest/gtest.h>

#include <windows.h>

namespace {

using general::runsWithoutException;

void *exceptionHandlers()
{
    void *first;
    asm volatile("movl %%fs:0, %0" : "=r"(first));
    return first;
}

TEST(InstructionProbe, SurvivesWhatTheInstructionRaises)
{
    void *handlers = exceptionHandlers();
    volatile int unharmed = 12345;
    EXPECT_FALSE(runsWithoutException([] { asm volatile("ud2"); })); // illegal instruction
    EXPECT_FALSE(runsWithoutException([] {
        asm volatile(
            "xorl %%ebx, %%ebx; xorl %%esi, %%esi; xorl %%edi, %%edi; xorl %%ebp, %%ebp; movl %%eax, (%%ebx)" ::
                : "ebx", "esi", "edi", "memory");
    }));
    EXPECT_FALSE(runsWithoutException([] { RaiseException(0xE0000001, 0, 0, nullptr); }));
    EXPECT_TRUE(runsWithoutException([] {}));
    EXPECT_EQ(unharmed, 12345);
    EXPECT_EQ(exceptionHandlers(), handlers);
}

} // namespace
