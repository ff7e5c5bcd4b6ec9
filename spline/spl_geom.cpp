#include "base/module_id.h"

#include "spline/basis.h"

GENERAL_MODULE_ID("$Id$");

namespace general::spline
{

namespace
{

constexpr Basis linear{.degree = 1, .row = {{-1, 1}, {1, 0}}};

constexpr Basis quadratic{.degree = 2, .row = {{0.5, -1, 0.5}, {-1, 1, 0}, {0.5, 0.5, 0}}};

constexpr Basis cubic{
    .degree = 3,
    .row = {{-1.0 / 6, 0.5, -0.5, 1.0 / 6}, {0.5, -1, 0.5, 0}, {-0.5, 0, 0.5, 0}, {1.0 / 6, 2.0 / 3, 1.0 / 6, 0}}};

/// Cardinal spline (Catmull and Rom, 1974) with scale s; s = 0.5 is the Catmull-Rom spline.
Basis cardinal(double s)
{
    return {.degree = 3, .row = {{-s, 2 - s, s - 2, s}, {2 * s, s - 3, 3 - 2 * s, -s}, {-s, 0, s, 0}, {0, 1, 0, 0}}};
}

} // namespace

Basis basisOf(const Spline1 *spline)
{
    if (spline->degree == 1)
        return linear;
    if (spline->kind == SPLINE_CARDINAL)
        return cardinal(spline->cardinalScale);
    return spline->degree == 2 ? quadratic : cubic;
}

} // namespace general::spline
