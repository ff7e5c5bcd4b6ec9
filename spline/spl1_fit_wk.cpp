#include "base/module_id.h"

#include "spline/basis.h"
#include "spline/solver.h"

GENERAL_MODULE_ID("$Id$");

namespace general::spline
{

namespace
{

/// Weights of a data point's neighbours and of its own control point; the curve is symmetric.
struct Weights {
    double side;
    double own;
};

/// What an integer parameter falls on: the beginning of a cubic span, the middle of a quadratic one.
Weights weightsAtDataPoints(const Spline1 *spline)
{
    Basis basis = basisOf(spline);
    const auto &row = basis.row;
    if (basis.degree == 3)
        return {row[3][0], row[3][1]};
    return {0.25 * row[0][0] + 0.5 * row[1][0] + row[2][0], 0.25 * row[0][1] + 0.5 * row[1][1] + row[2][1]};
}

/// A tridiagonal system that is regular but for its first and last row.
struct Tridiagonal {
    int32_t rows; ///< at least 2
    double side;  ///< off-diagonal entries
    double firstSuper;
    double lastSub;
    double own; ///< diagonal
    double firstOwn;
    double lastOwn;

    double super(int32_t row) const
    {
        return row == 0 ? firstSuper : side;
    }
    double sub(int32_t row) const
    {
        return row == rows - 1 ? lastSub : side;
    }
    double diagonal(int32_t row) const
    {
        return row == rows - 1 ? lastOwn : own;
    }
};

/// Solves in place by elimination without pivoting: the systems here are diagonally dominant.
/// @param right     rows * Components floats: the right-hand sides, then the solutions
/// @param diagonal  rows floats of working storage
template<int Components> void solve(const Tridiagonal &system, float *right, float *diagonal)
{
    int32_t last = system.rows - 1;
    double pivot = system.firstOwn;
    double value[Components]; // of the row before, not yet narrowed
    for (int c = 0; c < Components; ++c)
        value[c] = static_cast<double>(right[c]);
    diagonal[0] = static_cast<float>(pivot);
    float *row = right;
    for (int32_t k = 1; k <= last; ++k) {
        row += Components;
        double factor = system.sub(k) / pivot;
        pivot = system.diagonal(k) - factor * system.super(k - 1);
        diagonal[k] = static_cast<float>(pivot);
        for (int c = 0; c < Components; ++c) {
            value[c] = static_cast<double>(row[c]) - factor * value[c];
            row[c] = static_cast<float>(value[c]);
        }
    }
    for (int c = 0; c < Components; ++c) {
        value[c] /= pivot;
        row[c] = static_cast<float>(value[c]);
    }
    for (int32_t k = last - 1; k >= 0; --k) {
        row -= Components;
        double inverse = 1 / static_cast<double>(diagonal[k]);
        for (int c = 0; c < Components; ++c) {
            value[c] = (static_cast<double>(row[c]) - system.super(k) * value[c]) * inverse;
            row[c] = static_cast<float>(value[c]);
        }
    }
}

/// Open curves, whose control points are mirrored at the ends: both neighbours of the first point are
/// the second. A closed curve of two points has the same equations.
template<int Dimension> void solveOpen(Weights weights, int32_t count, float *points, float *scratch)
{
    double both = 2 * weights.side;
    solve<Dimension>({.rows = count,
                      .side = weights.side,
                      .firstSuper = both,
                      .lastSub = both,
                      .own = weights.own,
                      .firstOwn = weights.own,
                      .lastOwn = weights.own},
                     points, scratch);
}

/// Closed curves of three and more points. The two corner entries of the cyclic matrix are a rank-one
/// change u v' of a tridiagonal one (Sherman and Morrison, 1950).
template<int Dimension> void solveClosed(Weights weights, int32_t count, float *points, float *scratch)
{
    double corner = weights.side;
    double pivot = -weights.own; // any number does; this one keeps the matrix dominant
    Tridiagonal system{.rows = count,
                       .side = weights.side,
                       .firstSuper = weights.side,
                       .lastSub = weights.side,
                       .own = weights.own,
                       .firstOwn = weights.own - pivot,
                       .lastOwn = weights.own - corner * corner / pivot};
    float *change = scratch + count; // solution for u = (pivot, 0, ..., 0, corner)
    for (int32_t k = 0; k < count; ++k)
        change[k] = 0;
    change[0] = static_cast<float>(pivot);
    change[count - 1] = static_cast<float>(corner);
    solve<1>(system, change, scratch);
    solve<Dimension>(system, points, scratch);

    double lastShare = corner / pivot; // v = (1, 0, ..., 0, lastShare)
    double scale = 1 + static_cast<double>(change[0]) + lastShare * static_cast<double>(change[count - 1]);
    const float *lastPoint = points + static_cast<size_t>(count - 1) * Dimension;
    double amount[Dimension];
    for (int c = 0; c < Dimension; ++c)
        amount[c] = (static_cast<double>(points[c]) + lastShare * static_cast<double>(lastPoint[c])) / scale;
    for (int32_t k = 0; k < count; ++k)
        for (int c = 0; c < Dimension; ++c, ++points)
            *points = static_cast<float>(static_cast<double>(*points) - amount[c] * static_cast<double>(change[k]));
}

template<int Dimension> void solveFor(const Spline1 *spline, float *scratch)
{
    Weights weights = weightsAtDataPoints(spline);
    if (isClosed(spline) && spline->pointCount > 2)
        solveClosed<Dimension>(weights, spline->pointCount, spline->points, scratch);
    else
        solveOpen<Dimension>(weights, spline->pointCount, spline->points, scratch);
}

} // namespace

bool needsSolving(const Spline1 *spline)
{
    return spline->kind == SPLINE_B && spline->degree > 1;
}

bool solverFloats(const Spline1 *spline, int32_t &floats)
{
    return floatsNeeded(spline->pointCount, isClosed(spline) ? 2 : 1, floats);
}

void solveForControlPoints(const Spline1 *spline, float *scratch)
{
    if (spline->pointCount == 1) // a curve of one control point is that point
        return;
    switch (spline->dimension) {
    case 1:
        return solveFor<1>(spline, scratch);
    case 2:
        return solveFor<2>(spline, scratch);
    default:
        return solveFor<3>(spline, scratch);
    }
}

} // namespace general::spline
