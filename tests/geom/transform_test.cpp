#include "general/geometry.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <vector>

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
using Vector = std::array<double, 3>;
using Matrix3 = std::array<double, 9>;
using Matrix4 = std::array<double, 16>;

constexpr Matrix3 identity3 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
constexpr Matrix4 identity4 = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

class Random {
public:
    double number(double low, double high) { return std::uniform_real_distribution<double>(low, high)(engine_); }

    template<typename Array>
    Array array()
    {
        Array result;
        for (double &element : result)
            element = number(-3, 3);
        return result;
    }

    Matrix3 rotation()
    {
        Matrix3 m;
        R3_compose(number(-180, 180), number(-90, 90), number(-180, 180), m.data());
        return m;
    }

    Matrix4 transform()
    {
        Matrix4 m;
        T4_compose(rotation().data(), number(0.2, 3), array<Vector>().data(), m.data());
        return m;
    }

private:
    std::mt19937 engine_{7};
};

template<typename Array>
void expectNear(const Array &actual, const Array &expected, double tolerance = 1e-12)
{
    for (size_t i = 0; i < actual.size(); ++i)
        ASSERT_NEAR(actual[i], expected[i], tolerance) << "element " << i;
}

/// The product by its definition, in extended precision.
template<size_t size, size_t columns>
auto product(const std::array<double, size * size> &a, const std::array<double, size * columns> &b)
{
    std::array<double, size * columns> result;
    for (size_t i = 0; i < size; ++i) {
        for (size_t j = 0; j < columns; ++j) {
            long double sum = 0;
            for (size_t k = 0; k < size; ++k)
                sum += static_cast<long double>(a[i * size + k]) * b[k * columns + j];
            result[i * columns + j] = static_cast<double>(sum);
        }
    }
    return result;
}

// Every element takes part in every test for equality, strictly below 1e-5 and nothing else.
TEST(GeometryTolerance, IsStrictForEveryElement)
{
    struct Case {
        const char *name;
        std::vector<double> base;
        std::function<int(const double *, const double *)> equal;
    };
    const std::vector<double> i3(identity3.begin(), identity3.end()), i4(identity4.begin(), identity4.end());
    const Case cases[] = {
        {"V3_equal_zero", {0, 0, 0}, [](const double *a, const double *) { return V3_equal_zero(a); }},
        {"V3_equal_V3", {0, 2, -3}, V3_equal_V3},
        {"R3_equal_identity", i3, [](const double *a, const double *) { return R3_equal_identity(a); }},
        {"R3_equal_R3", i3, R3_equal_R3},
        {"T4_equal_identity", i4, [](const double *a, const double *) { return T4_equal_identity(a); }},
        {"T4_equal_T4", i4, T4_equal_T4},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(c.equal(c.base.data(), c.base.data()), 1) << c.name;
        for (size_t i = 0; i < c.base.size(); ++i) {
            for (double sign : {1.0, -1.0}) {
                std::vector<double> changed = c.base;
                changed[i] = c.base[i] + sign * 9.9e-6;
                EXPECT_EQ(c.equal(changed.data(), c.base.data()), 1) << c.name << " element " << i;
                changed[i] = c.base[i] == 0 ? sign * 1e-5 : c.base[i] + sign * 1.00001e-5;
                EXPECT_EQ(c.equal(changed.data(), c.base.data()), 0) << c.name << " element " << i;
                changed[i] = sign * nan;
                EXPECT_EQ(c.equal(changed.data(), c.base.data()), 0) << c.name << " element " << i;
            }
        }
    }
}

TEST(Vectors, LengthAndScale)
{
    const Vector a = {2, 3, 6}, b = {-4, 5, 6};
    Vector out;
    V3_copy_V3(a.data(), out.data());
    EXPECT_EQ(out, a);
    EXPECT_EQ(V3_len(a.data()), 7);
    EXPECT_EQ(V3_dot_V3(a.data(), b.data()), 43);
    V3_scale(out.data(), -2);
    EXPECT_EQ(out, (Vector{-4, -6, -12}));
    V3_normalize(out.data());
    expectNear(out, {-2 / 7.0, -3 / 7.0, -6 / 7.0}, 1e-15);

    out = {-0.0, 1, 2};
    V3_set_zero(out.data());
    EXPECT_TRUE(V3_equal_zero(out.data()) && !std::signbit(out[0]));
    V3_normalize(out.data());
    for (double component : out)
        EXPECT_TRUE(std::isnan(component));
}

TEST(Rotations, ValidityLooksAtRowsAndColumnsButNotAtTheDeterminant)
{
    // A rotation times a diagonal: all rows are within the tolerance, the columns' lengths are not.
    Matrix3 turned, rowsOnly, columnsOnly;
    R3_compose(0, 22.5, 0, turned.data());
    const Matrix3 stretch = {std::sqrt(1 + 1.3e-5), 0, 0, 0, 1, 0, 0, 0, std::sqrt(1 - 1.3e-5)};
    R3_mult_R3(turned.data(), stretch.data(), rowsOnly.data());
    for (size_t i = 0; i < 9; ++i)
        columnsOnly[i] = rowsOnly[i % 3 * 3 + i / 3];
    Matrix3 longAxis;
    const Vector axis = {0, 0, 2};
    R3_compose_axis(axis.data(), 90, longAxis.data());

    const struct {
        Matrix3 m;
        double norm2;
        int valid;
    } cases[] = {
        {identity3, 1, 1},
        {identity3, 4, 0},
        {{2, 0, 0, 0, 2, 0, 0, 0, 2}, 4, 1},
        {{1, 0, 0, 0, 1, 0, 0, 0, -1}, 1, 1}, // a reflection
        {{1, 0, 0, 0, 1, 0, 0, 0, 2}, 1, 0},
        {{1, 0, 0, 1, 0, 0, 0, 0, 1}, 1, 0},
        {{nan, 0, 0, 0, 1, 0, 0, 0, 1}, 1, 0},
        {identity3, nan, 0},
        {rowsOnly, 1, 0},
        {columnsOnly, 1, 0},
        {longAxis, 1, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(R3_is_valid_rotation(c.m.data(), c.norm2), c.valid) << "case " << &c - cases;
}

TEST(Rotations, ComposeTurnsAboutTheFixedAxesInOrder)
{
    const Vector axes[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    Vector turned;
    Matrix3 quarter;
    R3_compose_axis(axes[2].data(), 90, quarter.data());
    R3_mult_V3(quarter.data(), axes[0].data(), turned.data());
    expectNear(turned, axes[1], 1e-15);

    Random random;
    for (int round = 0; round < 200; ++round) {
        double angles[3];
        Matrix3 about[3], whole;
        for (int i = 0; i < 3; ++i) {
            angles[i] = random.number(-400, 400);
            R3_compose_axis(axes[i].data(), angles[i], about[i].data());
        }
        R3_compose(angles[0], angles[1], angles[2], whole.data());
        expectNear(whole, product<3, 3>(about[2], product<3, 3>(about[1], about[0])));
    }
}

// About any axis: turn the axis to z, rotate about z, turn back.
TEST(Rotations, ComposeAxisTurnsAboutAnyAxis)
{
    Random random;
    for (int round = 0; round < 200; ++round) {
        Matrix3 toAxis = random.rotation(), fromAxis, aboutZ, m;
        const Vector axis = {toAxis[2], toAxis[5], toAxis[8]};
        double angle = random.number(-180, 180);
        R3_compose(0, 0, angle, aboutZ.data());
        R3_invert(toAxis.data(), fromAxis.data());
        R3_compose_axis(axis.data(), angle, m.data());
        expectNear(m, product<3, 3>(toAxis, product<3, 3>(aboutZ, fromAxis)));
    }
}

TEST(Rotations, DecomposeFindsTheAngles)
{
    const struct {
        Vector composed, found;
    } cases[] = {
        {{0, 0, 0}, {0, 0, 0}},           {{0, 90, 0}, {0, 90, 0}},
        {{30, 90, 20}, {10, 90, 0}},                                        // gimbal lock: the difference survives
        {{20, 90, 30}, {-10, 90, 0}},                                       //
        {{30, -90, 20}, {50, -90, 0}},                                      // and here the sum
        {{-30, -90, -20}, {-50, -90, 0}}, {{30, 90.0005, 20}, {10, 90, 0}}, // still within the lock
        {{180, 0, 0}, {180, 0, 0}},       {{10, 120, 20}, {-170, 60, -160}},
    };
    for (const auto &c : cases) {
        Matrix3 m;
        Vector found;
        R3_compose(c.composed[0], c.composed[1], c.composed[2], m.data());
        R3_decompose(m.data(), &found[0], &found[1], &found[2]);
        expectNear(found, c.found, 1e-5);
    }
    Random random;
    for (int round = 0; round < 2000; ++round) {
        Vector angles = {random.number(-180, 180), random.number(-89, 89), random.number(-180, 180)}, found;
        Matrix3 m;
        R3_compose(angles[0], angles[1], angles[2], m.data());
        R3_decompose(m.data(), &found[0], &found[1], &found[2]);
        expectNear(found, angles, 1e-4); // an inverse cosine near 1 keeps half of the digits
    }
}

TEST(Rotations, DecomposeTakesRoundedAndSkippedAndUnusableValues)
{
    // Elements just beyond 1 go through the lock or are clamped.
    const Matrix3 beyond = {1 + 1e-9, 0, 0, 0, 1 + 1e-9, 0, 0, 0, 1 + 1e-9},
                  locked = {0, 0, 1, 0, 1, 0, -1 - 1e-9, 0, 0};
    Vector found;
    R3_decompose(beyond.data(), &found[0], &found[1], &found[2]);
    EXPECT_EQ(found, (Vector{0, 0, 0}));
    R3_decompose(locked.data(), &found[0], &found[1], &found[2]);
    expectNear(found, {0, 90, 0});

    Matrix3 m;
    R3_compose(10, 20, 30, m.data());
    for (int only = 0; only < 3; ++only) {
        found = {-1, -1, -1};
        R3_decompose(m.data(), only == 0 ? &found[0] : nullptr, only == 1 ? &found[1] : nullptr,
                     only == 2 ? &found[2] : nullptr);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(found[static_cast<size_t>(i)], i == only ? 10 * (i + 1) : -1, 1e-6);
    }
    m.fill(nan);
    R3_decompose(m.data(), &found[0], &found[1], &found[2]);
    EXPECT_TRUE(std::isnan(found[0]));
}

TEST(Rotations, InvertTransposesAndDropsTheScale)
{
    Random random;
    for (int round = 0; round < 200; ++round) {
        Matrix3 m = random.rotation(), scaled = m, inverse;
        double scale = random.number(0.1, 10);
        for (double &element : scaled)
            element *= scale;
        R3_invert(scaled.data(), inverse.data());
        expectNear(product<3, 3>(inverse, m), identity3);
    }
    Matrix3 doubled = {2, 0, 0, 0, 2, 0, 0, 0, 2};
    R3_invert(doubled.data(), doubled.data());
    EXPECT_EQ(doubled, identity3);
}

TEST(Transforms, ValidityAllowsOneUniformScale)
{
    Matrix4 base;
    const Vector translation = {1, 2, 3};
    T4_compose(identity3.data(), 2, translation.data(), base.data());
    EXPECT_EQ(base, (Matrix4{2, 0, 0, 1, 0, 2, 0, 2, 0, 0, 2, 3, 0, 0, 0, 1}));
    EXPECT_EQ(T4_is_valid_transformation(base.data()), 1);
    const struct {
        size_t element;
        double value;
        int valid;
    } cases[] = {
        {15, 1.00001, 0}, {15, 1.000009, 1}, {12, 1e-5, 0}, {13, -1e-5, 0},
        {14, 9e-6, 1},    {0, 3, 0},         {5, 3, 0},     {10, -2, 1}, // a reflection
        {1, 0.01, 0},                                                    // shear
        {3, 1e300, 1},    {6, nan, 0},       {14, nan, 0},
    };
    for (const auto &c : cases) {
        Matrix4 m = base;
        m[c.element] = c.value;
        EXPECT_EQ(T4_is_valid_transformation(m.data()), c.valid) << "element " << c.element << " = " << c.value;
    }
}

TEST(Transforms, ComposeDecomposeInvertAndApply)
{
    Random random;
    for (int round = 0; round < 500; ++round) {
        Matrix3 rotation = random.rotation(), foundRotation;
        Vector translation = random.array<Vector>(), point = random.array<Vector>(), foundTranslation, moved, back;
        double scale = random.number(0.2, 3), foundScale = 0;
        Matrix4 m, inverse;
        T4_compose(rotation.data(), scale, translation.data(), m.data());
        EXPECT_TRUE(T4_is_valid_transformation(m.data()));
        T4_decompose(m.data(), foundRotation.data(), &foundScale, foundTranslation.data());
        expectNear(foundRotation, rotation);
        EXPECT_NEAR(foundScale, scale, 1e-12);
        EXPECT_EQ(foundTranslation, translation);

        T4_invert(m.data(), inverse.data());
        expectNear(product<4, 4>(inverse, m), identity4);
        m[12] = m[13] = m[14] = m[15] = 5; // row 3 takes no part in these
        T4_mult_V3(m.data(), point.data(), moved.data());
        Vector expected = product<3, 1>(rotation, point);
        for (size_t i = 0; i < 3; ++i)
            expected[i] = scale * expected[i] + translation[i];
        expectNear(moved, expected);
        T4_invert(m.data(), inverse.data());
        T4_mult_V3(inverse.data(), moved.data(), back.data());
        expectNear(back, point);
    }
    const Matrix4 zero = {};
    Matrix3 rotation;
    Vector translation;
    double scale = -1;
    T4_decompose(zero.data(), rotation.data(), &scale, translation.data());
    EXPECT_EQ(scale, 0);
    EXPECT_TRUE(std::isnan(rotation[0]));
}

/// Runs one operation into a third array, then again into each of its inputs, and at the poorest
/// alignment that callers may use.
template<size_t aSize, size_t bSize, size_t outSize, typename Operation>
void expectSameResultInPlace(const std::array<double, aSize> &a, const std::array<double, bSize> &b,
                             const std::array<double, outSize> &expected, Operation operation)
{
    std::array<double, outSize> out;
    operation(a.data(), b.data(), out.data());
    expectNear(out, expected);
    if constexpr (aSize == outSize) {
        auto inPlace = a;
        operation(inPlace.data(), b.data(), inPlace.data());
        EXPECT_EQ(inPlace, out) << "out is a";
    }
    if constexpr (bSize == outSize) {
        auto inPlace = b;
        operation(a.data(), inPlace.data(), inPlace.data());
        EXPECT_EQ(inPlace, out) << "out is b";
    }
    alignas(16) unsigned char memory[4 + sizeof a + sizeof b + sizeof out];
    auto *apart = reinterpret_cast<double *>(memory + 4);
    std::memcpy(apart, a.data(), sizeof a);
    std::memcpy(apart + aSize, b.data(), sizeof b);
    operation(apart, apart + aSize, apart + aSize + bSize);
    std::array<double, outSize> apartOut;
    std::memcpy(apartOut.data(), apart + aSize + bSize, sizeof apartOut);
    EXPECT_EQ(apartOut, out) << "differs at 4-byte alignment";
}

TEST(Geometry, OperationsWorkInPlaceAndAtAnyAlignment)
{
    Random random;
    for (int round = 0; round < 50; ++round) {
        auto va = random.array<Vector>(), vb = random.array<Vector>();
        auto ra = random.array<Matrix3>(), rb = random.array<Matrix3>();
        auto ta = random.array<Matrix4>(), tb = random.array<Matrix4>();
        auto plus = [](auto a, const auto &b, double sign) {
            for (size_t i = 0; i < a.size(); ++i)
                a[i] += sign * b[i];
            return a;
        };
        expectSameResultInPlace(va, vb, plus(va, vb, 1), V3_add_V3);
        expectSameResultInPlace(va, vb, plus(va, vb, -1), V3_subtract_V3);
        Vector cross = {va[1] * vb[2] - va[2] * vb[1], va[2] * vb[0] - va[0] * vb[2], va[0] * vb[1] - va[1] * vb[0]};
        expectSameResultInPlace(va, vb, cross, V3_cross_V3);
        expectSameResultInPlace(ra, rb, plus(ra, rb, 1), R3_add_R3);
        expectSameResultInPlace(ra, rb, plus(ra, rb, -1), R3_subtract_R3);
        expectSameResultInPlace(ra, rb, product<3, 3>(ra, rb), R3_mult_R3);
        expectSameResultInPlace(ra, va, product<3, 1>(ra, va), R3_mult_V3);
        expectSameResultInPlace(ta, tb, plus(ta, tb, 1), T4_add_T4);
        expectSameResultInPlace(ta, tb, plus(ta, tb, -1), T4_subtract_T4);
        expectSameResultInPlace(ta, tb, product<4, 4>(ta, tb), T4_mult_T4);

        auto transform = random.transform(), inverse = transform, point = transform;
        T4_invert(transform.data(), inverse.data());
        T4_invert(point.data(), point.data());
        EXPECT_EQ(point, inverse);
        auto applied = va;
        Vector apart;
        T4_mult_V3(transform.data(), va.data(), apart.data());
        T4_mult_V3(transform.data(), applied.data(), applied.data());
        EXPECT_EQ(applied, apart);
    }
    Matrix3 m3;
    Matrix4 m4;
    m3.fill(9);
    m4.fill(9);
    R3_set_identity(m3.data());
    T4_set_identity(m4.data());
    EXPECT_EQ(m3, identity3);
    EXPECT_EQ(m4, identity4);
}

} // namespace
