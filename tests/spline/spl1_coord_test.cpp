#include "tests/spline/curves.h"

namespace {

using namespace curves;

TEST(ControlPoints, AreReadBackByIndexOrAtEqualSteps)
{
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 2, 2}, {0, -1, 1, -1, 2, -1, 3, -1, 4, -1, 5, -1, 6, -1});
    auto read = [&](int32_t count, const int32_t *indices) {
        double values[16];
        std::vector<double> first;
        if (Spline1DCtl(spline.get(), count, indices, values) == SPLINE_OK)
            for (int i = 0; i < 2 * count; i += 2)
                first.push_back(values[i]);
        return first;
    };
    const int32_t indices[] = {3, INT32_MIN, INT32_MAX, 6};
    EXPECT_EQ(read(4, indices), (std::vector<double>{3, 0, 6, 6}));
    EXPECT_EQ(read(3, nullptr), (std::vector<double>{0, 3, 6}));
    EXPECT_EQ(read(4, nullptr), (std::vector<double>{0, 2, 4, 6}));
    for (int32_t impossible : {1, 5, 6, 8})
        EXPECT_TRUE(read(impossible, nullptr).empty()) << impossible;
}

} // namespace
