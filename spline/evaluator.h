/// @file
/// Evaluation of points and tangents; parameters, spans and the index rules.

#pragma once

#include "spline/basis.h"
#include "spline/spline_object.h"

#include <stdlib.h>

namespace general::spline {

/// Computes count points as floats, in the order of the parameters. The type must be usable and there
/// must be points.
/// @param params  null for parameters at equal steps. May share memory with points as long as no
///                point overwrites a parameter that is still to be read
void evaluatePoints(const Spline1 *spline, int32_t count, const float *params, float *points);

/// Computes count unit tangents as floats, likewise.
/// @param scratch  2 * dimension floats, needed for degrees 2 and 3
void evaluateTangents(const Spline1 *spline, int32_t count, const float *params, float *tangents, float *scratch);

/// Two numbers that are computed with at once.
using Pair [[gnu::vector_size(16), gnu::may_alias]] = double;

/// The components of a point: one or two, or three and a 0.
template<int Pairs>
struct Components {
    Pair pair[Pairs];
};

/// A place on the curve: a span, by its number, and the local parameter in it.
struct Place {
    double u; ///< the parameter, clamped to the range of the curve
    int32_t span;
    double f; ///< in [0, 1)
};

/// The control points of a curve by span. Span k of a curve of degree 1, 2 or 3 depends on the control
/// points from k, k or k - 1 on, one more than its degree.
///
/// locate and visit are inlined for the rows "1000 points" of the spline benchmark, which else take a third longer.
class Spans {
public:
    explicit Spans(const Spline1 *spline)
        : points_(spline->points), count_(spline->pointCount), degree_(spline->degree), dimension_(spline->dimension),
          closed_(isClosed(spline)), end_(parameterEnd(spline)),
          // Quadratic spans lie half a unit later: integer parameters fall on their middle.
          shift_(degree_ == 2 ? 0.5 : 0)
    {
    }

    /// The place of a parameter. NaN counts as the start of the curve.
    [[gnu::always_inline]] Place locate(double parameter) const
    {
        double u = parameter > 0 ? parameter : 0;
        u = u < end_ ? u : end_;
        double shifted = u + shift_;
        auto whole = static_cast<int32_t>(shifted);
        return {u, degree_ == 2 ? whole - 1 : whole, shifted - whole};
    }

    /// The number of control point j of a span.
    [[gnu::always_inline]] int32_t index(int32_t span, int32_t j) const
    {
        int32_t number = firstNumber(span) + j;
        return number >= 0 && number < count_ ? number : wrapped(number);
    }

    bool isOpen() const { return !closed_; }

    /// Calls use(j, its components) for each control point j of a span. The components come in pairs, padded with 0.
    template<int Points, int Pairs, typename Use>
    [[gnu::always_inline]] void visit(int32_t span, Use use) const
    {
        int32_t first = firstNumber(span);
        if (first >= 0 && first <= count_ - Points) {
            const float *point = points_ + static_cast<ptrdiff_t>(first) * stride<Pairs>();
#pragma GCC unroll 4
            for (int j = 0; j < Points; ++j)
                use(j, components<Pairs>(point + static_cast<ptrdiff_t>(j) * stride<Pairs>()));
            return;
        }
        for (int j = 0; j < Points; ++j)
            use(j, components<Pairs>(points_ + static_cast<ptrdiff_t>(index(span, j)) * stride<Pairs>()));
    }

    /// Writes a result.
    /// @return the place for the next one
    template<int Pairs>
    [[gnu::always_inline]] float *store(const Components<Pairs> &point, float *result) const
    {
        result[0] = static_cast<float>(point.pair[0][0]);
        if (hasSecond<Pairs>())
            result[1] = static_cast<float>(point.pair[0][1]);
        if (Pairs == 2)
            result[2] = static_cast<float>(point.pair[Pairs - 1][0]);
        return result + stride<Pairs>();
    }

private:
    template<int Pairs>
    [[gnu::always_inline]] bool hasSecond() const
    {
        return Pairs == 2 || dimension_ == 2;
    }

    /// Floats from one point to the next.
    template<int Pairs>
    [[gnu::always_inline]] int32_t stride() const
    {
        return Pairs == 2 ? 3 : dimension_;
    }

    template<int Pairs>
    [[gnu::always_inline]] Components<Pairs> components(const float *point) const
    {
        Components<Pairs> result;
        result.pair[0] = Pair{static_cast<double>(point[0]), hasSecond<Pairs>() ? static_cast<double>(point[1]) : 0};
        if (Pairs == 2)
            result.pair[Pairs - 1] = Pair{static_cast<double>(point[2]), 0};
        return result;
    }

    int32_t firstNumber(int32_t span) const { return degree_ == 3 ? span - 1 : span; }

    /// Brings a number beyond the ends back: mirrored about the first and last control point of an open
    /// curve, around the loop of a closed one.
    [[gnu::noinline]] int32_t wrapped(int32_t number) const
    {
        if (closed_) {
            int32_t remainder = number % count_;
            return remainder < 0 ? remainder + count_ : remainder;
        }
        int64_t last = int64_t{count_} - 1;
        if (last == 0)
            return 0;
        int64_t beyond = (number - last) % (2 * last);
        return static_cast<int32_t>(number < last ? llabs(beyond + last) : llabs(beyond - last));
    }

    const float *points_;
    int32_t count_;
    int32_t degree_;
    int32_t dimension_;
    bool closed_;
    double end_;
    double shift_;
};

/// Calls body.operator()<Points, Pairs>() for the span size and the pairs of components of a usable type.
template<typename Body>
decltype(auto) forShape(const Spline1 *spline, Body &&body)
{
    auto withPoints = [&]<int Points>() -> decltype(auto) {
        if (spline->dimension < 3)
            return body.template operator()<Points, 1>();
        return body.template operator()<Points, 2>();
    };
    switch (spline->degree) {
    case 1:
        return withPoints.template operator()<2>();
    case 2:
        return withPoints.template operator()<3>();
    default:
        return withPoints.template operator()<4>();
    }
}

} // namespace general::spline
