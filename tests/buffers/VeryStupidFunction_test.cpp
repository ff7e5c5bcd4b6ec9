#include "general/verystupidfunction.h"

#include <gtest/gtest.h>

#include <climits>

TEST(VeryStupidFunction, HandsItsArgumentBack)
{
    for (int value : {0, 1, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(VeryStupidFunction(value), value);
}
