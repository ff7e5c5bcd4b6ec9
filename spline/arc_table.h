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

/// Samples that one side of the map is looked up by.
struct ArcSamples {
    const float *sample;
    bool uniform; ///< only the first and last are stored
    int32_t intervals;

    double first() const
    {
        return static_cast<double>(sample[0]);
    }
    double last() const
    {
        return static_cast<double>(sample[uniform ? 1 : intervals]);
    }

    double at(int32_t i) const
    {
        if (!uniform)
            return static_cast<double>(sample[i]);
        return first() + (last() - first()) * i / intervals;
    }

    /// The interval of a value between first and last.
    int32_t intervalOf(double value) const;
};

/// Looks values up in an object's table.
class ArcMap
{
public:
    explicit ArcMap(const Spline1 *spline)
        : coefficients_(spline->table), parameters_{spline->parameterSamples, (spline->tableFlags & 1) != 0,
                                                    spline->intervals},
          lengths_{spline->lengthSamples, (spline->tableFlags & 2) != 0, spline->intervals}
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

    float lengthAt(float parameter) const;
    float parameterAt(float length) const;

private:
    const float *coefficients_;
    ArcSamples parameters_;
    ArcSamples lengths_;
};

} // namespace general::spline
