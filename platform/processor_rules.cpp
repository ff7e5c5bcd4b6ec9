#include "platform/processor_rules.h"
#include "base/crt_stdio.h"
#include "base/module_id.h"
#include "platform/processor_names.h"

#include "general/processor.h"

#include <math.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

namespace general {

namespace {

constexpr uint32_t byteMask = 0xFF;

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
