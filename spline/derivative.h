/// @file
/// The derivative of a curve.

#pragma once

#include "spline/evaluator.h"

#include <math.h>

namespace general::spline {

/// The derivative on one span: a quadratic polynomial of the local parameter for each component. What a curve
/// does not have, in degree or dimension, is 0.
struct SpanDerivative {
    static constexpr int rows = 3;
    static constexpr int components = 4;

    alignas(16) double factor[rows][components]; ///< highest power first

    double first(double f, int c) const { return (factor[0][c] * f + factor[1][c]) * f + factor[2][c]; }
    double second(double f, int c) const { return 2 * factor[0][c] * f + factor[1][c]; }
    double third(int c) const { return 2 * factor[0][c]; }

    [[gnu::always_inline]] Pair &pair(int row, int p) { return reinterpret_cast<Pair &>(factor[row][2 * p]); }
    [[gnu::always_inline]] const Pair &pair(int row, int p) const
    {
        return reinterpret_cast<const Pair &>(factor[row][2 * p]);
    }
};

/// Finds the derivative of a curve, span by span.
template<int Points, int Pairs>
class Derivative {
public:
    explicit Derivative(const Spline1 *spline) : spans_(spline)
    {
        Basis basis = basisOf(spline);
        for (int r = 0; r < degree; ++r)
            for (int j = 1; j < Points; ++j)
                slope_[r][j] = (degree - r) * basis.row[r][j];
    }

    const Spans &spans() const { return spans_; }

    [[gnu::always_inline]] void goTo(int32_t span)
    {
        if (span != span_)
            load(span);
    }

    /// The derivative on the span that was last gone to.
    const SpanDerivative &current() const { return current_; }

    /// The derivative at a local parameter of that span.
    [[gnu::always_inline]] Components<Pairs> first(double f) const
    {
        Components<Pairs> result;
#pragma GCC unroll 2
        for (int p = 0; p < Pairs; ++p) {
            Pair value = current_.pair(firstRow, p);
#pragma GCC unroll 2
            for (int r = firstRow + 1; r < SpanDerivative::rows; ++r)
                value = value * f + current_.pair(r, p);
            result.pair[p] = value;
        }
        return result;
    }

    [[gnu::always_inline]] double speed(double f) const { return lengthOf(first(f)); }

    [[gnu::always_inline]] static double lengthOf(const Components<Pairs> &vector)
    {
        Pair square = vector.pair[0] * vector.pair[0];
        double sum = square[0] + square[1];
        if (Pairs == 2)
            sum += vector.pair[Pairs - 1][0] * vector.pair[Pairs - 1][0];
        return sqrt(sum);
    }

private:
    static constexpr int degree = Points - 1;
    static constexpr int firstRow = SpanDerivative::rows - degree;

    /// Compiled once, in spl1_vect_wk.
    [[gnu::noinline]] void load(int32_t span);

    Spans spans_;
    int32_t span_ = INT32_MIN;
    double slope_[degree][Points] = {}; ///< what a control point adds to each factor
    SpanDerivative current_ = {};
};

extern template void Derivative<2, 1>::load(int32_t span);
extern template void Derivative<2, 2>::load(int32_t span);
extern template void Derivative<3, 1>::load(int32_t span);
extern template void Derivative<3, 2>::load(int32_t span);
extern template void Derivative<4, 1>::load(int32_t span);
extern template void Derivative<4, 2>::load(int32_t span);

} // namespace general::spline
