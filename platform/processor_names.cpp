#include "platform/processor_names.h"
#include "base/module_id.h"

#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

constexpr const char *brandTexts[] = {
    "This processor does not support the brand identification feature",
    "Intel(R) Celeron(R) processor",
    "Intel(R) Pentium(R) III processor",
    "Intel(R) Pentium(R) III Xeon(TM) processor",
    "Intel(R) Pentium(R) III processor",
    "Reserved (5)",
    "Mobile Intel(R) Pentium(R) III processor-M",
    "Mobile Intel(R) Celeron(R) processor",
    "Intel(R) Pentium(R) 4 processor",
    "Intel(R) Pentium(R) 4 processor",
    "Intel(R) Celeron(R) processor",
    "Intel(R) Xeon(TM) processor",
    "Intel(R) Xeon(TM) processor MP",
    "Reserved (13)",
    "Mobile Intel(R) Pentium(R) 4 processor-M",
    "Mobile Intel(R) Celeron(R) processor",
    "Intel(R) Pentium(R) M processor (ID=16)",
    "Mobile Genuine Intel(R) processor",
    "Intel(R) Celeron(R) M processor",
    "Mobile Intel(R) Celeron(R) processor",
    "Intel(R) Celeron(R) processor",
    "Mobile Genuine Intel(R) processor",
    "Intel(R) Pentium(R) M processor",
};

enum class Vendor { other, intel, amd };

/// The models of one design, in the numbers that vendors list: extended fields added.
struct Design {
    Vendor vendor;
    uint32_t family;
    const char *name;
    uint32_t modelCount; ///< 0 where all of the family, which is closed, is of one design
    uint8_t models[9];
};

template<typename... Models>
constexpr Design intel(uint32_t family, const char *name, Models... models)
{
    return {Vendor::intel, family, name, sizeof...(models), {static_cast<uint8_t>(models)...}};
}

template<typename... Models>
constexpr Design amd(uint32_t family, const char *name, Models... models)
{
    return {Vendor::amd, family, name, sizeof...(models), {static_cast<uint8_t>(models)...}};
}

/// Every model by itself: a model that is not here has no name, for the next number along may be of
/// another design.
constexpr Design designs[] = {
    intel(4, "Intel 486", 0, 1, 2, 3, 4, 5, 7, 8, 9),
    intel(5, "Intel Pentium", 0, 1, 2, 3, 7),
    intel(5, "Intel Pentium with MMX", 4, 8),
    intel(5, "Intel Quark", 9),

    intel(6, "Intel Pentium Pro", 0x00, 0x01),
    intel(6, "Intel Pentium II", 0x03, 0x05, 0x06),
    intel(6, "Intel Pentium III", 0x07, 0x08, 0x0A, 0x0B),
    intel(6, "Intel Pentium M", 0x09, 0x0D),
    intel(6, "Intel Core Duo", 0x0E),
    intel(6, "Intel Core 2", 0x0F, 0x16, 0x17, 0x1D),
    intel(6, "Intel Nehalem", 0x1A, 0x1E, 0x1F, 0x2E),
    intel(6, "Intel Westmere", 0x25, 0x2C, 0x2F),
    intel(6, "Intel Sandy Bridge", 0x2A, 0x2D),
    intel(6, "Intel Ivy Bridge", 0x3A, 0x3E),
    intel(6, "Intel Haswell", 0x3C, 0x3F, 0x45, 0x46),
    intel(6, "Intel Broadwell", 0x3D, 0x47, 0x4F, 0x56),
    intel(6, "Intel Skylake", 0x4E, 0x5E),
    intel(6, "Intel Skylake, Cascade Lake or Cooper Lake", 0x55),
    intel(6, "Intel Kaby Lake to Comet Lake", 0x8E), // told apart by the stepping, and not by that alone
    intel(6, "Intel Kaby Lake or Coffee Lake", 0x9E),
    intel(6, "Intel Cannon Lake", 0x66),
    intel(6, "Intel Comet Lake", 0xA5, 0xA6),
    intel(6, "Intel Ice Lake", 0x6A, 0x6C, 0x7D, 0x7E),
    intel(6, "Intel Tiger Lake", 0x8C, 0x8D),
    intel(6, "Intel Rocket Lake", 0xA7),
    intel(6, "Intel Lakefield", 0x8A),
    intel(6, "Intel Alder Lake", 0x97, 0x9A),
    intel(6, "Intel Alder Lake-N", 0xBE),
    intel(6, "Intel Raptor Lake", 0xB7, 0xBA),
    intel(6, "Intel Alder Lake or Raptor Lake", 0xBF), // sold as the 12th and as the 13th generation
    intel(6, "Intel Meteor Lake", 0xAA, 0xAC),
    intel(6, "Intel Arrow Lake", 0xB5, 0xC5, 0xC6),
    intel(6, "Intel Lunar Lake", 0xBD),
    intel(6, "Intel Panther Lake", 0xCC),
    intel(6, "Intel Sapphire Rapids", 0x8F),
    intel(6, "Intel Emerald Rapids", 0xCF),
    intel(6, "Intel Granite Rapids", 0xAD, 0xAE),

    intel(6, "Intel Atom (Bonnell)", 0x1C, 0x26),
    intel(6, "Intel Atom (Saltwell)", 0x27, 0x35, 0x36),
    intel(6, "Intel Atom (Silvermont)", 0x37, 0x4A, 0x4D, 0x5A),
    intel(6, "Intel Atom (Airmont)", 0x4C),
    intel(6, "Intel Apollo Lake", 0x5C),
    intel(6, "Intel Denverton", 0x5F),
    intel(6, "Intel Gemini Lake", 0x7A),
    intel(6, "Intel Snow Ridge", 0x86),
    intel(6, "Intel Elkhart Lake", 0x96),
    intel(6, "Intel Jasper Lake", 0x9C),
    intel(6, "Intel Sierra Forest", 0xAF),
    intel(6, "Intel Grand Ridge", 0xB6),
    intel(6, "Intel Xeon Phi", 0x57, 0x85),

    intel(15, "Intel Pentium 4", 0, 1, 2, 3, 4, 6),

    amd(4, "AMD 486", 3, 7, 8, 9),
    amd(4, "AMD 5x86", 14, 15),
    amd(5, "AMD K5", 0, 1, 2, 3),
    amd(5, "AMD K6", 6, 7),
    amd(5, "AMD K6-2", 8),
    amd(5, "AMD K6-III", 9),
    amd(5, "AMD K6-2+ or K6-III+", 13),
    amd(5, "AMD Geode LX", 10),
    amd(6, "AMD Athlon", 1, 2, 4),
    amd(6, "AMD Duron", 3, 7),
    amd(6, "AMD Athlon XP", 6, 8, 10),
    amd(0x0F, "AMD K8"),
    amd(0x10, "AMD K10"),
    amd(0x11, "AMD Griffin"),
    amd(0x12, "AMD Llano"),
    amd(0x14, "AMD Bobcat"),
    amd(0x15, "AMD Bulldozer", 0x01),
    amd(0x15, "AMD Piledriver", 0x02, 0x10, 0x13),
    amd(0x15, "AMD Steamroller", 0x30, 0x38),
    amd(0x15, "AMD Excavator", 0x60, 0x65, 0x70),
    amd(0x16, "AMD Jaguar", 0x00),
    amd(0x16, "AMD Puma", 0x30),
    amd(0x17, "AMD Zen", 0x01, 0x11, 0x20, 0x50),
    amd(0x17, "AMD Zen+", 0x08, 0x18),
    amd(0x17, "AMD Zen 2", 0x31, 0x47, 0x60, 0x68, 0x71, 0x90, 0xA0),
    amd(0x19, "AMD Zen 3", 0x01, 0x08, 0x21, 0x50),
    amd(0x19, "AMD Zen 3+", 0x44),
    amd(0x19, "AMD Zen 4", 0x11, 0x18, 0x61, 0x74, 0x75, 0x78),
    amd(0x19, "AMD Zen 4c", 0xA0),
    amd(0x1A, "AMD Zen 5", 0x02, 0x08, 0x24, 0x44, 0x60, 0x70),
    amd(0x1A, "AMD Zen 5c", 0x11),
};

bool isVendor(const CpuidRegisters &leaf0, const char *name)
{
    char vendor[vendorSize];
    spellVendor(leaf0, vendor);
    return strcmp(vendor, name) == 0;
}

Vendor vendorOf(const CpuidRegisters &leaf0)
{
    if (isIntel(leaf0))
        return Vendor::intel;
    return isVendor(leaf0, "AuthenticAMD") ? Vendor::amd : Vendor::other;
}

/// The family that vendors quote: the extended field counts on top of family 15.
uint32_t fullFamily(uint32_t leaf1Eax)
{
    uint32_t family = bits(leaf1Eax, 8, 4);
    return family == 15 ? family + bits(leaf1Eax, 20, 8) : family;
}

uint32_t fullModel(uint32_t leaf1Eax)
{
    uint32_t family = bits(leaf1Eax, 8, 4);
    uint32_t model = bits(leaf1Eax, 4, 4);
    return family == 6 || family == 15 ? model | bits(leaf1Eax, 16, 4) << 4 : model;
}

bool isOfDesign(const Design &design, uint32_t model)
{
    for (uint32_t i = 0; i < design.modelCount; ++i)
        if (design.models[i] == model)
            return true;
    return design.modelCount == 0;
}

} // namespace

Signature signatureOf(uint32_t leaf1Eax)
{
    return Signature{.family = static_cast<int>(bits(leaf1Eax, 8, 4)),
                     .model = static_cast<int>(bits(leaf1Eax, 4, 4)),
                     .stepping = static_cast<int>(bits(leaf1Eax, 0, 4))};
}

void spellVendor(const CpuidRegisters &leaf0, char (&vendor)[vendorSize])
{
    const uint32_t parts[] = {leaf0.ebx, leaf0.edx, leaf0.ecx};
    static_assert(sizeof parts == vendorSize - 1);
    memcpy(vendor, parts, sizeof parts);
    vendor[sizeof parts] = 0;
}

bool isIntel(const CpuidRegisters &leaf0)
{
    return isVendor(leaf0, "GenuineIntel");
}

const char *modelName(const CpuidRegisters &leaf0, uint32_t leaf1Eax)
{
    Vendor vendor = vendorOf(leaf0);
    uint32_t family = fullFamily(leaf1Eax);
    uint32_t model = fullModel(leaf1Eax);
    for (const Design &design : designs)
        if (design.vendor == vendor && design.family == family && isOfDesign(design, model))
            return design.name;
    return "UNKNOWN CPU";
}

// Only four bits of the index are used, so the texts from 16 on are never chosen: a processor with
// index 18 is called by text 2. Kept for compatibility.
const char *brandText(uint32_t leaf1Eax, uint32_t leaf1Ebx)
{
    Signature signature = signatureOf(leaf1Eax);
    uint32_t index = bits(leaf1Ebx, 0, 4);
    if (signature.family < 6)
        return brandTexts[0];
    if (signature.family == 6 && signature.model >= 9)
        return "Intel(R) Pentium(R) M processor";
    if (signature.family == 15 && signature.model == 1 && signature.stepping == 3)
        return index >= 14 ? "Intel(R) Xeon(TM) processor" : ""; // empty on purpose for the others
    return brandTexts[index];
}

} // namespace general
