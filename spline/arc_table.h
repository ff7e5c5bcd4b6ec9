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

/// One side of the map: the parameters, or the arc lengths.
class ArcSamples {
public:
    /// @param uniform  only the first and last sample are stored
    ArcSamples(const float *samples, bool uniform, int32_t intervals)
        : samples_(samples), uniform_(uniform), intervals_(intervals), first_(static_cast<double>(samples[0])),
          last_(static_cast<double>(samples[uniform ? 1 : intervals])), step_((last_ - first_) / intervals),
          intervalsPerUnit_(intervals / (last_ - first_))
    {
    }

    double first() const { return first_; }
    double last() const { return last_; }

    [[gnu::always_inline]] double at(int32_t i) const
    {
        return uniform_ ? first_ + step_ * i : static_cast<double>(samples_[i]);
    }

    /// The interval of a value between first and last.
    [[gnu::always_inline]] int32_t intervalOf(float value) const
    {
        if (uniform_) {
            double interval = (static_cast<double>(value) - first_) * intervalsPerUnit_;
            return interval < intervals_ ? static_cast<int32_t>(interval) : intervals_ - 1;
        }
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
    bool uniform_;
    int32_t intervals_;
    double first_;
    double last_;
    double step_;
    double intervalsPerUnit_;
};

/// Looks values up in an object's table.
///
/// The formulas at the top subtract numbers that grow with the place along the curve, in single precision:
/// far from the start nothing would be left of a short interval. The same function seen from the ends of
/// its interval, (u0, a0) and (u2, a2), has no such difference. With D(u) = c2 u + c1 it is the mean
///   a = (a0 (u2 - u) D(u0) + a2 (u - u0) D(u2)) / ((u2 - u) D(u0) + (u - u0) D(u2)),
/// whose inverse is this mean with D(u0) and D(u2) exchanged. So a result lies between the ends, and either
/// direction undoes the other.
class ArcMap {
public:
    explicit ArcMap(const Spline1 *spline)
        : coefficients_(spline->table),
          parameters_(spline->parameterSamples, (spline->tableFlags & 1) != 0, spline->intervals),
          lengths_(spline->lengthSamples, (spline->tableFlags & 2) != 0, spline->intervals)
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
    /// A number for each end of an interval.
    struct Ends {
        double first;
        double last;
    };

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
    template<typename WeightsOf>
    [[gnu::always_inline]] static float mapped(float value, const ArcSamples &domain, const ArcSamples &range,
                                               WeightsOf weightsOf)
    {
        auto x = static_cast<double>(value);
        if (!(x > domain.first()))
            return static_cast<float>(range.first());
        if (x >= domain.last())
            return static_cast<float>(range.last());
        int32_t interval = domain.intervalOf(value);
        Ends from{domain.at(interval), domain.at(interval + 1)};
        Ends to{range.at(interval), range.at(interval + 1)};
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
    ArcSamples parameters_;
    ArcSamples lengths_;
};

} // namespace general::spline
