#include "general/validators.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// The guide's table of numbers, sizes and identifiers is run by tests/documents.
TEST(Validators, BooleanWordsAndNothing)
{
    const std::vector<const char *> words[] = {
        {"off", "No", "FALSE", "0"}, {"on", "YES", "True", "1"}, {"", "maybe", "o", "one", "10", nullptr}};
    int value = 2;
    for (int expected : {2, 0, 1}) // 2: none, and nothing is written
        for (const char *word : words[expected]) {
            EXPECT_EQ(isboolean(word, &value), expected != 2) << word;
            EXPECT_EQ(value, expected) << word;
        }
    unsigned size = 7;
    EXPECT_EQ(isboolean("on", nullptr) + isinteger(nullptr) + isnatural(nullptr) + isreal(nullptr) + isident(nullptr),
              0);
    EXPECT_EQ(issize(nullptr, &size) + issize("k", &size), 0);
    EXPECT_EQ(size, 7u) << "nothing is written";
}

} // namespace
