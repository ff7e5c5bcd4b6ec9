#include "base/module_id.h"

#include "spline/arc_bound.h"
#include "spline/arc_table.h"
#include "spline/derivative.h"

#include <algorithm>

#include <float.h>

#include <math.h>

GENERAL_MODULE_ID("$Id$");

namespace general::spline {

namespace {

/// The speed at a parameter.
template<int Points, int Pairs>
[[gnu::always_inline]] inline double speedAt(Derivative<Points, Pairs> &derivative, double parameter)
{
    Place place = derivative.spans().locate(parameter);
    derivative.goTo(place.span);
    return derivative.speed(place.f);
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
template<int Points, int Pairs>
void integrateSpeed(const Spline1 *spline, double from, double to, int32_t count, double step, LengthSink sink)
{
    Derivative<Points, Pairs> derivative(spline);
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
            sum += speedAt(derivative, from + middle * width);
            middle += 1;
        }
        sink(sum * width);
    }
}

/// A polygon's speed is constant between control points. Splitting the substeps there makes the
/// midpoint rule exact, whatever the step.
template<int Pairs>
void addUpPolygon(const Spline1 *spline, double from, double to, int32_t count, LengthSink sink)
{
    Derivative<2, Pairs> derivative(spline);
    double distance = (to - from) / count;
    double sum = 0;
    double here = from;
    for (int32_t i = 1; i <= count; ++i) {
        double end = i < count ? from + i * distance : to;
        while (here < end) {
            double corner = floor(here) + 1;
            double next = corner < end ? corner : end;
            sum += speedAt(derivative, here) * (next - here);
            here = next;
        }
        sink(sum);
    }
}

void integrateInto(const Spline1 *spline, double from, double to, int32_t count, double step, LengthSink sink)
{
    forShape(spline, [&]<int Points, int Pairs>() {
        if constexpr (Points == 2)
            addUpPolygon<Pairs>(spline, from, to, count, sink);
        else
            integrateSpeed<Points, Pairs>(spline, from, to, count, step, sink);
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

    double largest = 0;
    constexpr int32_t atOnce = 64;
    float tabulated[atOnce];
    for (int32_t done = 0; done < samples; done += atOnce) {
        int32_t count = std::min(atOnce, samples - done);
        for (int32_t j = 0; j < count; ++j)
            tabulated[j] = static_cast<float>((done + j + 0.5) * distance);
        findLengths(spline, count, tabulated, tabulated);
        for (int32_t j = 0; j < count; ++j) {
            double deviation = fabs(static_cast<double>(lengths[done + j]) - static_cast<double>(tabulated[j]));
            if (!(deviation <= largest))
                largest = deviation;
        }
    }
    const float beyondTheEnd = HUGE_VALF;
    findLengths(spline, 1, &beyondTheEnd, tabulated);
    auto total = static_cast<double>(tabulated[0]);

    // Both integrations share the step. Where it is longer than the accuracy asks for, because of the
    // bound on the work, what the integration may be off counts as well.
    largest += integrationShortfall(spline, step);

    error = largest == 0 ? 0 : largest / total;
    error += spline->accuracy / 2;
    if (!isfinite(error) || !isfinite(total))
        error = HUGE_VAL;
    return true;
}

} // namespace general::spline
