#include "platform/processor_names.h"
#include "platform/processor_rules.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

namespace {

using namespace general;

CpuidRegisters leaf0Of(const char *vendor)
{
    uint32_t parts[3];
    std::memcpy(parts, vendor, sizeof parts);
    return {.eax = 13, .ebx = parts[0], .ecx = parts[2], .edx = parts[1]};
}

const CpuidRegisters intel = leaf0Of("GenuineIntel"), amd = leaf0Of("AuthenticAMD"), other = leaf0Of("CyrixInstead");

// Every model by itself, but for AMD's family 0Fh. The brand goes by the index, of which 18 counts as 2,
// and by the plain model of four bits.
TEST(ProcessorRules, NamesModelsAndBrands)
{
    auto named = [](const CpuidRegisters &leaf0, uint32_t eax, std::string name) {
        return modelName(leaf0, eax) == name;
    };
    EXPECT_TRUE(named(intel, 0x572, "Intel Pentium") && named(intel, 0xF29, "Intel Pentium 4"));
    EXPECT_TRUE(named(intel, 0xB06D1, "Intel Lunar Lake") && named(intel, 0xB06E0, "Intel Alder Lake-N"));
    EXPECT_TRUE(named(amd, 0x5A2, "AMD Geode LX") && named(amd, 0xC0F13, "AMD K8") && named(amd, 0x850F00, "AMD Zen"));
    EXPECT_TRUE(named(amd, 0xB50F00, "UNKNOWN CPU") && named(intel, 0x106B0, "UNKNOWN CPU"));
    EXPECT_TRUE(named(other, 0x540, "UNKNOWN CPU") && named(intel, 0x7F00F00, "UNKNOWN CPU"));
    const char noBrand[] = "This processor does not support the brand identification feature";
    const struct {
        uint32_t eax, ebx;
        const char *text;
    } brands[] = {{0x543, 8, noBrand},
                  {0x68A, 18, "Intel(R) Pentium(R) III processor"},
                  {0x695, 22, "Intel(R) Pentium(R) M processor"},
                  {0x506E3, 0, "Intel(R) Pentium(R) M processor"},
                  {0xF13, 14, "Intel(R) Xeon(TM) processor"},
                  {0xF13, 11, ""},
                  {0xF29, 11, "Intel(R) Xeon(TM) processor"}};
    for (const auto &[eax, ebx, text] : brands)
        EXPECT_STREQ(brandText(eax, ebx), text) << eax;
}

TEST(ProcessorRules, HyperThreadingNeedsFamilyVendorAndBit)
{
    auto supported = [](const CpuidRegisters &leaf0, uint32_t eax, uint32_t edx = multiThreadingBit) {
        return supportsHyperThreading(leaf0, {.eax = eax, .ebx = 0, .ecx = 0, .edx = edx});
    };
    EXPECT_TRUE(supported(intel, 0xF29) && !supported(intel, 0xF29, ~multiThreadingBit) && !supported(amd, 0xF29));
    // Another family needs an extended one, of which only the low four bits count.
    EXPECT_TRUE(supported(intel, 0x1006EA) && !supported(intel, 0x906EA) && !supported(intel, 0x8000606));
    EXPECT_TRUE(coresPerPackage(true, 4, 0xFC000000) == 64 && coresPerPackage(true, 4, 0x07FFFFFF) == 2);
    EXPECT_TRUE(coresPerPackage(true, 3, 0xFC000000) == 1 && coresPerPackage(false, 13, 0xFC000000) == 1);
    EXPECT_TRUE(logicalPerPackage(0xAA10BBCC) == 0x10 && initialApicId(0xAA10BBCC) == 0xAA);
}

TEST(ProcessorRules, TopologyFromApicIdentifiers)
{
    std::vector<uint32_t> all(256);
    std::iota(all.begin(), all.end(), 0);
    const struct {
        uint32_t logical, cores;
        std::vector<uint32_t> ids;
        uint32_t foundCores, foundPackages;
        int status;
    } cases[] = {
        {0, 1, {0}, 1, 1, 2},                                       // one core that states nothing
        {2, 1, {0, 1}, 1, 1, 0},                                    // one core, two threads
        {2, 1, {0, 1, 6, 7}, 2, 2, 0},                              // two packages of one core and two threads
        {2, 1, {0, 6}, 2, 2, 1},                                    // the same, switched off
        {2, 2, {0, 1}, 2, 1, 3},                                    // two cores
        {8, 4, {0, 2, 4, 6}, 4, 1, 5},                              // four cores, two threads switched off
        {6, 6, {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13}, 12, 2, 3}, // six cores in fields of eight, twice
        {1, 8, {0, 1, 2, 3}, 4, 4, 2},                              // one thread stated, many cores
        {128, 64, all, 128, 2, 4},                                  // 256 processors, 64 cores to the package
    };
    for (const auto &c : cases) {
        Topology topology(c.logical, c.cores);
        for (uint32_t id : c.ids)
            topology.add(id);
        EXPECT_TRUE(topology.processors() == c.ids.size() && topology.cores() == c.foundCores &&
                    topology.packages() == c.foundPackages && topology.status() == c.status)
            << "row " << &c - cases;
    }
    ApicFields fields = Topology(8, 4).split(0xFF);
    EXPECT_TRUE(fields.thread == 1 && fields.core == 6 && fields.package == 0xF8);
}

TEST(ProcessorRules, LinesAreAppendedWholeOrNotAtAll)
{
    const std::string line =
        "  AffinityMask = 80000000; Initial APIC = 255; Physical ID = 248, Core ID = 6,  SMT ID = 1\n";
    for (size_t spare : {0u, 1u, 2u, 50u}) {
        std::vector<char> text(2 * line.size() + spare, '?');
        text[0] = 0;
        int fitted = 0;
        for (int i = 0; i < 4; ++i)
            fitted += appendProcessorLine(text.data(), text.size(), 0x80000000, 255, Topology(8, 4).split(255));
        EXPECT_EQ(fitted, spare == 0 ? 1 : 2); // the terminator needs a byte too
        EXPECT_EQ(text.data(), spare == 0 ? line : line + line);
    }
}

TEST(ProcessorRules, FrequenciesAndSharesAreRounded)
{
    auto snaps = [](uint64_t measured, uint64_t snapped) { return snapToBusClock(measured) == snapped; };
    EXPECT_TRUE(snaps(2000100, 2000000) && snaps(2445430, 2450000) && snaps(2025000, 2050000)); // steps of 50 MHz
    EXPECT_TRUE(snaps(1333100, 1333333) && snaps(2394000, 2399999) && snaps(1866000, 1866666)); // and of 66.6
    EXPECT_TRUE(snaps(0, 0) && snaps(10, 0));
    EXPECT_GT(snapToBusClock(UINT64_MAX), UINT64_MAX - 100'000);
    EXPECT_TRUE(shareOf8192(4, 4) == 8192 && shareOf8192(8, 4) == 4096 && shareOf8192(7, 2) == 2730);
    EXPECT_TRUE(shareOf8192(0, 1) == 8192 && shareOf8192(1, 0) == 8192 && shareOf8192(2, 3) == 8192);
}

} // namespace
