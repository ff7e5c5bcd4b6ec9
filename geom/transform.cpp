#include "base/module_id.h"

#include "general/geometry.h"

#include <float.h>
#include <math.h>
#include <string.h>

GENERAL_MODULE_ID("$Id$");

static_assert(sizeof(V3) == 24 && sizeof(R3) == 72 && sizeof(T4) == 128);

namespace {

constexpr double radiansPerDegree = 0.017453292519943295;
constexpr double degreesPerRadian = 57.29577951308232;
constexpr double halfTurn = 3.141592653589793;

constexpr R3 identityR3 = {1, 0, 0, 0, 1, 0, 0, 0, 1};
constexpr T4 identityT4 = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// Two doubles side by side. The whole-matrix operations work on pairs: one SSE2 instruction does
/// what takes two on single doubles.
using Pair = double __attribute__((vector_size(16)));

// Pairs pass between inlined functions only, so no calling convention is concerned where the
// baseline processor has no SSE.
#pragma GCC diagnostic ignored "-Wpsabi"

/// Moves a pair from and to memory of any alignment.
[[gnu::always_inline]] inline Pair load(const double *source)
{
    Pair pair;
    memcpy(&pair, source, sizeof pair);
    return pair;
}

[[gnu::always_inline]] inline void store(double *destination, Pair pair)
{
    memcpy(destination, &pair, sizeof pair);
}

/// The sum of each pair's two elements.
[[gnu::always_inline]] inline Pair sumsOf(Pair a, Pair b)
{
    return __builtin_shufflevector(a, b, 0, 2) + __builtin_shufflevector(a, b, 1, 3);
}

/// Copies count doubles; the arrays may be one.
template<int count>
[[gnu::always_inline]] inline void copy(const double *source, double *destination)
{
#pragma GCC unroll 8
    for (int i = 0; i + 1 < count; i += 2)
        store(destination + i, load(source + i));
    if constexpr (count % 2 == 1)
        destination[count - 1] = source[count - 1];
}

/// out[i] = operation(a[i], b[i]); out may be a or b.
template<int count, typename Operation>
[[gnu::always_inline]] inline void combine(const double *a, const double *b, double *out, Operation operation)
{
#pragma GCC unroll 8
    for (int i = 0; i + 1 < count; i += 2)
        store(out + i, operation(load(a + i), load(b + i)));
    if constexpr (count % 2 == 1)
        out[count - 1] = operation(a[count - 1], b[count - 1]);
}

constexpr auto sum = [](auto a, auto b) __attribute__((always_inline))
{
    return a + b;
};
constexpr auto difference = [](auto a, auto b) __attribute__((always_inline))
{
    return a - b;
};

/// The one test of the family. False for what is not a number.
bool isZero(double value)
{
    return fabs(value) < GEOMETRY_TOLERANCE;
}

template<int count>
bool isEqual(const double *a, const double *b)
{
    for (int i = 0; i < count; ++i)
        if (!isZero(a[i] - b[i]))
            return false;
    return true;
}

/// The dot product of two rows or columns whose components lie stride elements apart.
double dot(const double *a, const double *b, int stride)
{
    return a[0] * b[0] + a[stride] * b[stride] + a[2 * stride] * b[2 * stride];
}

/// Whether three vectors have the squared length norm2 and are orthogonal to each other.
bool isOrthogonal(const double *v0, const double *v1, const double *v2, int stride, double norm2)
{
    return isZero(dot(v0, v0, stride) - norm2) && isZero(dot(v1, v1, stride) - norm2) &&
           isZero(dot(v2, v2, stride) - norm2) && isZero(dot(v0, v1, stride)) && isZero(dot(v0, v2, stride)) &&
           isZero(dot(v1, v2, stride));
}

/// The inverse cosine; arguments that rounding pushed out of range count as the range's end.
double clampedAcos(double cosine)
{
    if (cosine < -1)
        return halfTurn;
    if (cosine > 1)
        return 0;
    return acos(cosine);
}

/// The angle whose cosine this is, with the sign of its sine.
double signedAngle(double cosine, double sine)
{
    double angle = clampedAcos(cosine);
    return sine < 0 ? -angle : angle;
}

void storeDegrees(double *destination, double radians)
{
    if (destination != nullptr)
        *destination = radians * degreesPerRadian;
}

/// Whether a squared length has all its digits. Those of lengths above 1e154 or below 1e-146 leave the
/// range of doubles, or the part of it with full precision.
bool isOrdinary(double norm2)
{
    constexpr double least = 1e-292;
    return norm2 >= least && norm2 <= DBL_MAX;
}

/// The squared length of a row or column in a wider format, which holds the squares of all doubles.
long double wideNorm2(const double *v, int stride)
{
    long double x = v[0], y = v[stride], z = v[2 * stride];
    return x * x + y * y + z * z;
}

/// The length of a row or column.
double length(const double *v, int stride)
{
    double norm2 = dot(v, v, stride);
    return isOrdinary(norm2) ? sqrt(norm2) : static_cast<double>(sqrtl(wideNorm2(v, stride)));
}

/// T4_invert for a scale whose square is no ordinary double.
void invertWide(const T4 m, T4 out)
{
    long double scale2 = wideNorm2(m, 4);
    T4 inverse = {}; // out may be m
    for (int i = 0; i < 3; ++i) {
        long double moved = 0;
        for (int j = 0; j < 3; ++j) {
            long double element = m[4 * j + i] / scale2;
            inverse[4 * i + j] = static_cast<double>(element);
            moved += element * m[4 * j + 3];
        }
        inverse[4 * i + 3] = static_cast<double>(-moved);
    }
    inverse[15] = 1;
    copy<16>(inverse, out);
}

bool isNumeric(const R3 m)
{
    bool numeric = true;
    for (int i = 0; i < 9; ++i)
        numeric = numeric && !isnan(m[i]);
    return numeric;
}

} // namespace

void V3_set_zero(V3 v)
{
    memset(v, 0, sizeof(V3));
}

void V3_copy_V3(const V3 source, V3 destination)
{
    copy<3>(source, destination);
}

int V3_equal_zero(const V3 v)
{
    return isZero(v[0]) && isZero(v[1]) && isZero(v[2]);
}

int V3_equal_V3(const V3 a, const V3 b)
{
    return isEqual<3>(a, b);
}

double V3_len(const V3 v)
{
    return length(v, 1);
}

void V3_scale(V3 v, double factor)
{
    v[0] *= factor;
    v[1] *= factor;
    v[2] *= factor;
}

void V3_normalize(V3 v)
{
    double norm2 = dot(v, v, 1);
    if (isOrdinary(norm2)) {
        V3_scale(v, 1 / sqrt(norm2));
        return;
    }
    long double factor = 1 / sqrtl(wideNorm2(v, 1)); // of the zero vector infinite: 0 times it is not a number
    for (int i = 0; i < 3; ++i)
        v[i] = static_cast<double>(v[i] * factor);
}

void V3_add_V3(const V3 a, const V3 b, V3 out)
{
    combine<3>(a, b, out, sum);
}

void V3_subtract_V3(const V3 a, const V3 b, V3 out)
{
    combine<3>(a, b, out, difference);
}

double V3_dot_V3(const V3 a, const V3 b)
{
    return dot(a, b, 1);
}

void V3_cross_V3(const V3 a, const V3 b, V3 out)
{
    double x = a[1] * b[2] - a[2] * b[1];
    double y = a[2] * b[0] - a[0] * b[2];
    double z = a[0] * b[1] - a[1] * b[0];
    out[0] = x;
    out[1] = y;
    out[2] = z;
}

void R3_set_identity(R3 m)
{
    copy<9>(identityR3, m);
}

void R3_copy_R3(const R3 source, R3 destination)
{
    copy<9>(source, destination);
}

int R3_equal_identity(const R3 m)
{
    return isEqual<9>(m, identityR3);
}

int R3_equal_R3(const R3 a, const R3 b)
{
    return isEqual<9>(a, b);
}

int R3_is_valid_rotation(const R3 m, double norm2)
{
    return isOrthogonal(m, m + 3, m + 6, 1, norm2) && isOrthogonal(m, m + 1, m + 2, 3, norm2);
}

void R3_compose_axis(const V3 axis, double angle, R3 out)
{
    double x = axis[0], y = axis[1], z = axis[2];
    double c = cos(angle * radiansPerDegree);
    double s = sin(angle * radiansPerDegree);
    double t = 1 - c;
    const R3 rotation = {x * x * t + c,     x * y * t - z * s, x * z * t + y * s, //
                         x * y * t + z * s, y * y * t + c,     y * z * t - x * s, //
                         x * z * t - y * s, y * z * t + x * s, z * z * t + c};
    copy<9>(rotation, out);
}

void R3_compose(double ax, double ay, double az, R3 out)
{
    double cx = cos(ax * radiansPerDegree), sx = sin(ax * radiansPerDegree);
    double cy = cos(ay * radiansPerDegree), sy = sin(ay * radiansPerDegree);
    double cz = cos(az * radiansPerDegree), sz = sin(az * radiansPerDegree);
    const R3 rotation = {cz * cy,
                         cz * sy * sx - sz * cx,
                         cz * sy * cx + sz * sx, //
                         sz * cy,
                         sz * sy * sx + cz * cx,
                         sz * sy * cx - cz * sx, //
                         -sy,
                         cy * sx,
                         cy * cx};
    copy<9>(rotation, out);
}

void R3_decompose(const R3 m, double *ax, double *ay, double *az)
{
    double sy = -m[6];
    double cy = sqrt(1 - sy * sy);
    double x, y, z;
    if (fabs(cy) >= GEOMETRY_TOLERANCE) {
        x = signedAngle(m[8] / cy, m[7] / cy);
        y = signedAngle(cy, sy);
        z = signedAngle(m[0] / cy, m[3] / cy);
    } else { // gimbal lock; also where rounding made sy exceed 1, so that cy is not a number
        x = sy >= 0 ? signedAngle(m[4], m[1]) : signedAngle(-m[2], -m[5]);
        y = sy >= 0 ? halfTurn / 2 : -halfTurn / 2;
        z = 0;
    }
    if (!isNumeric(m))
        x = y = z = NAN;
    storeDegrees(ax, x);
    storeDegrees(ay, y);
    storeDegrees(az, z);
}

void R3_mult_R3(const R3 a, const R3 b, R3 out)
{
    Pair left[3] = {load(b), load(b + 3), load(b + 6)}; // columns 0 and 1 of b, by rows
    double right[3] = {b[2], b[5], b[8]};               // column 2
    for (int i = 0; i < 3; ++i) {
        double x = a[3 * i], y = a[3 * i + 1], z = a[3 * i + 2];
        store(out + 3 * i, x * left[0] + y * left[1] + z * left[2]);
        out[3 * i + 2] = x * right[0] + y * right[1] + z * right[2];
    }
}

void R3_mult_V3(const R3 m, const V3 v, V3 out)
{
    Pair xy = load(v);
    double z = v[2];
    Pair row2 = load(m + 6) * xy;
    store(out, sumsOf(load(m) * xy, load(m + 3) * xy) + z * Pair{m[2], m[5]});
    out[2] = row2[0] + row2[1] + z * m[8];
}

// Divides by the scale, T4_invert by its square: here a scaled matrix loses its scale. Kept for
// compatibility.
void R3_invert(const R3 m, R3 out)
{
    double scale = length(m, 3);
    Pair p0 = Pair{m[0], m[3]} / scale, p2 = Pair{m[6], m[1]} / scale;
    Pair p4 = Pair{m[4], m[7]} / scale, p6 = Pair{m[2], m[5]} / scale;
    double last = m[8] / scale;
    store(out, p0);
    store(out + 2, p2);
    store(out + 4, p4);
    store(out + 6, p6);
    out[8] = last;
}

void R3_add_R3(const R3 a, const R3 b, R3 out)
{
    combine<9>(a, b, out, sum);
}

void R3_subtract_R3(const R3 a, const R3 b, R3 out)
{
    combine<9>(a, b, out, difference);
}

void T4_set_identity(T4 m)
{
    copy<16>(identityT4, m);
}

void T4_copy_T4(const T4 source, T4 destination)
{
    copy<16>(source, destination);
}

int T4_equal_identity(const T4 m)
{
    return isEqual<16>(m, identityT4);
}

int T4_equal_T4(const T4 a, const T4 b)
{
    return isEqual<16>(a, b);
}

int T4_is_valid_transformation(const T4 m)
{
    if (!isEqual<4>(m + 12, identityT4 + 12))
        return 0;
    R3 block;
    for (int i = 0; i < 3; ++i)
        V3_copy_V3(m + 4 * i, block + 3 * i);
    return R3_is_valid_rotation(block, dot(m, m, 4));
}

void T4_compose(const R3 rotation, double scale, const V3 translation, T4 out)
{
    T4 transform = {}; // out may hold the inputs
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            transform[4 * i + j] = scale * rotation[3 * i + j];
        transform[4 * i + 3] = translation[i];
    }
    transform[15] = 1;
    copy<16>(transform, out);
}

void T4_decompose(const T4 m, R3 rotation, double *scale, V3 translation)
{
    double s = length(m, 4);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            rotation[3 * i + j] = m[4 * i + j] / s;
        translation[i] = m[4 * i + 3];
    }
    *scale = s;
}

void T4_invert(const T4 m, T4 out)
{
    double scale2 = dot(m, m, 4);
    if (!isOrdinary(scale2)) {
        invertWide(m, out);
        return;
    }
    double x = m[3], y = m[7], z = m[11];
    // The three rows of the inverted block: two elements side by side, and the third.
    Pair row0 = Pair{m[0], m[4]} / scale2, row1 = Pair{m[1], m[5]} / scale2, row2 = Pair{m[2], m[6]} / scale2;
    Pair third01 = Pair{m[8], m[9]} / scale2;
    double third2 = m[10] / scale2;
    store(out, row0);
    store(out + 2, Pair{third01[0], -(row0[0] * x + row0[1] * y + third01[0] * z)});
    store(out + 4, row1);
    store(out + 6, Pair{third01[1], -(row1[0] * x + row1[1] * y + third01[1] * z)});
    store(out + 8, row2);
    store(out + 10, Pair{third2, -(row2[0] * x + row2[1] * y + third2 * z)});
    copy<4>(identityT4 + 12, out + 12);
}

void T4_mult_T4(const T4 a, const T4 b, T4 out)
{
    T4 right; // out may be b
    copy<16>(b, right);
    for (int i = 0; i < 4; ++i) {
        double x = a[4 * i], y = a[4 * i + 1], z = a[4 * i + 2], w = a[4 * i + 3];
        for (int j = 0; j < 4; j += 2)
            store(out + 4 * i + j,
                  x * load(right + j) + y * load(right + 4 + j) + z * load(right + 8 + j) + w * load(right + 12 + j));
    }
}

void T4_mult_V3(const T4 m, const V3 v, V3 out)
{
    Pair xy = load(v), z1 = {v[2], 1};
    Pair row0 = load(m) * xy + load(m + 2) * z1;
    Pair row1 = load(m + 4) * xy + load(m + 6) * z1;
    Pair row2 = load(m + 8) * xy + load(m + 10) * z1;
    store(out, sumsOf(row0, row1));
    out[2] = row2[0] + row2[1];
}

void T4_add_T4(const T4 a, const T4 b, T4 out)
{
    combine<16>(a, b, out, sum);
}

void T4_subtract_T4(const T4 a, const T4 b, T4 out)
{
    combine<16>(a, b, out, difference);
}
