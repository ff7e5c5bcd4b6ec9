#include "base/module_id.h"

#include "spline/evaluator.h"

#include <math.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace general::spline
{

namespace
{

constexpr int32_t noSpan = INT32_MIN;

/// The parameters of one call: the caller's, or at equal steps.
class Parameters
{
public:
    Parameters(const Spline1 *spline, int32_t count, const float *params)
        : params_(params), step_(defaultStep(isClosed(spline), parameterEnd(spline), count))
    {
    }

    float operator[](int32_t i) const
    {
        return params_ != nullptr ? params_[i] : static_cast<float>(i * step_);
    }

private:
    const float *params_;
    double step_;
};

/// Evaluates one curve, keeping the control points of the span that it was last on.
template<int Points, int Dimension> class Evaluator
{
public:
    explicit Evaluator(const Spline1 *spline) : spans_(spline), basis_(basisOf(spline)) {}

    [[gnu::always_inline]] void point(double parameter, float *result)
    {
        Place place = spans_.locate(parameter);
        goTo(place.span);
        double weights[Points];
#pragma GCC unroll 4
        for (int j = 0; j < Points; ++j) {
            weights[j] = basis_.row[0][j];
#pragma GCC unroll 4
            for (int r = 1; r < Points; ++r)
                weights[j] = weights[j] * place.f + basis_.row[r][j];
        }
        combine(weights, result);
    }

    void tangent(double parameter, float *result, float *scratch)
    {
        Place place = spans_.locate(parameter);
        goTo(place.span);
        double direction[Dimension];
        if (!derivative(place.f, direction) && !standingDirection(place, direction, scratch)) {
#pragma GCC unroll 4
            for (int c = 0; c < Dimension; ++c)
                result[c] = 0;
            return;
        }
        double length = sqrt(dot(direction, direction));
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c)
            result[c] = static_cast<float>(direction[c] / length);
    }

private:
    static constexpr int degree = Points - 1;

    [[gnu::always_inline]] void goTo(int32_t span)
    {
        if (span == span_)
            return;
        spans_.load(span, points_);
        span_ = span;
    }

    template<typename Number> void combine(const double (&weights)[Points], Number *result) const
    {
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c) {
            double sum = weights[0] * points_[0][c];
#pragma GCC unroll 4
            for (int j = 1; j < Points; ++j)
                sum += weights[j] * points_[j][c];
            result[c] = static_cast<Number>(sum);
        }
    }

    static double dot(const double (&a)[Dimension], const double (&b)[Dimension])
    {
        double sum = 0;
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c)
            sum += a[c] * b[c];
        return sum;
    }

    /// @return false when the derivative vanishes
    bool derivative(double f, double (&direction)[Dimension]) const
    {
        if constexpr (degree == 1) {
#pragma GCC unroll 4
            for (int c = 0; c < Dimension; ++c)
                direction[c] = points_[1][c] - points_[0][c];
            if (spans_.index(span_, 0) > spans_.index(span_, 1) && spans_.isOpen())
                negate(direction); // at the last point of an open curve, beyond which it runs back
        } else {
            double weights[Points];
#pragma GCC unroll 4
            for (int j = 0; j < Points; ++j) {
                const auto &row = basis_.row;
                weights[j] =
                    degree == 2 ? 2 * f * row[0][j] + row[1][j] : 3 * f * f * row[0][j] + 2 * f * row[1][j] + row[2][j];
            }
            combine(weights, direction);
        }
        return dot(direction, direction) != 0;
    }

    /// The direction of a curve of degree 2 or 3 where it stands still: along the second derivative,
    /// turned towards increasing parameter.
    /// @return false when there is none
    [[gnu::noinline]] bool standingDirection(const Place &place, double (&direction)[Dimension], float *scratch)
    {
        if constexpr (degree == 1)
            return false;

        double weights[Points];
#pragma GCC unroll 4
        for (int j = 0; j < Points; ++j)
            weights[j] = degree == 2 ? basis_.row[0][j] : 3 * place.f * basis_.row[0][j] + basis_.row[1][j];
        combine(weights, direction);
        if (dot(direction, direction) == 0)
            return false;

        int32_t current = spans_.index(place.span, 1);
        bool hasBefore = spans_.index(place.span, 0) < current;
        bool hasAfter = spans_.index(place.span, 2) > current;
        float *before = scratch;
        float *after = scratch + Dimension;
        point(hasBefore ? place.u - 1 : place.u, before);
        point(hasAfter ? place.u + 1 : place.u, after);
        double advance = 0;
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c)
            advance += direction[c] * (static_cast<double>(after[c]) - static_cast<double>(before[c]));
        if (advance < 0)
            negate(direction);
        return true;
    }

    static void negate(double (&direction)[Dimension])
    {
        for (double &component : direction)
            component = -component;
    }

    Spans spans_;
    Basis basis_;
    int32_t span_ = noSpan;
    alignas(16) double points_[Points][Dimension] = {};
};

} // namespace

void evaluatePoints(const Spline1 *spline, int32_t count, const float *params, float *points)
{
    Parameters parameters(spline, count, params);
    forShape(spline, [&]<int Points, int Dimension>() {
        Evaluator<Points, Dimension> evaluator(spline);
        float *result = points;
        for (int32_t i = 0; i < count; ++i, result += Dimension)
            evaluator.point(static_cast<double>(parameters[i]), result);
    });
}

void evaluateTangents(const Spline1 *spline, int32_t count, const float *params, float *tangents, float *scratch)
{
    Parameters parameters(spline, count, params);
    forShape(spline, [&]<int Points, int Dimension>() {
        Evaluator<Points, Dimension> evaluator(spline);
        float *result = tangents;
        for (int32_t i = 0; i < count; ++i, result += Dimension)
            evaluator.tangent(static_cast<double>(parameters[i]), result, scratch);
    });
}

} // namespace general::spline
