#include "base/module_id.h"

#include "spline/arc_table.h"
#include "spline/evaluator.h"

#include <algorithm>

#include <float.h>
#include <math.h>

GENERAL_MODULE_ID("$Id$");

namespace general::spline {

namespace {

/// Evaluations of the speed that one integration may take, beyond one for each value asked for.
constexpr double mostEvaluations = 4e6;
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

/// The derivative of a curve, span by span, as a polynomial of the local parameter.
template<int Points, int Dimension>
class Derivative {
public:
    static constexpr int degree = Points - 1;

    explicit Derivative(const Spline1 *spline) : spans_(spline), basis_(basisOf(spline)) {}

    const Spans &spans() const { return spans_; }

    void goTo(int32_t span)
    {
        if (span == span_)
            return;
        span_ = span;
        for (auto &row : factor_)
            for (double &component : row)
                component = 0;
        spans_.template visit<Points, Dimension>(span, [&](int j, const float *point) {
            for (int r = 0; r < degree; ++r)
                for (int c = 0; c < Dimension; ++c)
                    factor_[r][c] += (degree - r) * basis_.row[r][j] * static_cast<double>(point[c]);
        });
    }

    [[gnu::always_inline]] double speedAt(double parameter)
    {
        Place place = spans_.locate(parameter);
        goTo(place.span);
        return speed(place.f);
    }

    /// Speed at a local parameter of the span.
    double speed(double f) const
    {
        return length([&](int c) { return first(f, c); });
    }

    /// Length of the second derivative.
    double acceleration(double f) const
    {
        return length([&](int c) { return second(f, c); });
    }

    /// Bounds the integral, over the span, of the negative part of T.P''', T being the unit tangent and
    /// P''' the third derivative, which is constant on a span.
    double fallBound() const
    {
        if constexpr (degree < 3) {
            return 0;
        } else {
            double jerk = length([&](int c) { return 2 * factor_[0][c]; });
            if (!(jerk > 0))
                return 0;

            // The derivative along P''' is a quadratic polynomial; the rest of it is linear in each
            // component, so its squared length is a quadratic polynomial as well.
            Parabola along{jerk / 2, 0, 0};
            double direction[Dimension];
#pragma GCC unroll 4
            for (int c = 0; c < Dimension; ++c) {
                direction[c] = 2 * factor_[0][c] / jerk;
                along.b += factor_[1][c] * direction[c];
                along.c += factor_[2][c] * direction[c];
            }
            Parabola acrossSquared{0, 0, 0};
#pragma GCC unroll 4
            for (int c = 0; c < Dimension; ++c) {
                double slope = factor_[1][c] - along.b * direction[c];
                double start = factor_[2][c] - along.c * direction[c];
                acrossSquared.a += slope * slope;
                acrossSquared.b += 2 * slope * start;
                acrossSquared.c += start * start;
            }
            return jerk * meanFall(along, acrossSquared);
        }
    }

    /// Change of the speed, seen from the side that the sign says: +1 after f, -1 before it. Where the
    /// curve stands still the speed rises on either side.
    double speedChange(double f, int side) const
    {
        double speedHere = speed(f);
        if (speedHere == 0)
            return side * acceleration(f);
        double sum = 0;
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c)
            sum += first(f, c) * second(f, c);
        return sum / speedHere;
    }

private:
    /// Bounds the mean of the cosine's negative part, over f from 0 to 1.
    static double meanFall(const Parabola &along, const Parabola &acrossSquared)
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

    double first(double f, int c) const
    {
        double value = factor_[0][c];
#pragma GCC unroll 4
        for (int r = 1; r < degree; ++r)
            value = value * f + factor_[r][c];
        return value;
    }

    double second(double f, int c) const
    {
        if constexpr (degree == 3)
            return 2 * factor_[0][c] * f + factor_[1][c];
        return degree == 2 ? factor_[0][c] : 0;
    }

    template<typename Component>
    static double length(Component component)
    {
        double sum = 0;
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c) {
            double value = component(c);
            sum += value * value;
        }
        return sqrt(sum);
    }

    Spans spans_;
    Basis basis_;
    int32_t span_ = INT32_MIN;
    double factor_[degree][Dimension] = {}; ///< highest power first
};

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
        double change = derivative.speedChange(from, +1);
        if (span == firstSpan)
            initialChange = change;
        else if (change < changeBefore)
            fall += changeBefore - change;
        changeBefore = derivative.speedChange(to, -1);
        fall += derivative.fallBound();
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

/// The step with which every integral from the start is accurate, as far as the work stays bounded.
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

/// Refers to a function that takes lengths one by one. Its type is not part of this one, so that each
/// integration is compiled once for all that use it.
class LengthSink {
public:
    template<typename Function>
    explicit LengthSink(Function &function)
        : function_(&function), call_([](void *target, double length) { (*static_cast<Function *>(target))(length); })
    {
    }

    void operator()(double length) const { call_(function_, length); }

private:
    void *function_;
    void (*call_)(void *function, double length);
};

/// Midpoint rule over [from, to]: hands `count` cumulative lengths, at equal distances, to `sink`.
template<int Points, int Dimension>
void integrateSpeed(const Spline1 *spline, double from, double to, int32_t count, double step, LengthSink sink)
{
    Derivative<Points, Dimension> derivative(spline);
    double distance = (to - from) / count;
    double substeps = step <= distance ? ceil(distance / step) : 1;
    substeps = std::min(substeps, floor(mostEvaluations / count) + 1); // a packet may carry any step
    substeps = substeps >= 1 ? substeps : 1;
    double width = (to - from) / (count * substeps);
    double sum = 0;
    double middle = 0.5; // in substeps
    for (int32_t i = 0; i < count; ++i) {
        double end = (i + 1) * substeps;
        while (middle < end) {
            sum += derivative.speedAt(from + middle * width);
            middle += 1;
        }
        sink(sum * width);
    }
}

/// A polygon's speed is constant between control points. Splitting the substeps there makes the
/// midpoint rule exact, whatever the step.
template<int Dimension>
void addUpPolygon(const Spline1 *spline, double from, double to, int32_t count, LengthSink sink)
{
    Derivative<2, Dimension> derivative(spline);
    double distance = (to - from) / count;
    double sum = 0;
    double here = from;
    for (int32_t i = 1; i <= count; ++i) {
        double end = i < count ? from + i * distance : to;
        while (here < end) {
            double corner = floor(here) + 1;
            double next = corner < end ? corner : end;
            sum += derivative.speedAt(here) * (next - here);
            here = next;
        }
        sink(sum);
    }
}

void integrateInto(const Spline1 *spline, double from, double to, int32_t count, double step, LengthSink sink)
{
    forShape(spline, [&]<int Points, int Dimension>() {
        if constexpr (Points == 2)
            addUpPolygon<Dimension>(spline, from, to, count, sink);
        else
            integrateSpeed<Points, Dimension>(spline, from, to, count, step, sink);
    });
}

template<typename Function>
void integrate(const Spline1 *spline, double from, double to, int32_t count, double step, Function take)
{
    integrateInto(spline, from, to, count, step, LengthSink(take));
}

struct Sample {
    double x; ///< parameter
    double y; ///< arc length
};

double squared(double value)
{
    return value * value;
}

/// Below this square of a sine, three points count as lying on a line.
constexpr double smallestSquare = 1e-10;
constexpr double smallestScale = 0.00001;

void store(float *coefficients, double c0, double c1, double c2, double c3)
{
    coefficients[0] = static_cast<float>(c0);
    coefficients[1] = static_cast<float>(c1);
    coefficients[2] = static_cast<float>(c2);
    coefficients[3] = static_cast<float>(c3);
}

/// Stores the hyperbola (y + A)(x + B) = C through three samples.
void storeHyperbola(float *coefficients, Sample p0, Sample p1, Sample p2, double determinant)
{
    double p = p0.x * p0.y - p1.x * p1.y;
    double q = p1.x * p1.y - p2.x * p2.y;
    double b = (p * (p2.x - p1.x) - q * (p1.x - p0.x)) / determinant;
    double a = (q * (p1.y - p0.y) - p * (p2.y - p1.y)) / determinant;
    double c = (p1.y + a) * (p1.x + b);
    if (fabs(c) <= smallestScale)
        store(coefficients, a, b, 1, -a * b);
    else
        store(coefficients, a / c, b / c, 1 / c, 1 - a * b / c);
}

/// Stores the line through the middle sample with the slope between the outer two.
void storeLine(float *coefficients, Sample p0, Sample p1, Sample p2)
{
    double dx = p2.x - p0.x;
    double dy = p2.y - p0.y;
    double offset = dx * p1.y - dy * p1.x;
    if (squared(offset) > smallestSquare * (squared(dx) + squared(dy)) * (squared(p1.x) + squared(p1.y)))
        store(coefficients, -dy / offset, dx / offset, 0, 1);
    else
        store(coefficients, -p1.y, p1.x, 0, 0); // it passes through the origin
}

void storePiece(float *coefficients, Sample p0, Sample p1, Sample p2)
{
    double determinant = (p2.x - p1.x) * (p1.y - p0.y) - (p2.y - p1.y) * (p1.x - p0.x);
    double scale = (squared(p2.x - p1.x) + squared(p2.y - p1.y)) * (squared(p1.x - p0.x) + squared(p1.y - p0.y));
    if (squared(determinant) > smallestSquare * scale)
        storeHyperbola(coefficients, p0, p1, p2, determinant);
    else
        storeLine(coefficients, p0, p1, p2);
}

/// Lengths beyond the largest float count as the largest float.
double representable(double length)
{
    return length > static_cast<double>(FLT_MAX) ? static_cast<double>(FLT_MAX) : length;
}

} // namespace

bool buildArcTable(Spline1 *spline)
{
    if (!growArcTable(spline))
        return false;
    int32_t intervals = spline->intervals;
    double range = parameterEnd(spline);
    spline->arcReference = integrationStep(spline);
    spline->tableFlags = 1;
    spline->parameterSamples[0] = 0;
    spline->parameterSamples[1] = static_cast<float>(range);
    spline->lengthSamples[0] = 0;

    Sample samples[3] = {};
    int32_t taken = 0;
    double spacing = range / (2.0 * intervals);
    integrate(spline, 0, range, 2 * intervals, spline->arcReference, [&](double length) {
        ++taken;
        Sample sample{taken * spacing, representable(length)};
        if (taken % 2 == 1) {
            samples[1] = sample;
            return;
        }
        samples[2] = sample;
        int32_t piece = taken / 2 - 1;
        storePiece(spline->table + 4 * static_cast<size_t>(piece), samples[0], samples[1], samples[2]);
        spline->lengthSamples[piece + 1] = static_cast<float>(sample.y);
        samples[0] = sample;
    });
    spline->achievedError = errorNotComputed;
    spline->tableValid = 1;
    return true;
}

bool estimateError(Spline1 *spline, double &error)
{
    int32_t samples = 2 * spline->intervals;
    if (!growFloats(spline->scratch, spline->scratchCapacity, 2 * samples - 1))
        return false;

    double range = parameterEnd(spline);
    double distance = range / samples;
    double step = spline->arcReference;
    float *lengths = spline->scratch;
    double untilFirst = 0;
    integrate(spline, 0, distance / 2, 1, step, [&](double length) { untilFirst = length; });
    float *next = lengths;
    *next++ = static_cast<float>(representable(untilFirst));
    integrate(spline, distance / 2, range - distance / 2, samples - 1, step,
              [&](double length) { *next++ = static_cast<float>(representable(untilFirst + length)); });

    ArcMap map(spline);
    double largest = 0;
    for (int32_t j = 0; j < samples; ++j) {
        auto tabulated = static_cast<double>(map.lengthAt(static_cast<float>((j + 0.5) * distance)));
        double deviation = fabs(static_cast<double>(lengths[j]) - tabulated);
        if (!(deviation <= largest))
            largest = deviation;
    }

    // Both integrations share the step. Where it is longer than the accuracy asks for, because of the
    // bound on the work, what the integration may be off counts as well.
    double integrationError = step * step * secondVariation(spline) / 24;
    double allowed = largestIntegrationError(spline);
    if (!(integrationError <= allowed * 1.000001))
        largest += integrationError - allowed;

    double total = map.lastLength();
    error = largest == 0 ? 0 : largest / total;
    error += spline->accuracy / 2;
    if (!isfinite(error) || !isfinite(total))
        error = HUGE_VAL;
    return true;
}

} // namespace general::spline
