/// @file
/// Vectors, rotations and rigid transforms as values with operators, over geometry.h, whose functions do the
/// arithmetic.
///
/// Equality is that of geometry.h: within its tolerance, component by component.

#ifndef GENERAL_GEOMETRY_HPP
#define GENERAL_GEOMETRY_HPP

#include "general/core.hpp"
#include "general/geometry.h"

namespace general {

/// @cond
namespace detail {

/// Makes a value whose numbers a C function writes.
struct Unfilled {};
template<typename T, typename Fill>
T filled(Fill fill) noexcept
{
    T value{Unfilled()};
    fill(value.data());
    return value;
}

} // namespace detail
/// @endcond

/// A vector or point: V3.
class Vector {
public:
    constexpr Vector() noexcept : values_{} {}
    constexpr Vector(double x, double y, double z) noexcept : values_{x, y, z} {}

    /// @cond
    explicit Vector(detail::Unfilled) noexcept {}
    /// @endcond

    /// The V3, for the C functions.
    double *data() noexcept { return values_; }
    const double *data() const noexcept { return values_; }
    double &operator[](std::size_t index) noexcept { return values_[index]; }
    constexpr double operator[](std::size_t index) const noexcept { return values_[index]; }

    /// V3_len.
    double length() const noexcept { return V3_len(values_); }
    /// V3_normalize, of a copy.
    Vector normalized() const noexcept
    {
        Vector copy = *this;
        V3_normalize(copy.values_);
        return copy;
    }
    /// V3_dot_V3.
    friend double dot(const Vector &a, const Vector &b) noexcept { return V3_dot_V3(a.values_, b.values_); }
    /// V3_cross_V3.
    friend Vector cross(const Vector &a, const Vector &b) noexcept
    {
        return detail::filled<Vector>([&](double *out) { V3_cross_V3(a.values_, b.values_, out); });
    }
    friend Vector operator+(const Vector &a, const Vector &b) noexcept
    {
        return detail::filled<Vector>([&](double *out) { V3_add_V3(a.values_, b.values_, out); });
    }
    friend Vector operator-(const Vector &a, const Vector &b) noexcept
    {
        return detail::filled<Vector>([&](double *out) { V3_subtract_V3(a.values_, b.values_, out); });
    }
    friend Vector operator*(Vector v, double factor) noexcept
    {
        V3_scale(v.values_, factor);
        return v;
    }
    friend Vector operator*(double factor, const Vector &v) noexcept { return v * factor; }
    friend bool operator==(const Vector &a, const Vector &b) noexcept { return V3_equal_V3(a.values_, b.values_) != 0; }
    friend bool operator!=(const Vector &a, const Vector &b) noexcept { return !(a == b); }

private:
    double values_[3];
};

/// A rotation, R3; the identity to begin with.
class Rotation {
public:
    constexpr Rotation() noexcept : values_{1, 0, 0, 0, 1, 0, 0, 0, 1} {}
    /// R3_compose_axis: about a unit vector, by degrees.
    Rotation(const Vector &axis, double angle) noexcept { R3_compose_axis(axis.data(), angle, values_); }
    /// R3_compose: about the fixed x, y and z axes in turn, by degrees.
    Rotation(double ax, double ay, double az) noexcept { R3_compose(ax, ay, az, values_); }

    /// @cond
    explicit Rotation(detail::Unfilled) noexcept {}
    /// @endcond

    /// The R3, for the C functions.
    double *data() noexcept { return values_; }
    const double *data() const noexcept { return values_; }

    /// R3_decompose: the three angles.
    Vector angles() const noexcept
    {
        return detail::filled<Vector>([this](double *out) { R3_decompose(values_, &out[0], &out[1], &out[2]); });
    }
    /// R3_invert.
    Rotation inverse() const noexcept
    {
        return detail::filled<Rotation>([this](double *out) { R3_invert(values_, out); });
    }
    friend Rotation operator*(const Rotation &a, const Rotation &b) noexcept
    {
        return detail::filled<Rotation>([&](double *out) { R3_mult_R3(a.values_, b.values_, out); });
    }
    friend Vector operator*(const Rotation &m, const Vector &v) noexcept
    {
        return detail::filled<Vector>([&](double *out) { R3_mult_V3(m.values_, v.data(), out); });
    }
    friend bool operator==(const Rotation &a, const Rotation &b) noexcept
    {
        return R3_equal_R3(a.values_, b.values_) != 0;
    }
    friend bool operator!=(const Rotation &a, const Rotation &b) noexcept { return !(a == b); }

private:
    double values_[9];
};

} // namespace general

#endif
