#include "base/module_id.h"

#include "general/fp.h"

#include <limits.h>
#include <math.h>
#include <stdint.h>

GENERAL_MODULE_ID("$Id$");

namespace {

constexpr double closeTolerance = 0.0001;

/// A number as mantissa * 10^exponent.
struct Scientific {
    double mantissa;
    int exponent;
};

Scientific scientific(double x)
{
    if (x == 0 || isnan(x))
        return {.mantissa = 0, .exponent = 0};
    double sign = x > 0 ? 1 : -1;
    if (isinf(x))
        return {.mantissa = sign, .exponent = INT_MAX};
    double whole = 0;
    double fraction = modf(log10(fabs(x)), &whole);
    Scientific result{.mantissa = pow(10, fraction), .exponent = static_cast<int>(whole)};
    if (result.mantissa < 1) {
        result.mantissa *= 10;
        --result.exponent;
    }
    result.mantissa *= sign;
    return result;
}

} // namespace

double fp_scinotation(double x, int *exponent)
{
    if (exponent == nullptr)
        return 0;
    Scientific result = scientific(x);
    *exponent = result.exponent;
    return result.mantissa;
}

int fp_equal(double a, double b, int digits)
{
    Scientific left = scientific(a);
    Scientific right = scientific(b);
    int64_t distance = int64_t{left.exponent} - right.exponent;
    if (distance < -1 || distance > 1)
        return 0;
    if (distance == -1)
        left.mantissa *= 0.1;
    if (distance == 1)
        right.mantissa *= 0.1;
    double tolerance = 5 * pow(10, -static_cast<double>(digits));
    return tolerance >= fabs(left.mantissa - right.mantissa);
}

int fp_close(double a, double b)
{
    double difference = a - b;
    return -closeTolerance < difference && difference < closeTolerance;
}
