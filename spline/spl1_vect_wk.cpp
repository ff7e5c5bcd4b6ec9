#include "base/module_id.h"

#include "spline/derivative.h"
#include "spline/evaluator.h"

GENERAL_MODULE_ID("$Id$");

namespace general::spline {

namespace {

constexpr int32_t noSpan = INT32_MIN;

/// Evaluates one curve, keeping the control points of the span that it was last on.
template<int Points, int Pairs>
class Evaluator {
public:
    explicit Evaluator(const Spline1 *spline) : spans_(spline)
    {
        Basis basis = basisOf(spline);
        for (int r = 0; r < Points; ++r)
            for (int p = 0; p < weightPairs; ++p)
                rows_[r].pair[p] = Pair{basis.row[r][2 * p], basis.row[r][2 * p + 1]};
    }

    /// @return the place for the next point
    [[gnu::always_inline]] float *point(double parameter, float *result)
    {
        Place place = spans_.locate(parameter);
        goTo(place.span);
        Weights weights = rows_[0];
#pragma GCC unroll 4
        for (int r = 1; r < Points; ++r)
            weights = weights.scaled(place.f).plus(rows_[r], 1);
        return combine(weights, result);
    }

private:
    static constexpr int weightPairs = (Points + 1) / 2;

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
        spans_.template visit<Points, Pairs>(span, [&](int j, const Components<Pairs> &point) { points_[j] = point; });
    }

    /// Sums the control points of the span, by weight.
    [[gnu::always_inline]] float *combine(const Weights &weights, float *result) const
    {
        Components<Pairs> sum;
#pragma GCC unroll 2
        for (int p = 0; p < Pairs; ++p) {
            sum.pair[p] = weights[0] * points_[0].pair[p];
#pragma GCC unroll 4
            for (int j = 1; j < Points; ++j)
                sum.pair[p] += weights[j] * points_[j].pair[p];
        }
        return spans_.store(sum, result);
    }

    Spans spans_;
    int32_t span_ = noSpan;
    Weights rows_[Points];
    Components<Pairs> points_[Points] = {};
};

/// The direction of a curve of degree 2 or 3 where it stands still: along the second derivative, turned
/// towards increasing parameter.
/// @param direction  the second derivative
/// @param scratch    room for two points
[[gnu::cold, gnu::noinline]] void turnForward(const Spline1 *spline, const Spans &spans, const Place &place,
                                              double *direction, float *scratch)
{
    int32_t current = spans.index(place.span, 1);
    bool hasBefore = spans.index(place.span, 0) < current;
    bool hasAfter = spans.index(place.span, 2) > current;
    const float around[] = {static_cast<float>(hasBefore ? place.u - 1 : place.u),
                            static_cast<float>(hasAfter ? place.u + 1 : place.u)};
    evaluatePoints(spline, 2, around, scratch);
    const float *after = scratch + spline->dimension;
    double advance = 0;
    for (int32_t c = 0; c < spline->dimension; ++c)
        advance += direction[c] * (static_cast<double>(after[c]) - static_cast<double>(scratch[c]));
    if (advance < 0)
        for (int32_t c = 0; c < spline->dimension; ++c)
            direction[c] = -direction[c];
}

/// Finds the unit tangents of one curve.
template<int Points, int Pairs>
class Tangents {
public:
    explicit Tangents(const Spline1 *spline) : spline_(spline), derivative_(spline) {}

    /// @param scratch  room for two points; not used for degree 1
    /// @return the place for the next tangent
    [[gnu::always_inline]] float *tangent(double parameter, float *result, float *scratch)
    {
        Place place = spans().locate(parameter);
        if (degree == 1 && place.span == edge_) { // an edge has one tangent
            return spans().store(edgeTangent_, result);
        }
        derivative_.goTo(place.span);
        Components<Pairs> direction = derivative_.first(place.f);
        double length = Derivative<Points, Pairs>::lengthOf(direction);
        if (degree > 1 && length == 0) {
            direction = standingDirection(place, scratch);
            length = Derivative<Points, Pairs>::lengthOf(direction);
        }
        // There may be no direction: then the tangent is the zero vector.
        double scale = length == 0 ? 0 : 1 / length;
        if (degree == 1)
            scale = runsBack(place.span) ? -scale : scale;
#pragma GCC unroll 2
        for (int p = 0; p < Pairs; ++p)
            direction.pair[p] *= scale;
        if (degree == 1) {
            edge_ = place.span;
            edgeTangent_ = direction;
        }
        return spans().store(direction, result);
    }

private:
    static constexpr int degree = Points - 1;

    const Spans &spans() const { return derivative_.spans(); }

    /// Whether an edge is the one beyond the last point of an open polygon.
    bool runsBack(int32_t span) const { return spans().isOpen() && spans().index(span, 0) > spans().index(span, 1); }

    [[gnu::cold, gnu::noinline]] Components<Pairs> standingDirection(const Place &place, float *scratch) const
    {
        double direction[4];
        for (int c = 0; c < 4; ++c)
            direction[c] = derivative_.current().second(place.f, c);
        turnForward(spline_, spans(), place, direction, scratch);
        Components<Pairs> result;
        for (int p = 0; p < Pairs; ++p)
            result.pair[p] = Pair{direction[2 * p], direction[2 * p + 1]};
        return result;
    }

    const Spline1 *spline_;
    Derivative<Points, Pairs> derivative_;
    int32_t edge_ = noSpan;
    Components<Pairs> edgeTangent_ = {};
};

} // namespace

/// Works on differences to one control point: where all of a span coincide, the derivative is exactly 0.
template<int Points, int Pairs>
void Derivative<Points, Pairs>::load(int32_t span)
{
    span_ = span;
    Components<Pairs> start;
    Pair factor[degree][Pairs] = {};
    spans_.template visit<Points, Pairs>(span, [&](int j, const Components<Pairs> &point) {
        if (j == 0) {
            start = point;
            return;
        }
#pragma GCC unroll 2
        for (int p = 0; p < Pairs; ++p) {
            Pair difference = point.pair[p] - start.pair[p];
#pragma GCC unroll 4
            for (int r = 0; r < degree; ++r)
                factor[r][p] += slope_[r][j] * difference;
        }
    });
    for (int r = 0; r < degree; ++r)
        for (int p = 0; p < Pairs; ++p)
            current_.pair(firstRow + r, p) = factor[r][p];
}

template void Derivative<2, 1>::load(int32_t span);
template void Derivative<2, 2>::load(int32_t span);
template void Derivative<3, 1>::load(int32_t span);
template void Derivative<3, 2>::load(int32_t span);
template void Derivative<4, 1>::load(int32_t span);
template void Derivative<4, 2>::load(int32_t span);

void evaluatePoints(const Spline1 *spline, int32_t count, const float *params, float *points)
{
    InputValues parameters(spline, count, params, parameterEnd(spline));
    forShape(spline, [&]<int Points, int Pairs>() {
        Evaluator<Points, Pairs> evaluator(spline);
        float *result = points;
        for (int32_t i = 0; i < count; ++i)
            result = evaluator.point(static_cast<double>(parameters[i]), result);
    });
}

void evaluateTangents(const Spline1 *spline, int32_t count, const float *params, float *tangents, float *scratch)
{
    InputValues parameters(spline, count, params, parameterEnd(spline));
    forShape(spline, [&]<int Points, int Pairs>() {
        Tangents<Points, Pairs> finder(spline);
        float *result = tangents;
        for (int32_t i = 0; i < count; ++i)
            result = finder.tangent(static_cast<double>(parameters[i]), result, scratch);
    });
}

} // namespace general::spline
