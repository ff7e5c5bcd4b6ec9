#include "base/module_id.h"

#include "spline/evaluator.h"

#include <utility>

#include <math.h>
#include <stdlib.h>

GENERAL_MODULE_ID("$Id$");

namespace general::spline {

namespace {

constexpr int32_t noSpan = INT32_MIN;

/// The parameters of one call: the caller's, or at equal steps.
class Parameters {
public:
    Parameters(const Spline1 *spline, int32_t count, const float *params)
        : params_(params), step_(defaultStep(isClosed(spline), parameterEnd(spline), count))
    {
    }

    float operator[](int32_t i) const { return params_ != nullptr ? params_[i] : static_cast<float>(i * step_); }

private:
    const float *params_;
    double step_;
};

/// Two numbers that are computed with at once.
using Pair [[gnu::vector_size(16), gnu::may_alias]] = double;

/// Evaluates one curve, keeping the control points of the span that it was last on.
template<int Points, int Dimension>
class Evaluator {
public:
    explicit Evaluator(const Spline1 *spline) : spans_(spline)
    {
        Basis basis = basisOf(spline);
        for (int r = 0; r < Points; ++r)
            for (int p = 0; p < weightPairs; ++p)
                rows_[r].pair[p] = Pair{basis.row[r][2 * p], basis.row[r][2 * p + 1]};
    }

    [[gnu::always_inline]] void point(double parameter, float *result)
    {
        Place place = spans_.locate(parameter);
        goTo(place.span);
        Weights weights = rows_[0];
#pragma GCC unroll 4
        for (int r = 1; r < Points; ++r)
            weights = weights.scaled(place.f).plus(rows_[r], 1);
        combine(weights, result);
    }

    [[gnu::always_inline]] void tangent(double parameter, float *result, float *scratch)
    {
        Place place = spans_.locate(parameter);
        if (degree == 1 && place.span == tangentSpan_) { // an edge has one tangent
            for (int c = 0; c < Dimension; ++c)
                result[c] = tangent_[c];
            return;
        }
        goTo(place.span);
        findTangent(place, result, scratch);
        if (degree == 1) {
            tangentSpan_ = place.span;
            for (int c = 0; c < Dimension; ++c)
                tangent_[c] = result[c];
        }
    }

private:
    static constexpr int degree = Points - 1;
    static constexpr int weightPairs = (Points + 1) / 2;
    static constexpr int componentPairs = (Dimension + 1) / 2;

    [[gnu::always_inline]] void findTangent(const Place &place, float *result, float *scratch)
    {
        double direction[Dimension];
        if (!derivative(place.f, direction) && !standingDirection(place, direction, scratch)) {
            for (int c = 0; c < Dimension; ++c)
                result[c] = 0;
            return;
        }
        double length = sqrt(dot(direction, direction));
        for (int c = 0; c < Dimension; ++c)
            result[c] = static_cast<float>(direction[c] / length);
    }

    /// One number for each control point of a span, padded with 0 to pairs.
    struct Weights {
        Pair pair[weightPairs];

        double operator[](int j) const { return pair[j / 2][j % 2]; }

        [[gnu::always_inline]] Weights scaled(double factor) const
        {
            Weights result;
#pragma GCC unroll 2
            for (int p = 0; p < weightPairs; ++p)
                result.pair[p] = pair[p] * factor;
            return result;
        }

        [[gnu::always_inline]] Weights plus(const Weights &other, double factor) const
        {
            Weights result;
#pragma GCC unroll 2
            for (int p = 0; p < weightPairs; ++p)
                result.pair[p] = pair[p] + other.pair[p] * factor;
            return result;
        }
    };

    [[gnu::always_inline]] void goTo(int32_t span)
    {
        if (span == span_)
            return;
        span_ = span;
        spans_.template visit<Points, Dimension>(span, [&](int j, const float *component) {
            for (int p = 0; p < componentPairs; ++p) {
                auto left = static_cast<double>(component[2 * p]);
                points_[j][p] = Pair{left, 2 * p + 1 < Dimension ? static_cast<double>(component[2 * p + 1]) : 0};
            }
        });
    }

    /// Sums the control points of the span, by weight.
    template<typename Number>
    [[gnu::always_inline]] void combine(const Weights &weights, Number *result) const
    {
#pragma GCC unroll 2
        for (int p = 0; p < componentPairs; ++p) {
            Pair sum = weights[0] * points_[0][p];
#pragma GCC unroll 4
            for (int j = 1; j < Points; ++j)
                sum += weights[j] * points_[j][p];
            result[2 * p] = static_cast<Number>(sum[0]);
            if (2 * p + 1 < Dimension)
                result[2 * p + 1] = static_cast<Number>(sum[1]);
        }
    }

    static double dot(const double (&a)[Dimension], const double (&b)[Dimension])
    {
        double sum = 0;
        for (int c = 0; c < Dimension; ++c)
            sum += a[c] * b[c];
        return sum;
    }

    /// @return false when the derivative vanishes
    [[gnu::always_inline]] bool derivative(double f, double (&direction)[Dimension]) const
    {
        if constexpr (degree == 1) {
            combine(rows_[0], direction);
            if (spans_.isOpen() && spans_.index(span_, 0) > spans_.index(span_, 1))
                negate(direction); // at the last point of an open curve, beyond which it runs back
        } else if constexpr (degree == 2) {
            combine(rows_[0].scaled(2 * f).plus(rows_[1], 1), direction);
        } else {
            combine(rows_[0].scaled(3 * f * f).plus(rows_[1], 2 * f).plus(rows_[2], 1), direction);
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

        combine(degree == 2 ? rows_[0] : rows_[0].scaled(3 * place.f).plus(rows_[1], 1), direction);
        if (dot(direction, direction) == 0)
            return false;

        int32_t current = spans_.index(place.span, 1);
        bool hasBefore = spans_.index(place.span, 0) < current;
        bool hasAfter = spans_.index(place.span, 2) > current;
        float *before = scratch;
        float *after = scratch + Dimension;
        // A loop, so that the whole of point() is compiled here once.
        for (auto [parameter, result] :
             {std::pair(hasBefore ? place.u - 1 : place.u, before), std::pair(hasAfter ? place.u + 1 : place.u, after)})
            point(parameter, result);
        double advance = 0;
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
    int32_t span_ = noSpan;
    int32_t tangentSpan_ = noSpan;
    float tangent_[Dimension] = {};
    Weights rows_[Points];
    Pair points_[Points][componentPairs] = {};
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
