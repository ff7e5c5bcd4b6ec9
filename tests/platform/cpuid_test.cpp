#include "platform/instruction_probe.h"
#include "platform/processor_names.h"
#include "platform/processor_rules.h"

#include "general/processor.h"
#include "general/system.h"

#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <cpuid.h>
#include <gmock/gmock.h>

#include <bit>
#include <cstring>

#include <mmsystem.h>

namespace {

using namespace test_support;
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
    EXPECT_TRUE(unharmed == 12345 && exceptionHandlers() == handlers);
}

TEST(Processor, AgreesWithItsOwnInstruction)
{
    unsigned leaf0[4] = {0, 9, 0, 9}, leaf1[4] = {1, 9, 0, 9}, extended[4] = {0x80000000, 0, 0, 0};
    unsigned subleaf[4] = {13, 0, 1, 0}, expected[4];
    for (unsigned *registers : {leaf0, leaf1, extended, subleaf})
        Kucpuid32(registers);
    __cpuid_count(13, 1, expected[0], expected[1], expected[2], expected[3]);
    EXPECT_EQ(std::memcmp(subleaf, expected, sizeof expected), 0);

    const general::CpuidRegisters registers0 = std::bit_cast<general::CpuidRegisters>(leaf0),
                                  registers1 = std::bit_cast<general::CpuidRegisters>(leaf1);
    int family = -1, model = -1, stepping = -1;
    EXPECT_TRUE(Kucpuid_model(&family, &model, &stepping) == 1 && Kucpuid_model(nullptr, nullptr, nullptr) == 1);
    EXPECT_EQ(static_cast<unsigned>(family << 8 | model << 4 | stepping), leaf1[0] & 0xFFF);
    auto bit = [&leaf1](int number) { return static_cast<int>(leaf1[3] >> number & 1); };
    EXPECT_TRUE(KuMMX_supported() == bit(23) && KuXMMX_supported() == bit(25) && KuSSE2_supported() == bit(26));
    EXPECT_EQ(KuSIMD_fp_OS_supported(), 1); // this test is compiled to use it
    EXPECT_EQ(KuHT_supported(), supportsHyperThreading(registers0, registers1));
    EXPECT_EQ(KuLogicalProcPerPhysicalProc(), leaf1[1] >> 16 & 0xFF);
    EXPECT_EQ(Kucpuid_supported(), static_cast<int>(leaf0[0]));
    EXPECT_STREQ(Kucpuid_model_name(), general::modelName(registers0, leaf1[0]));
    EXPECT_STREQ(Kucpuid_get_brand_string(), general::brandText(leaf1[0], leaf1[1]));
    char vendor[13], spelled[13], brand[50];
    general::spellVendor(registers0, spelled);
    EXPECT_TRUE(Kucpuid_vendorid(vendor) == 1 && std::memcmp(vendor, spelled, 13) == 0);
    std::memset(brand, '?', sizeof brand);
    EXPECT_EQ(Kucpuid_get_extended_brand_string(brand), extended[0] >= 0x80000004);
    EXPECT_TRUE(std::memchr(brand, 0, 49) != nullptr && brand[49] == '?');
}

// What the system answers.
DWORD_PTR processMask, systemMask;
BOOL masksAreKnown = TRUE;

/// A copy of the library that has counted nothing yet.
struct Count : testing::Test {
    FreshLibrary library;
    decltype(KuCPUCount) *count = library.function<decltype(KuCPUCount)>("KuCPUCount");
    decltype(KuGet3LevelSubIDStr) *text = library.function<decltype(KuGet3LevelSubIDStr)>("KuGet3LevelSubIDStr");
    decltype(QVSsysconf) *sysconf = library.function<decltype(QVSsysconf)>("QVSsysconf");
    ImportHook masks{"GetProcessAffinityMask", winapi([](HANDLE, DWORD_PTR *process, DWORD_PTR *system) -> BOOL {
                         *process = processMask;
                         *system = systemMask;
                         return masksAreKnown;
                     }),
                     library.module()};
    unsigned logical = 9, cores = 9, packages = 9;
};

TEST_F(Count, NarrowAffinityIsReportedAndTriedAgain)
{
    const DWORD_PTR cases[][3] = {{1, 3, TRUE}, {0, 0, TRUE}, {1, 1, FALSE}};
    for (const auto &[process, system, areKnown] : cases) {
        processMask = process, systemMask = system, masksAreKnown = areKnown != 0;
        EXPECT_EQ(count(&logical, &cores, &packages), KU_NOT_COUNTED);
        EXPECT_TRUE(logical == 0 && cores == 1 && packages == 1 && *text() == 0 && sysconf(506) == 8192);
    }
    masksAreKnown = TRUE;
    EXPECT_TRUE(sysconf(506) > 0 && *text() != 0);
}

// 32 processors, one of which cannot be reached; no other is left out of the text and none is cut.
TEST_F(Count, EveryBitOfTheMask)
{
    ImportHook bind("SetThreadAffinityMask", winapi([](HANDLE, DWORD_PTR mask) { return ~mask & 0x80000000; }),
                    library.module());
    processMask = systemMask = 0xFFFFFFFF;
    count(&logical, nullptr, nullptr);
    const std::string lines = text();
    EXPECT_TRUE(logical == 31 && std::count(lines.begin(), lines.end(), '\n') == 31 && lines.back() == '\n');
    EXPECT_THAT(lines, testing::HasSubstr("  AffinityMask = 40000000; Initial APIC = "));
}

TEST_F(Count, ThisMachineOnce)
{
    GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask);
    const int status = count(&logical, &cores, &packages);
    EXPECT_EQ(SetThreadAffinityMask(GetCurrentThread(), processMask), processMask) << "the thread was left bound";
    if (processMask != systemMask)
        GTEST_SKIP() << "the tests run on some processors only";
    ASSERT_NE(status, KU_NOT_COUNTED);
    EXPECT_EQ(logical, static_cast<unsigned>(std::popcount(systemMask)));
    EXPECT_TRUE(logical >= cores && cores >= packages && packages >= 1);
    ImportHook bind("SetThreadAffinityMask", winapi([](HANDLE, DWORD_PTR) { return ADD_FAILURE(), DWORD_PTR{0}; }),
                    library.module());
    EXPECT_EQ(count(nullptr, nullptr, nullptr), status);
}

int timesRaised, timesReleased;
bool hasPeriods;

TEST(Processor, FrequencyIsMeasuredAndTheTimerReleased)
{
    auto capabilities = winapi([](TIMECAPS *periods, UINT) {
        *periods = TIMECAPS{1, 1000};
        return hasPeriods ? MMRESULT{TIMERR_NOERROR} : MMRESULT{MMSYSERR_NODRIVER};
    });
    auto raise = winapi([](UINT) { return timesRaised++, MMRESULT{0}; });
    auto release = winapi([](UINT) { return timesReleased++, MMRESULT{0}; });
    {
        FoundFunctions missing({{"timeGetTime", nullptr}});
        EXPECT_EQ(Kucpuid_frequency(5), 0u);
    }
    FoundFunctions timer({{"timeGetDevCaps", capabilities}, {"timeBeginPeriod", raise}, {"timeEndPeriod", release}});
    EXPECT_EQ(Kucpuid_frequency(5), 0u);
    hasPeriods = true;
    EXPECT_EQ(Kucpuid_frequency(0), 0u);
    EXPECT_EQ(timesRaised + timesReleased, 0);
    EXPECT_GT(Kucpuid_frequency(20), 200'000u);
    EXPECT_TRUE(timesRaised == 1 && timesReleased == 1);
}

} // namespace
