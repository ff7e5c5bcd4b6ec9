#include "general/fp.h"

#include "tests/support/handles.h"

#include <climits>
#include <cmath>
#include <limits>

namespace {

using test_support::expectEach;
using Limits = std::numeric_limits<double>;
constexpr double infinity = Limits::infinity(), quietNan = Limits::quiet_NaN(), denormal = Limits::denorm_min(),
                 greatest = Limits::max();

TEST(Numbers, SplitIntoMantissaAndExponent)
{
    int exponent = 77;
    auto expectSplit = [&exponent](double number, double mantissa, int itsExponent) {
        EXPECT_NEAR(fp_scinotation(number, &exponent), mantissa, 1e-12) << number;
        EXPECT_EQ(exponent, itsExponent) << number;
    };
    expectSplit(1234.5, 1.2345, 3);
    expectSplit(-0.002, -2, -3);
    for (double nothing : {0.0, -0.0, quietNan})
        expectSplit(nothing, 0, 0);
    for (double sign : {1.0, -1.0})
        expectSplit(sign * infinity, sign, INT_MAX);
    expectSplit(denormal, 4.9406564584124654, -324);
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
    expectEach(1, {fp_equal(1234.5, 1234.9, 3), fp_equal(9.99, 10.0, 2), fp_equal(10.0, 9.99, 2), fp_equal(1, -1, 0),
                   fp_equal(0, 0, 15), fp_equal(0, 4, 0), fp_equal(1, 9, INT_MIN), fp_equal(7, 7, INT_MAX),
                   fp_equal(quietNan, 0, 9), fp_equal(infinity, infinity, 9)});
    expectEach(0,
               {fp_equal(1234.5, 1234.9, 5), fp_equal(9.99, 10.0, 4), fp_equal(1, -1, 3), // mantissas keep their signs
                fp_equal(1, 1000, 1), fp_equal(0, 1e-9, 3), fp_equal(1, 9, INT_MAX), fp_equal(infinity, -infinity, 9),
                fp_equal(infinity, denormal, 1), fp_equal(denormal, infinity, 1), fp_equal(greatest, infinity, 1)});
}

TEST(Numbers, AreCloseAndFinite)
{
    expectEach(1, {fp_close(1.0, 1.00005), fp_close(2.0, 1.99995), fp_valid_d(0), fp_valid_d(denormal),
                   fp_valid_d(-greatest)});
    expectEach(0, {fp_close(1.0, 1.0002), fp_close(0.0001, 0), fp_close(0, 0.0001), // both bounds are strict
                   fp_close(infinity, infinity), fp_close(quietNan, quietNan), fp_valid_d(infinity),
                   fp_valid_d(-infinity), fp_valid_d(quietNan), fp_valid_d(Limits::signaling_NaN())});
}

TEST(Numbers, NextPowerOfTwo)
{
    expectEach(1, {next_power_2(1), next_power_2(0) + 1, next_power_2(2) - 1, next_power_2(UINT_MAX)});
    for (unsigned power = 4; power != 0; power *= 2) {
        expectEach(power, {next_power_2(power - 1), next_power_2(power)});
        EXPECT_EQ(next_power_2(power + 1), power == 0x80000000 ? 1 : 2 * power);
    }
}

} // namespace
