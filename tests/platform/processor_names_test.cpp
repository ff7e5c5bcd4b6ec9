#include "platform/processor_names.h"

#include <gtest/gtest.h>

namespace {

using namespace general;

constexpr CpuidRegisters intel = {.eax = 13, .ebx = 0x756E6547, .ecx = 0x6C65746E, .edx = 0x49656E69},
                         amd = {.eax = 13, .ebx = 0x68747541, .ecx = 0x444D4163, .edx = 0x69746E65};

// Every model by itself, but for AMD's family 0Fh.
TEST(ProcessorNames, OfDesigns)
{
    const struct {
        CpuidRegisters maker;
        uint32_t signature;
        const char *name;
    } rows[] = {
        {intel, 0xB06D1, "Intel Lunar Lake"},
        {intel, 0xB06E0, "Intel Alder Lake-N"}, // numbers side by side
        {intel, 0x106B0, "UNKNOWN CPU"},
        {intel, 0x7F00F00, "UNKNOWN CPU"}, // none of the neighbours
        {amd, 0x5A2, "AMD Geode LX"},
        {amd, 0x850F00, "AMD Zen"}, // a model of 8 bits
        {amd, 0xC0F13, "AMD K8"},
        {amd, 0xB50F00, "UNKNOWN CPU"},
    };
    for (const auto &row : rows)
        EXPECT_STREQ(modelName(row.maker, row.signature), row.name) << std::hex << row.signature;
}

// A number that slipped shows nowhere else. Whoever changes the table on purpose changes the digest.
TEST(ProcessorNames, TableIsAsItWasReviewed)
{
    uint32_t digest = 2166136261;
    for (const CpuidRegisters &maker : {intel, amd})
        for (uint32_t family = 0; family < 32; ++family)
            for (uint32_t model = 0; model < 256; ++model) {
                const uint32_t extended = family < 15 ? 0 : family - 15, base = family - extended;
                const uint32_t signature = extended << 20 | (model >> 4) << 16 | base << 8 | (model & 15) << 4;
                for (const char *c = modelName(maker, signature); *c != 0; ++c)
                    digest = (digest ^ static_cast<unsigned char>(*c)) * 16777619;
            }
    EXPECT_EQ(digest, 1953673381U);
}

// The brand goes by the plain model of four bits.
TEST(ProcessorNames, OfBrandsByTheirIndex)
{
    const char noBrand[] = "This processor does not support the brand identification feature";
    const struct {
        uint32_t signature, index;
        const char *text;
    } rows[] = {{0x543, 8, noBrand}, // from family 6 on
                {0x506E3, 0, "Intel(R) Pentium(R) M processor"},
                {0x683, 6, "Mobile Intel(R) Pentium(R) III processor-M"},
                {0xF13, 13, ""},
                {0xF13, 14, "Intel(R) Xeon(TM) processor"},
                {0xF12, 15, "Mobile Intel(R) Celeron(R) processor"},
                {0xF23, 14, "Mobile Intel(R) Pentium(R) 4 processor-M"},
                {0xF29, 11, "Intel(R) Xeon(TM) processor"}};
    for (const auto &row : rows)
        EXPECT_STREQ(brandText(row.signature, row.index), row.text) << std::hex << row.signature;
}

} // namespace
