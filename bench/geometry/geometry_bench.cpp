// The geometry functions beside Eigen's fixed-size doubles: the same flags, and both behind a call
// that the compiler cannot look into, as one matrix operation in an application is.

#include "bench/support/row.h"

#include "general/geometry.h"

#include <Eigen/Geometry>

#include <array>
#include <random>
#include <vector>

namespace {

using Eigen::Affine3d;
using Eigen::Matrix3d;
using Eigen::Matrix4d;
using Eigen::Vector3d;

constexpr size_t count = 64; // operands in turn; they stay in the first-level cache
constexpr size_t manyPoints = 1'000'000;

/// The heap of 32-bit Windows aligns to 8 bytes. Eigen's vectorised types need 16, so everybody's
/// operands get 16.
template<typename Type>
using AlignedVector = std::vector<Type, Eigen::aligned_allocator<Type>>;

struct Vector {
    V3 v;
};
struct Rotation {
    R3 m;
};
struct Transform {
    T4 m;
};

/// The same random rotations, transforms and points for every contender, in each one's own form.
struct Operands {
    AlignedVector<Vector> points, pointsOut;
    AlignedVector<Rotation> rotations, rotationsOut;
    AlignedVector<Transform> transforms, transformsOut;
    AlignedVector<Vector3d> eigenPoints, eigenPointsOut;
    AlignedVector<Matrix3d> eigenRotations, eigenRotationsOut;
    AlignedVector<Matrix4d> eigenMatrices, eigenMatricesOut;
    AlignedVector<Affine3d> eigenTransforms, eigenTransformsOut;

    explicit Operands(size_t points_ = count)
        : points(points_), pointsOut(points_), rotations(count), rotationsOut(count), transforms(count),
          transformsOut(count), eigenPoints(points_), eigenPointsOut(points_), eigenRotations(count),
          eigenRotationsOut(count), eigenMatrices(count), eigenMatricesOut(count), eigenTransforms(count),
          eigenTransformsOut(count)
    {
        std::mt19937 engine(3);
        std::uniform_real_distribution<double> number(-3, 3);
        for (size_t i = 0; i < points_; ++i) {
            for (double &component : points[i].v)
                component = number(engine);
            eigenPoints[i] = eigenPointsOut[i] = Eigen::Map<Vector3d>(points[i].v); // touches the pages of both
        }
        for (size_t i = 0; i < count; ++i) {
            R3_compose(60 * number(engine), 30 * number(engine), 60 * number(engine), rotations[i].m);
            T4_compose(rotations[i].m, 4 + number(engine), points[i].v, transforms[i].m);
            eigenRotations[i] = Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(rotations[i].m);
            eigenMatrices[i] = Eigen::Map<Eigen::Matrix<double, 4, 4, Eigen::RowMajor>>(transforms[i].m);
            eigenTransforms[i].matrix() = eigenMatrices[i];
        }
    }
};

/// Calls operation(operands, i, j) for every i with another operand j beside it.
template<typename Operation>
auto timed(Operation operation, size_t points = count)
{
    return [operation, points](benchmark::State &state) {
        Operands operands(points);
        for (auto _ : state) {
            for (size_t i = 0; i < points; ++i)
                operation(operands, i, (i + 1) % count);
            benchmark::ClobberMemory();
        }
        state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(points));
    };
}

#define NOT_INLINED [[gnu::noipa]]

NOT_INLINED void eigenCross(const Vector3d &a, const Vector3d &b, Vector3d &out)
{
    out = a.cross(b);
}

NOT_INLINED void eigenNormalize(const Vector3d &v, Vector3d &out)
{
    out = v.normalized();
}

NOT_INLINED void eigenMultiply3(const Matrix3d &a, const Matrix3d &b, Matrix3d &out)
{
    out.noalias() = a * b;
}

NOT_INLINED void eigenApply3(const Matrix3d &m, const Vector3d &v, Vector3d &out)
{
    out.noalias() = m * v;
}

NOT_INLINED void eigenInvert3(const Matrix3d &m, Matrix3d &out)
{
    out = m.transpose() / m.col(0).norm();
}

NOT_INLINED void eigenCompose3(const Vector3d &angles, Matrix3d &out)
{
    constexpr double radians = 0.017453292519943295;
    using Eigen::AngleAxisd;
    out = (AngleAxisd(angles[2] * radians, Vector3d::UnitZ()) * AngleAxisd(angles[1] * radians, Vector3d::UnitY()) *
           AngleAxisd(angles[0] * radians, Vector3d::UnitX()))
              .toRotationMatrix();
}

NOT_INLINED void eigenDecompose3(const Matrix3d &m, Vector3d &out)
{
    out = m.eulerAngles(2, 1, 0) * 57.29577951308232;
}

NOT_INLINED void eigenMultiply4(const Matrix4d &a, const Matrix4d &b, Matrix4d &out)
{
    out.noalias() = a * b;
}

NOT_INLINED void eigenInvert4(const Matrix4d &m, Matrix4d &out)
{
    out = m.inverse();
}

NOT_INLINED void eigenInvertAffine(const Affine3d &m, Affine3d &out)
{
    out = m.inverse();
}

NOT_INLINED void eigenApply4(const Affine3d &m, const Vector3d &v, Vector3d &out)
{
    out = m * v;
}

NOT_INLINED void eigenAdd4(const Matrix4d &a, const Matrix4d &b, Matrix4d &out)
{
    out = a + b;
}

using O = Operands;

const bool registered = [] {
    const char *row = "V3: cross product";
    bench::contend(row, "general",
                   timed([](O &o, size_t i, size_t j) { V3_cross_V3(o.points[i].v, o.points[j].v, o.pointsOut[i].v); }),
                   0.8);
    bench::contend(row, "Eigen", timed([](O &o, size_t i, size_t j) {
                       eigenCross(o.eigenPoints[i], o.eigenPoints[j], o.eigenPointsOut[i]);
                   }));

    row = "V3: copy and normalize";
    bench::contend(row, "general", timed([](O &o, size_t i, size_t) {
                       V3_copy_V3(o.points[i].v, o.pointsOut[i].v);
                       V3_normalize(o.pointsOut[i].v);
                   }),
                   0.5);
    bench::contend(row, "Eigen",
                   timed([](O &o, size_t i, size_t) { eigenNormalize(o.eigenPoints[i], o.eigenPointsOut[i]); }));

    row = "R3: product";
    bench::contend(row, "general", timed([](O &o, size_t i, size_t j) {
                       R3_mult_R3(o.rotations[i].m, o.rotations[j].m, o.rotationsOut[i].m);
                   }),
                   1.0);
    bench::contend(row, "Eigen", timed([](O &o, size_t i, size_t j) {
                       eigenMultiply3(o.eigenRotations[i], o.eigenRotations[j], o.eigenRotationsOut[i]);
                   }));

    row = "R3: inverse";
    bench::contend(row, "general",
                   timed([](O &o, size_t i, size_t) { R3_invert(o.rotations[i].m, o.rotationsOut[i].m); }), 1.0);
    bench::contend(row, "Eigen",
                   timed([](O &o, size_t i, size_t) { eigenInvert3(o.eigenRotations[i], o.eigenRotationsOut[i]); }));

    row = "R3: rotate a vector";
    bench::contend(
        row, "general",
        timed([](O &o, size_t i, size_t j) { R3_mult_V3(o.rotations[j].m, o.points[i].v, o.pointsOut[i].v); }), 1.0);
    bench::contend(row, "Eigen", timed([](O &o, size_t i, size_t j) {
                       eigenApply3(o.eigenRotations[j], o.eigenPoints[i], o.eigenPointsOut[i]);
                   }));

    row = "R3: compose from three angles";
    bench::contend(row, "general", timed([](O &o, size_t i, size_t) {
                       R3_compose(o.points[i].v[0], o.points[i].v[1], o.points[i].v[2], o.rotationsOut[i].m);
                   }),
                   0.8);
    bench::contend(row, "Eigen",
                   timed([](O &o, size_t i, size_t) { eigenCompose3(o.eigenPoints[i], o.eigenRotationsOut[i]); }));

    row = "R3: decompose into three angles";
    bench::contend(row, "general", timed([](O &o, size_t i, size_t) {
                       double *angles = o.pointsOut[i].v;
                       R3_decompose(o.rotations[i].m, &angles[0], &angles[1], &angles[2]);
                   }),
                   0.8);
    bench::contend(row, "Eigen",
                   timed([](O &o, size_t i, size_t) { eigenDecompose3(o.eigenRotations[i], o.eigenPointsOut[i]); }));

    row = "T4: product";
    bench::contend(row, "general", timed([](O &o, size_t i, size_t j) {
                       T4_mult_T4(o.transforms[i].m, o.transforms[j].m, o.transformsOut[i].m);
                   }),
                   1.0);
    bench::contend(row, "Eigen", timed([](O &o, size_t i, size_t j) {
                       eigenMultiply4(o.eigenMatrices[i], o.eigenMatrices[j], o.eigenMatricesOut[i]);
                   }));

    row = "T4: inverse";
    bench::contend(row, "general",
                   timed([](O &o, size_t i, size_t) { T4_invert(o.transforms[i].m, o.transformsOut[i].m); }), 1.0);
    bench::contend(row, "Eigen 4x4",
                   timed([](O &o, size_t i, size_t) { eigenInvert4(o.eigenMatrices[i], o.eigenMatricesOut[i]); }));
    bench::contend(row, "Eigen affine", timed([](O &o, size_t i, size_t) {
                       eigenInvertAffine(o.eigenTransforms[i], o.eigenTransformsOut[i]);
                   }));

    row = "T4: sum";
    bench::contend(row, "general", timed([](O &o, size_t i, size_t j) {
                       T4_add_T4(o.transforms[i].m, o.transforms[j].m, o.transformsOut[i].m);
                   }),
                   0.8);
    bench::contend(row, "Eigen", timed([](O &o, size_t i, size_t j) {
                       eigenAdd4(o.eigenMatrices[i], o.eigenMatrices[j], o.eigenMatricesOut[i]);
                   }));

    auto transformPoints = [](O &o, size_t i, size_t) {
        T4_mult_V3(o.transforms[0].m, o.points[i].v, o.pointsOut[i].v);
    };
    auto eigenTransformPoints = [](O &o, size_t i, size_t) {
        eigenApply4(o.eigenTransforms[0], o.eigenPoints[i], o.eigenPointsOut[i]);
    };
    bench::contend("T4: transform 64 points", "general", timed(transformPoints), 1.0);
    bench::contend("T4: transform 64 points", "Eigen", timed(eigenTransformPoints));
    bench::contend("T4: transform 1e6 points", "general", timed(transformPoints, manyPoints), 1.0);
    bench::contend("T4: transform 1e6 points", "Eigen", timed(eigenTransformPoints, manyPoints));
    return true;
}();

} // namespace
