/// @file
/// Basis matrices of the curve types.

#pragma once

#include "spline/spline_object.h"

namespace general::spline
{

/// The weights of a span's control points as polynomials of the local parameter f. Row r holds the
/// factors of f^(degree - r), one per control point of the span, so the weight of control point j is
/// the sum of row[r][j] f^(degree - r).
struct Basis {
    int32_t degree;
    double row[4][4];
};

/// The basis of a usable type.
Basis basisOf(const Spline1 *spline);

} // namespace general::spline
