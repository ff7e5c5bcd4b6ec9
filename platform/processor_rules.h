/// @file
/// What the values of CPUID registers say about logical processors, cores, packages and frequency:
/// decisions over plain numbers, apart from the instructions that obtain them.

#pragma once

#include "platform/cpuid_registers.h"

#include <stddef.h>

namespace general {

bool supportsHyperThreading(const CpuidRegisters &leaf0, const CpuidRegisters &leaf1);

uint32_t logicalPerPackage(uint32_t leaf1Ebx);
uint32_t initialApicId(uint32_t leaf1Ebx);

/// @param multiThreaded  Intel's, as far as known, and reporting multi-threading
/// @param leaf4Eax       of subleaf 0; not looked at when there is no such leaf
uint32_t coresPerPackage(bool multiThreaded, uint32_t highestLeaf, uint32_t leaf4Eax);

/// The parts of an APIC identifier, each in its place within the 8 bits.
struct ApicFields {
    uint32_t package;
    uint32_t core;
    uint32_t thread;
};

/// Tells logical processors, cores and packages apart by their APIC identifiers.
class Topology {
public:
    /// @param logical  per package. Where fewer are stated than cores, as some virtual machines do, a
    ///                 core has one thread, and packages are told apart by what `logical` leaves of an
    ///                 identifier: for 0 or 1, each processor is a package of its own
    /// @param cores    per package, at least 1
    Topology(uint32_t logical, uint32_t cores);

    ApicFields split(uint32_t apicId) const;

    /// Counts one logical processor.
    void add(uint32_t apicId);

    uint32_t processors() const { return processors_; }
    uint32_t cores() const;
    uint32_t packages() const;

    /// @return a KuCountStatus
    int status() const;

private:
    static constexpr size_t apicIds = 256;

    uint32_t threadsPerCore_;
    uint32_t threadMask_;
    uint32_t coreMask_;
    uint32_t packageMask_;
    uint32_t processors_ = 0;
    bool coreSeen_[apicIds] = {};
    bool packageSeen_[apicIds] = {};
};

/// Appends one processor's line to a text. A line that does not fit whole is left out.
/// @return whether it fitted
bool appendProcessorLine(char *text, size_t capacity, uint32_t affinityMask, uint32_t apicId, const ApicFields &fields);

/// Rounds a measured frequency to the nearest multiple of a 50 or 66.66666 MHz bus clock above or
/// below it. Both in kHz.
uint64_t snapToBusClock(uint64_t frequency);

/// 8192 divided by the hardware threads per core; 8192 when the counts make no sense.
long shareOf8192(uint32_t logical, uint32_t cores);

} // namespace general
