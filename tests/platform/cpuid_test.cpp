#include "platform/instruction_probe.h"
#include "platform/processor_rules.h"

#include "general/processor.h"
#include "general/system.h"

#include "tests/support/import_hook.h"

#include <cpuid.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <utility>
#include <windows.h>

#include <mmsystem.h>

namespace {

using test_support::FailingImport;
using test_support::ImportHook;

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
    EXPECT_FALSE(general::runsWithoutException([] { asm volatile("ud2"); })); // illegal instruction
    EXPECT_FALSE(general::runsWithoutException([] {
        asm volatile(
            "xorl %%ebx, %%ebx; xorl %%esi, %%esi; xorl %%edi, %%edi; xorl %%ebp, %%ebp; movl %%eax, (%%ebx)" ::
                : "ebx", "esi", "edi", "memory");
    }));
    EXPECT_FALSE(general::runsWithoutException([] { RaiseException(0xE0000001, 0, 0, nullptr); }));
    EXPECT_TRUE(general::runsWithoutException([] {}));
    EXPECT_TRUE(unharmed == 12345 && exceptionHandlers() == handlers);
}

TEST(Processor, AgreesWithItsOwnInstruction)
{
    unsigned leaf0[4] = {0, 9, 0, 9}, leaf1[4] = {1, 9, 0, 9}, extended[4] = {0x80000000, 0, 0, 0},
             subleaf[4] = {13, 0, 1, 0}, expected[4];
    for (unsigned *registers : {leaf0, leaf1, extended, subleaf})
        Kucpuid32(registers);
    __cpuid_count(13, 1, expected[0], expected[1], expected[2], expected[3]);
    EXPECT_EQ(std::memcmp(subleaf, expected, sizeof expected), 0);
    EXPECT_EQ(Kucpuid_supported(), static_cast<int>(leaf0[0]));

    char vendor[13] = "????????????";
    const unsigned spelled[] = {leaf0[1], leaf0[3], leaf0[2]};
    EXPECT_EQ(Kucpuid_vendorid(vendor), 1);
    EXPECT_EQ(std::memcmp(vendor, spelled, 12) | vendor[12], 0);
    int family = -1, model = -1, stepping = -1;
    EXPECT_TRUE(Kucpuid_model(&family, &model, &stepping) == 1 && Kucpuid_model(nullptr, nullptr, nullptr) == 1);
    EXPECT_EQ(static_cast<unsigned>(family << 8 | model << 4 | stepping), leaf1[0] & 0xFFF);
    EXPECT_EQ(KuMMX_supported(), static_cast<int>(leaf1[3] >> 23 & 1));
    EXPECT_EQ(KuXMMX_supported(), static_cast<int>(leaf1[3] >> 25 & 1));
    EXPECT_EQ(KuSSE2_supported(), static_cast<int>(leaf1[3] >> 26 & 1));
    EXPECT_EQ(KuSIMD_fp_OS_supported(), 1); // this test is compiled to use it
    EXPECT_EQ(KuLogicalProcPerPhysicalProc(), leaf1[1] >> 16 & 0xFF);
    general::CpuidRegisters registers0{leaf0[0], leaf0[1], leaf0[2], leaf0[3]},
        registers1{leaf1[0], leaf1[1], leaf1[2], leaf1[3]};
    EXPECT_EQ(KuHT_supported(), supportsHyperThreading(registers0, registers1));
    EXPECT_STREQ(Kucpuid_model_name(), general::modelName(registers0, leaf1[0]));
    EXPECT_STREQ(Kucpuid_get_brand_string(), general::brandText(leaf1[0], leaf1[1]));

    char brand[50];
    std::memset(brand, '?', sizeof brand);
    EXPECT_EQ(Kucpuid_get_extended_brand_string(brand), extended[0] >= 0x80000004);
    EXPECT_TRUE(std::memchr(brand, 0, 49) != nullptr && brand[49] == '?');
}

DWORD_PTR processMask, systemMask;

BOOL WINAPI answerMasks(HANDLE, DWORD_PTR *process, DWORD_PTR *system)
{
    *process = processMask;
    *system = systemMask;
    return TRUE;
}

bool narrowAffinityIsReportedAndTriedAgain()
{
    auto notCounted = [] {
        unsigned logical = 9, cores = 9, packages = 9;
        return KuCPUCount(&logical, &cores, &packages) == KU_NOT_COUNTED && logical == 0 && cores == 1 &&
               packages == 1 && *KuGet3LevelSubIDStr() == 0;
    };
    ImportHook hook("GetProcessAffinityMask", answerMasks);
    for (DWORD_PTR existing : {3, 0}) { // more than the process's one; none at all
        systemMask = existing;
        processMask = existing & 1;
        if (!notCounted() || QVSsysconf(506) != 8192)
            return false;
    }
    processMask = systemMask = 1;
    FailingImport<BOOL WINAPI(HANDLE, DWORD_PTR *, DWORD_PTR *)> fails("GetProcessAffinityMask", FALSE, 1);
    return notCounted() && QVSsysconf(506) > 0 && *KuGet3LevelSubIDStr() != 0;
}

DWORD_PTR WINAPI refuseHighest(HANDLE, DWORD_PTR mask)
{
    return mask == 0x80000000 ? 0 : 1;
}

// 32 processors, one of which cannot be reached; no other is left out of the text and none is cut.
bool everyBitOfTheMaskIsCounted()
{
    ImportHook masks("GetProcessAffinityMask", answerMasks);
    ImportHook bind("SetThreadAffinityMask", refuseHighest);
    processMask = systemMask = 0xFFFFFFFF;
    unsigned logical = 0;
    KuCPUCount(&logical, nullptr, nullptr);
    std::string text = KuGet3LevelSubIDStr();
    return logical == 31 && std::count(text.begin(), text.end(), '\n') == 31 && text.back() == '\n' &&
           text.find("  AffinityMask = 40000000; Initial APIC = ") != std::string::npos;
}

TEST(CountDeathTest, AffinityMasks)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // counting is done once per process
    for (auto scenario : {narrowAffinityIsReportedAndTriedAgain, everyBitOfTheMaskIsCounted})
        EXPECT_EXIT(std::exit(scenario() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(Processor, CountsThisMachineOnce)
{
    unsigned logical = 0, cores = 0, packages = 0;
    int status = KuCPUCount(&logical, &cores, &packages);
    DWORD_PTR allowed = 0, existing = 0;
    GetProcessAffinityMask(GetCurrentProcess(), &allowed, &existing);
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), allowed), allowed) << "the thread was left bound";
    if (allowed != existing)
        GTEST_SKIP() << "the tests run on some processors only";
    ASSERT_NE(status, KU_NOT_COUNTED);
    EXPECT_EQ(logical, static_cast<unsigned>(std::popcount(existing)));
    EXPECT_TRUE(logical >= cores && cores >= packages && packages >= 1);
    FailingImport<DWORD_PTR WINAPI(HANDLE, DWORD_PTR)> bind("SetThreadAffinityMask", 0, 0);
    EXPECT_EQ(KuCPUCount(nullptr, nullptr, nullptr), status);
    EXPECT_EQ(bind.calls(), 0);
}

int timesRaised, timesReleased;
bool isTimerMissing, hasNoPeriods;

MMRESULT WINAPI tellPeriods(TIMECAPS *periods, UINT)
{
    *periods = TIMECAPS{1, 1000};
    return hasNoPeriods ? MMSYSERR_NODRIVER : TIMERR_NOERROR;
}

MMRESULT WINAPI raise(UINT)
{
    return timesRaised++, TIMERR_NOERROR;
}

MMRESULT WINAPI release(UINT)
{
    return timesReleased++, TIMERR_NOERROR;
}

FARPROC WINAPI findCountedTimer(HMODULE library, LPCSTR name)
{
    const std::pair<std::string, void *> replaced[] = {{"timeGetDevCaps", reinterpret_cast<void *>(tellPeriods)},
                                                       {"timeBeginPeriod", reinterpret_cast<void *>(raise)},
                                                       {"timeEndPeriod", reinterpret_cast<void *>(release)}};
    for (const auto &[timer, replacement] : replaced)
        if (name == timer)
            return reinterpret_cast<FARPROC>(replacement);
    return isTimerMissing ? nullptr : GetProcAddress(library, name);
}

TEST(Processor, FrequencyIsMeasuredAndTheTimerReleased)
{
    ImportHook find("GetProcAddress", findCountedTimer);
    isTimerMissing = true;
    EXPECT_EQ(Kucpuid_frequency(5), 0u);
    isTimerMissing = false;
    hasNoPeriods = true;
    EXPECT_EQ(Kucpuid_frequency(5), 0u);
    hasNoPeriods = false;
    EXPECT_EQ(Kucpuid_frequency(0), 0u);
    EXPECT_EQ(timesRaised + timesReleased, 0);
    auto likely = [](uint64_t frequency) { return 200'000 < frequency && frequency < 20'000'000; };
    int measured = 1;
    while (measured < 20 && !likely(Kucpuid_frequency(20))) // an interrupted measurement is worth nothing
        ++measured;
    EXPECT_LT(measured, 20);
    EXPECT_EQ(timesRaised, measured);
    EXPECT_EQ(timesReleased, measured);
}

} // namespace
