#include "general/fp.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

namespace {

using Limits = std::numeric_limits<double>;
constexpr double infinity = Limits::infinity(), quietNan = Limits::quiet_NaN(), denormal = Limits::denorm_min(),
                 greatest = Limits::max();

TEST(Numbers, SplitIntoMantissaAndExponent)
{
    int exponent = 77;
    auto splits = [&exponent](double x, double mantissa, int itsExponent) {
        return std::fabs(fp_scinotation(x, &exponent) - mantissa) < 1e-12 && exponent == itsExponent;
    };
    EXPECT_TRUE(splits(1234.5, 1.2345, 3) && splits(-0.002, -2, -3) && splits(0.05, 5, -2) && splits(1, 1, 0));
    EXPECT_TRUE(splits(0, 0, 0) && splits(-0.0, 0, 0) && splits(quietNan, 0, 0));
    EXPECT_TRUE(splits(infinity, 1, INT_MAX) && splits(-infinity, -1, INT_MAX));
    EXPECT_TRUE(splits(greatest, 1.7976931348623157, 308) && splits(denormal, 4.9406564584124654, -324));
    EXPECT_EQ(fp_scinotation(5, nullptr), 0);
    for (int power = -307; power <= 308; ++power) { // the mantissa stays in its decade
        double exact = std::stod("1e" + std::to_string(power));
        for (double x : {std::nextafter(exact, 0.0), exact, std::nextafter(exact, infinity), -exact}) {
            double mantissa = fp_scinotation(x, &exponent);
            EXPECT_TRUE(std::fabs(mantissa) >= 1 && std::fabs(mantissa) < 10) << x;
            EXPECT_NEAR(mantissa * std::pow(10.0, exponent), x, std::fabs(x) * 1e-12) << x;
        }
    }
}

TEST(Numbers, CompareByDigits)
{
    EXPECT_TRUE(fp_equal(1234.5, 1234.9, 3) && !fp_equal(1234.5, 1234.9, 5));
    EXPECT_TRUE(fp_equal(9.99, 10.0, 2) && fp_equal(10.0, 9.99, 2) && !fp_equal(9.99, 10.0, 4));
    EXPECT_TRUE(fp_equal(1, -1, 0) && !fp_equal(1, -1, 3)); // mantissas keep their signs
    EXPECT_FALSE(fp_equal(1, 1000, 1));
    EXPECT_TRUE(fp_equal(0, 0, 15) && fp_equal(0, 4, 0) && !fp_equal(0, 1e-9, 3));
    EXPECT_TRUE(fp_equal(1, 9, INT_MIN) && !fp_equal(1, 9, INT_MAX) && fp_equal(7, 7, INT_MAX));
    EXPECT_TRUE(fp_equal(quietNan, 0, 9) && fp_equal(infinity, infinity, 9) && !fp_equal(infinity, -infinity, 9));
    EXPECT_FALSE(fp_equal(infinity, denormal, 1) || fp_equal(denormal, infinity, 1) || fp_equal(greatest, infinity, 1));
}

TEST(Numbers, AreCloseAndFinite)
{
    EXPECT_TRUE(fp_close(1.0, 1.00005) && fp_close(2.0, 1.99995) && !fp_close(1.0, 1.0002));
    EXPECT_FALSE(fp_close(0.0001, 0) || fp_close(0, 0.0001)); // both bounds are strict
    EXPECT_FALSE(fp_close(infinity, infinity) || fp_close(quietNan, quietNan));
    EXPECT_TRUE(fp_valid_d(0) && fp_valid_d(-0.0) && fp_valid_d(denormal) && fp_valid_d(-greatest));
    for (double x : {infinity, -infinity, quietNan, Limits::signaling_NaN()})
        EXPECT_EQ(fp_valid_d(x), 0) << x;
}

TEST(Numbers, NextPowerOfTwo)
{
    EXPECT_TRUE(next_power_2(0) == 0 && next_power_2(1) == 1 && next_power_2(2) == 2 && next_power_2(UINT_MAX) == 1);
    for (unsigned power = 4; power != 0; power *= 2) {
        EXPECT_TRUE(next_power_2(power - 1) == power && next_power_2(power) == power) << power;
        EXPECT_EQ(next_power_2(power + 1), power == 0x80000000 ? 1 : 2 * power);
    }
}

} // namespace
