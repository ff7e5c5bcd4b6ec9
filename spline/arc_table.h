/// @file
/// The arc table: a compact map between parameters and arc lengths.
///
/// m intervals take 5 m + 3 floats: four coefficients c0 to c3 for each interval, the first and last
/// parameter, and m + 1 arc lengths. In its interval, parameter u has arc length
/// (c3 - c0 u) / (c2 u + c1), and arc length a the parameter (c3 - c1 a) / (c2 a + c0).

#pragma once

#include "spline/spline_object.h"

namespace general::spline
{

/// Measures the curve and fills the arc table. The type must be usable and there must be points.
/// @return false when memory is exhausted
bool buildArcTable(Spline1 *spline);

/// Compares the table with a second integration, at the middle between the samples it was made from,
/// and adds half the accuracy. The type must be usable, and there must be points and a table.
/// @param error  receives the largest deviation, relative to the total length
/// @return false when memory is exhausted
bool estimateError(Spline1 *spline, double &error);

/// One side of the map: the parameters, or the arc lengths.
class ArcSamples
{
public:
    /// @param uniform  only the first and last sample are stored
    ArcSamples(const float *samples, bool uniform, int32_t intervals)
        : samples_(samples), uniform_(uniform), intervals_(intervals), first_(static_cast<double>(samples[0])),
          last_(static_cast<double>(samples[uniform ? 1 : intervals])), step_((last_ - first_) / intervals),
          intervalsPerUnit_(intervals / (last_ - first_))
    {
    }

    double first() const
    {
        return first_;
    }
    double last() const
    {
        return last_;
    }

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
class ArcMap
{
public:
    explicit ArcMap(const Spline1 *spline)
        : coefficients_(spline->table),
          parameters_(spline->parameterSamples, (spline->tableFlags & 1) != 0, spline->intervals),
          lengths_(spline->lengthSamples, (spline->tableFlags & 2) != 0, spline->intervals)
    {
    }

    double lastParameter() const
    {
        return parameters_.last();
    }
    double lastLength() const
    {
        return lengths_.last();
    }

    [[gnu::always_inline]] float lengthAt(float parameter) const
    {
        return mapped<0, 1>(parameter, parameters_, lengths_);
    }
    [[gnu::always_inline]] float parameterAt(float length) const
    {
        return mapped<1, 0>(length, lengths_, parameters_);
    }

private:
    /// (c3 - Near x) / (c2 x + Far): Near and Far are the places of c0 and c1, or of c1 and c0 for the inverse.
    template<int Near, int Far>
    [[gnu::always_inline]] float mapped(float value, const ArcSamples &domain, const ArcSamples &range) const
    {
        auto x = static_cast<double>(value);
        if (!(x > domain.first()))
            return static_cast<float>(range.first());
        if (x >= domain.last())
            return static_cast<float>(range.last());
        int32_t interval = domain.intervalOf(value);
        const float *c = coefficients_ + 4 * static_cast<size_t>(interval);
        double y = (static_cast<double>(c[3]) - static_cast<double>(c[Near]) * x) /
                   (static_cast<double>(c[2]) * x + static_cast<double>(c[Far]));
        // Only by rounding does the formula leave the interval, and where both of its terms vanish: on a
        // piece that begins or ends at a standstill.
        double low = range.at(interval);
        double high = range.at(interval + 1);
        if (y >= low && y <= high)
            return static_cast<float>(y);
        if (y < low)
            return static_cast<float>(low);
        return static_cast<float>(y > high ? high : low + (high - low) / 2);
    }

    const float *coefficients_;
    ArcSamples parameters_;
    ArcSamples lengths_;
};

} // namespace general::spline
