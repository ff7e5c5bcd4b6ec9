/// @file
/// A processor for tests. recorded_processor.dll is the library's processor family, whose instructions
/// this record, which it exports as `recorded`, carries out in place of the machine's own.

#pragma once

#include <cstdint>

struct RecordedProcessor {
    void (*cpuid)(uint32_t leaf, uint32_t subleaf, uint32_t *registers); ///< EAX, EBX, ECX, EDX
    uint64_t (*timeStamp)();
    uint32_t flags, changeableFlags;
    bool runsSse;
};
