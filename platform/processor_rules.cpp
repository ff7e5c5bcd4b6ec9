#include "platform/processor_rules.h"
#include "base/crt_stdio.h"
#include "base/module_id.h"

#include "general/processor.h"

#include <math.h>
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

/// Family and models with the extended fields added, as vendors list them.
struct KnownModels {
    Vendor vendor;
    uint32_t family;
    uint32_t firstModel;
    uint32_t lastModel;
    const char *name;
};

constexpr uint32_t anyModel = 0xFF;

constexpr KnownModels knownModels[] = {
    {Vendor::intel, 4, 0, anyModel, "Intel 486"},
    {Vendor::intel, 5, 0, 3, "Intel Pentium"},
    {Vendor::intel, 5, 4, 8, "Intel Pentium with MMX"},
    {Vendor::intel, 6, 0, 1, "Intel Pentium Pro"},
    {Vendor::intel, 6, 3, 5, "Intel Pentium II"},
    {Vendor::intel, 6, 6, 6, "Intel Celeron"},
    {Vendor::intel, 6, 7, 8, "Intel Pentium III"},
    {Vendor::intel, 6, 9, 9, "Intel Pentium M"},
    {Vendor::intel, 6, 10, 11, "Intel Pentium III"},
    {Vendor::intel, 6, 13, 13, "Intel Pentium M"},
    {Vendor::intel, 6, 14, 14, "Intel Core Duo"},
    {Vendor::intel, 6, 15, 15, "Intel Core 2"},
    {Vendor::intel, 6, 22, 23, "Intel Core 2"},
    {Vendor::intel, 6, 26, 26, "Intel Core (Nehalem)"},
    {Vendor::intel, 6, 28, 28, "Intel Atom"},
    {Vendor::intel, 6, 29, 29, "Intel Core 2"},
    {Vendor::intel, 6, 30, 31, "Intel Core (Nehalem)"},
    {Vendor::intel, 6, 37, 37, "Intel Core (Westmere)"},
    {Vendor::intel, 6, 38, 39, "Intel Atom"},
    {Vendor::intel, 6, 42, 42, "Intel Core (Sandy Bridge)"},
    {Vendor::intel, 6, 44, 44, "Intel Core (Westmere)"},
    {Vendor::intel, 6, 45, 45, "Intel Core (Sandy Bridge)"},
    {Vendor::intel, 6, 46, 46, "Intel Core (Nehalem)"},
    {Vendor::intel, 6, 47, 47, "Intel Core (Westmere)"},
    {Vendor::intel, 6, 53, 55, "Intel Atom"},
    {Vendor::intel, 6, 58, 58, "Intel Core (Ivy Bridge)"},
    {Vendor::intel, 6, 60, 60, "Intel Core (Haswell)"},
    {Vendor::intel, 6, 61, 61, "Intel Core (Broadwell)"},
    {Vendor::intel, 6, 62, 62, "Intel Core (Ivy Bridge)"},
    {Vendor::intel, 6, 63, 63, "Intel Core (Haswell)"},
    {Vendor::intel, 6, 69, 70, "Intel Core (Haswell)"},
    {Vendor::intel, 6, 71, 71, "Intel Core (Broadwell)"},
    {Vendor::intel, 6, 76, 77, "Intel Atom"},
    {Vendor::intel, 6, 78, 78, "Intel Core (Skylake)"},
    {Vendor::intel, 6, 79, 79, "Intel Core (Broadwell)"},
    {Vendor::intel, 6, 85, 85, "Intel Xeon (Skylake, Cascade Lake)"},
    {Vendor::intel, 6, 86, 86, "Intel Core (Broadwell)"},
    {Vendor::intel, 6, 92, 92, "Intel Atom"},
    {Vendor::intel, 6, 94, 94, "Intel Core (Skylake)"},
    {Vendor::intel, 6, 106, 108, "Intel Xeon (Ice Lake)"},
    {Vendor::intel, 6, 122, 122, "Intel Atom"},
    {Vendor::intel, 6, 125, 126, "Intel Core (Ice Lake)"},
    {Vendor::intel, 6, 140, 141, "Intel Core (Tiger Lake)"},
    {Vendor::intel, 6, 142, 142, "Intel Core (Kaby Lake)"},
    {Vendor::intel, 6, 143, 143, "Intel Xeon (Sapphire Rapids)"},
    {Vendor::intel, 6, 151, 154, "Intel Core (Alder Lake)"},
    {Vendor::intel, 6, 158, 158, "Intel Core (Kaby Lake, Coffee Lake)"},
    {Vendor::intel, 6, 165, 166, "Intel Core (Comet Lake)"},
    {Vendor::intel, 6, 167, 167, "Intel Core (Rocket Lake)"},
    {Vendor::intel, 6, 170, 172, "Intel Core Ultra"},
    {Vendor::intel, 6, 183, 191, "Intel Core (Raptor Lake)"},
    {Vendor::intel, 6, 207, 207, "Intel Xeon (Emerald Rapids)"},
    {Vendor::intel, 15, 0, 6, "Intel Pentium 4"},
    {Vendor::amd, 5, 0, 3, "AMD K5"},
    {Vendor::amd, 5, 6, 13, "AMD K6"},
    {Vendor::amd, 6, 0, anyModel, "AMD Athlon"},
    {Vendor::amd, 0x0F, 0, anyModel, "AMD Athlon 64"},
    {Vendor::amd, 0x10, 0, anyModel, "AMD Phenom"},
    {Vendor::amd, 0x14, 0, anyModel, "AMD Bobcat"},
    {Vendor::amd, 0x15, 0, anyModel, "AMD Bulldozer"},
    {Vendor::amd, 0x16, 0, anyModel, "AMD Jaguar"},
    {Vendor::amd, 0x17, 0x00, 0x2F, "AMD Zen"},
    {Vendor::amd, 0x17, 0x30, anyModel, "AMD Zen 2"},
    {Vendor::amd, 0x19, 0x00, 0x0F, "AMD Zen 3"},
    {Vendor::amd, 0x19, 0x10, 0x1F, "AMD Zen 4"},
    {Vendor::amd, 0x19, 0x20, 0x5F, "AMD Zen 3"},
    {Vendor::amd, 0x19, 0x60, anyModel, "AMD Zen 4"},
    {Vendor::amd, 0x1A, 0, anyModel, "AMD Zen 5"},
};

constexpr uint32_t byteMask = 0xFF;

uint32_t bits(uint32_t value, int first, int count)
{
    return value >> first & ((1u << count) - 1);
}

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

/// Bits that number `count` things: none for one.
uint32_t fieldWidth(uint32_t count)
{
    uint32_t width = 0;
    while (count > 1u << width)
        ++width;
    return width;
}

uint32_t countTrue(const bool *flags, size_t count)
{
    uint32_t total = 0;
    for (size_t i = 0; i < count; ++i)
        total += flags[i];
    return total;
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
    for (const KnownModels &known : knownModels)
        if (known.vendor == vendor && known.family == family && known.firstModel <= model && model <= known.lastModel)
            return known.name;
    return "UNKNOWN CPU";
}

// Only four bits of the index are used, so the texts from 16 on are never chosen: a processor with
// index 18 is called by text 2. Callers compare these texts, so it stays.
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

bool supportsHyperThreading(const CpuidRegisters &leaf0, const CpuidRegisters &leaf1)
{
    bool family = bits(leaf1.eax, 8, 4) == 15 || bits(leaf1.eax, 20, 4) != 0;
    return family && isIntel(leaf0) && (leaf1.edx & multiThreadingBit) != 0;
}

uint32_t logicalPerPackage(uint32_t leaf1Ebx)
{
    return bits(leaf1Ebx, 16, 8);
}

uint32_t initialApicId(uint32_t leaf1Ebx)
{
    return bits(leaf1Ebx, 24, 8);
}

uint32_t coresPerPackage(bool multiThreaded, uint32_t highestLeaf, uint32_t leaf4Eax)
{
    if (!multiThreaded || highestLeaf < 4)
        return 1;
    return bits(leaf4Eax, 26, 6) + 1;
}

Topology::Topology(uint32_t logical, uint32_t cores) : threadsPerCore_(logical < cores ? 1 : logical / cores)
{
    uint32_t threadWidth = fieldWidth(threadsPerCore_);
    uint32_t aboveThread = byteMask << threadWidth;
    uint32_t aboveCore = byteMask << (threadWidth + fieldWidth(cores));
    threadMask_ = ~aboveThread & byteMask;
    coreMask_ = (aboveThread ^ aboveCore) & byteMask;
    packageMask_ = byteMask << fieldWidth(logical) & byteMask;
}

ApicFields Topology::split(uint32_t apicId) const
{
    return ApicFields{.package = apicId & packageMask_, .core = apicId & coreMask_, .thread = apicId & threadMask_};
}

void Topology::add(uint32_t apicId)
{
    ApicFields fields = split(apicId);
    packageSeen_[fields.package] = true;
    coreSeen_[fields.package | fields.core] = true;
    ++processors_;
}

uint32_t Topology::cores() const
{
    return countTrue(coreSeen_, apicIds);
}

uint32_t Topology::packages() const
{
    return countTrue(packageSeen_, apicIds);
}

int Topology::status() const
{
    bool multiCore = cores() > packages();
    if (threadsPerCore_ == 1)
        return multiCore ? KU_MULTI_CORE_NO_HT : KU_SINGLE_CORE_NO_HT;
    if (processors_ <= cores())
        return multiCore ? KU_MULTI_CORE_HT_DISABLED : KU_SINGLE_CORE_HT_DISABLED;
    return multiCore ? KU_MULTI_CORE_HT_ENABLED : KU_SINGLE_CORE_HT_ENABLED;
}

bool appendProcessorLine(char *text, size_t capacity, uint32_t affinityMask, uint32_t apicId, const ApicFields &fields)
{
    char line[160]; // ten digits per number still fit
    snprintf(line, sizeof line,
             "  AffinityMask = %x; Initial APIC = %d; Physical ID = %d, Core ID = %d,  SMT ID = %d\n",
             static_cast<unsigned>(affinityMask), static_cast<int>(apicId), static_cast<int>(fields.package),
             static_cast<int>(fields.core), static_cast<int>(fields.thread));
    size_t used = strlen(text);
    size_t length = strlen(line);
    if (capacity - used <= length)
        return false;
    memcpy(text + used, line, length + 1);
    return true;
}

uint64_t snapToBusClock(uint64_t frequency)
{
    const struct {
        double step;
        double stepsPerKilohertz;
    } grids[] = {{50000, 2e-5}, {66666.66, 1.5000001500000152e-05}};

    auto measured = static_cast<double>(frequency);
    double best = 0;
    double bestDistance = measured;
    for (const auto &grid : grids) {
        double above = ceil(measured * grid.stepsPerKilohertz);
        const double multiples[] = {above, above - 1};
        for (double multiple : multiples) {
            double candidate = grid.step * multiple;
            double distance = fabs(candidate - measured);
            if (distance < bestDistance) {
                best = candidate;
                bestDistance = distance;
            }
        }
    }
    constexpr double limit = 18446744073709551615.0; // 2 to the 64th, the first that does not fit
    return best < limit ? static_cast<uint64_t>(best) : UINT64_MAX;
}

long shareOf8192(uint32_t logical, uint32_t cores)
{
    uint32_t threadsPerCore = cores == 0 ? 0 : logical / cores;
    return threadsPerCore == 0 ? 8192 : static_cast<long>(8192 / threadsPerCore);
}

} // namespace general
