#include "general/errortext.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

TEST(SignalName, NamesFollowTheLengthAndNumbersDoNot)
{
    const struct {
        int sig;
        size_t length;
        std::string written; // zero bytes as '.'
    } cases[] = {
        {2, 8, "SIGINT.."},  {4, 8, "SIGILL.."},
        {8, 8, "SIGFPE.."},  {11, 9, "SIGSEGV.."},
        {15, 8, "SIGTERM."}, {22, 8, "SIGABRT."},
        {11, 3, "SIG"},      {11, 7, "SIGSEGV"},
        {11, 0, ""},         {99, 16, "99."},
        {6, 1, "6."}, // SIGABRT elsewhere
        {99, 0, ""},         {INT_MIN, 1, "-2147483648."},
    };
    for (const auto &c : cases) {
        std::string buffer(16, '?'), expected = c.written + std::string(16 - c.written.size(), '?');
        EXPECT_EQ(signal_name(c.sig, buffer.data(), c.length), buffer.data());
        for (char &character : buffer)
            character = character == 0 ? '.' : character;
        EXPECT_EQ(buffer, expected) << c.sig << " into " << c.length;
    }
    EXPECT_EQ(signal_name(2, nullptr, 16), nullptr);
    EXPECT_STREQ(signal_code_name(11, 1), "unknown");
}

} // namespace
