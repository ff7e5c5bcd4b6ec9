#include "platform/processor_rules.h"

#include <gtest/gtest.h>

namespace {

using namespace general;

// More processors than an affinity mask has bits, and identifiers up to the last.
TEST(ProcessorRules, TopologyOfEveryIdentifier)
{
    Topology topology(128, 64);
    for (uint32_t id = 0; id < 256; ++id)
        topology.add(id);
    EXPECT_EQ(topology.processors(), 256u);
    EXPECT_EQ(topology.cores(), 128u);
    EXPECT_EQ(topology.packages(), 2u);
    EXPECT_EQ(topology.status(), 4);
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

TEST(ProcessorRules, FrequenciesAreRounded)
{
    const struct {
        uint64_t measured, rounded;
    } rows[] = {{2000100, 2000000},
                {2445430, 2450000},
                {2025000, 2050000}, // steps of 50 MHz
                {1333100, 1333333},
                {2394000, 2399999},
                {1866000, 1866666}, // and of 66.6
                {0, 0},
                {10, 0}};
    for (const auto &row : rows)
        EXPECT_EQ(snapToBusClock(row.measured), row.rounded);
    EXPECT_GT(snapToBusClock(UINT64_MAX), UINT64_MAX - 100'000);
}

TEST(ProcessorRules, SharesOfImpossibleCountsAreWhole)
{
    const uint32_t counts[][2] = {{0, 1}, {1, 0}, {2, 3}}; // logical processors and cores
    for (auto [logical, cores] : counts)
        EXPECT_EQ(shareOf8192(logical, cores), 8192);
}

} // namespace
