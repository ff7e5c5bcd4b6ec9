/// @file
/// Curves to test with, and a reference to test against that shares nothing with the library: every
/// control point weighs in by the curve's kernel, a centred B-spline or that of cubic convolution; arc lengths by
/// a fine midpoint rule.

#pragma once

#include "general/spline.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <vector>

namespace curves {

struct Destroy {
    void operator()(Spline1 *spline) const { Spline1Destroy(spline); }
    void operator()(SplineLX *map) const { SplineDeleteLX(map); }
};
using SplinePtr = std::unique_ptr<Spline1, Destroy>;
using LXPtr = std::unique_ptr<SplineLX, Destroy>;

struct Type {
    int form, kind, degree, dimension;
    double tension = 0;

    bool closed() const { return form == SPLINE_CLOSED; }
};

inline std::ostream &operator<<(std::ostream &out, const Type &type)
{
    return out << "form " << type.form << ", kind " << type.kind << ", degree " << type.degree << ", dimension "
               << type.dimension;
}

inline std::vector<Type> everyType()
{
    std::vector<Type> types;
    for (int form : {SPLINE_OPEN, SPLINE_CLOSED})
        for (int dimension : {2, 3}) {
            for (int degree : {1, 2, 3})
                types.push_back({form, SPLINE_B, degree, dimension});
            types.push_back({form, SPLINE_CARDINAL, 1, dimension});
            types.push_back({form, SPLINE_CARDINAL, 3, dimension});
            types.push_back({form, SPLINE_CARDINAL, 3, dimension, 0.6});
        }
    return types;
}

inline SplinePtr make(const Type &type, const std::vector<double> &control = {})
{
    SplinePtr spline(Spline1Create());
    EXPECT_EQ(Spline1Encode(spline.get(), type.form, type.kind, type.degree, type.dimension, type.tension), SPLINE_OK);
    auto count = static_cast<int32_t>(control.size()) / type.dimension;
    EXPECT_EQ(Spline1FitDCtl(spline.get(), count, control.data()), count > 0 ? SPLINE_OK : SPLINE_BAD_ARG);
    return spline;
}

/// Numbers that are floats, so that loading does not round them.
inline std::vector<double> randomValues(std::mt19937 &random, int count, double scale = 10)
{
    std::uniform_real_distribution<double> uniform(-scale, scale);
    std::vector<double> values;
    for (int i = 0; i < count; ++i)
        values.push_back(static_cast<float>(uniform(random)));
    return values;
}

inline std::vector<char> pack(const Spline1 *spline)
{
    uint32_t size = 0;
    EXPECT_EQ(Spline1PacketSize(spline, &size), SPLINE_OK);
    std::vector<char> packet(size, '\xEE');
    EXPECT_EQ(Spline1Pack(spline, size, packet.data()), SPLINE_OK);
    return packet;
}

template<typename Field>
Field fieldAt(const std::vector<char> &packet, size_t offset)
{
    Field field;
    std::memcpy(&field, packet.data() + offset, sizeof field);
    return field;
}

class Reference {
public:
    Reference(const Type &type, std::vector<double> control)
        : type_(type), control_(std::move(control)), count_(static_cast<int>(control_.size()) / type.dimension)
    {
    }

    double end() const { return type_.closed() ? count_ : count_ - 1; }

    using Vector = std::array<double, 3>;
    Vector point(double u) const { return value(u, false); }
    Vector derivative(double u) const { return value(u, true); }

    double speed(double u) const
    {
        Vector d = derivative(u);
        return std::hypot(d[0], d[1], d[2]);
    }

    /// In pieces that end wherever two polynomials may meet.
    double length(double from, double to, int stepsPerPiece = 200) const
    {
        double sum = 0;
        for (double here = from; here < to;) {
            double next = std::min(to, (std::floor(here * 2) + 1) / 2);
            int steps = type_.degree == 1 ? 1 : stepsPerPiece;
            for (int i = 0; i < steps; ++i)
                sum += speed(here + (next - here) * (i + 0.5) / steps) * (next - here) / steps;
            here = next;
        }
        return sum;
    }

private:
    double control(int number, int component) const
    {
        int period = type_.closed() ? count_ : std::max(1, 2 * (count_ - 1));
        number = (number % period + period) % period;
        if (!type_.closed()) // out to the last point and back
            number = std::min(number, period - number);
        return control_[static_cast<size_t>(number * type_.dimension + component)];
    }

    /// The curve's kernel in powers of the distance, or its derivative.
    double weight(double x, bool derived) const
    {
        using Powers = std::array<double, 4>;
        double s = (1 - type_.tension) / 2, d = std::abs(x);
        Powers c{};
        if (type_.degree == 1 && d < 1)
            c = {1, -1};
        else if (type_.degree == 2 && d < 1.5)
            c = d < 0.5 ? Powers{0.75, 0, -1} : Powers{1.125, -1.5, 0.5};
        else if (type_.degree == 3 && d < 2 && type_.kind == SPLINE_CARDINAL)
            c = d < 1 ? Powers{1, 0, s - 3, 2 - s} : Powers{4 * s, -8 * s, 5 * s, -s};
        else if (type_.degree == 3 && d < 2)
            c = d < 1 ? Powers{2.0 / 3, 0, -1, 0.5} : Powers{4.0 / 3, -2, 1, -1.0 / 6};
        if (derived)
            return (c[1] + (2 * c[2] + 3 * c[3] * d) * d) * (x < 0 ? -1 : 1);
        return c[0] + (c[1] + (c[2] + c[3] * d) * d) * d;
    }

    Vector value(double u, bool derived) const
    {
        u = u > 0 ? std::min(u, end()) : 0;
        Vector sum{};
        for (int j = static_cast<int>(u) - 2; j <= static_cast<int>(u) + 3; ++j) {
            double w = weight(u - j, derived);
            for (int c = 0; c < type_.dimension && w != 0; ++c)
                sum[static_cast<size_t>(c)] += w * control(j, c);
        }
        return sum;
    }

    Type type_;
    std::vector<double> control_;
    int count_;
};

} // namespace curves
