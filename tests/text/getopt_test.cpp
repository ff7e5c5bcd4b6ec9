#include "general/getopt.h"

#include <gtest/gtest.h>

#include "base/host_names.h"

namespace {

const int firstMessages = opterr; ///< before any test

/// What a number of calls return and leave for words with blanks between: the option with its argument,
/// `?` with the letter, `.` for the end; optind after each.
std::string transcript(std::string words, const char *optstring, int calls)
{
    std::vector<char *> argv{words.data()};
    for (char &character : words)
        if (character == ' ') {
            character = '\0';
            argv.push_back(&character + 1);
        }
    int argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    std::string result;
    for (optind = 1; calls > 0; --calls) {
        int option = getopt(argc, argv.data(), optstring);
        result += option == -1 ? '.' : static_cast<char>(option);
        if (option == '?')
            result += static_cast<char>(optopt);
        else if (option != -1)
            result += (optopt == option ? "" : "!") + (optarg == nullptr ? "" : "=" + std::string(optarg));
        result += std::to_string(optind) + ' ';
    }
    const int messages = opterr; // left alone while the parser leaves an element that the calls ended in
    for (opterr = 0, optind = argc; getopt(argc, argv.data(), "-") != -1;)
        continue;
    opterr = messages;
    return result;
}

TEST(Getopt, ParsesAndReports)
{
    const struct {
        const char *words, *optstring;
        int calls;
        const char *transcript, *messages;
    } cases[] = {
        {"p -ab file -c", "abc", 4, "a1 b2 .2 .2 ", ""},
        {"p -vo -x", "o:v", 3, "v1 o=-x3 .3 ", ""}, // the next element is the argument, whatever it is
        {"p -oout -v", "o:v", 3, "o=out2 v3 .3 ", ""},
        {"p -o", "o:", 2, "?o2 .2 ", "p: option requires an argument -- o\n"},
        {"p --verbose", "verbos", 1, ".2 ", ""},
        {"p - x", "x", 2, ".1 .1 ", ""},
        {"p - x", "-", 2, "-2 .2 ", ""}, // a lone `-` is its own letter
        {"p -a-b", "ab", 4, "a1 .1 b2 .2 ", ""},
        {"p -a-b-", "ab", 2, "a1 .1 ", ""}, // the next vector is read from its own start
        {"p -xa -y", "a", 4, "?x1 a2 ?y3 .3 ", "p: illegal option -- x\np: illegal option -- y\n"},
        {"p -:", ":a:", 2, "?:2 .2 ", "p: illegal option -- :\n"},
        {R"(C:\bin\tool.exe -x)", "", 2, "?x2 .2 ", "C:\\bin\\tool.exe: illegal option -- x\n"},
        {"/usr/bin/tool -x", "", 2, "?x2 .2 ", "tool: illegal option -- x\n"},
    };
    for (opterr = 0; opterr < 2; ++opterr)
        for (const auto &c : cases) {
            testing::internal::CaptureStderr();
            EXPECT_EQ(transcript(c.words, c.optstring, c.calls), c.transcript) << c.words;
            EXPECT_EQ(testing::internal::GetCapturedStderr(), opterr == 0 ? "" : c.messages) << c.words;
        }
}

TEST(Getopt, HostileArguments)
{
    char program[] = "p", option[] = "-\xE4", *argv[] = {program, option, nullptr};
    EXPECT_EQ(getopt(2, nullptr, "a"), -1);
    EXPECT_EQ(getopt(2, argv, nullptr), -1);
    optind = 1;
    EXPECT_EQ(getopt(2, argv, "\xE4"), '\xE4') << "not negative";
    EXPECT_EQ(optopt, '\xE4');
    EXPECT_EQ(firstMessages, 1);
    for (int start : {-5, 2}) // argv ends before argc
        EXPECT_EQ(getopt(9, argv, (optind = start, "a")), -1);
}

} // namespace
