/// @file
/// The curve that the spline benchmarks share: a wavy line in space.

#pragma once

#include "general/spline.h"

#include <cmath>
#include <vector>

namespace bench {

/// count points of three coordinates.
inline std::vector<double> wavyLine(int count, double scale = 1)
{
    std::vector<double> values;
    for (int i = 0; i < count; ++i)
        for (double value : {i + 0.3 * std::sin(5.0 * i), 4 * std::sin(0.7 * i), 3 * std::cos(0.4 * i)})
            values.push_back(scale * value);
    return values;
}

inline Spline1 *makeCurve(int kind, int degree, int count, double scale = 1)
{
    Spline1 *spline = Spline1Create();
    Spline1Encode(spline, SPLINE_OPEN, kind, degree, 3, 0);
    Spline1FitDCtl(spline, count, wavyLine(count, scale).data());
    return spline;
}

} // namespace bench
