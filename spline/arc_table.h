/// @file
/// The arc table: a compact map between parameters and arc lengths.
///
/// m intervals take 5 m + 3 floats: four coefficients c0 to c3 for each interval, the first and last
/// parameter, and m + 1 arc lengths. In its interval, parameter u has arc length
/// (c3 - c0 u) / (c2 u + c1), and arc length a the parameter (c3 - c1 a) / (c2 a + c0).

#pragma once

#include "spline/spline_object.h"

namespace general::spline {

/// Measures the curve and fills the arc table. The type must be usable and there must be points.
/// @return false when memory is exhausted
bool buildArcTable(Spline1 *spline);

/// Compares the table with a second integration, at the middle between the samples it was made from,
/// and adds half the accuracy. The type must be usable, and there must be points and a table.
/// @param error  receives the largest deviation, relative to the total length
/// @return false when memory is exhausted
bool estimateError(Spline1 *spline, double &error);

/// A number for each end of an interval.
struct Ends {
    double first;
    double last;
};

/// One side of the map, as parameters stand in the tables that are built here: at equal steps, of which only
/// the first and last are stored.
class UniformSamples {
public:
    UniformSamples(const float *samples, int32_t intervals)
        : intervals_(intervals), first_(static_cast<double>(samples[0])), last_(static_cast<double>(samples[1])),
          step_((last_ - first_) / intervals), intervalsPerUnit_(intervals / (last_ - first_))
    {
    }

    double first() const { return first_; }
    double last() const { return last_; }

    [[gnu::always_inline]] Ends endsOf(int32_t interval) const
    {
        double start = first_ + step_ * interval;
        return {start, start + step_};
    }

    /// The interval of a value between first and last.
    [[gnu::always_inline]] int32_t intervalOf(float value) const
    {
        double interval = (static_cast<double>(value) - first_) * intervalsPerUnit_;
        return interval < intervals_ ? static_cast<int32_t>(interval) : intervals_ - 1;
    }

private:
    int32_t intervals_;
    double first_;
    double last_;
    double step_;
    double intervalsPerUnit_;
};

/// One side of the map, as arc lengths stand in the tables that are built here: one by one.
class StoredSamples {
public:
    StoredSamples(const float *samples, int32_t intervals) : samples_(samples), intervals_(intervals) {}

    double first() const { return static_cast<double>(samples_[0]); }
    double last() const { return static_cast<double>(samples_[intervals_]); }

    [[gnu::always_inline]] Ends endsOf(int32_t interval) const
    {
        return {static_cast<double>(samples_[interval]), static_cast<double>(samples_[interval + 1])};
    }

    /// The interval of a value between first and last.
    [[gnu::always_inline]] int32_t intervalOf(float value) const
    {
        int32_t low = 0;
        for (int32_t count = intervals_; count > 1;) {
            int32_t half = count / 2;
            int32_t middle = low + half;
            low = samples_[middle] <= value ? middle : low;
            count -= half;
        }
        return low;
    }

private:
    const float *samples_;
    int32_t intervals_;
};

/// Looks values up in an object's table.
///
/// The formulas at the top subtract numbers that grow with the place along the curve, in single precision:
/// far from the start nothing would be left of a short interval. The same function seen from the ends of
/// its interval, (u0, a0) and (u2, a2), has no such difference. With D(u) = c2 u + c1 it is the mean
///   a = (a0 (u2 - u) D(u0) + a2 (u - u0) D(u2)) / ((u2 - u) D(u0) + (u - u0) D(u2)),
/// whose inverse is this mean with D(u0) and D(u2) exchanged. So a result lies between the ends, and either
/// direction undoes the other.
template<typename Parameters, typename Lengths>
class ArcMap {
public:
    explicit ArcMap(const Spline1 *spline)
        : coefficients_(spline->table), parameters_(spline->parameterSamples, spline->intervals),
          lengths_(spline->lengthSamples, spline->intervals)
    {
    }

    double lastParameter() const { return parameters_.last(); }
    double lastLength() const { return lengths_.last(); }

    [[gnu::always_inline]] float lengthAt(float parameter) const
    {
        return mapped(parameter, parameters_, lengths_,
                      [this](int32_t interval, Ends u, Ends a) { return weights(interval, u, a); });
    }
    [[gnu::always_inline]] float parameterAt(float length) const
    {
        return mapped(length, lengths_, parameters_, [this](int32_t interval, Ends a, Ends u) {
            Ends weight = weights(interval, u, a);
            return Ends{weight.last, weight.first};
        });
    }

private:
    /// D at both ends, but for a common factor.
    [[gnu::always_inline]] Ends weights(int32_t interval, Ends u, Ends a) const
    {
        const float *c = coefficients_ + 4 * static_cast<size_t>(interval);
        auto c1 = static_cast<double>(c[1]);
        auto c2 = static_cast<double>(c[2]);
        return c2 != 0 ? Ends{c2 * u.first + c1, c2 * u.last + c1} : weightsOfLine(c, u, a);
    }

    /// A piece counts as straight by the angle between its chords, which vanishes wherever one unit of
    /// length is much more or much less than one of the parameter. The line that is stored still passes
    /// through the middle sample, and with the ends this makes the curve again.
    [[gnu::noinline]] static Ends weightsOfLine(const float *c, Ends u, Ends a)
    {
        constexpr double roundingOfCoefficients = 3e-7;
        auto c1 = static_cast<double>(c[1]);
        double fall = static_cast<double>(c[0]) * ((u.first + u.last) / 2);
        double middle = static_cast<double>(c[3]) - fall;
        Ends weight{c1 * a.last - middle, middle - c1 * a.first};
        bool isStraight = fabs(weight.last - weight.first) <= roundingOfCoefficients * (fabs(c1 * a.last) + fabs(fall));
        return isStraight ? Ends{1, 1} : weight;
    }

    /// @param weightsOf  gives the ends' weights from the interval and its ends in domain and range
    template<typename Domain, typename Range, typename WeightsOf>
    [[gnu::always_inline]] static float mapped(float value, const Domain &domain, const Range &range,
                                               WeightsOf weightsOf)
    {
        auto x = static_cast<double>(value);
        if (!(x > domain.first()))
            return static_cast<float>(range.first());
        if (x >= domain.last())
            return static_cast<float>(range.last());
        int32_t interval = domain.intervalOf(value);
        Ends from = domain.endsOf(interval);
        Ends to = range.endsOf(interval);
        Ends weight = weightsOf(interval, from, to);
        double last = (x - from.first) * weight.last;
        double share = last / (last + (from.last - x) * weight.first);
        // Out of 0..1 only when the weights differ in sign: a pole that belongs to the end of a piece with a
        // standstill has been rounded into it, or the table is a stranger's. NaN when nothing has weight.
        if (!(share >= 0 && share <= 1))
            share = share < 0 ? 0 : share > 1 ? 1 : 0.5;
        return static_cast<float>(to.first * (1 - share) + to.last * share);
    }

    const float *coefficients_;
    Parameters parameters_;
    Lengths lengths_;
};

/// Calls body(map) with the map of an object's table. Only a stranger's table stores its parameters one by
/// one, or has its lengths at equal steps.
template<typename Body>
void withArcMap(const Spline1 *spline, Body body)
{
    switch (spline->tableFlags & 3) {
    case 1:
        return body(ArcMap<UniformSamples, StoredSamples>(spline));
    case 0:
        return body(ArcMap<StoredSamples, StoredSamples>(spline));
    case 2:
        return body(ArcMap<StoredSamples, UniformSamples>(spline));
    default:
        return body(ArcMap<UniformSamples, UniformSamples>(spline));
    }
}

} // namespace general::spline
