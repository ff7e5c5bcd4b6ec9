#include "general/geometry.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

/// A vector of 3, a 3x3 matrix of 9 or a transform of 16 numbers.
using Numbers = std::vector<double>;

const double nan = std::nan("");
const Numbers zero3(3), identity3 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
const Numbers identity4 = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
std::mt19937 engine(7);

double number(double low, double high)
{
    return std::uniform_real_distribution<double>(low, high)(engine);
}

Numbers numbers(size_t count)
{
    Numbers result(count);
    std::generate(result.begin(), result.end(), [] { return number(-3, 3); });
    return result;
}

Numbers composed(double ax, double ay, double az)
{
    Numbers m(9);
    R3_compose(ax, ay, az, m.data());
    return m;
}

Numbers about(const Numbers &axis, double angle)
{
    Numbers m(9), inPlace = axis;
    inPlace.resize(9);
    R3_compose_axis(axis.data(), angle, m.data());
    R3_compose_axis(inPlace.data(), angle, inPlace.data());
    EXPECT_EQ(inPlace, m);
    return m;
}

void expectNear(const Numbers &actual, const Numbers &expected, double tolerance = 1e-12)
{
    EXPECT_THAT(actual, testing::Pointwise(testing::DoubleNear(tolerance), expected));
}

/// The product of a square matrix with another or with a vector, by its definition.
Numbers product(const Numbers &a, const Numbers &b)
{
    size_t size = a.size() == 9 ? 3 : 4, columns = b.size() / size;
    Numbers result(b.size());
    for (size_t i = 0; i < result.size(); ++i)
        for (size_t k = 0; k < size; ++k)
            result[i] += a[i / columns * size + k] * b[k * columns + i % columns];
    return result;
}

TEST(Geometry, ToleranceIsStrictForEveryElement)
{
    const Numbers v = {0, 2, 1};
    const struct {
        Numbers base;
        std::function<int(const double *)> equal;
    } cases[] = {
        {zero3, V3_equal_zero},         {v, [&](const double *a) { return V3_equal_V3(a, v.data()); }},
        {identity3, R3_equal_identity}, {identity3, [](const double *a) { return R3_equal_R3(a, identity3.data()); }},
        {identity4, T4_equal_identity}, {identity4, [](const double *a) { return T4_equal_T4(a, identity4.data()); }}};
    for (const auto &c : cases)
        for (size_t i = 0; i < c.base.size(); ++i)
            for (double change : {0.0, 9.9e-6, -9.9e-6, 1e-5, -1.00001e-5, nan}) {
                Numbers changed = c.base;
                changed[i] += change;
                EXPECT_EQ(c.equal(changed.data()), std::fabs(change) < 1e-5)
                    << "case " << &c - cases << ", element " << i << " and " << change;
            }
}

TEST(Geometry, VectorsHaveLengths)
{
    Numbers v = {-4, -6, -12};
    EXPECT_EQ(V3_dot_V3(v.data(), identity3.data() + 2), -12);
    for (double size : {1.0, 0x1p1000, 0x1p-1000, 0x1p-1030}) { // whose squares are no doubles
        v = {-4 * size, -6 * size, -12 * size};
        EXPECT_EQ(V3_len(v.data()), 14 * size);
        V3_normalize(v.data());
        expectNear(v, {-2 / 7.0, -3 / 7.0, -6 / 7.0});
    }
    V3_set_zero(v.data());
    EXPECT_EQ(v, zero3);
    V3_normalize(v.data());
    EXPECT_THAT(v, testing::Each(testing::IsNan()));
}

TEST(Geometry, ValidityLooksAtRowsAndColumnsButNotAtTheDeterminant)
{
    // A rotation times a diagonal: all rows are within the tolerance, the columns' lengths are not.
    const Numbers stretch = {std::sqrt(1 + 1.3e-5), 0, 0, 0, 1, 0, 0, 0, std::sqrt(1 - 1.3e-5)};
    EXPECT_EQ(R3_is_valid_rotation(product(composed(0, 22.5, 0), stretch).data(), 1), 0);
    EXPECT_EQ(R3_is_valid_rotation(about({0, 0, 2}, 90).data(), 1), 0); // the axis is taken as it is
    EXPECT_EQ(R3_is_valid_rotation(identity3.data(), 1), 1);
    EXPECT_EQ(R3_is_valid_rotation(identity3.data(), 4), 0);
    const struct {
        size_t element;
        double value;
        int valid;
    } changes[] = {{15, 1.00001, 0}, {12, 1e-5, 0}, {13, -1e-5, 0}, {14, nan, 0}, {14, 9e-6, 1},
                   {0, 3, 0},        {10, -2, 1},   {1, 0.01, 0},   {6, nan, 0},  {3, 1e300, 1}};
    for (auto [element, value, valid] : changes) {
        Numbers m = {2, 0, 0, 1, 0, 2, 0, 2, 0, 0, 2, 3, 0, 0, 0, 1};
        m[element] = value;
        EXPECT_EQ(T4_is_valid_transformation(m.data()), valid) << "element " << element << " = " << value;
    }
}

// The three fixed axes in order; any other axis as z turned to it.
TEST(Geometry, RotationsAreComposed)
{
    expectNear(product(about({0, 0, 1}, 90), {1, 0, 0}), {0, 1, 0});
    for (int round = 0; round < 200; ++round) {
        double ax = number(-400, 400), ay = number(-400, 400), az = number(-400, 400);
        Numbers m = composed(ax, ay, az), inverse(9), doubled(9);
        expectNear(m, product(about({0, 0, 1}, az), product(about({0, 1, 0}, ay), about({1, 0, 0}, ax))));
        R3_add_R3(m.data(), m.data(), doubled.data());
        R3_invert(doubled.data(), inverse.data()); // drops the scale
        expectNear(product(inverse, m), identity3);
        R3_invert(doubled.data(), doubled.data());
        EXPECT_EQ(doubled, inverse);
        expectNear(about({m[2], m[5], m[8]}, ax), product(m, product(about({0, 0, 1}, ax), inverse)));
    }
}

TEST(Geometry, RotationsAreDecomposed)
{
    auto decomposed = [](const Numbers &m) {
        Numbers angles(3);
        R3_decompose(m.data(), &angles[0], &angles[1], &angles[2]);
        return angles;
    };
    const struct {
        Numbers angles, expected;
        double tolerance;
    } rows[] = {{{20, 90, 30}, {-10, 90, 0}, 1e-5},            // gimbal lock: the difference survives
                {{-30, -90, -20}, {-50, -90, 0}, 1e-5},        // and the sum
                {{30, 89.99944, 20}, {10, 90, 0}, 1e-3},       // within 0.00057 degrees
                {{30, 89.99941, 20}, {30, 89.99941, 20}, 0.1}, // and no more
                {{10, 120, 20}, {-170, 60, -160}, 1e-5}};      // angles out of range
    for (const auto &row : rows)
        expectNear(decomposed(composed(row.angles[0], row.angles[1], row.angles[2])), row.expected, row.tolerance);
    expectNear(decomposed({1 + 1e-9, 0, 0, 0, 1, 0, 0, 0, 1 + 1e-9}), zero3); // clamped
    expectNear(decomposed({0, 0, 1, 0, 1, 0, -1 - 1e-9, 0, 0}), {0, 90, 0});
    R3_decompose(identity3.data(), nullptr, nullptr, nullptr);
    for (size_t round = 0; round < 200; ++round) {
        const Numbers angles = {number(-180, 180), number(-89, 89), number(-180, 180)};
        Numbers m = composed(angles[0], angles[1], angles[2]);
        expectNear(decomposed(m), angles, 1e-4); // an inverse cosine near 1 keeps half of the digits
        m[round % 9] = nan;
        EXPECT_THAT(decomposed(m), testing::Each(testing::IsNan()));
    }
}

// A composed transform maps a point as its parts do, and decomposes into them; row 3 takes no part.
TEST(Geometry, TransformsAreComposedDecomposedInvertedAndApplied)
{
    Numbers m(16), inverse(16), found(9), translation(3), moved(3), back(3);
    double scale = 7;
    T4_decompose(m.data(), found.data(), &scale, translation.data());
    EXPECT_EQ(scale, 0);
    EXPECT_TRUE(std::isnan(found[0]));
    for (int round = 0; round < 300; ++round) {
        const double factor = number(0.2, 3) * std::pow(10, round % 3 * 200 - 200); // far out of a square's range too
        const Numbers offset = product({factor, 0, 0, 0, factor, 0, 0, 0, factor}, numbers(3)), point = numbers(3),
                      rotation = composed(number(-180, 180), number(-90, 90), number(-180, 180));
        T4_compose(rotation.data(), factor, offset.data(), m.data());
        Numbers inPlace = rotation;
        inPlace.resize(16);
        T4_compose(inPlace.data(), factor, offset.data(), inPlace.data());
        EXPECT_EQ(inPlace, m);
        T4_invert(m.data(), inverse.data());
        expectNear(product(inverse, m), identity4);
        m[12] = m[13] = m[14] = m[15] = 5;
        T4_decompose(m.data(), found.data(), &scale, translation.data());
        expectNear(found, rotation);
        EXPECT_NEAR(scale / factor, 1, 1e-12);
        EXPECT_EQ(translation, offset);
        T4_mult_V3(m.data(), point.data(), moved.data());
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(moved[i] / factor, product(rotation, point)[i] + offset[i] / factor, 1e-12);
        T4_mult_V3(inverse.data(), moved.data(), back.data());
        expectNear(back, point);
        T4_invert(m.data(), m.data());
        EXPECT_EQ(m, inverse);
        T4_decompose(inPlace.data(), inPlace.data(), &scale, translation.data());
        inPlace.resize(9);
        EXPECT_EQ(inPlace, found);
        EXPECT_EQ(translation, offset);
    }
}

using Operation = void(const double *, const double *, double *);

/// Runs one operation into its second input, at the poorest alignment, and into its first.
void expectInPlace(Numbers a, const Numbers &b, const Numbers &expected, Operation *operation)
{
    alignas(16) unsigned char memory[4 + sizeof(T4)];
    auto *apart = reinterpret_cast<double *>(memory + 4);
    std::memcpy(apart, b.data(), sizeof(double) * b.size());
    operation(a.data(), apart, apart);
    Numbers out(b.size());
    std::memcpy(out.data(), apart, sizeof(double) * b.size());
    expectNear(out, expected);
    operation(a.data(), b.data(), a.data());
    if (a.size() == b.size())
        expectNear(a, expected);
}

void expectElementwise(size_t size, Operation *add, Operation *subtract, void (*copy)(const double *, double *))
{
    Numbers a = numbers(size), b = numbers(size), sum(size), copied(size);
    std::transform(a.begin(), a.end(), b.begin(), sum.begin(), std::plus<>());
    expectInPlace(a, b, sum, add);
    expectInPlace(sum, b, a, subtract);
    copy(a.data(), copied.data());
    EXPECT_EQ(copied, a);
}

TEST(Geometry, OperationsWorkInPlaceAndAtAnyAlignment)
{
    Numbers va = numbers(3), vb = numbers(3), ra = numbers(9), rb = numbers(9), ta = numbers(16), tb = numbers(16);
    expectInPlace(va, vb, product({0, -va[2], va[1], va[2], 0, -va[0], -va[1], va[0], 0}, vb), V3_cross_V3);
    expectInPlace(ra, rb, product(ra, rb), R3_mult_R3);
    expectInPlace(ra, va, product(ra, va), R3_mult_V3);
    Numbers moved = product(ta, {va[0], va[1], va[2], 1});
    moved.pop_back();
    expectInPlace(ta, va, moved, T4_mult_V3);
    expectInPlace(ta, tb, product(ta, tb), T4_mult_T4);
    expectElementwise(3, V3_add_V3, V3_subtract_V3, V3_copy_V3);
    expectElementwise(9, R3_add_R3, R3_subtract_R3, R3_copy_R3);
    expectElementwise(16, T4_add_T4, T4_subtract_T4, T4_copy_T4);
    R3_set_identity(ra.data());
    T4_set_identity(ta.data());
    EXPECT_EQ(ra, identity3);
    EXPECT_EQ(ta, identity4);
}

} // namespace
