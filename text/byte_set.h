/// @file
/// A set of byte values, looked up in one step.

#pragma once

#include <stdint.h>

namespace general {

class ByteSet {
public:
    void add(char byte) { words_[wordOf(byte)] |= bitOf(byte); }
    bool holds(char byte) const { return (words_[wordOf(byte)] & bitOf(byte)) != 0; }

private:
    static unsigned wordOf(char byte) { return static_cast<unsigned char>(byte) / 32u; }
    static uint32_t bitOf(char byte) { return uint32_t{1} << (static_cast<unsigned char>(byte) % 32u); }

    uint32_t words_[8] = {};
};

} // namespace general
