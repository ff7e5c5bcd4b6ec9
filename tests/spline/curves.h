/// @file
/// Curves to test with, and a reference to test against that shares nothing with the library: centred
/// B-splines by the recursion of Cox and de Boor, cardinal splines in Hermite form, mirrored control
/// points by reflection, arc lengths by adaptive quadrature.

#pragma once

#include "general/spline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <vector>

namespace curves {

struct Destroy {
    void operator()(Spline1 *spline) const { Spline1Destroy(spline); }
};
using SplinePtr = std::unique_ptr<Spline1, Destroy>;

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

    std::vector<double> point(double u) const { return value(u, false); }
    std::vector<double> derivative(double u) const { return value(u, true); }

    double speed(double u) const
    {
        std::vector<double> d = derivative(u);
        return std::hypot(d[0], d[1], d.size() > 2 ? d[2] : 0);
    }

    /// Adaptive Simpson quadrature, split wherever two polynomials may meet.
    double length(double from, double to) const
    {
        double sum = 0;
        for (double here = from; here < to;) {
            double next = std::min(to, (std::floor(here * 2) + 1) / 2);
            // Only inside the piece is the derivative that of the piece.
            double a = here + 1e-12;
            double b = next - 1e-12;
            double middle = (a + b) / 2;
            sum += simpson(a, b, speed(a), speed(middle), speed(b), 1e-6, 40);
            here = next;
        }
        return sum;
    }

private:
    double control(int number, int component) const
    {
        int last = count_ - 1;
        if (type_.closed())
            number = ((number % count_) + count_) % count_;
        while (last > 0 && (number < 0 || number > last))
            number = number < 0 ? -number : 2 * last - number;
        if (last == 0)
            number = 0;
        return control_[static_cast<size_t>(number * type_.dimension + component)];
    }

    static double bump(int degree, double x)
    {
        if (degree == 0)
            return x >= -0.5 && x < 0.5 ? 1 : 0;
        double half = (degree + 1) / 2.0;
        return ((half + x) * bump(degree - 1, x + 0.5) + (half - x) * bump(degree - 1, x - 0.5)) / degree;
    }

    std::vector<double> value(double u, bool derived) const
    {
        u = std::min(std::max(u, 0.0), end());
        std::vector<double> result;
        for (int c = 0; c < type_.dimension; ++c)
            result.push_back(type_.kind == SPLINE_CARDINAL && type_.degree == 3 ? hermite(u, c, derived)
                                                                                : sumOfBumps(u, c, derived));
        return result;
    }

    double sumOfBumps(double u, int c, bool derived) const
    {
        int degree = type_.degree;
        double sum = 0;
        for (int j = static_cast<int>(u) - 3; j <= static_cast<int>(u) + 4; ++j) {
            double x = u - j;
            sum += control(j, c) * (derived ? bump(degree - 1, x + 0.5) - bump(degree - 1, x - 0.5) : bump(degree, x));
        }
        return sum;
    }

    double hermite(double u, int c, bool derived) const
    {
        int k = static_cast<int>(u);
        double t = u - k;
        double slope0 = (1 - type_.tension) / 2 * (control(k + 1, c) - control(k - 1, c));
        double slope1 = (1 - type_.tension) / 2 * (control(k + 2, c) - control(k, c));
        if (derived)
            return 6 * t * (t - 1) * (control(k, c) - control(k + 1, c)) + (3 * t * t - 4 * t + 1) * slope0 +
                   (3 * t * t - 2 * t) * slope1;
        return (1 + 2 * t) * (1 - t) * (1 - t) * control(k, c) + t * (1 - t) * (1 - t) * slope0 +
               t * t * (3 - 2 * t) * control(k + 1, c) + t * t * (t - 1) * slope1;
    }

    double simpson(double a, double b, double fa, double fm, double fb, double tolerance, int depth) const
    {
        double m = (a + b) / 2;
        double fl = speed((a + m) / 2);
        double fr = speed((m + b) / 2);
        double coarse = (b - a) / 6 * (fa + 4 * fm + fb);
        double fine = (b - a) / 12 * (fa + 4 * fl + 2 * fm + 4 * fr + fb);
        if (depth == 0 || std::abs(fine - coarse) <= tolerance * (b - a) + 1e-15 * fine)
            return fine + (fine - coarse) / 15;
        return simpson(a, m, fa, fl, fm, tolerance, depth - 1) + simpson(m, b, fm, fr, fb, tolerance, depth - 1);
    }

    Type type_;
    std::vector<double> control_;
    int count_;
};

} // namespace curves
