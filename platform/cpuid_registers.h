/// @file
/// What CPUID leaves in the registers, and the bits of leaf 1 that this library looks at.

#pragma once

#include <stdint.h>

namespace general {

/// The registers for one leaf.
struct CpuidRegisters {
    uint32_t eax;
    uint32_t ebx;
    uint32_t ecx;
    uint32_t edx;
};

/// Bits of leaf 1's EDX.
constexpr uint32_t timeStampCounterBit = 1u << 4;
constexpr uint32_t mmxBit = 1u << 23;
constexpr uint32_t sseBit = 1u << 25;
constexpr uint32_t sse2Bit = 1u << 26;
constexpr uint32_t multiThreadingBit = 1u << 28;

/// A field of a register.
constexpr uint32_t bits(uint32_t value, int first, int count)
{
    return value >> first & ((1u << count) - 1);
}

} // namespace general
