#include "general/getopt.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "base/host_names.h"

namespace {

/// Splits words at blanks; they stay valid as long as the object.
class ArgumentVector {
public:
    explicit ArgumentVector(const std::string &words)
    {
        std::istringstream stream(words);
        for (std::string word; stream >> word;)
            words_.push_back(word);
        for (std::string &word : words_)
            pointers_.push_back(word.data());
        pointers_.push_back(nullptr);
    }
    int count() const { return static_cast<int>(words_.size()); }
    char **pointers() { return pointers_.data(); }

private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

/// What a number of calls return and leave: the option with its argument, `?` with the letter, `.`
/// for the end; optind after each.
std::string transcript(const std::string &words, const char *optstring, int calls)
{
    ArgumentVector arguments(words);
    std::ostringstream result;
    optind = 1;
    for (int call = 0; call < calls; ++call) {
        int option = getopt(arguments.count(), arguments.pointers(), optstring);
        if (option == -1)
            result << '.';
        else if (option == '?')
            result << '?' << static_cast<char>(optopt);
        else
            result << static_cast<char>(option) << (optarg == nullptr ? "" : "=" + std::string(optarg));
        if (option != -1 && option != '?') {
            EXPECT_EQ(option, optopt);
        }
        result << optind << ' ';
    }
    return result.str();
}

struct Case {
    const char *words, *optstring;
    int calls;
    const char *transcript, *messages;
};

class Getopt : public testing::TestWithParam<Case> {};

TEST_P(Getopt, ParsesAndReports)
{
    const Case &c = GetParam();
    testing::internal::CaptureStderr();
    std::string got = transcript(c.words, c.optstring, c.calls);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.messages);
    EXPECT_EQ(got, c.transcript);
}

constexpr Case cases[] = {
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

INSTANTIATE_TEST_SUITE_P(Table, Getopt, testing::ValuesIn(cases));

TEST(GetoptVariables, SilenceAndHostileArguments)
{
    opterr = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(transcript("p -x", "ab", 2), "?x2 .2 ");
    EXPECT_EQ(transcript("p -a", "a:", 2), "?a2 .2 ");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    opterr = 1;

    ArgumentVector arguments("p -a");
    EXPECT_EQ(getopt(2, nullptr, "a"), -1);
    EXPECT_EQ(getopt(2, arguments.pointers(), nullptr), -1);
    optind = -5;
    EXPECT_EQ(getopt(2, arguments.pointers(), "a"), -1);
    optind = 2;
    EXPECT_EQ(getopt(9, arguments.pointers(), "a"), -1) << "argv ends before argc";
}

} // namespace
