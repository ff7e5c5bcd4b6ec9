#include "general/strings.h"

#include <gtest/gtest.h>

#include <cctype>
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

    // One-byte strings show the whole built-in table but its first entry: 255 different values.
    std::vector<bool> seen(256);
    unsigned char next[256];
    for (int i = 1; i < 256; ++i) {
        const char text[] = {static_cast<char>(i), '\0'};
        int hash = strhash(text, nullptr);
        ASSERT_TRUE(hash >= 0 && hash < 256 && !seen[static_cast<size_t>(hash)]) << i;
        seen[static_cast<size_t>(hash)] = true;
        next[i] = static_cast<unsigned char>(i + 1);
    }
    EXPECT_FALSE(seen[0xA1]);
    EXPECT_EQ(strhash("\xFE", next), 0xFF);
    EXPECT_EQ(strhash("\xFE\x01", next), 0xFF); // 0xFF XOR 1 leads on from 0xFE
}

TEST(Strings, StripCutsInPlace)
{
    auto stripped = [](std::string text, int lead, int trail) {
        return std::string(strstrip(text.data(), lead, trail));
    };
    EXPECT_EQ(stripped("  ab  ", 1, 0), "ab  ");
    EXPECT_EQ(stripped("  ab  ", 0, 1), "  ab");
    EXPECT_EQ(stripped("  ab  ", 0, 0), "  ab  ");
    EXPECT_EQ(stripped("\t\n\v\f\r a b\xFF \r\f\v\n\t", 1, 1), "a b\xFF");
    EXPECT_EQ(stripped(" \t ", 1, 1), "");
    EXPECT_EQ(stripped(" \t ", 0, 1), "");
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
    save = nullptr;
    EXPECT_EQ(strtoknst(nullptr, ",", &save), nullptr);
    EXPECT_EQ(strtoknst(commas, nullptr, &save), nullptr);
    EXPECT_EQ(save, nullptr);
    EXPECT_EQ(strtoknst(commas, ",", nullptr), nullptr);
}

TEST(Strings, ControlCharactersBecomeVisible)
{
    const char *const named[] = {"", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL",  "",    "",    "LF", "",
                                 "", "CR",  "",    "",    "",    "XON", "DC2", "XOFF", "DC4", "NAK", "SYN"};
    for (int value = 1; value < 256; ++value) {
        const char source[] = {static_cast<char>(value), '\0'};
        char visible[13];
        char expected[16];
        if (value == '\t' || (value < 0x80 && std::isprint(value)))
            std::snprintf(expected, sizeof expected, "%c", value);
        else if (value < 23 && named[value][0] != '\0')
            std::snprintf(expected, sizeof expected, "<%s>", named[value]);
        else
            std::snprintf(expected, sizeof expected, "<0x%X>", static_cast<signed char>(value));
        EXPECT_EQ(strcntrl(visible, source), 1);
        EXPECT_STREQ(visible, expected);
    }
    char visible[64] = "old";
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
    EXPECT_EQ(eprintf("%s %d", "abc", 42), 6);
    EXPECT_EQ(eprintf(nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "abc 42");

    testing::internal::CaptureStdout();
    EXPECT_EQ(uprintf("%s %d", "abc", 42), 0);
    EXPECT_EQ(uprintf(nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "abc 42");
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
