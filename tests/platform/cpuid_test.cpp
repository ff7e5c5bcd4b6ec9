#include "general/processor.h"
#include "general/system.h"

#include "tests/platform/recorded_processor.h"
#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <cpuid.h>
#include <gmock/gmock.h>

#include <cstring>
#include <numeric>

#include <mmsystem.h>

namespace {

using namespace test_support;

const std::string intel = "GenuineIntel", amd = "AuthenticAMD", mmx = "MMX ", sse = mmx + "SSE ", sse2 = sse + "SSE2 ",
                  noIndex = "This processor does not support the brand identification feature",
                  pentium3 = "Intel(R) Pentium(R) III processor", pentium4 = "Intel(R) Pentium(R) 4 processor",
                  pentiumM = "Intel(R) Pentium(R) M processor";

std::vector<uint32_t> range(uint32_t count, uint32_t first = 0)
{
    std::vector<uint32_t> ids(count);
    std::iota(ids.begin(), ids.end(), first);
    return ids;
}

/// A machine, and below what the library makes of it.
struct Machine {
    const char *name;
    std::string vendor = intel;
    uint32_t highestLeaf = 1;
    struct {
        uint32_t eax, ebx, edx; ///< but for the identifier in EBX
    } leaf1;
    uint32_t leaf4 = 0; ///< EAX
    std::vector<uint32_t> apicIds = {0};
    std::string brand = {}; ///< spelled out; empty where there are no such leaves
    bool savesSse = true;

    std::string design, index = noIndex, features = {};
    unsigned stated = 1, cores = 1, packages = 1; ///< cores as leaf 4 states them, the others as counted
    int status = KU_SINGLE_CORE_NO_HT;
};

// Signatures, features and brands are those that these processors are known by; what else the leaves hold is
// after the makers' manuals.
// clang-format off
const Machine machines[] = {
    {.name = "486DX4, 1994", .leaf1 = {0x480, 0, 3}, .design = "Intel 486"},
    {.name = "5x86, 1995", .vendor = amd, .leaf1 = {0x4F4, 0, 1}, .design = "AMD 5x86"},
    {.name = "Pentium, 1995", .leaf1 = {0x525, 0, 0x1BF}, .design = "Intel Pentium"},
    {.name = "two Pentium Pro, 1996", .highestLeaf = 2, .leaf1 = {0x619, 0, 0xFBFF}, .apicIds = {0, 1},
     .design = "Intel Pentium Pro", .cores = 2, .packages = 2},
    {.name = "K5, 1996", .vendor = amd, .leaf1 = {0x514, 0, 0x21BF}, .brand = "AMD-K5(tm) Processor", .design = "AMD K5"},
    {.name = "K6-2, 1998", .vendor = amd, .leaf1 = {0x58C, 0, 0x8021BF}, .brand = "AMD-K6(tm) 3D processor",
     .design = "AMD K6-2", .features = mmx},
    {.name = "Pentium III, 2000", .highestLeaf = 2, .leaf1 = {0x68A, 2, 0x383FBFF},
     .design = "Intel Pentium III", .index = pentium3, .features = sse},
    {.name = "its system leaves SSE alone, its index 18 counts as 2", .highestLeaf = 2, .leaf1 = {0x68A, 18, 0x383FBFF},
     .savesSse = false, .design = "Intel Pentium III", .index = pentium3, .features = mmx},
    {.name = "Athlon, 2000", .vendor = amd, .leaf1 = {0x642, 0, 0x183FBFF}, .brand = "AMD Athlon(tm) processor",
     .design = "AMD Athlon", .features = mmx},
    {.name = "another maker's, with a Pentium III's model, 2001", .vendor = "CentaurHauls", .leaf1 = {0x678, 0, 0x803035},
     .brand = "VIA Ezra", .design = "UNKNOWN CPU", .features = mmx},
    {.name = "Pentium 4 with Hyper-Threading, 2002", .highestLeaf = 2, .leaf1 = {0xF27, 0x20809, 0xBFEBFBFF},
     .apicIds = {0, 1}, .brand = "              Intel(R) Pentium(R) 4 CPU 3.06GHz",
     .design = "Intel Pentium 4", .index = pentium4, .features = sse2 + "HT ", .status = KU_SINGLE_CORE_HT_ENABLED},
    {.name = "the same, switched off", .highestLeaf = 2, .leaf1 = {0xF27, 0x20809, 0xBFEBFBFF},
     .design = "Intel Pentium 4", .index = pentium4, .features = sse2 + "HT ", .status = KU_SINGLE_CORE_HT_DISABLED},
    {.name = "Pentium M, 2003", .highestLeaf = 2, .leaf1 = {0x695, 0x816, 0xA7E9F9BF},
     .design = "Intel Pentium M", .index = pentiumM, .features = sse2},
    {.name = "Pentium D, 2005", .highestLeaf = 5, .leaf1 = {0xF44, 0x20800, 0xBFEBFBFF}, .leaf4 = 0x4000121,
     .apicIds = {0, 1}, .brand = "Intel(R) Pentium(R) D CPU 2.80GHz",
     .design = "Intel Pentium 4", .features = sse2 + "HT ", .stated = 2, .cores = 2, .status = KU_MULTI_CORE_NO_HT},
    {.name = "Athlon 64 X2, whose cores pass for threads, 2005", .vendor = amd, .leaf1 = {0x20FB1, 0x20800, 0x178BFBFF},
     .apicIds = {0, 1}, .brand = "AMD Athlon(tm) 64 X2 Dual Core Processor 3800+",
     .design = "AMD K8", .features = sse2, .status = KU_SINGLE_CORE_HT_ENABLED},
    {.name = "Core 2 Quad, 2007", .highestLeaf = 10, .leaf1 = {0x6FB, 0x40800, 0xBFEBFBFF}, .leaf4 = 0xC000121,
     .apicIds = range(4), .brand = "Intel(R) Core(TM)2 Quad CPU    Q6600  @ 2.40GHz",
     .design = "Intel Core 2", .index = pentiumM, .features = sse2, .stated = 4, .cores = 4, .status = KU_MULTI_CORE_NO_HT},
    {.name = "two of six cores in fields of eight, 2008", .highestLeaf = 11, .leaf1 = {0x106D1, 0x60800, 0xBFEBFBFF},
     .leaf4 = 0x14000121, .apicIds = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13},
     .design = "Intel Core 2", .index = pentiumM, .features = sse2,
     .stated = 6, .cores = 12, .packages = 2, .status = KU_MULTI_CORE_NO_HT},
    {.name = "Core i7, 2008", .highestLeaf = 11, .leaf1 = {0x106A5, 0x100800, 0xBFEBFBFF}, .leaf4 = 0x1C004121,
     .apicIds = range(8), .brand = "Intel(R) Core(TM) i7 CPU         920  @ 2.67GHz",
     .design = "Intel Nehalem", .index = pentiumM, .features = sse2,
     .stated = 8, .cores = 4, .status = KU_MULTI_CORE_HT_ENABLED},
    {.name = "the same, switched off", .highestLeaf = 11, .leaf1 = {0x106A5, 0x100800, 0xBFEBFBFF}, .leaf4 = 0x1C004121,
     .apicIds = {0, 2, 4, 6},
     .design = "Intel Nehalem", .index = pentiumM, .features = sse2,
     .stated = 8, .cores = 4, .status = KU_MULTI_CORE_HT_DISABLED},
    {.name = "Phenom II of six cores, 2010", .vendor = amd, .highestLeaf = 6, .leaf1 = {0x100FA0, 0x60800, 0x178BFBFF},
     .apicIds = range(6), .brand = "AMD Phenom(tm) II X6 1055T Processor",
     .design = "AMD K10", .features = sse2, .status = KU_SINGLE_CORE_HT_ENABLED},
    {.name = "Ryzen of 12 cores, 2019", .vendor = amd, .highestLeaf = 16, .leaf1 = {0x870F10, 0x180800, 0x178BFBFF},
     .apicIds = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 16, 17, 18, 19, 20, 21, 24, 25, 26, 27, 28, 29},
     .brand = "AMD Ryzen 9 3900X 12-Core Processor            ",
     .design = "AMD Zen 2", .features = sse2, .status = KU_SINGLE_CORE_HT_ENABLED},
    {.name = "hybrid, 8 cores of two threads and 8 of one, 2021", .highestLeaf = 32, .leaf1 = {0x90672, 0x800800, 0xBFEBFBFF},
     .leaf4 = 0xFC004121, .apicIds = {0, 1, 8, 9, 16, 17, 24, 25, 32, 33, 40, 41, 48, 49, 56, 57, 64, 66, 68, 70, 72, 74, 76, 78},
     .brand = "12th Gen Intel(R) Core(TM) i9-12900K",
     .design = "Intel Alder Lake", .features = sse2, .stated = 64, .cores = 16, .status = KU_MULTI_CORE_HT_ENABLED},
    {.name = "virtual, with its host's leaf 4", .highestLeaf = 13, .leaf1 = {0x306F2, 0x10800, 0x1F8BFBFF},
     .leaf4 = 0x1C004121, .apicIds = range(4), .brand = "Intel(R) Xeon(R) CPU E5-2670 v3 @ 2.30GHz",
     .design = "Intel Haswell", .index = pentiumM, .features = sse2, .stated = 8, .cores = 4, .packages = 4},
    {.name = "virtual, with another maker's leaf 4", .vendor = amd, .highestLeaf = 16, .leaf1 = {0x830F10, 0x80800, 0x178BFBFF},
     .leaf4 = 0x1C000121, .apicIds = range(8), .brand = "AMD EPYC 7742 64-Core Processor",
     .design = "AMD Zen 2", .features = sse2, .stated = 8, .cores = 8, .status = KU_MULTI_CORE_NO_HT},
};
// clang-format on

const Machine *machine; ///< null: a processor without CPUID
size_t current;         ///< the processor that the thread is bound to
DWORD_PTR processMask, systemMask, unreachable;
BOOL masksAreKnown;
uint64_t now; ///< of the timer, in ms; moves on with each look at it

void answer(uint32_t leaf, uint32_t subleaf, uint32_t *registers)
{
    ASSERT_NE(machine, nullptr) << "an instruction that this processor lacks";
    std::fill_n(registers, 4, 0xFFFFFFFF); // where nobody has to look
    if (leaf == 0) {
        registers[0] = machine->highestLeaf;
        machine->vendor.copy(reinterpret_cast<char *>(&registers[1]), 4);
        machine->vendor.copy(reinterpret_cast<char *>(&registers[3]), 4, 4);
        machine->vendor.copy(reinterpret_cast<char *>(&registers[2]), 4, 8);
    } else if (leaf == 1) {
        registers[0] = machine->leaf1.eax;
        registers[1] = machine->leaf1.ebx | machine->apicIds[current] << 24;
        registers[3] = machine->leaf1.edx;
    } else if (leaf == 4 && subleaf == 0 && machine->highestLeaf >= 4) {
        registers[0] = machine->leaf4;
    } else if (leaf == 0x80000000) {
        registers[0] = machine->brand.empty() ? 0x80000003 : 0x80000004;
    } else if (leaf >= 0x80000002 && leaf <= 0x80000004) {
        std::string padded = machine->brand;
        padded.resize(48);
        padded.copy(reinterpret_cast<char *>(registers), 16, 16 * (leaf - 0x80000002));
    }
}

/// The processor family on a machine of which it has asked nothing yet.
struct Recorded {
    explicit Recorded(const Machine *recorded)
    {
        const bool hasCpuid = recorded != nullptr;
        machine = recorded;
        processMask = systemMask = DWORD_PTR{0xFFFFFFFF} >> (32 - (hasCpuid ? machine->apicIds.size() : 1));
        unreachable = current = 0;
        masksAreKnown = TRUE;
        processor = {answer, [] { return now * 2'000'100; }, 0x246, hasCpuid ? 0x200000U : 0,
                     hasCpuid && machine->savesSse};
    }
    ~Recorded() { EXPECT_EQ(processor.flags, 0x246u); }

    FreshLibrary library{"recorded_processor.dll"};
    RecordedProcessor &processor = *library.function<RecordedProcessor>("recorded");
    ImportHook masks{"GetProcessAffinityMask", winapi([](HANDLE, DWORD_PTR *process, DWORD_PTR *system) -> BOOL {
                         *process = processMask;
                         *system = systemMask;
                         return masksAreKnown;
                     }),
                     library.module()};
    ImportHook bind{"SetThreadAffinityMask", winapi([](HANDLE, DWORD_PTR mask) {
                        current = mask == processMask ? 0 : static_cast<size_t>(__builtin_ctzl(mask));
                        return mask & ~unreachable;
                    }),
                    library.module()};
    unsigned processors = 9, cores = 9, packages = 9;
};
#define ON(name) on.library.function<decltype(name)>(#name)

int count(Recorded &on)
{
    return ON(KuCPUCount)(&on.processors, &on.cores, &on.packages);
}

std::string features(const Recorded &on)
{
    std::string all = ON(KuMMX_supported)() == 1 ? "MMX " : "";
    all += ON(KuXMMX_supported)() == 1 ? "SSE " : "";
    all += ON(KuSSE2_supported)() == 1 ? "SSE2 " : "";
    return all + (ON(KuHT_supported)() == 1 ? "HT " : "");
}

std::string brand(const Recorded &on)
{
    char text[50];
    std::memset(text, '?', sizeof text);
    const int isThere = ON(Kucpuid_get_extended_brand_string)(text);
    EXPECT_EQ(isThere, *text != 0);
    EXPECT_EQ(text[49], '?');
    return text;
}

size_t lines(const Recorded &on)
{
    const std::string text = ON(KuGet3LevelSubIDStr)();
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(Processor, IsIdentifiedAndCounted)
{
    for (const Machine &row : machines) {
        SCOPED_TRACE(row.name);
        Recorded on(&row);
        EXPECT_EQ(count(on), row.status);
        EXPECT_EQ(on.processors, row.apicIds.size());
        EXPECT_EQ(on.cores, row.cores);
        EXPECT_EQ(on.packages, row.packages);
        EXPECT_EQ(lines(on), row.apicIds.size());
        EXPECT_EQ(ON(QVSsysconf)(QVS_SC_PER_THREAD), static_cast<long>(8192 / (row.apicIds.size() / row.cores)));
        EXPECT_EQ(ON(QVSsysconf)(QVS_SC_64), 64);
        EXPECT_EQ(ON(QVSsysconf)(507), 22);
        EXPECT_EQ(features(on), row.features);

        char vendor[13];
        int family = 99, model = 99, stepping = 99;
        EXPECT_EQ(ON(Kucpuid_vendorid)(vendor), 1);
        EXPECT_EQ(vendor, row.vendor);
        EXPECT_EQ(ON(Kucpuid_supported)(), static_cast<int>(row.highestLeaf));
        EXPECT_EQ(ON(Kucpuid_model)(&family, &model, &stepping), 1);
        EXPECT_EQ(static_cast<uint32_t>(family << 8 | model << 4 | stepping), row.leaf1.eax & 0xFFF);
        EXPECT_EQ(ON(Kucpuid_model)(nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(ON(KuLogicalProcPerPhysicalProc)(), row.leaf1.ebx >> 16);
        EXPECT_EQ(ON(Kucpuid_model_name)(), row.design);
        EXPECT_EQ(brand(on), row.brand);

        EXPECT_EQ(ON(KuCorePerPhysicalProc)(), row.stated);
        EXPECT_EQ(ON(Kucpuid_get_brand_string)(), row.index);
        EXPECT_EQ(ON(KuCorePerPhysicalProc)(), row.vendor == intel ? row.stated : 1) << "the maker is known by now";
    }
}

TEST(Processor, AnswersNoWithoutTheInstruction)
{
    Recorded on(nullptr);
    char vendor[13];
    unsigned registers[] = {1, 9, 0, 9};
    int family = 9, model = 9, stepping = 9;
    ON(Kucpuid32)(registers);
    EXPECT_THAT(registers, testing::Each(0));
    EXPECT_EQ(ON(Kucpuid_supported)(), 0);
    EXPECT_EQ(ON(Kucpuid_vendorid)(vendor), 0);
    EXPECT_STREQ(vendor, "no CPUID");
    EXPECT_EQ(ON(Kucpuid_model)(&family, &model, &stepping), 0);
    EXPECT_EQ(family + model + stepping, 0);
    EXPECT_STREQ(ON(Kucpuid_model_name)(), "UNKNOWN CPU");
    EXPECT_EQ(ON(Kucpuid_get_brand_string)(), noIndex);
    EXPECT_EQ(brand(on) + features(on), "");
    EXPECT_EQ(ON(KuGetAPIC_ID)() + ON(KuLogicalProcPerPhysicalProc)(), 0u);
    EXPECT_EQ(ON(Kucpuid_frequency)(5), 0u);
    EXPECT_EQ(count(on), KU_SINGLE_CORE_NO_HT);
}

TEST(Processor, IsTheMachinesOwnOutsideOfTests)
{
    unsigned leaf0[] = {0, 9, 0, 9}, subleaf[] = {13, 9, 1, 9}, expected[4];
    for (unsigned *registers : {leaf0, subleaf}) {
        __cpuid_count(registers[0], registers[2], expected[0], expected[1], expected[2], expected[3]);
        Kucpuid32(registers);
        EXPECT_THAT(expected, testing::ElementsAreArray(registers, 4));
    }
    EXPECT_EQ(Kucpuid_supported(), static_cast<int>(leaf0[0]));
    EXPECT_EQ(KuSIMD_fp_OS_supported(), 1); // this test is compiled to use it
}

TEST(ProcessorCount, NarrowAffinityIsReportedAndTriedAgain)
{
    const struct {
        DWORD_PTR process, system;
        BOOL areKnown;
    } cases[] = {{1, 3, TRUE}, {0, 0, TRUE}, {1, 1, FALSE}};
    Recorded on(&machines[0]);
    for (const auto &c : cases) {
        processMask = c.process, systemMask = c.system, masksAreKnown = c.areKnown;
        EXPECT_EQ(count(on), KU_NOT_COUNTED);
        EXPECT_THAT(std::vector({on.processors, on.cores, on.packages}), testing::ElementsAre(0, 1, 1));
        EXPECT_EQ(lines(on), 0u);
        EXPECT_EQ(ON(QVSsysconf)(QVS_SC_PER_THREAD), 8192);
    }
    masksAreKnown = TRUE;
    EXPECT_EQ(count(on), KU_SINGLE_CORE_NO_HT);
}

// 32 processors, one of which cannot be reached; no other is left out of the text and none is cut.
TEST(ProcessorCount, IsOfEveryBitOfTheMaskAndKept)
{
    Machine large = *std::rbegin(machines);
    large.apicIds = range(32, 224);
    Recorded on(&large);
    unreachable = 0x80000000;
    EXPECT_EQ(ON(KuCPUCount)(&on.processors, nullptr, nullptr), KU_MULTI_CORE_NO_HT);
    EXPECT_EQ(on.processors, 31u);
    EXPECT_EQ(lines(on), 31u);
    EXPECT_THAT(ON(KuGet3LevelSubIDStr)(), testing::EndsWith("  AffinityMask = 40000000; Initial APIC = 254; "
                                                             "Physical ID = 248, Core ID = 6,  SMT ID = 0\n"));
    EXPECT_EQ(current, 0u) << "the thread was left bound";
    unreachable = 0;
    count(on);
    EXPECT_EQ(on.processors, 31u);
}

UINT raised, released;
MMRESULT timerResult;

TEST(Processor, FrequencyIsMeasuredAndTheTimerReleased)
{
    Recorded on(&machines[2]);
    auto capabilities = winapi([](TIMECAPS *periods, UINT) { return *periods = {3, 1000}, timerResult; });
    auto raise = winapi([](UINT period) { return raised += period, MMRESULT{0}; });
    auto release = winapi([](UINT period) { return released += period, MMRESULT{0}; });
    auto time = winapi([] { return static_cast<DWORD>(now++); });
    for (const char *missing : {"timeGetDevCaps", "timeBeginPeriod", "timeEndPeriod", "timeGetTime"}) {
        FoundFunctions lacking({{missing, nullptr}}, on.library.module());
        EXPECT_EQ(ON(Kucpuid_frequency)(5), 0u);
    }
    FoundFunctions timer({{"timeGetDevCaps", capabilities},
                          {"timeBeginPeriod", raise},
                          {"timeEndPeriod", release},
                          {"timeGetTime", time}},
                         on.library.module());
    timerResult = MMSYSERR_NODRIVER;
    EXPECT_EQ(ON(Kucpuid_frequency)(5), 0u);
    timerResult = TIMERR_NOERROR;
    EXPECT_EQ(ON(Kucpuid_frequency)(0), 0u);
    EXPECT_EQ(raised, 0u);
    now = 0xFFFFFFF0; // the timer's time starts anew meanwhile
    EXPECT_EQ(ON(Kucpuid_frequency)(30), 2'000'000u);
    EXPECT_EQ(raised, 3u);
    EXPECT_EQ(released, 3u);
}

} // namespace
