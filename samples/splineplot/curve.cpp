#include "curve.h"

#include <stdexcept>

namespace
{

constexpr int mostRounds = 8; // 16384 intervals

void check(uint32_t result)
{
    if (result == SPLINE_NO_MEMORY)
        throw std::runtime_error("not enough memory");
    if (result != SPLINE_OK)
        throw std::runtime_error("the library refuses the points or the type (code " + std::to_string(result) + ")");
}

size_t size(int count)
{
    return static_cast<size_t>(count);
}

} // namespace

Curve::Curve(const CurveType &type, int dimension) : type_(type), dimension_(dimension), spline_(Spline1Create())
{
    if (spline_ == nullptr)
        throw std::runtime_error("not enough memory");
    uint32_t result = Spline1Encode(spline_.get(), type.form, type.kind, type.degree, dimension, type.tension);
    if (result != SPLINE_OK)
        throw std::runtime_error("there is no such curve: a B-spline has degree 1, 2 or 3, a cardinal spline 1 or 3");
}

Points Curve::decimated(const Points &points, int count) const
{
    Points result{dimension_, std::vector<double>(size(count * dimension_))};
    check(Spline1DDecimate(spline_.get(), points.count(), points.values.data(), count, result.values.data()));
    return result;
}

void Curve::load(const Points &points, bool asControlPoints)
{
    auto load = asControlPoints ? &Spline1FitDCtl : &Spline1FitDPoints;
    check(load(spline_.get(), points.count(), points.values.data()));
}

Measures Curve::measure(double accuracy)
{
    Measures measures{};
    check(Spline1CalcAcc(spline_.get(), mostRounds, accuracy, &measures.error, &measures.intervals));
    check(Spline1SetAcc(spline_.get(), accuracy, measures.intervals));
    check(Spline1GetAcc(spline_.get(), &measures.error, &measures.intervals));
    float end = 0;
    float beyond = 1e30f; // stands for the end of the curve
    check(Spline1ArcLen(spline_.get(), 1, &beyond, &end));
    measures.length = static_cast<double>(end);
    return measures;
}

Points Curve::controlPoints() const
{
    int32_t count = 0;
    check(Spline1CountPoints(spline_.get(), &count));
    Points points{dimension_, std::vector<double>(size(count * dimension_))};
    check(Spline1DCtl(spline_.get(), count, nullptr, points.values.data()));
    return points;
}

std::vector<float> Curve::equalDistances(int count)
{
    std::vector<float> params(size(count));
    check(Spline1Index(spline_.get(), count, nullptr, params.data()));
    return params;
}

Points Curve::at(const std::vector<float> &params)
{
    auto count = static_cast<int32_t>(params.size());
    Points points{dimension_, std::vector<double>(size(count * dimension_))};
    check(Spline1DPoint(spline_.get(), count, params.data(), points.values.data()));
    return points;
}

Points Curve::tangentsAt(const std::vector<float> &params)
{
    auto count = static_cast<int32_t>(params.size());
    Points tangents{dimension_, std::vector<double>(size(count * dimension_))};
    check(Spline1DTangent(spline_.get(), count, params.data(), tangents.values.data()));
    return tangents;
}

Points Curve::drawn(int count)
{
    // A polygon is its own best drawing; everything else looks best in steps of one length.
    return type_.degree == 1 ? controlPoints() : at(equalDistances(count));
}
