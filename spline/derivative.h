/// @file
/// The derivative of a curve.

#pragma once

#include "spline/evaluator.h"

#include <math.h>

namespace general::spline {

/// The derivative, span by span, as a polynomial of the local parameter.
template<int Points, int Dimension>
class Derivative {
public:
    static constexpr int degree = Points - 1;

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

    /// A component of the derivative at a local parameter of the span.
    [[gnu::always_inline]] double first(double f, int c) const
    {
        double value = factor_[0][c];
#pragma GCC unroll 4
        for (int r = 1; r < degree; ++r)
            value = value * f + factor_[r][c];
        return value;
    }

    /// A component of the second derivative.
    double second(double f, int c) const
    {
        if constexpr (degree == 3)
            return 2 * factor_[0][c] * f + factor_[1][c];
        return degree == 2 ? factor_[0][c] : 0;
    }

    /// A component of the third derivative, which is constant on a span.
    double third(int c) const { return degree == 3 ? 2 * factor_[0][c] : 0; }

    [[gnu::always_inline]] double speed(double f) const
    {
        return length([&](int c) { return first(f, c); });
    }

    /// Length of the second derivative.
    double acceleration(double f) const
    {
        return length([&](int c) { return second(f, c); });
    }

    /// Length of the vector with the components that component(c) gives.
    template<typename Component>
    [[gnu::always_inline]] static double length(Component component)
    {
        double sum = 0;
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c) {
            double value = component(c);
            sum += value * value;
        }
        return sqrt(sum);
    }

private:
    /// Works on differences to one control point: where all of a span coincide, the derivative is exactly 0.
    [[gnu::noinline]] void load(int32_t span)
    {
        span_ = span;
        double factor[degree][Dimension] = {};
        double start[Dimension] = {};
        spans_.template visit<Points, Dimension>(span, [&](int j, const float *point) {
#pragma GCC unroll 4
            for (int c = 0; c < Dimension; ++c) {
                auto component = static_cast<double>(point[c]);
                if (j == 0) {
                    start[c] = component;
                    continue;
                }
#pragma GCC unroll 4
                for (int r = 0; r < degree; ++r)
                    factor[r][c] += slope_[r][j] * (component - start[c]);
            }
        });
        for (int r = 0; r < degree; ++r)
            for (int c = 0; c < Dimension; ++c)
                factor_[r][c] = factor[r][c];
    }

    Spans spans_;
    double slope_[degree][Points] = {}; ///< what a control point adds to each factor
    int32_t span_ = INT32_MIN;
    double factor_[degree][Dimension] = {}; ///< highest power first
};

} // namespace general::spline
