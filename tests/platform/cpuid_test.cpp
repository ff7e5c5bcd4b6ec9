#include "general/processor.h"
#include "general/system.h"

#include "tests/platform/recorded_processor.h"
#include "tests/support/fresh_library.h"
#include "tests/support/import_hook.h"

#include <cpuid.h>
#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

#include <mmsystem.h>

namespace {

using namespace test_support;

const std::string noIndex = "This processor does not support the brand identification feature";

/// A row of processors.txt.
struct Machine {
    std::string name, vendor;
    uint32_t highestLeaf;
    uint32_t eax, ebx, edx; ///< leaf 1
    uint32_t leaf4;         ///< EAX
    std::vector<uint32_t> apicIds;
    std::string brand; ///< spelled out; empty where there are no such leaves
    std::string design, index, features;
    unsigned stated, cores, packages; ///< cores as leaf 4 states them, the others as counted
    int status;

    explicit Machine(const std::string &row)
    {
        std::istringstream in(row);
        auto text = [&in](std::string &cell) {
            std::getline(in, cell, '|');
            cell = std::regex_replace(cell, std::regex("^ *- *$|^ *\"?|\"? *$"), "");
        };
        auto number = [&](int base) {
            std::string cell;
            text(cell);
            return std::stoul(cell, nullptr, base);
        };
        std::string ids;
        text(name), text(vendor);
        highestLeaf = number(16), eax = number(16), ebx = number(16), edx = number(16), leaf4 = number(16);
        text(ids), text(brand), text(design), text(index), text(features);
        stated = number(10), cores = number(10), packages = number(10), status = static_cast<int>(number(10));
        std::istringstream ranges(ids); // as in "0-5 8"
        for (std::string range; ranges >> range;)
            for (uint32_t id = std::stoul(range); id <= std::stoul(range.substr(range.find('-') + 1)); ++id)
                apicIds.push_back(id);
    }
};

std::vector<Machine> readMachines()
{
    std::ifstream file("tests/platform/processors.txt"); // from the project's folder
    std::vector<Machine> machines;
    for (std::string line; std::getline(file, line);)
        if (line[0] != '#')
            machines.emplace_back(line);
    return machines;
}
const std::vector<Machine> machines = readMachines();

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
        registers[0] = machine->eax;
        registers[1] = machine->ebx | machine->apicIds[current] << 24;
        registers[3] = machine->edx;
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
        processor = {answer, [] { return now * 2'000'100; }, 0x246, hasCpuid ? 0x200000U : 0, hasCpuid};
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
    std::string all = ON(KuMMX_supported)() == 1 ? "MMX" : "";
    all += ON(KuXMMX_supported)() == 1 ? " SSE" : "";
    all += ON(KuSSE2_supported)() == 1 ? " SSE2" : "";
    return all + (ON(KuHT_supported)() == 1 ? " HT" : "");
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
    EXPECT_GT(machines.size(), 20u);
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
        EXPECT_EQ(static_cast<uint32_t>(family << 8 | model << 4 | stepping), row.eax & 0xFFF);
        EXPECT_EQ(ON(Kucpuid_model)(nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(ON(KuLogicalProcPerPhysicalProc)(), row.ebx >> 16);
        EXPECT_EQ(ON(Kucpuid_model_name)(), row.design);
        EXPECT_EQ(brand(on), row.brand);

        EXPECT_EQ(ON(KuCorePerPhysicalProc)(), row.stated);
        EXPECT_EQ(ON(Kucpuid_get_brand_string)(), row.index.empty() ? noIndex : row.index);
        EXPECT_EQ(ON(KuCorePerPhysicalProc)(), row.vendor == "GenuineIntel" ? row.stated : 1)
            << "the maker is known by now";
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

TEST(Processor, SseNeedsTheSystemToo)
{
    Recorded on(&machines.back());
    on.processor.runsSse = false;
    EXPECT_EQ(features(on), "MMX");
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
    Recorded on(&machines.back());
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
