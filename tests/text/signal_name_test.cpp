#include "general/errortext.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

namespace {

/// What signal_name makes of 24 question marks.
std::string nameInto(int sig, size_t length)
{
    char buffer[25] = "????????????????????????";
    EXPECT_EQ(signal_name(sig, buffer, length), buffer);
    return {buffer, 24};
}

std::string padded(std::string text, size_t length)
{
    text.resize(length);
    return text + std::string(24 - length, '?');
}

TEST(SignalName, NamesFollowTheLengthAndNumbersDoNot)
{
    const struct {
        int sig;
        size_t length;
        std::string text;
    } cases[] = {
        {2, 24, padded("SIGINT", 24)},
        {4, 24, padded("SIGILL", 24)},
        {8, 24, padded("SIGFPE", 24)},
        {11, 16, padded("SIGSEGV", 16)},
        {15, 24, padded("SIGTERM", 24)},
        {22, 24, padded("SIGABRT", 24)},
        {11, 3, padded("SIG", 3)},
        {11, 7, padded("SIGSEGV", 7)},
        {11, 8, padded("SIGSEGV", 8)},
        {11, 0, padded("", 0)},
        {99, 16, padded("99", 3)},
        {6, 16, padded("6", 2)}, // SIGABRT elsewhere
        {INT_MIN, 1, padded("-2147483648", 12)},
        {99, 0, padded("", 0)},
    };
    for (const auto &c : cases)
        EXPECT_EQ(nameInto(c.sig, c.length), c.text) << c.sig << " into " << c.length;
    EXPECT_EQ(signal_name(2, nullptr, 16), nullptr);
    EXPECT_STREQ(signal_code_name(11, 1), "unknown");
}

} // namespace
