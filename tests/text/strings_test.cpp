#include "general/errortext.h"
#include "general/strings.h"
#include "general/validators.h"

#include "tests/support/handles.h"

#include <algorithm>
#include <climits>
#include <clocale>
#include <numeric>

#include "base/host_names.h"

namespace {

using test_support::expectEach;

TEST(Strings, HashIsThePermutationsChain)
{
    EXPECT_EQ(strhash("a", nullptr), 0x9A);
    EXPECT_EQ(strhash("a\x9A", nullptr), 0xA1); // the table's first entry
    EXPECT_EQ(strhash("", nullptr) + strhash(nullptr, nullptr), 0);
    // One-byte strings show the built-in table but its first entry; the sum knows each one's place.
    unsigned sum = 0;
    unsigned char next[256];
    std::iota(next, std::end(next), 1);
    for (unsigned i = 1; i < 256; ++i)
        sum += static_cast<unsigned>(strhash(std::string(1, static_cast<char>(i)).c_str(), nullptr)) * i * i;
    EXPECT_EQ(sum, 698977027u);
    EXPECT_EQ(strhash("\xFE\x01", next), 0xFF); // 0xFF XOR 1 leads on from 0xFE
}

TEST(Strings, StripCutsInPlace)
{
    auto stripped = [](std::string text, int lead, int trail) {
        return std::string(strstrip(text.data(), lead, trail)) + '|';
    };
    EXPECT_EQ(stripped("  ab  ", 1, 0) + stripped("  ab  ", 0, 1), "ab  |  ab|");
    EXPECT_EQ(stripped(" \t ", 1, 1) + stripped(" \t ", 0, 1), "||");
    EXPECT_EQ(stripped("\t\n\v\f\r a b\xFF \r\f\v\n\t", 1, 1), "a b\xFF|");
    EXPECT_EQ(strstrip(nullptr, 1, 1), nullptr);
}

/// All tokens, each followed by a bar, and a bang where the position became null with the last one.
std::string tokens(std::string text, const char *delims)
{
    std::string result;
    char *save = nullptr;
    for (char *token = text.data(); (token = strtoknst(token, delims, &save)) != nullptr; token = nullptr)
        result += token + std::string(save == nullptr ? "!" : "|");
    return result;
}

TEST(Strings, TokenizerKnowsTheLastToken)
{
    EXPECT_EQ(tokens("a,,b", ",") + tokens(",; a,\xFF;bc ;,", ",; ") + tokens("a\xFFy", "\xFF"), "a|b!a|\xFF|bc!a|y!");
    EXPECT_EQ(tokens("a,b", "") + tokens("", ","), "a,b!");
    char commas[] = ",,,", *save = nullptr;
    EXPECT_EQ(strtoknst(nullptr, ",", &save), nullptr);
    EXPECT_EQ(strtoknst(commas, ",", &save), nullptr);
    EXPECT_EQ(save, commas) << "the position stays where the search began";
    EXPECT_EQ(strtoknst(commas, nullptr, &save), nullptr);
    EXPECT_EQ(strtoknst(commas, ",", nullptr), nullptr);
}

TEST(Strings, ControlCharactersBecomeVisible)
{
    const std::vector<std::string> names = {"", "<SOH>", "<STX>", "<ETX>",  "<EOT>", "<ENQ>", "<ACK>", "<BEL>",
                                            "", "\t",    "<LF>",  "",       "",      "<CR>",  "",      "",
                                            "", "<XON>", "<DC2>", "<XOFF>", "<DC4>", "<NAK>", "<SYN>"};
    std::string source, expected;
    for (int value = 1; value < 256; ++value) {
        char text[16] = {static_cast<char>(value)};
        const auto number = static_cast<size_t>(value);
        source += text;
        if (value < 32 || value >= 127)
            std::snprintf(text, sizeof text, "<0x%X>", static_cast<signed char>(value));
        expected += number < names.size() && !names[number].empty() ? names[number] : text;
    }
    char visible[3000];
    EXPECT_EQ(strcntrl(visible, source.c_str()), 1);
    EXPECT_EQ(visible, expected);
    EXPECT_EQ(strcntrl(visible, nullptr) + *visible + strcntrl(nullptr, "a"), 0);
}

TEST(Strings, AbbreviationsAreProperPrefixes)
{
    expectEach(1, {isabbrev("delete", "DeL", 3), isabbrev("delete", "d", INT_MIN), isabbrev("delete", "", 0),
                   isabbrev("Delete", "DELETE", 9), isabbrev(nullptr, nullptr, 5)}); // the whole word needs no minimum
    expectEach(0, {isabbrev("delete", "del", 4), isabbrev("delete", "dex", 1), isabbrev("delete", "", 1),
                   isabbrev("del", "delete", 3), isabbrev("a", nullptr, 0), isabbrev(nullptr, "a", 0)});
}

TEST(Strings, IndexFindsTheTerminatorToo)
{
    const char text[] = "a\xFFza";
    const int wanted[] = {'a', 0xFF, -1, 0, 0x100}; // converted to char
    const int first[] = {0, 1, 1, 4, 4}, last[] = {3, 1, 1, 4, 4};
    for (size_t i = 0; i < std::size(wanted); ++i) {
        EXPECT_EQ(index(text, wanted[i]), text + first[i]) << wanted[i];
        EXPECT_EQ(rindex(text, wanted[i]), text + last[i]) << wanted[i];
    }
    for (char *none : {index(text, 'x'), rindex(text, 'x'), index(nullptr, 0), rindex(nullptr, 0)})
        EXPECT_EQ(none, nullptr);
}

TEST(Strings, PrintersReturnDifferentThings)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(eprintf("%s %d", "abc", 42), 6);
    EXPECT_EQ(uprintf("%s %d", "xyz", 42) + uprintf(nullptr) + eprintf(nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "xyz 42abc 42");
}

TEST(Strings, FollowTheLocale)
{
    if (std::setlocale(LC_ALL, "German_Germany.1252") == nullptr)
        GTEST_SKIP() << "there is no German here";
    char text[] = "\xA0x\xA0", visible[2];
    EXPECT_STREQ(strstrip(text, 1, 1), "x") << "hard spaces are space";
    EXPECT_TRUE(isabbrev("\xC4pfel", "\xE4", 1));
    EXPECT_EQ(isident("\xE4"), 1);
    strcntrl(visible, "\xE4");
    EXPECT_STREQ(visible, "\xE4");
    std::setlocale(LC_ALL, "C");
}

TEST(SignalName, NamesFollowTheLengthAndNumbersDoNot)
{
    auto written = [](int sig, size_t length) { // zero bytes as '.'
        std::string buffer(16, '?');
        EXPECT_EQ(signal_name(sig, buffer.data(), length), buffer.data());
        std::replace(buffer.begin(), buffer.end(), '\0', '.');
        return buffer.substr(0, buffer.find('?'));
    };
    EXPECT_EQ(written(2, 8) + written(4, 8) + written(8, 8) + written(11, 9), "SIGINT..SIGILL..SIGFPE..SIGSEGV..");
    EXPECT_EQ(written(15, 8) + written(22, 8) + written(11, 3) + written(11, 7), "SIGTERM.SIGABRT.SIGSIGSEGV");
    EXPECT_EQ(written(99, 16) + written(INT_MIN, 1) + written(6, 1), "99.-2147483648.6."); // SIGABRT elsewhere
    EXPECT_EQ(written(11, 0) + written(99, 0), "");
    EXPECT_EQ(signal_name(2, nullptr, 16), nullptr);
    EXPECT_STREQ(signal_code_name(11, 1), "unknown");
}

} // namespace
