/// @file
/// Solving for the control points of a B-spline through given points.

#pragma once

#include "spline/spline_object.h"

namespace general::spline
{

/// Whether data points have to be solved for at all.
bool needsSolving(const Spline1 *spline);

/// Floats of working storage that the solving takes.
/// @return false when they do not fit the address space
bool solverFloats(const Spline1 *spline, int32_t &floats);

/// Turns the object's data points into control points, in place.
/// @param scratch  as many floats as solverFloats says
void solveForControlPoints(const Spline1 *spline, float *scratch);

} // namespace general::spline
