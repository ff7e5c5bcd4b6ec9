#include "platform/instruction_probe.h"

#include "tests/platform/recorded_processor.h"

#include <cpuid.h>
#include <windows.h>

extern "C" __declspec(dllexport) RecordedProcessor recorded;
RecordedProcessor recorded;

bool general::runsWithoutException(void (*)())
{
    return recorded.runsSse;
}

static void executeRecorded(uint32_t leaf, uint32_t subleaf, uint32_t &a, uint32_t &b, uint32_t &c, uint32_t &d)
{
    uint32_t registers[4];
    recorded.cpuid(leaf, subleaf, registers);
    a = registers[0], b = registers[1], c = registers[2], d = registers[3];
}

#undef __cpuid_count
#define __cpuid_count executeRecorded
#define __builtin_ia32_readeflags_u32() recorded.flags
#define __builtin_ia32_writeeflags_u32(value) recorded.flags ^= (recorded.flags ^ (value)) & recorded.changeableFlags
#define __builtin_ia32_rdtsc() recorded.timeStamp()
#include "platform/cpuid.cpp" // NOLINT(bugprone-suspicious-include)
