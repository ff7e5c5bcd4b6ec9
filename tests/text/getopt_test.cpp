#include "general/getopt.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/host_names.h"

namespace {

/// Cuts words apart at their blanks, in place.
std::vector<char *> cut(std::string &words)
{
    std::vector<char *> arguments{words.data()};
    for (char &character : words)
        if (character == ' ') {
            character = '\0';
            arguments.push_back(&character + 1);
        }
    arguments.push_back(nullptr);
    return arguments;
}

/// What a number of calls return and leave: the option with its argument, `?` with the letter, `.`
/// for the end; optind after each.
std::string transcript(std::string words, const char *optstring, int calls)
{
    std::vector<char *> arguments = cut(words);
    std::string result;
    optind = 1;
    for (int call = 0; call < calls; ++call) {
        int option = getopt(static_cast<int>(arguments.size()) - 1, arguments.data(), optstring);
        result += option == -1 ? '.' : static_cast<char>(option);
        if (option == '?')
            result += static_cast<char>(optopt);
        else if (option != -1)
            result += (optopt == option ? "" : "!") + (optarg == nullptr ? "" : "=" + std::string(optarg));
        result += std::to_string(optind) + ' ';
    }
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
        {"p -o out x", "o:", 2, "o=out3 .3 ", ""},
        {"p -vo -x", "o:v", 3, "v1 o=-x3 .3 ", ""}, // the next element is the argument, whatever it is
        {"p -oout -v", "o:v", 3, "o=out2 v3 .3 ", ""},
        {"p -o", "o:", 2, "?o2 .2 ", "p: option requires an argument -- o\n"},
        {"p -- -a", "a", 1, ".2 ", ""},
        {"p --verbose", "verbos", 1, ".2 ", ""},
        {"p - x", "x", 2, ".1 .1 ", ""},
        {"p - x", "-", 2, "-2 .2 ", ""},
        {"p -a-b", "ab", 4, "a1 .1 b2 .2 ", ""},
        {"p -xa -y", "a", 4, "?x1 a2 ?y3 .3 ", "p: illegal option -- x\np: illegal option -- y\n"},
        {"p -:", ":a:", 2, "?:2 .2 ", "p: illegal option -- :\n"},
        {R"(C:\bin\tool.exe -x)", "", 2, "?x2 .2 ", "C:\\bin\\tool.exe: illegal option -- x\n"},
        {"/usr/bin/tool -x", "", 2, "?x2 .2 ", "tool: illegal option -- x\n"},
        {"p", "a", 1, ".1 ", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words);
        testing::internal::CaptureStderr();
        EXPECT_EQ(transcript(c.words, c.optstring, c.calls), c.transcript);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.messages);
    }
}

TEST(Getopt, SilenceAndHostileArguments)
{
    opterr = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(transcript("p -x", "ab", 2) + transcript("p -a", "a:", 2), "?x2 .2 ?a2 .2 ");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    opterr = 1;

    std::string words = "p -a";
    std::vector<char *> arguments = cut(words);
    EXPECT_EQ(getopt(2, nullptr, "a"), -1);
    EXPECT_EQ(getopt(2, arguments.data(), nullptr), -1);
    optind = -5;
    EXPECT_EQ(getopt(2, arguments.data(), "a"), -1);
    optind = 2;
    EXPECT_EQ(getopt(9, arguments.data(), "a"), -1) << "argv ends before argc";
}

} // namespace
