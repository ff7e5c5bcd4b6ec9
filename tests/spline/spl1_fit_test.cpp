#include "tests/spline/curves.h"

#include <gmock/gmock.h>

namespace {

using namespace curves;

TEST(Fit, PassesThroughTheData)
{
    std::mt19937 random(4);
    for (Type type : everyType())
        for (int count : {1, 2, 3, 4, 5, 17, 10000}) {
            std::vector<double> data = randomValues(random, count * type.dimension, 100);
            SplinePtr spline = make(type);
            ASSERT_EQ(Spline1FitDPoints(spline.get(), count, data.data()), SPLINE_OK);
            std::vector<float> params;
            for (int i = 0; i < count; ++i)
                params.push_back(static_cast<float>(i));
            std::vector<double> points(data.size());
            ASSERT_EQ(Spline1DPoint(spline.get(), count, params.data(), points.data()), SPLINE_OK);
            EXPECT_THAT(points, testing::Pointwise(testing::DoubleNear(4e-5), data)) << type; // 100 to a few units
        }
}

TEST(Fit, TakesRecordsAndTheirSpace)
{
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 3, 2});
    const SplineCoord records[] = {{1, 2, 99, 5, 0}, {3, 4, 99, 6, 0}, {5, 7, 99, 7, 0}};
    SplineCoord out[2];
    int32_t space = -1;
    EXPECT_EQ(Spline1FitCPoints(spline.get(), 3, records), SPLINE_OK);
    EXPECT_EQ(Spline1GetSpace(spline.get(), &space), SPLINE_OK);
    EXPECT_EQ(space, 5);
    EXPECT_EQ(Spline1CPoint(spline.get(), 2, nullptr, out), SPLINE_OK);
    EXPECT_NEAR(out[1].y, 7, 1e-5);
    EXPECT_EQ(Spline1SetSpace(spline.get(), 0), SPLINE_OK); // detaches it
    EXPECT_EQ(Spline1CPoint(spline.get(), 2, nullptr, out), SPLINE_BAD_ARG);
    const SplineCoord spaceless[] = {{1, 2, 99, 0, 0}}; // loading records attaches a space even if it is 0
    EXPECT_EQ(Spline1FitCPoints(spline.get(), 1, spaceless), SPLINE_OK);
    EXPECT_EQ(Spline1CPoint(spline.get(), 1, nullptr, out), SPLINE_OK);
    EXPECT_EQ(Spline1FitCCtl(spline.get(), 3, records), SPLINE_OK);
    EXPECT_EQ(Spline1CCtl(spline.get(), 2, nullptr, out), SPLINE_OK);
    EXPECT_TRUE(out[1].x == 5 && out[1].y == 7 && out[1].space == 5);
    const double values[] = {0, 0, 1, 1};
    EXPECT_EQ(Spline1FitDPoints(spline.get(), 2, values), SPLINE_OK); // detaches the space
    EXPECT_EQ(Spline1GetSpace(spline.get(), &space), SPLINE_OK);
    EXPECT_EQ(space, 0);
    EXPECT_EQ(Spline1CCtl(spline.get(), 2, nullptr, out), SPLINE_BAD_ARG);
}

} // namespace
