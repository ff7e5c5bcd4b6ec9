/// @file
/// Curves through points of the caller's own type, over spline.h.
///
///     struct Spot { double x, y; };
///
///     general::Spline<Spot> spline;
///     general::check(spline.setType({SPLINE_CLOSED}));
///     general::check(spline.fit(spots));                                // the curve passes through them
///     auto params = general::check(spline.equalDistances(100));         // 100 places, equally spaced along the curve
///     std::vector<Spot> marks = general::check(spline.points(params));  // the points there
///
/// Only what gives a std::vector allocates memory here: that of the vector.

#ifndef GENERAL_SPLINE_HPP
#define GENERAL_SPLINE_HPP

#include "general/core.hpp"
#include "general/spline.h"

#include <cstring>
#include <vector>

namespace general {

namespace c {
using Spline1 = ::GENERAL_TYPE(Spline1);
using SplineLX = ::GENERAL_TYPE(SplineLX);
using SplineResult = ::GENERAL_TYPE(SplineResult);
} // namespace c

/// @cond
namespace detail {

struct SplineTraits {
    using Type = c::Spline1;
    static Result<c::SplineResult> destroy(Type *spline) { return Result<c::SplineResult>(Spline1Destroy(spline)); }
};
struct LinearMapTraits {
    using Type = c::SplineLX;
    static Result<c::SplineResult> destroy(Type *map) { return Result<c::SplineResult>(SplineDeleteLX(map)); }
};

} // namespace detail
/// @endcond

/// What Spline1Encode declares of a curve, besides the dimension.
struct SplineType {
    int32_t form = SPLINE_OPEN; ///< or SPLINE_CLOSED
    int32_t kind = SPLINE_B;    ///< or SPLINE_CARDINAL
    int32_t degree = 3;         ///< 1, 2 or 3 for a B-spline; 1 or 3 for a cardinal spline
    double tension = 0;         ///< of a cardinal spline
};

/// Tells how many bytes Spline1Unpack reads of a packet of which `received` bytes are there: 0 if it may not be called,
/// because this is no packet or more bytes are announced than came.
inline std::size_t splinePacketLength(const void *packet, std::size_t received) noexcept
{
    int32_t header[16];
    if (packet == nullptr || received < sizeof header)
        return 0;
    std::memcpy(header, packet, sizeof header);
    if (std::memcmp(header, "kp1S", 4) != 0)
        return 0;
    double floats = 0; // no product of two counts overflows
    if (header[7] >= 1 && header[1] == 1 && header[5] >= 1)
        floats += static_cast<double>(header[7]) * header[5];
    if (header[7] >= 1 && header[10] == 1 && header[11] >= 1)
        floats += 5.0 * header[11] + 3;
    bool isWhole = floats <= static_cast<double>(received - sizeof header) / 4;
    return isWhole ? sizeof header + 4 * static_cast<std::size_t>(floats) : 0;
}

/// Affine map of points, q = A p + b: `Spline...LX`.
class LinearMap : public Owner<detail::LinearMapTraits> {
public:
    using Result = general::Result<c::SplineResult>;

    /// SplineCreateLX. Empty as an owner if memory is exhausted.
    LinearMap() noexcept : Owner(adopt, SplineCreateLX()) {}
    /// Takes over a map.
    LinearMap(Adopt, c::SplineLX *map) noexcept : Owner(adopt, map) {}
    /// SplineEncodeLX: stores a map, `map.set({{0, -1}, {1, 0}}, {5, 0})`.
    template<std::size_t N>
    Result set(const double (&matrix)[N][N], const double (&offsets)[N]) noexcept
    {
        return Result(SplineEncodeLX(get(), N, matrix[0], offsets));
    }
};

/// Spline object: `Spline1...`. A Point is two or three doubles and nothing else, which makes the curve's dimension: a
/// structure, or a std::array.
template<typename Point>
class Spline : public Owner<detail::SplineTraits> {
    static constexpr int32_t dimension = sizeof(Point) / sizeof(double);
    static_assert(std::is_trivially_copyable_v<Point> && alignof(Point) == alignof(double) &&
                      (sizeof(Point) == 2 * sizeof(double) || sizeof(Point) == 3 * sizeof(double)),
                  "a point is two or three doubles");

public:
    using Result = general::Result<c::SplineResult>;
    template<typename T>
    using Outcome = general::Outcome<T, c::SplineResult>;
    template<typename T>
    using Vector = Outcome<std::vector<T>>;

    /// Spline1Create. Empty if memory is exhausted.
    Spline() noexcept : Owner(adopt, Spline1Create()) {}
    /// Takes over an object that has no type yet, or one of this dimension.
    Spline(Adopt, c::Spline1 *spline) noexcept : Owner(adopt, spline) {}

    /// Spline1Copy: becomes a copy of another.
    Result assign(const Spline &other) noexcept { return Result(Spline1Copy(other.get(), get())); }
    /// Spline1Encode: declares the type of the curve.
    Result setType(const SplineType &type) noexcept
    {
        return Result(Spline1Encode(get(), type.form, type.kind, type.degree, dimension, type.tension));
    }
    /// Spline1SetAcc: sets how finely the curve is measured.
    Result setAccuracy(double accuracy, int32_t intervals) noexcept
    {
        return Result(Spline1SetAcc(get(), accuracy, intervals));
    }
    /// Spline1FitDPoints: loads points for the curve to pass through.
    Result fit(Span<const Point> points) noexcept
    {
        return Result(Spline1FitDPoints(get(), count(points), numbers(points.data())));
    }
    /// Spline1FitDCtl: loads control points.
    Result control(Span<const Point> points) noexcept
    {
        return Result(Spline1FitDCtl(get(), count(points), numbers(points.data())));
    }
    /// Spline1CountPoints: how many control points there are.
    std::size_t size() const noexcept
    {
        int32_t count = 0;
        Spline1CountPoints(get(), &count);
        return static_cast<std::size_t>(count);
    }
    /// Spline1DCtl: the control points.
    Vector<Point> controlPoints() const { return filled<Point>(Spline1DCtl, size(), nullptr); }
    /// Spline1DDecimate: so many of a list of points.
    Vector<Point> decimated(Span<const Point> points, std::size_t wanted) const
    {
        auto decimate = [&](c::Spline1 *spline, int32_t size, const Point *from, double *to) {
            return Spline1DDecimate(spline, count(points), numbers(from), size, to);
        };
        return filled<Point>(decimate, wanted, points.data());
    }
    /// Spline1LinXform: maps the control points, and so the curve.
    Result transform(const LinearMap &map) noexcept { return Result(Spline1LinXform(get(), map.get())); }

    /// Spline1DPoint: the points at parameters.
    Vector<Point> points(Span<const float> params)
    {
        return filled<Point>(Spline1DPoint, params.size(), params.data());
    }
    /// Spline1DPoint: so many points at equal steps of the parameter.
    Vector<Point> points(std::size_t wanted) { return filled<Point>(Spline1DPoint, wanted, nullptr); }
    /// Spline1DPoint: the points at parameters, into as long an array.
    Result points(Span<const float> params, Span<Point> out) noexcept
    {
        return params.size() == out.size()
                   ? Result(Spline1DPoint(get(), count(out), params.data(), numbers(out.data())))
                   : Result(SPLINE_BAD_ARG);
    }
    /// Spline1DTangent: the unit tangents at parameters.
    Vector<Point> tangents(Span<const float> params)
    {
        return filled<Point>(Spline1DTangent, params.size(), params.data());
    }
    /// Spline1DTangent: the unit tangents at parameters, into as long an array.
    Result tangents(Span<const float> params, Span<Point> out) noexcept
    {
        return params.size() == out.size()
                   ? Result(Spline1DTangent(get(), count(out), params.data(), numbers(out.data())))
                   : Result(SPLINE_BAD_ARG);
    }

    /// Spline1ArcLen: the length of the whole curve.
    Outcome<float> length() noexcept
    {
        return Outcome<float>([this](float *length) {
            *length = 1e30f; // a parameter beyond the end
            return Spline1ArcLen(get(), 1, length, length);
        });
    }
    /// Spline1ArcLen: the lengths from the start to parameters.
    Vector<float> lengths(Span<const float> params)
    {
        return filled<float>(Spline1ArcLen, params.size(), params.data());
    }
    /// Spline1Index: the parameters at lengths from the start.
    Vector<float> parameters(Span<const float> lengths)
    {
        return filled<float>(Spline1Index, lengths.size(), lengths.data());
    }
    /// Spline1Index: the parameters of so many places at equal distances along the curve.
    Vector<float> equalDistances(std::size_t wanted) { return filled<float>(Spline1Index, wanted, nullptr); }

    /// Spline1Pack: the packet, of the length that it needs.
    Vector<char> pack() const
    {
        return Vector<char>([this](std::vector<char> *packet) {
            uint32_t size = 0;
            Spline1PacketSize(get(), &size);
            packet->resize(size);
            uint32_t result = Spline1Pack(get(), size, packet->data());
            packet->resize(splinePacketLength(packet->data(), size));
            return result;
        });
    }
    /// Spline1Unpack, after a look at the length: SPLINE_BAD_ARG, and nothing is changed, for what is no packet, not
    /// whole, or of another dimension.
    Result unpack(const void *packet, std::size_t received) noexcept
    {
        int32_t header[6];
        if (splinePacketLength(packet, received) == 0)
            return SPLINE_BAD_ARG;
        std::memcpy(header, packet, sizeof header);
        return header[1] == 1 && header[5] != dimension ? Result(SPLINE_BAD_ARG) : Result(Spline1Unpack(packet, get()));
    }

private:
    template<typename T>
    static int32_t count(Span<T> values) noexcept
    {
        return static_cast<int32_t>(values.size());
    }
    static const double *numbers(const Point *points) noexcept { return reinterpret_cast<const double *>(points); }
    static double *numbers(Point *points) noexcept { return reinterpret_cast<double *>(points); }
    static float *numbers(float *values) noexcept { return values; }

    /// Has a C function fill a vector, from an array that it is given.
    template<typename T, typename Call, typename From>
    Vector<T> filled(Call call, std::size_t size, From from) const
    {
        return Vector<T>([&](std::vector<T> *values) {
            values->resize(size);
            return call(get(), static_cast<int32_t>(size), from, numbers(values->data()));
        });
    }
};

#if GENERAL_EXCEPTIONS
/// @cond
template<>
inline constexpr const char *statusName<c::SplineResult> = "SplineResult";
/// @endcond
#endif

} // namespace general

#endif
