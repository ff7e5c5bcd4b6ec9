#include "base/module_id.h"

#include "spline/derivative.h"
#include "spline/evaluator.h"

#include <utility>

GENERAL_MODULE_ID("$Id$");

namespace general::spline {

namespace {

constexpr int32_t noSpan = INT32_MIN;

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

private:
    static constexpr int weightPairs = (Points + 1) / 2;
    static constexpr int componentPairs = (Dimension + 1) / 2;

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
    [[gnu::always_inline]] void combine(const Weights &weights, float *result) const
    {
#pragma GCC unroll 2
        for (int p = 0; p < componentPairs; ++p) {
            Pair sum = weights[0] * points_[0][p];
#pragma GCC unroll 4
            for (int j = 1; j < Points; ++j)
                sum += weights[j] * points_[j][p];
            result[2 * p] = static_cast<float>(sum[0]);
            if (2 * p + 1 < Dimension)
                result[2 * p + 1] = static_cast<float>(sum[1]);
        }
    }

    Spans spans_;
    int32_t span_ = noSpan;
    Weights rows_[Points];
    Pair points_[Points][componentPairs] = {};
};

/// Finds the unit tangents of one curve.
template<int Points, int Dimension>
class Tangents {
public:
    explicit Tangents(const Spline1 *spline) : spline_(spline), derivative_(spline) {}

    /// @param scratch  2 * Dimension floats; not used for degree 1
    [[gnu::always_inline]] void tangent(double parameter, float *result, float *scratch)
    {
        Place place = spans().locate(parameter);
        if (degree == 1 && place.span == edge_) { // an edge has one tangent
            for (int c = 0; c < Dimension; ++c)
                result[c] = edgeTangent_[c];
            return;
        }
        derivative_.goTo(place.span);
        double direction[Dimension];
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c)
            direction[c] = derivative_.first(place.f, c);
        double length = lengthOf(direction);
        if (length == 0) {
            standingDirection(place, direction, scratch);
            length = lengthOf(direction);
        }
        // There may be no direction: then the tangent is the zero vector.
        double scale = length == 0 ? 0 : 1 / length;
        if (degree == 1)
            scale = runsBack(place.span) ? -scale : scale;
#pragma GCC unroll 4
        for (int c = 0; c < Dimension; ++c)
            result[c] = static_cast<float>(direction[c] * scale);
        if (degree == 1) {
            edge_ = place.span;
            for (int c = 0; c < Dimension; ++c)
                edgeTangent_[c] = result[c];
        }
    }

private:
    static constexpr int degree = Points - 1;

    const Spans &spans() const { return derivative_.spans(); }

    static double lengthOf(const double (&vector)[Dimension])
    {
        return Derivative<Points, Dimension>::length([&](int c) { return vector[c]; });
    }

    /// Whether an edge is the one beyond the last point of an open polygon.
    bool runsBack(int32_t span) const { return spans().isOpen() && spans().index(span, 0) > spans().index(span, 1); }

    /// The direction of a curve of degree 2 or 3 where it stands still: along the second derivative,
    /// turned towards increasing parameter.
    [[gnu::noinline]] void standingDirection(const Place &place, double (&direction)[Dimension], float *scratch) const
    {
        if constexpr (degree == 1)
            return;

        for (int c = 0; c < Dimension; ++c)
            direction[c] = derivative_.second(place.f, c);
        int32_t current = spans().index(place.span, 1);
        bool hasBefore = spans().index(place.span, 0) < current;
        bool hasAfter = spans().index(place.span, 2) > current;
        float *before = scratch;
        float *after = scratch + Dimension;
        Evaluator<Points, Dimension> evaluator(spline_);
        // A loop, so that the whole of point() is compiled here once.
        for (auto [parameter, result] :
             {std::pair(hasBefore ? place.u - 1 : place.u, before), std::pair(hasAfter ? place.u + 1 : place.u, after)})
            evaluator.point(parameter, result);
        double advance = 0;
        for (int c = 0; c < Dimension; ++c)
            advance += direction[c] * (static_cast<double>(after[c]) - static_cast<double>(before[c]));
        if (advance < 0)
            for (double &component : direction)
                component = -component;
    }

    const Spline1 *spline_;
    Derivative<Points, Dimension> derivative_;
    int32_t edge_ = noSpan;
    float edgeTangent_[Dimension] = {};
};

} // namespace

void evaluatePoints(const Spline1 *spline, int32_t count, const float *params, float *points)
{
    InputValues parameters(spline, count, params, parameterEnd(spline));
    forShape(spline, [&]<int Points, int Dimension>() {
        Evaluator<Points, Dimension> evaluator(spline);
        float *result = points;
        for (int32_t i = 0; i < count; ++i, result += Dimension)
            evaluator.point(static_cast<double>(parameters[i]), result);
    });
}

void evaluateTangents(const Spline1 *spline, int32_t count, const float *params, float *tangents, float *scratch)
{
    InputValues parameters(spline, count, params, parameterEnd(spline));
    forShape(spline, [&]<int Points, int Dimension>() {
        Tangents<Points, Dimension> finder(spline);
        float *result = tangents;
        for (int32_t i = 0; i < count; ++i, result += Dimension)
            finder.tangent(static_cast<double>(parameters[i]), result, scratch);
    });
}

} // namespace general::spline
