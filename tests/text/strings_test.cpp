#include "general/strings.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/host_names.h"

namespace {

TEST(Strings, HashIsThePermutationsChain)
{
    EXPECT_TRUE(strhash("a", nullptr) == 154 && strhash("abc", nullptr) == 165);
    EXPECT_TRUE(strhash("", nullptr) == 0 && strhash(nullptr, nullptr) == 0);
    // One-byte strings show the built-in table but its first entry; the sum knows each one's place.
    unsigned sum = 0;
    unsigned char next[256];
    for (unsigned i = 1; i < 256; ++i) {
        const char text[] = {static_cast<char>(i), '\0'};
        sum += static_cast<unsigned>(strhash(text, nullptr)) * i * i;
        next[i] = static_cast<unsigned char>(i + 1);
    }
    EXPECT_EQ(sum, 698977027u);
    EXPECT_EQ(strhash("\xFE\x01", next), 0xFF); // 0xFF XOR 1 leads on from 0xFE
}

TEST(Strings, StripCutsInPlace)
{
    auto stripped = [](std::string text, int lead, int trail) {
        return std::string(strstrip(text.data(), lead, trail));
    };
    EXPECT_EQ(stripped("  ab  ", 1, 0), "ab  ");
    EXPECT_EQ(stripped("  ab  ", 0, 1), "  ab");
    EXPECT_EQ(stripped("\t\n\v\f\r a b\xFF \r\f\v\n\t", 1, 1), "a b\xFF");
    EXPECT_EQ(stripped(" \t ", 1, 1) + stripped(" \t ", 0, 1), "");
    EXPECT_EQ(strstrip(nullptr, 1, 1), nullptr);
}

/// All tokens, each followed by a bar, and a bang where the position became null with the last one.
std::string tokens(const std::string &text, const char *delims)
{
    std::string buffer = text;
    std::string result;
    char *save = nullptr;
    for (char *token = strtoknst(buffer.data(), delims, &save); token != nullptr;
         token = strtoknst(nullptr, delims, &save))
        result += token + std::string(save == nullptr ? "!" : "|");
    return result;
}

TEST(Strings, TokenizerKnowsTheLastToken)
{
    EXPECT_EQ(tokens("a,,b", ","), "a|b!");
    EXPECT_EQ(tokens(",; a,\xFF;bc ;,", ",; "), "a|\xFF|bc!");
    EXPECT_EQ(tokens("a\xFFy", "\xFF"), "a|y!");
    EXPECT_EQ(tokens("a,b", ""), "a,b!");
    EXPECT_EQ(tokens("", ","), "");

    char commas[] = ",,,";
    char *save = nullptr;
    EXPECT_EQ(strtoknst(commas, ",", &save), nullptr);
    EXPECT_EQ(save, commas) << "the position stays where the search began";
    EXPECT_TRUE(strtoknst(commas, nullptr, &save) == nullptr && strtoknst(commas, ",", nullptr) == nullptr);
    save = nullptr;
    EXPECT_EQ(strtoknst(nullptr, ",", &save), nullptr);
}

TEST(Strings, ControlCharactersBecomeVisible)
{
    const std::string names[32] = {"", "<SOH>", "<STX>", "<ETX>",  "<EOT>", "<ENQ>", "<ACK>", "<BEL>",
                                   "", "\t",    "<LF>",  "",       "",      "<CR>",  "",      "",
                                   "", "<XON>", "<DC2>", "<XOFF>", "<DC4>", "<NAK>", "<SYN>"};
    char visible[64];
    for (int value = 1; value < 256; ++value) {
        const char source[] = {static_cast<char>(value), '\0'};
        char expected[16];
        std::snprintf(expected, sizeof expected, "<0x%X>", static_cast<signed char>(value));
        bool isNamed = value < 32 && !names[value].empty();
        EXPECT_EQ(strcntrl(visible, source), 1);
        EXPECT_EQ(visible, isNamed ? names[value] : value >= 32 && value < 127 ? source : expected);
    }
    EXPECT_EQ(strcntrl(visible, "\tx\x01"), 1);
    EXPECT_STREQ(visible, "\tx<SOH>");
    EXPECT_EQ(strcntrl(visible, nullptr), 0);
    EXPECT_STREQ(visible, "");
    EXPECT_EQ(strcntrl(nullptr, "a"), 0);
}

TEST(Strings, AbbreviationsAreProperPrefixes)
{
    EXPECT_TRUE(isabbrev("delete", "DeL", 3) && !isabbrev("delete", "del", 4) && isabbrev("delete", "d", INT_MIN));
    EXPECT_TRUE(isabbrev("Delete", "DELETE", 9)); // the whole word needs no minimum
    EXPECT_FALSE(isabbrev("del", "delete", 3) || isabbrev("delete", "dex", 1));
    EXPECT_TRUE(isabbrev("delete", "", 0) && !isabbrev("delete", "", 1));
    EXPECT_TRUE(isabbrev(nullptr, nullptr, 5) && !isabbrev("a", nullptr, 0) && !isabbrev(nullptr, "a", 0));
}

TEST(Strings, IndexFindsTheTerminatorToo)
{
    const char text[] = "a\xFFza";
    EXPECT_TRUE(index(text, 'a') == text && rindex(text, 'a') == text + 3);
    EXPECT_TRUE(index(text, 0xFF) == text + 1 && rindex(text, -1) == text + 1); // converted to char
    EXPECT_TRUE(index(text, 0) == text + 4 && rindex(text, 0x100) == text + 4);
    EXPECT_TRUE(index(text, 'x') == nullptr && rindex(text, 'x') == nullptr);
    EXPECT_TRUE(index(nullptr, 0) == nullptr && rindex(nullptr, 0) == nullptr);
}

TEST(Strings, PrintersReturnDifferentThings)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_TRUE(eprintf("%s %d", "abc", 42) == 6 && eprintf(nullptr) == 0);
    EXPECT_TRUE(uprintf("%s %d", "xyz", 42) == 0 && uprintf(nullptr) == 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "xyz 42");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "abc 42");
}

TEST(Strings, LongOnesAreNoProblem)
{
    constexpr size_t length = 10000000;
    std::string text(length, ' ');
    text[length / 2] = 'x';
    std::vector<char> visible(length * 12 + 1);
    EXPECT_EQ(rindex(text.c_str(), ' '), text.c_str() + length - 1);
    EXPECT_EQ(strcntrl(visible.data(), text.c_str()), 1);
    EXPECT_EQ(text, visible.data());
    EXPECT_EQ(strcntrl(visible.data(), std::string(length, '\x80').c_str()), 1);
    EXPECT_EQ(visible[length * 12 - 1], '>');
    EXPECT_EQ(isabbrev((text + "y").c_str(), text.c_str(), 1), 1);
    EXPECT_EQ(tokens(text, " "), "x!");
    EXPECT_STREQ(strstrip(text.data(), 1, 1), "x");
}

} // namespace
