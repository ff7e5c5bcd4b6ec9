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

/// Bounds the integral, over the span, of the negative part of T.P''', T being the unit tangent and
/// P''' the third derivative.
template<int Points, int Dimension>
double fallBound(const Derivative<Points, Dimension> &derivative)
{
    double jerk = derivative.length([&](int c) { return derivative.third(c); });
    if (!(jerk > 0))
        return 0;

    // The derivative along P''' is a quadratic polynomial; the rest of it is linear in each component, so
    // its squared length is a quadratic polynomial as well.
    Parabola along{jerk / 2, 0, 0};
    double direction[Dimension];
    for (int c = 0; c < Dimension; ++c) {
        direction[c] = derivative.third(c) / jerk;
        along.b += derivative.second(0, c) * direction[c];
        along.c += derivative.first(0, c) * direction[c];
    }
    Parabola acrossSquared{0, 0, 0};
    for (int c = 0; c < Dimension; ++c) {
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
template<int Points, int Dimension>
double speedChange(const Derivative<Points, Dimension> &derivative, double f, int side)
{
    double speed = derivative.speed(f);
    if (speed == 0)
        return side * derivative.acceleration(f);
    double sum = 0;
    for (int c = 0; c < Dimension; ++c)
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
///
/// @return the factor of w^2/24 in this bound, which holds for the integral from 0 to any cell's end; 0
///         for polygons, which are not integrated in steps
template<int Points, int Dimension>
double secondVariation(const Spline1 *spline)
{
    Derivative<Points, Dimension> derivative(spline);
    int32_t range = parameterEnd(spline);
    if (derivative.degree == 1 || range < 1)
        return 0;

    // Quadratic spans lie half a unit later, so the first and the last one count by half.
    bool halved = derivative.degree == 2;
    int32_t firstSpan = halved ? -1 : 0;
    double fall = 0;
    double largestAcceleration = 0;
    double initialChange = 0;
    double changeBefore = 0;
    for (int32_t span = firstSpan; span < range; ++span) {
        derivative.goTo(span);
        double from = halved && span == firstSpan ? 0.5 : 0;
        double to = halved && span == range - 1 ? 0.5 : 1;
        double change = speedChange(derivative, from, +1);
        if (span == firstSpan)
            initialChange = change;
        else if (change < changeBefore)
            fall += changeBefore - change;
        changeBefore = speedChange(derivative, to, -1);
        fall += fallBound(derivative);
        largestAcceleration =
            std::max(largestAcceleration, std::max(derivative.acceleration(from), derivative.acceleration(to)));
    }
    return 3 * (fall + largestAcceleration - initialChange);
}

double secondVariation(const Spline1 *spline)
{
    return forShape(spline, [&]<int Points, int Dimension>() { return secondVariation<Points, Dimension>(spline); });
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
