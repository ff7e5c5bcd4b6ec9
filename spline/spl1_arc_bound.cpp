#include "base/module_id.h"

#include "spline/arc_bound.h"
#include "spline/derivative.h"

#include <algorithm>

#include <math.h>

GENERAL_MODULE_ID("$Id$");

namespace general::spline {

namespace {

constexpr double leastIntegrationError = 0.00001;

/// a f^2 + b f + c, with a not negative.
struct Parabola {
    double a;
    double b;
    double c;

    double at(double f) const { return (a * f + b) * f + c; }

    double lowest(double from, double to) const
    {
        double bottom = a > 0 ? -b / (2 * a) : from;
        bottom = bottom > from ? std::min(bottom, to) : from;
        return std::min(at(bottom), std::min(at(from), at(to)));
    }
};

/// Bounds the mean of the cosine's negative part, over f from 0 to 1.
double meanFall(const Parabola &along, const Parabola &acrossSquared)
{
    constexpr int parts = 8;
    double sum = 0;
    for (int i = 0; i < parts; ++i) {
        double from = static_cast<double>(i) / parts;
        double to = static_cast<double>(i + 1) / parts;
        double lowest = along.lowest(from, to);
        if (lowest < 0)
            sum -= lowest / sqrt(lowest * lowest + std::max(0.0, acrossSquared.lowest(from, to)));
    }
    return sum / parts;
}

/// Length of the vector with the components that component(c) gives.
template<typename Component>
double lengthOf(Component component)
{
    double sum = 0;
    for (int c = 0; c < largestDimension; ++c)
        sum += component(c) * component(c);
    return sqrt(sum);
}

double acceleration(const SpanDerivative &derivative, double f)
{
    return lengthOf([&](int c) { return derivative.second(f, c); });
}

/// Bounds the integral, over the span, of the negative part of T.P''', T being the unit tangent and
/// P''' the third derivative.
double fallBound(const SpanDerivative &derivative)
{
    double jerk = lengthOf([&](int c) { return derivative.third(c); });
    if (!(jerk > 0))
        return 0;

    // The derivative along P''' is a quadratic polynomial; the rest of it is linear in each component, so
    // its squared length is a quadratic polynomial as well.
    Parabola along{jerk / 2, 0, 0};
    double direction[largestDimension];
    for (int c = 0; c < largestDimension; ++c) {
        direction[c] = derivative.third(c) / jerk;
        along.b += derivative.second(0, c) * direction[c];
        along.c += derivative.first(0, c) * direction[c];
    }
    Parabola acrossSquared{0, 0, 0};
    for (int c = 0; c < largestDimension; ++c) {
        double slope = derivative.second(0, c) - along.b * direction[c];
        double start = derivative.first(0, c) - along.c * direction[c];
        acrossSquared.a += slope * slope;
        acrossSquared.b += 2 * slope * start;
        acrossSquared.c += start * start;
    }
    return jerk * meanFall(along, acrossSquared);
}

/// Change of the speed, seen from the side that the sign says: +1 after f, -1 before it. Where the
/// curve stands still the speed rises on either side.
double speedChange(const SpanDerivative &derivative, double f, int side)
{
    double speed = lengthOf([&](int c) { return derivative.first(f, c); });
    if (speed == 0)
        return side * acceleration(derivative, f);
    double sum = 0;
    for (int c = 0; c < largestDimension; ++c)
        sum += derivative.first(f, c) * derivative.second(f, c);
    return sum / speed;
}

/// Bounds the error of the midpoint rule, without dividing by the speed v, which vanishes at the ends
/// of every open curve of degree 2 or 3 and may vanish elsewhere.
///
/// On cells of width w the error is the integral of v'' times Peano's kernel, which lies between 0 and
/// w^2/8. So it is at most w^2/8 times the larger of the total rise and the total fall of v', its jumps
/// at the knots included. With the unit tangent T,
///   v'' = |part of P'' across T|^2 / v + T.P'''.
/// The first term is never negative, and neither are the jumps of v' where the speed vanishes. So v'
/// falls only by jumps at knots and where T.P''' is negative, which can be bounded. It rises by as much
/// and by its own difference, at most max|P''| - v'(0).
class SecondVariation {
public:
    /// Takes the next span, of which the curve has the part from one local parameter to another.
    void add(const SpanDerivative &derivative, double from, double to)
    {
        double change = speedChange(derivative, from, +1);
        if (isFirst_)
            initialChange_ = change;
        else if (change < changeBefore_)
            fall_ += changeBefore_ - change;
        isFirst_ = false;
        changeBefore_ = speedChange(derivative, to, -1);
        fall_ += fallBound(derivative);
        largestAcceleration_ =
            std::max(largestAcceleration_, std::max(acceleration(derivative, from), acceleration(derivative, to)));
    }

    /// The factor of w^2/24 in the bound, which holds for the integral from 0 to any cell's end.
    double result() const { return 3 * (fall_ + largestAcceleration_ - initialChange_); }

private:
    bool isFirst_ = true;
    double fall_ = 0;
    double largestAcceleration_ = 0;
    double initialChange_ = 0;
    double changeBefore_ = 0;
};

/// @return 0 for polygons, which are not integrated in steps
double secondVariation(const Spline1 *spline)
{
    int32_t range = parameterEnd(spline);
    if (spline->degree == 1 || range < 1)
        return 0;

    // Quadratic spans lie half a unit later, so the first and the last one count by half.
    bool halved = spline->degree == 2;
    int32_t firstSpan = halved ? -1 : 0;
    SecondVariation variation;
    forShape(spline, [&]<int Points, int Pairs>() {
        Derivative<Points, Pairs> derivative(spline);
        for (int32_t span = firstSpan; span < range; ++span) {
            derivative.goTo(span);
            variation.add(derivative.current(), halved && span == firstSpan ? 0.5 : 0,
                          halved && span == range - 1 ? 0.5 : 1);
        }
    });
    return variation.result();
}

double largestIntegrationError(const Spline1 *spline)
{
    double half = spline->accuracy / 2;
    return half > leastIntegrationError ? half : leastIntegrationError;
}

} // namespace

double integrationStep(const Spline1 *spline)
{
    double range = parameterEnd(spline);
    double variation = secondVariation(spline);
    double step = range;
    if (variation > 0 && isfinite(variation))
        step = sqrt(24 * largestIntegrationError(spline) / variation);
    step = std::min(step, 1.0);
    return std::max(step, std::min(1.0, range / mostEvaluations));
}

double integrationShortfall(const Spline1 *spline, double step)
{
    double error = step * step * secondVariation(spline) / 24;
    double allowed = largestIntegrationError(spline);
    // What is rounded in the step is no shortfall.
    return error <= allowed * 1.000001 ? 0 : error - allowed;
}

} // namespace general::spline
