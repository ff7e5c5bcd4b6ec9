#include "general/validators.h"

#include <gtest/gtest.h>

namespace {

constexpr const char *null = nullptr;

TEST(Validators, Numbers)
{
    struct {
        const char *text;
        std::vector<int> answers; // integer, natural, real
    } const cases[] = {{"0", {1, 1, 1}},   {"12", {1, 1, 1}},    {"-12", {1, 0, 1}}, {"+12", {0, 0, 0}},
                       {"-", {0, 0, 0}},   {"", {0, 0, 0}},      {"--1", {0, 0, 0}}, {"1-", {0, 0, 0}},
                       {" 1", {0, 0, 0}},  {"12a", {0, 0, 0}},   {".", {0, 0, 1}},   {"-.", {0, 0, 1}},
                       {"5.2", {0, 0, 1}}, {"1.2.3", {0, 0, 0}}, {"1e5", {0, 0, 0}}, {null, {0, 0, 0}}};
    for (const auto &c : cases)
        EXPECT_EQ((std::vector{isinteger(c.text), isnatural(c.text), isreal(c.text)}), c.answers) << c.text;
}

TEST(Validators, BooleanWords)
{
    const std::vector<const char *> words[] = {
        {"off", "No", "FALSE", "0"}, {"on", "YES", "True", "1"}, {"", "maybe", "o", "one", "10", null}};
    int value = 2;
    for (int expected : {2, 0, 1}) // 2: none, and nothing is written
        for (const char *word : words[expected])
            EXPECT_TRUE(isboolean(word, &value) == (expected != 2) && value == expected) << word;
    EXPECT_EQ(isboolean("on", nullptr), 0);
}

TEST(Validators, Sizes)
{
    struct {
        const char *text;
        unsigned size;
    } const cases[] = {
        {"64K", 65536}, {"2m", 2097152}, {"3M", 3145728},     {"12abc", 12}, {"0x10k", 16384},           {"010", 8},
        {" +5", 5},     {"1 k", 1},      {"-1k", 0xFFFFFC00}, {"4096M", 0},  {"99999999999", 0x7FFFFFFF}};
    unsigned size = 0;
    for (const auto &c : cases)
        EXPECT_TRUE(issize(c.text, nullptr) == 1 && issize(c.text, &size) == 1 && size == c.size) << c.text;
    for (const char *text : {"k", "", "-", null})
        EXPECT_TRUE(issize(text, &(size = 7)) == 0 && size == 7) << text;
}

TEST(Validators, Identifiers)
{
    for (const std::string &name : {std::string("_a1"), std::string("Z"), std::string(70000, 'x')})
        EXPECT_EQ(isident(name.c_str()), static_cast<int>(name.size()));
    for (const char *text : {"1a", "a-b", "a ", "a\xE4", "", null})
        EXPECT_EQ(isident(text), 0) << text;
}

} // namespace
