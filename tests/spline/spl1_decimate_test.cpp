#include "tests/spline/curves.h"

#include <gmock/gmock.h>

namespace {

using namespace curves;

std::vector<int> picks(int form, int inCount, int outCount)
{
    SplinePtr spline = make({form, SPLINE_B, 1, 2});
    std::vector<double> in, out(static_cast<size_t>(2 * outCount));
    std::vector<SplineCoord> inRecords, outRecords(static_cast<size_t>(outCount), {-1, -1, -1, -1, -1});
    for (int i = 0; i < inCount; ++i) {
        in.insert(in.end(), {i * 1.0, i * -1.0});
        inRecords.push_back({i * 1.0, i * 2.0, i * 3.0, i, i});
    }
    EXPECT_EQ(Spline1DDecimate(spline.get(), inCount, in.data(), outCount, out.data()), SPLINE_OK);
    EXPECT_EQ(Spline1CDecimate(spline.get(), inCount, inRecords.data(), outCount, outRecords.data()), SPLINE_OK);
    std::vector<int> picked;
    for (size_t i = 0; i < outRecords.size(); ++i) {
        const SplineCoord &record = outRecords[i];
        picked.push_back(record.space);
        EXPECT_TRUE(record.z == 3 * record.x && record.unused == -1 && out[2 * i] == record.x &&
                    out[2 * i + 1] == -record.x);
    }
    return picked;
}

TEST(Decimation, PicksTheDocumentedPoints)
{
    using testing::ElementsAre;
    EXPECT_THAT(picks(SPLINE_OPEN, 11, 3), ElementsAre(0, 5, 10));
    EXPECT_THAT(picks(SPLINE_OPEN, 11, 5), ElementsAre(0, 2, 5, 8, 10));
    EXPECT_THAT(picks(SPLINE_CLOSED, 10, 4), ElementsAre(0, 3, 5, 8));
    EXPECT_THAT(picks(SPLINE_OPEN, 4, 4), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(picks(SPLINE_OPEN, 9, 1), ElementsAre(0));
    EXPECT_THAT(picks(SPLINE_CLOSED, 3, 6), ElementsAre(0, 1, 1, 2, 2, 2)); // 2.5 is rounded up no further
    EXPECT_THAT(picks(SPLINE_CLOSED, 1, 3), ElementsAre(0, 0, 0));
    // With far more points wanted than given, the blend of ramp and smooth step leaves the list on both sides.
    for (int form : {SPLINE_OPEN, SPLINE_CLOSED})
        EXPECT_THAT(picks(form, 3, 100), testing::Each(testing::AllOf(testing::Ge(0), testing::Lt(3))));
}

} // namespace
