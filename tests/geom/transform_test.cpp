#include "general/geometry.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <tuple>

namespace {

using Vector = std::array<double, 3>;
using Matrix3 = std::array<double, 9>;
using Matrix4 = std::array<double, 16>;

const double nan = std::nan("");
constexpr Matrix3 identity3 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
constexpr Matrix4 identity4 = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
std::mt19937 engine(7);

double number(double low, double high)
{
    return std::uniform_real_distribution<double>(low, high)(engine);
}

template<typename Array>
Array randomArray()
{
    Array result;
    for (double &element : result)
        element = number(-3, 3);
    return result;
}

Matrix3 composed(double ax, double ay, double az)
{
    Matrix3 m;
    R3_compose(ax, ay, az, m.data());
    return m;
}

Matrix3 about(const Vector &axis, double angle)
{
    Matrix3 m;
    R3_compose_axis(axis.data(), angle, m.data());
    return m;
}

template<typename Array>
void expectNear(const Array &actual, const Array &expected, double tolerance = 1e-12)
{
    EXPECT_THAT(actual, testing::Pointwise(testing::DoubleNear(tolerance), expected));
}

/// The product by its definition.
template<size_t size, size_t columns>
auto product(const std::array<double, size * size> &a, const std::array<double, size * columns> &b)
{
    std::array<double, size *columns> result = {};
    for (size_t i = 0; i < size; ++i)
        for (size_t j = 0; j < columns; ++j)
            for (size_t k = 0; k < size; ++k)
                result[i * columns + j] += a[i * size + k] * b[k * columns + j];
    return result;
}

/// Every element takes part, strictly below 1e-5 and nothing else.
template<typename Array, typename Equal>
void expectStrict(const Array &base, Equal equal)
{
    for (size_t i = 0; i < base.size(); ++i)
        for (double change : {0.0, 9.9e-6, -9.9e-6, 1e-5, -1.00001e-5, nan}) {
            Array changed = base;
            changed[i] += change;
            EXPECT_EQ(equal(changed.data()), std::fabs(change) < 1e-5) << "element " << i << " and " << change;
        }
}

TEST(Geometry, ToleranceIsStrictForEveryElement)
{
    const Vector v = {0, 2, 1};
    expectStrict(Vector{}, V3_equal_zero);
    expectStrict(v, [&](const double *a) { return V3_equal_V3(a, v.data()); });
    expectStrict(identity3, R3_equal_identity);
    expectStrict(identity3, [](const double *a) { return R3_equal_R3(a, identity3.data()); });
    expectStrict(identity4, T4_equal_identity);
    expectStrict(identity4, [](const double *a) { return T4_equal_T4(a, identity4.data()); });
}

TEST(Geometry, VectorsHaveLengths)
{
    Vector v = {-4, -6, -12};
    EXPECT_EQ(V3_len(v.data()), 14);
    EXPECT_EQ(V3_dot_V3(v.data(), identity3.data() + 2), -12);
    V3_normalize(v.data());
    expectNear(v, {-2 / 7.0, -3 / 7.0, -6 / 7.0});
    V3_set_zero(v.data());
    EXPECT_EQ(v, Vector{});
    V3_normalize(v.data());
    EXPECT_TRUE(std::isnan(v[0]) && std::isnan(v[1]) && std::isnan(v[2]));
}

TEST(Geometry, ValidityLooksAtRowsAndColumnsButNotAtTheDeterminant)
{
    auto isValid = [](const Matrix3 &m, double norm2) { return R3_is_valid_rotation(m.data(), norm2); };
    // A rotation times a diagonal: all rows are within the tolerance, the columns' lengths are not.
    const Matrix3 stretch = {std::sqrt(1 + 1.3e-5), 0, 0, 0, 1, 0, 0, 0, std::sqrt(1 - 1.3e-5)};
    EXPECT_EQ(isValid(product<3, 3>(composed(0, 22.5, 0), stretch), 1), 0);
    EXPECT_EQ(isValid(about({0, 0, 2}, 90), 1), 0); // the axis is taken as it is
    EXPECT_TRUE(isValid(identity3, 1) == 1 && isValid(identity3, 4) == 0);
    const std::tuple<size_t, double, int> changes[] = {{15, 1.00001, 0}, {12, 1e-5, 0}, {13, -1e-5, 0}, {14, nan, 0},
                                                       {14, 9e-6, 1},    {0, 3, 0},     {10, -2, 1},    {1, 0.01, 0},
                                                       {6, nan, 0},      {3, 1e300, 1}};
    for (auto [element, value, valid] : changes) {
        Matrix4 m = {2, 0, 0, 1, 0, 2, 0, 2, 0, 0, 2, 3, 0, 0, 0, 1};
        m[element] = value;
        EXPECT_EQ(T4_is_valid_transformation(m.data()), valid) << "element " << element << " = " << value;
    }
}

// The three fixed axes in order; any other axis as z turned to it.
TEST(Geometry, RotationsAreComposed)
{
    expectNear(product<3, 1>(about({0, 0, 1}, 90), {1, 0, 0}), {0, 1, 0});
    for (int round = 0; round < 200; ++round) {
        double ax = number(-400, 400), ay = number(-400, 400), az = number(-400, 400);
        Matrix3 m = composed(ax, ay, az), inverse, doubled = m;
        expectNear(m, product<3, 3>(about({0, 0, 1}, az), product<3, 3>(about({0, 1, 0}, ay), about({1, 0, 0}, ax))));
        R3_add_R3(m.data(), m.data(), doubled.data());
        R3_invert(doubled.data(), inverse.data()); // drops the scale
        expectNear(product<3, 3>(inverse, m), identity3);
        expectNear(about({m[2], m[5], m[8]}, ax), product<3, 3>(m, product<3, 3>(about({0, 0, 1}, ax), inverse)));
    }
}

TEST(Geometry, RotationsAreDecomposed)
{
    auto decomposed = [](const Matrix3 &m) {
        Vector angles;
        R3_decompose(m.data(), &angles[0], &angles[1], &angles[2]);
        return angles;
    };
    // Gimbal lock, where the difference or the sum survives; beside it; angles out of range.
    const Vector cases[][2] = {{{30, 90, 20}, {10, 90, 0}},      {{20, 90, 30}, {-10, 90, 0}},
                               {{30, -90, 20}, {50, -90, 0}},    {{-30, -90, -20}, {-50, -90, 0}},
                               {{30, 90.0005, 20}, {10, 90, 0}}, {{10, 120, 20}, {-170, 60, -160}}};
    for (const auto &[angles, expected] : cases)
        expectNear(decomposed(composed(angles[0], angles[1], angles[2])), expected, 1e-5);
    expectNear(decomposed({1 + 1e-9, 0, 0, 0, 1, 0, 0, 0, 1 + 1e-9}), Vector{}); // clamped
    expectNear(decomposed({0, 0, 1, 0, 1, 0, -1 - 1e-9, 0, 0}), {0, 90, 0});
    R3_decompose(identity3.data(), nullptr, nullptr, nullptr);
    for (int round = 0; round < 2000; ++round) {
        const Vector angles = {number(-180, 180), number(-89, 89), number(-180, 180)};
        // An inverse cosine near 1 keeps half of the digits.
        expectNear(decomposed(composed(angles[0], angles[1], angles[2])), angles, 1e-4);
    }
}

// A composed transform maps a point as its parts do, and decomposes into them; its inverse leads back.
// Row 3 takes no part.
TEST(Geometry, TransformsAreComposedDecomposedInvertedAndApplied)
{
    Matrix4 m = {}, inverse;
    Matrix3 rotation, found;
    Vector translation, moved, back;
    double scale = 7;
    T4_decompose(m.data(), found.data(), &scale, translation.data());
    EXPECT_TRUE(scale == 0 && std::isnan(found[0]));
    for (int round = 0; round < 200; ++round) {
        const auto offset = randomArray<Vector>(), point = randomArray<Vector>();
        const double factor = number(0.2, 3);
        rotation = composed(number(-180, 180), number(-90, 90), number(-180, 180));
        T4_compose(rotation.data(), factor, offset.data(), m.data());
        T4_invert(m.data(), inverse.data());
        expectNear(product<4, 4>(inverse, m), identity4);
        m[12] = m[13] = m[14] = m[15] = 5;
        T4_decompose(m.data(), found.data(), &scale, translation.data());
        expectNear(found, rotation);
        EXPECT_NEAR(scale, factor, 1e-12);
        EXPECT_EQ(translation, offset);
        T4_mult_V3(m.data(), point.data(), moved.data());
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(moved[i], (factor * product<3, 1>(rotation, point)[i] + offset[i]), 1e-12);
        T4_mult_V3(inverse.data(), moved.data(), back.data());
        expectNear(back, point);
        T4_invert(m.data(), m.data());
        EXPECT_EQ(m, inverse);
    }
}

/// Runs one operation into its second input, at the poorest alignment, and into its first.
template<typename A, typename B, typename Operation>
void expectInPlace(A a, const B &b, const B &expected, Operation operation)
{
    alignas(16) unsigned char memory[4 + sizeof b];
    auto *apart = reinterpret_cast<double *>(memory + 4);
    std::memcpy(apart, b.data(), sizeof b);
    operation(a.data(), apart, apart);
    B out;
    std::memcpy(out.data(), apart, sizeof out);
    expectNear(out, expected);
    operation(a.data(), b.data(), a.data());
    if constexpr (sizeof a == sizeof b)
        expectNear(a, expected);
}

template<typename Array, typename Operation, typename Copy>
void expectElementwise(Operation add, Operation subtract, Copy copy)
{
    auto a = randomArray<Array>(), b = randomArray<Array>(), sum = a, copied = b;
    std::transform(a.begin(), a.end(), b.begin(), sum.begin(), std::plus<>());
    expectInPlace(a, b, sum, add);
    expectInPlace(sum, b, a, subtract);
    copy(a.data(), copied.data());
    EXPECT_EQ(copied, a);
}

TEST(Geometry, OperationsWorkInPlaceAndAtAnyAlignment)
{
    auto va = randomArray<Vector>(), vb = randomArray<Vector>();
    auto ra = randomArray<Matrix3>(), rb = randomArray<Matrix3>();
    auto ta = randomArray<Matrix4>(), tb = randomArray<Matrix4>();
    const Matrix3 crossA = {0, -va[2], va[1], va[2], 0, -va[0], -va[1], va[0], 0};
    expectInPlace(va, vb, product<3, 1>(crossA, vb), V3_cross_V3);
    expectInPlace(ra, rb, product<3, 3>(ra, rb), R3_mult_R3);
    expectInPlace(ra, va, product<3, 1>(ra, va), R3_mult_V3);
    expectInPlace(ta, tb, product<4, 4>(ta, tb), T4_mult_T4);
    expectElementwise<Vector>(V3_add_V3, V3_subtract_V3, V3_copy_V3);
    expectElementwise<Matrix3>(R3_add_R3, R3_subtract_R3, R3_copy_R3);
    expectElementwise<Matrix4>(T4_add_T4, T4_subtract_T4, T4_copy_T4);
    R3_set_identity(ra.data());
    T4_set_identity(ta.data());
    EXPECT_TRUE(ra == identity3 && ta == identity4);
}

} // namespace
