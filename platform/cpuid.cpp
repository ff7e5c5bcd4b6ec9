#include "base/library_function.h"
#include "base/module_id.h"
#include "base/once.h"
#include "platform/instruction_probe.h"
#include "platform/processor_names.h"
#include "platform/processor_rules.h"

#include "general/processor.h"

#include <cpuid.h>
#include <string.h>
#include <windows.h>

#include <mmsystem.h>

GENERAL_MODULE_ID("$Id$");

using namespace general;

namespace {

struct Presence {
    bool exists;
    uint32_t highestLeaf;
};

Once<Presence> presence;
Once<int> mmx, sse, sse2, hyperThreading, osSupportsSse;
Once<const char *> model, brand;
Once<uint32_t> logicalInPackage;

char vendorText[vendorSize] = "no CPUID";
bool knownNotIntel; // set when the brand is looked for; until then every processor counts as Intel's

constexpr size_t lineRoom = 128; // more than the longest line of one processor
char threeLevelText[32 * lineRoom];

/// The result of counting; logical stays 0 and the status 6 until a count succeeds.
struct Counts {
    uint32_t logical;
    uint32_t cores;
    uint32_t packages;
    int status;
};

Counts counts = {.logical = 0, .cores = 1, .packages = 1, .status = KU_NOT_COUNTED};

CpuidRegisters execute(uint32_t leaf, uint32_t subleaf = 0)
{
    CpuidRegisters registers;
    __cpuid_count(leaf, subleaf, registers.eax, registers.ebx, registers.ecx, registers.edx);
    return registers;
}

/// A processor with CPUID lets the ID flag of its flags register be changed.
bool idFlagCanChange()
{
    constexpr uint32_t idFlag = 0x200000;
    uint32_t before = __builtin_ia32_readeflags_u32();
    __builtin_ia32_writeeflags_u32(before ^ idFlag);
    uint32_t after = __builtin_ia32_readeflags_u32();
    __builtin_ia32_writeeflags_u32(before);
    return ((before ^ after) & idFlag) != 0;
}

Presence findPresence()
{
    if (!idFlagCanChange())
        return Presence{};
    CpuidRegisters leaf0 = execute(0);
    spellVendor(leaf0, vendorText);
    return Presence{.exists = true, .highestLeaf = leaf0.eax};
}

/// A standard leaf, all zeros where the processor has none of that number.
CpuidRegisters standardLeaf(uint32_t leaf)
{
    Presence found = presence.get(findPresence);
    return found.exists && leaf <= found.highestLeaf ? execute(leaf) : CpuidRegisters{};
}

bool hasFeature(uint32_t bit)
{
    return (standardLeaf(1).edx & bit) != 0;
}

/// Puts the old value back: a build for a processor without the register cannot tell the compiler that it changes.
void clearXmm0()
{
    float before[4];
    asm volatile("movups %%xmm0, %0\n\t"
                 "xorps %%xmm0, %%xmm0\n\t"
                 "movups %0, %%xmm0"
                 : "=m"(before));
}

/// Binds the thread to one processor and reads that processor's identifier.
bool readApicIdOf(DWORD_PTR affinityBit, uint32_t &apicId)
{
    if (SetThreadAffinityMask(GetCurrentThread(), affinityBit) == 0)
        return false;
    Sleep(0);
    apicId = KuGetAPIC_ID();
    return true;
}

/// Counts the processors of a mask; nothing changes when none could be reached.
void countProcessors(DWORD_PTR mask)
{
    Topology topology(KuLogicalProcPerPhysicalProc(), KuCorePerPhysicalProc());
    for (DWORD_PTR left = mask; left != 0; left &= left - 1) {
        DWORD_PTR lowestBit = left & (~left + 1);
        uint32_t apicId = 0;
        if (!readApicIdOf(lowestBit, apicId))
            continue;
        topology.add(apicId);
        appendProcessorLine(threeLevelText, sizeof threeLevelText, lowestBit, apicId, topology.split(apicId));
    }
    SetThreadAffinityMask(GetCurrentThread(), mask);
    Sleep(0);
    if (topology.processors() > 0)
        counts = Counts{.logical = topology.processors(),
                        .cores = topology.cores(),
                        .packages = topology.packages(),
                        .status = topology.status()};
}

void storeUnlessNull(unsigned *destination, uint32_t value)
{
    if (destination != nullptr)
        *destination = value;
}

/// The multimedia timer, whose library brings half the graphical system with it.
struct MultimediaTimer {
    decltype(&timeGetDevCaps) capabilities;
    decltype(&timeBeginPeriod) beginPeriod;
    decltype(&timeEndPeriod) endPeriod;
    decltype(&timeGetTime) time;
};

/// Loads the timer's library with the first call.
/// @return false where there is none, or an incomplete one
bool findTimer(MultimediaTimer &timer)
{
    static HMODULE library;
    if (library == nullptr)
        library = loadSystemLibrary("winmm.dll");
    return findFunction(library, "timeGetDevCaps", timer.capabilities) &&
           findFunction(library, "timeBeginPeriod", timer.beginPeriod) &&
           findFunction(library, "timeEndPeriod", timer.endPeriod) && findFunction(library, "timeGetTime", timer.time);
}

/// Cycles of the time-stamp counter during a busy wait.
uint64_t cyclesDuring(const MultimediaTimer &timer, unsigned milliseconds)
{
    DWORD start = timer.time();
    uint64_t firstCycle = __builtin_ia32_rdtsc();
    while (timer.time() - start < milliseconds) {
    }
    return __builtin_ia32_rdtsc() - firstCycle;
}

} // namespace

int Kucpuid_supported(void)
{
    return static_cast<int>(presence.get(findPresence).highestLeaf);
}

int Kucpuid_vendorid(char *vendor)
{
    int exists = presence.get(findPresence).exists;
    memcpy(vendor, vendorText, sizeof vendorText);
    return exists;
}

const char *Kucpuid_model_name(void)
{
    return model.get([] { return modelName(standardLeaf(0), standardLeaf(1).eax); });
}

int Kucpuid_model(int *family, int *modelNumber, int *stepping)
{
    Signature signature = signatureOf(standardLeaf(1).eax);
    if (family != nullptr)
        *family = signature.family;
    if (modelNumber != nullptr)
        *modelNumber = signature.model;
    if (stepping != nullptr)
        *stepping = signature.stepping;
    return presence.get(findPresence).exists;
}

const char *Kucpuid_get_brand_string(void)
{
    return brand.get([] {
        CpuidRegisters leaf1 = standardLeaf(1);
        knownNotIntel = !isIntel(standardLeaf(0));
        return brandText(leaf1.eax, leaf1.ebx);
    });
}

int Kucpuid_get_extended_brand_string(char *text)
{
    constexpr uint32_t firstLeaf = 0x80000002, lastLeaf = 0x80000004;
    *text = 0;
    if (!presence.get(findPresence).exists || execute(0x80000000).eax < lastLeaf)
        return 0;
    for (uint32_t leaf = firstLeaf; leaf <= lastLeaf; ++leaf) {
        CpuidRegisters part = execute(leaf);
        memcpy(text, &part, sizeof part);
        text += sizeof part;
    }
    *text = 0;
    return 1;
}

int KuMMX_supported(void)
{
    return mmx.get([] { return int{hasFeature(mmxBit)}; });
}

int KuXMMX_supported(void)
{
    return sse.get([] { return int{hasFeature(sseBit) && KuSIMD_fp_OS_supported() == 1}; });
}

int KuSSE2_supported(void)
{
    return sse2.get([] { return int{hasFeature(sse2Bit) && KuSIMD_fp_OS_supported() == 1}; });
}

int KuSIMD_fp_OS_supported(void)
{
    return osSupportsSse.get([] { return int{runsWithoutException(clearXmm0)}; });
}

int KuHT_supported(void)
{
    return hyperThreading.get([] { return int{supportsHyperThreading(standardLeaf(0), standardLeaf(1))}; });
}

unsigned KuGetAPIC_ID(void)
{
    return initialApicId(standardLeaf(1).ebx);
}

unsigned KuLogicalProcPerPhysicalProc(void)
{
    return logicalInPackage.get([] { return logicalPerPackage(standardLeaf(1).ebx); });
}

unsigned KuCorePerPhysicalProc(void)
{
    bool multiThreaded = !knownNotIntel && hasFeature(multiThreadingBit);
    return coresPerPackage(multiThreaded, presence.get(findPresence).highestLeaf, standardLeaf(4).eax);
}

void Kucpuid32(unsigned *registers)
{
    bool exists = presence.get(findPresence).exists;
    CpuidRegisters result = exists ? execute(registers[0], registers[2]) : CpuidRegisters{};
    memcpy(registers, &result, sizeof result);
}

int KuCPUCount(unsigned *logical, unsigned *cores, unsigned *packages)
{
    if (counts.status == KU_NOT_COUNTED) {
        DWORD_PTR processMask = 0, systemMask = 0;
        if (GetProcessAffinityMask(GetCurrentProcess(), &processMask, &systemMask) && processMask == systemMask)
            countProcessors(systemMask);
    }
    storeUnlessNull(logical, counts.logical);
    storeUnlessNull(cores, counts.cores);
    storeUnlessNull(packages, counts.packages);
    return counts.status;
}

const char *KuGet3LevelSubIDStr(void)
{
    return threeLevelText;
}

uint64_t Kucpuid_frequency(unsigned milliseconds)
{
    if (milliseconds == 0 || !hasFeature(timeStampCounterBit))
        return 0;
    MultimediaTimer timer;
    TIMECAPS resolution;
    if (!findTimer(timer) || timer.capabilities(&resolution, sizeof resolution) != TIMERR_NOERROR)
        return 0;

    timer.beginPeriod(resolution.wPeriodMin);
    uint64_t cycles = cyclesDuring(timer, milliseconds);
    timer.endPeriod(resolution.wPeriodMin);
    return snapToBusClock(cycles / milliseconds);
}
