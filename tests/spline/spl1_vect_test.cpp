#include "tests/spline/curves.h"

#include <gmock/gmock.h>

namespace {

using namespace curves;
using testing::ElementsAre;

/// Results of a call whose parameters are the last floats of its own output.
std::vector<double> inPlace(decltype(&Spline1DPoint) call, const SplinePtr &spline, const std::vector<float> &params,
                            size_t dimension)
{
    std::vector<double> values(params.size() * dimension);
    float *last = reinterpret_cast<float *>(values.data() + values.size()) - params.size();
    std::memcpy(last, params.data(), params.size() * sizeof(float));
    EXPECT_EQ(call(spline.get(), static_cast<int32_t>(params.size()), last, values.data()), SPLINE_OK);
    return values;
}

std::vector<double> tangentAt(const SplinePtr &spline, float u)
{
    return inPlace(Spline1DTangent, spline, {u}, 2);
}

// Every type, every number of control points that meets an end rule in another way, parameters in random
// order, on and off the knots and outside: points and tangents against the reference, records against
// arrays.
TEST(Evaluation, AgreesWithTheReference)
{
    std::mt19937 random(1);
    for (Type type : everyType())
        for (int count : {1, 2, 3, 4, 5, 12}) {
            std::vector<double> control = randomValues(random, count * type.dimension);
            SplinePtr spline = make(type, control);
            EXPECT_EQ(Spline1SetSpace(spline.get(), 42), SPLINE_OK);
            Reference curve(type, control);
            std::vector<float> params{NAN, INFINITY, -INFINITY};
            for (int i = 0; i < 60; ++i)
                params.push_back(static_cast<float>(curve.end() * (static_cast<int>(random() % 1400) - 200) / 1000.0));
            for (int i = -1; i <= count + 1; ++i)
                params.push_back(static_cast<float>(i));
            auto dimension = static_cast<size_t>(type.dimension);
            std::vector<double> points = inPlace(Spline1DPoint, spline, params, dimension);
            std::vector<double> tangents = inPlace(Spline1DTangent, spline, params, dimension);
            std::vector<SplineCoord> records(params.size(), {-7, -7, -7, 0, -7});
            auto samples = static_cast<int32_t>(params.size());
            ASSERT_EQ(Spline1CPoint(spline.get(), samples, params.data(), records.data()), SPLINE_OK);
            for (size_t i = 0; i < params.size(); ++i) {
                auto u = static_cast<double>(params[i]);
                auto point = curve.point(u);
                double speed = curve.speed(u);
                bool standsStill = speed < 1e-6 || !(u > 0 && u < curve.end());
                bool isCorner = type.degree == 1 && u == std::floor(u);
                const double components[] = {records[i].x, records[i].y, records[i].z};
                for (size_t c = 0; c < dimension; ++c) {
                    EXPECT_NEAR(points[i * dimension + c], point[c], 2e-6) << type << " at " << u;
                    EXPECT_EQ(components[c], points[i * dimension + c]);
                    if (!standsStill && !isCorner) {
                        EXPECT_NEAR(tangents[i * dimension + c], curve.derivative(u)[c] / speed, 2e-6) << type << u;
                    }
                }
                EXPECT_TRUE(records[i].space == 42 && records[i].unused == -7 &&
                            (dimension == 3 || records[i].z == -7));
            }
        }
}

TEST(Tangents, PointForwardWhereTheDerivativeDoesNotTell)
{
    for (Type type : {Type{SPLINE_OPEN, SPLINE_B, 2, 2}, Type{SPLINE_OPEN, SPLINE_B, 3, 2},
                      Type{SPLINE_OPEN, SPLINE_CARDINAL, 3, 2}}) {
        SplinePtr spline = make(type, {0, 0, 3, 4, 6, 8, 9, 12});
        for (float u : {0.0f, 1.5f, 3.0f, 99.0f})
            EXPECT_THAT(tangentAt(spline, u), testing::Pointwise(testing::FloatNear(1e-6f), {0.6, 0.8}));
        std::vector<double> equal; // 0.1 and 0.7 are no binary fractions: weights alone would not cancel
        for (int count = 1; count < 8; ++count) {
            equal.insert(equal.end(), {0.1, 0.7});
            for (float u : {0.0f, 0.3f, 1.0f, 2.7f})
                EXPECT_THAT(tangentAt(make(type, equal), u), ElementsAre(0, 0)) << type << count;
        }
    }
    // At 1.5 the derivative (4 f^2 - 1, 2 f - 1) vanishes, the second one is (4, 2).
    SplinePtr cusp = make({SPLINE_OPEN, SPLINE_B, 3, 2}, {1, 1, 0, -1, -1, -1, 6, 1});
    EXPECT_THAT(tangentAt(cusp, 1.5f), testing::Pointwise(testing::DoubleNear(1e-7), {2 / sqrt(5), 1 / sqrt(5)}));
    SplinePtr open = make({SPLINE_OPEN, SPLINE_CARDINAL, 1, 2}, {0, 0, 2, 0, 2, 0, 2, 3});
    EXPECT_THAT(tangentAt(open, 1.5f), ElementsAre(0, 0)); // between equal points
    EXPECT_THAT(tangentAt(open, 3), ElementsAre(0, 1));    // forward at the very end
    SplinePtr closed = make({SPLINE_CLOSED, SPLINE_B, 1, 2}, {0, 0, 2, 0, 2, 3});
    EXPECT_THAT(tangentAt(closed, 3), ElementsAre(1, 0)); // the end is the start again
}

} // namespace
