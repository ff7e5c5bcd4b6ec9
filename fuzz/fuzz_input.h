/// @file
/// What the fuzz targets make of libFuzzer's input, and how they say that something does not hold.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace fuzz {

/// Stops the run, so that libFuzzer keeps the input, when something that must hold does not.
inline void require(bool holds, const char *what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

/// A string in a block of exactly its size, up to the text's first zero byte, so that the sanitizers
/// see reading and writing past its end.
class ExactString {
public:
    explicit ExactString(const std::string &text) : bytes_(text.c_str(), text.c_str() + std::strlen(text.c_str()) + 1)
    {
        bytes_.shrink_to_fit();
    }
    char *data() { return bytes_.data(); }

private:
    std::vector<char> bytes_;
};

/// The input's first line, and the rest after it.
struct Lines {
    std::string first, rest;
};

inline Lines splitFirstLine(const std::string &input)
{
    std::size_t end = input.find('\n');
    if (end == std::string::npos)
        return {input, ""};
    return {input.substr(0, end), input.substr(end + 1)};
}

} // namespace fuzz

/// Defined by each target.
void runWith(const std::string &input);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    runWith(std::string(reinterpret_cast<const char *>(data), size));
    return 0;
}
