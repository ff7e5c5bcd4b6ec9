#include "platform/processor_names.h"

#include <gtest/gtest.h>

namespace {

using namespace general;

constexpr CpuidRegisters intel = {.eax = 13, .ebx = 0x756E6547, .ecx = 0x6C65746E, .edx = 0x49656E69},
                         amd = {.eax = 13, .ebx = 0x68747541, .ecx = 0x444D4163, .edx = 0x69746E65};

// A number that slipped shows nowhere else. Whoever changes the table on purpose changes the digest. Bits that
// are reserved are set, and do not count.
TEST(ProcessorNames, OfDesignsAreAsReviewed)
{
    uint32_t digest = 2166136261;
    for (const CpuidRegisters &maker : {intel, amd})
        for (uint32_t family = 0; family < 32; ++family)
            for (uint32_t model = 0; model < 256; ++model) {
                const uint32_t extended = family < 15 ? 0 : family - 15, base = family - extended;
                const uint32_t signature =
                    0xF000C000 | extended << 20 | (model >> 4) << 16 | base << 8 | (model & 15) << 4;
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
