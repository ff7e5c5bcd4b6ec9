/// @file
/// The arc table: a compact map between parameters and arc lengths.
///
/// m intervals take 5 m + 3 floats: four coefficients c0 to c3 for each interval, the first and last
/// parameter, and m + 1 arc lengths. In its interval, parameter u has arc length
/// (c3 - c0 u) / (c2 u + c1), and arc length a the parameter (c3 - c1 a) / (c2 a + c0).

#pragma once

#include "spline/spline_object.h"

#include <bit>

namespace general::spline {

/// Measures the curve and fills the arc table. The type must be usable and there must be points.
/// @return false when memory is exhausted
bool buildArcTable(Spline1 *spline);

/// Compares the table with a second integration, at the middle between the samples it was made from,
/// and adds half the accuracy. The type must be usable, and there must be points and a table.
/// @param error  receives the largest deviation, relative to the total length
/// @return false when memory is exhausted
bool estimateError(Spline1 *spline, double &error);

/// Looks the lengths at parameters up in the object's table.
/// @param params   null for equal steps to the last one; may be the lengths' own place
void findLengths(const Spline1 *spline, int32_t count, const float *params, float *lengths);

/// One side of an interval.
struct Extent {
    double first;
    double last;
    double width;
};

/// An interval, and how far in it from 0 to 1.
struct TablePlace {
    int32_t interval;
    double share;
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

    [[gnu::always_inline]] Extent extentOf(int32_t interval) const
    {
        double first = first_ + step_ * interval;
        return {first, first + step_, step_};
    }

    /// The interval of a value between first and last.
    int32_t intervalOf(float value) const
    {
        TablePlace place = {};
        return find(value, place) ? place.interval : intervals_ - 1;
    }

    /// Finds the place of a value.
    /// @return false when it is not between first and last
    [[gnu::always_inline]] bool find(float value, TablePlace &place) const
    {
        double intervals = (static_cast<double>(value) - first_) * intervalsPerUnit_;
        if (!(intervals > 0 && intervals < intervals_))
            return false;
        place.interval = static_cast<int32_t>(intervals);
        place.share = intervals - place.interval;
        return true;
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
    StoredSamples(const float *samples, int32_t intervals)
        : samples_(samples), intervals_(intervals), window_(std::bit_floor(static_cast<uint32_t>(intervals)))
    {
    }

    double first() const { return static_cast<double>(samples_[0]); }
    double last() const { return static_cast<double>(samples_[intervals_]); }

    [[gnu::always_inline]] Extent extentOf(int32_t interval) const
    {
        auto first = static_cast<double>(samples_[interval]);
        auto last = static_cast<double>(samples_[interval + 1]);
        return {first, last, last - first};
    }

    /// The interval of a value between first and last. Numbers from 0 on are ordered as their bits are, and
    /// integers are compared in half the time. Lengths are below 0 in a stranger's table only.
    [[gnu::always_inline]] int32_t intervalOf(float value) const
    {
        if (samples_[0] < 0)
            return bisect([=, this](uint32_t i) { return samples_[i] <= value; });
        auto bits = std::bit_cast<int32_t>(value);
        return bisect([=, this](uint32_t i) { return std::bit_cast<int32_t>(samples_[i]) <= bits; });
    }

    /// Finds the place of a value.
    /// @return false when it is not between first and last
    bool find(float value, TablePlace &place) const
    {
        auto x = static_cast<double>(value);
        if (!(x > first() && x < last()))
            return false;
        place.interval = intervalOf(value);
        Extent extent = extentOf(place.interval);
        place.share = (x - extent.first) / extent.width;
        return true;
    }

private:
    /// Halves a power of two of intervals, either the first or the last ones.
    template<typename StartsAtMost>
    [[gnu::always_inline]] int32_t bisect(StartsAtMost startsAtMost) const
    {
        uint32_t upper = static_cast<uint32_t>(intervals_) - window_;
        uint32_t low = startsAtMost(upper) ? upper : 0;
        for (uint32_t half = window_ / 2; half != 0; half /= 2)
            low = startsAtMost(low + half) ? low + half : low;
        return static_cast<int32_t>(low);
    }

    const float *samples_;
    int32_t intervals_;
    uint32_t window_; ///< the largest power of two that is not more than the intervals
};

/// One side of a stranger's table, stored either way.
class AnySamples {
public:
    AnySamples(const float *samples, int32_t intervals, bool areUniform)
        : areUniform_(areUniform), uniform_(samples, intervals), stored_(samples, intervals)
    {
    }

    double first() const { return uniform_.first(); }
    double last() const { return areUniform_ ? uniform_.last() : stored_.last(); }
    Extent extentOf(int32_t interval) const
    {
        return areUniform_ ? uniform_.extentOf(interval) : stored_.extentOf(interval);
    }
    int32_t intervalOf(float value) const
    {
        return areUniform_ ? uniform_.intervalOf(value) : stored_.intervalOf(value);
    }
    bool find(float value, TablePlace &place) const
    {
        return areUniform_ ? uniform_.find(value, place) : stored_.find(value, place);
    }

private:
    bool areUniform_;
    UniformSamples uniform_;
    StoredSamples stored_;
};

/// What looking up needs of a piece beside its ends (u0, a0) and (u2, a2).
///
/// The formulas at the top subtract numbers that grow with the place along the curve, in single precision:
/// far from the start nothing would be left of a short interval. The same function seen from the ends of
/// its interval has no such difference. With D(u) = c2 u + c1 it is
///   (a - a0) / (a2 - a0) = (u - u0) D(u2) / ((u2 - u) D(u0) + (u - u0) D(u2)),
/// and its inverse is the same with D(u0) and D(u2) exchanged. So a result lies between the ends, and either
/// direction undoes the other. Only the ratio of D(u0) and D(u2) counts.
struct EndWeights {
    double first; ///< D(u0)
    double rise;  ///< D(u2) - D(u0)
};

/// Weights that are worked out where they are needed.
class WeightsFromTable {
public:
    explicit WeightsFromTable(const float *coefficients) : coefficients_(coefficients) {}

    [[gnu::always_inline]] EndWeights operator()(int32_t interval, Extent us, Extent as) const
    {
        const float *c = coefficients_ + 4 * static_cast<size_t>(interval);
        auto c1 = static_cast<double>(c[1]);
        auto c2 = static_cast<double>(c[2]);
        if (c2 != 0)
            return {c2 * us.first + c1, c2 * us.width};
        double bend = bendOf(c, us, as);
        return {c1 * as.width - bend, 2 * bend};
    }

private:
    /// A piece counts as straight by the angle between its chords, which vanishes wherever one unit of
    /// length is much more or much less than one of the parameter. The line that is stored still passes
    /// through the middle sample, and with the ends this makes the curve again.
    /// @return half of D(u2) - D(u0), where their mean is c1 (a2 - a0)
    [[gnu::always_inline]] static double bendOf(const float *c, Extent us, Extent as)
    {
        constexpr double roundingOfCoefficients = 3e-7;
        auto c1 = static_cast<double>(c[1]);
        double fall = static_cast<double>(c[0]) * (us.first + us.width / 2);
        double middle = static_cast<double>(c[3]) - fall;
        double bend = 2 * middle - c1 * (as.first + as.last);
        bool isStraight = fabs(bend) <= roundingOfCoefficients * (fabs(c1 * as.last) + fabs(fall));
        return isStraight ? 0 : bend;
    }

    const float *coefficients_;
};

/// Weights that are worked out beforehand, one pair for each interval.
class PreparedWeights {
public:
    explicit PreparedWeights(const EndWeights *weights) : weights_(weights) {}

    EndWeights operator()(int32_t interval, Extent /*us*/, Extent /*as*/) const { return weights_[interval]; }

private:
    const EndWeights *weights_;
};

/// Looks values up in a table.
template<typename Parameters, typename Lengths, typename Weights>
class ArcMap {
public:
    ArcMap(const Parameters &parameters, const Lengths &lengths, Weights weights)
        : parameters_(parameters), lengths_(lengths), weights_(weights)
    {
    }

    double lastParameter() const { return parameters_.last(); }
    double lastLength() const { return lengths_.last(); }

    [[gnu::always_inline]] float lengthAt(float parameter) const
    {
        auto u = static_cast<double>(parameter);
        TablePlace place;
        if (!parameters_.find(parameter, place))
            return static_cast<float>(u > parameters_.first() ? lengths_.last() : lengths_.first());
        Extent as = lengths_.extentOf(place.interval);
        EndWeights weight = weights_(place.interval, parameters_.extentOf(place.interval), as);
        // A line to the other end, and what the piece deviates from it.
        double line = as.width * place.share;
        double here = weight.first + weight.rise * place.share;
        double length = as.first + line + line * (1 - place.share) * weight.rise / here;
        return static_cast<float>(between(as.first, length, as.last));
    }

    [[gnu::always_inline]] float parameterAt(float length) const
    {
        auto a = static_cast<double>(length);
        if (!(a > lengths_.first()))
            return static_cast<float>(parameters_.first());
        if (a >= lengths_.last())
            return static_cast<float>(parameters_.last());
        int32_t interval = lengths_.intervalOf(length);
        Extent us = parameters_.extentOf(interval);
        Extent as = lengths_.extentOf(interval);
        EndWeights weight = weights_(interval, us, as);
        double here = as.width * weight.first + (as.last - a) * weight.rise;
        double parameter = us.first + us.width * (a - as.first) * weight.first / here;
        return static_cast<float>(between(us.first, parameter, us.last));
    }

private:
    /// The ends' weights may differ in sign: a pole that belongs to the end of a piece with a standstill has
    /// been rounded into it, or the table is a stranger's. NaN, when nothing has weight, becomes the first end.
    [[gnu::always_inline]] static double between(double first, double value, double last)
    {
        value = value > first ? value : first;
        return value < last ? value : last;
    }

    Parameters parameters_;
    Lengths lengths_;
    Weights weights_;
};

/// Calls body(map) with the map of an object's table.
/// @param lookUps  how many will follow: what many have in common is worked out beforehand
template<typename Body>
void withArcMap(const Spline1 *spline, int32_t lookUps, Body body)
{
    int32_t intervals = spline->intervals;
    WeightsFromTable weights(spline->table);
    bool uniformParameters = (spline->tableFlags & 1) != 0;
    bool uniformLengths = (spline->tableFlags & 2) != 0;
    if (!uniformParameters || uniformLengths) { // a stranger's table
        AnySamples parameters(spline->parameterSamples, intervals, uniformParameters);
        AnySamples lengths(spline->lengthSamples, intervals, uniformLengths);
        return body(ArcMap(parameters, lengths, weights));
    }
    constexpr int32_t mostPrepared = 256;
    UniformSamples parameters(spline->parameterSamples, intervals);
    StoredSamples lengths(spline->lengthSamples, intervals);
    if (lookUps / 4 < intervals || intervals > mostPrepared)
        return body(ArcMap(parameters, lengths, weights));
    EndWeights prepared[mostPrepared];
    for (int32_t i = 0; i < intervals; ++i)
        prepared[i] = weights(i, parameters.extentOf(i), lengths.extentOf(i));
    body(ArcMap(parameters, lengths, PreparedWeights(prepared)));
}

} // namespace general::spline
