/// @file
/// How the values of CPUID registers name a processor: vendor, signature, model and brand.

#pragma once

#include "platform/cpuid_registers.h"

#include <stddef.h>

namespace general {

constexpr size_t vendorSize = 13;

/// The plain fields of leaf 1's EAX, without the extended family and model.
struct Signature {
    int family;
    int model;
    int stepping;
};

Signature signatureOf(uint32_t leaf1Eax);

/// Spells out leaf 0's vendor, terminated.
void spellVendor(const CpuidRegisters &leaf0, char (&vendor)[vendorSize]);

bool isIntel(const CpuidRegisters &leaf0);

/// @return the name of a family and model, or "UNKNOWN CPU"
const char *modelName(const CpuidRegisters &leaf0, uint32_t leaf1Eax);

/// @return the text for leaf 1's brand index, of less than 96 characters
const char *brandText(uint32_t leaf1Eax, uint32_t leaf1Ebx);

} // namespace general
