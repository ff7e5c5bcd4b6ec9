/// @file
/// How many steps the integration of arc lengths takes, and what it may be off.

#pragma once

#include "spline/spline_object.h"

namespace general::spline {

/// Evaluations of the speed that one integration may take, beyond one for each value asked for.
constexpr double mostEvaluations = 4e6;

/// The step with which every integral from the start is accurate, as far as the work stays bounded.
double integrationStep(const Spline1 *spline);

/// By how much lengths that are integrated with a step may miss the accuracy that is asked for; 0 when
/// they do not.
double integrationShortfall(const Spline1 *spline, double step);

} // namespace general::spline
