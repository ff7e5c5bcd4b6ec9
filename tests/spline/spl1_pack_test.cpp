#include "tests/spline/curves.h"

#include <gmock/gmock.h>

#include <string_view>

namespace {

using namespace curves;

TEST(Packet, HasTheDocumentedBytes)
{
    SplinePtr spline = make({SPLINE_CLOSED, SPLINE_CARDINAL, 1, 2, 0.5}, {1, -2, 0.5, 3});
    EXPECT_EQ(Spline1SetSpace(spline.get(), 258), SPLINE_OK);
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.25, 3), SPLINE_OK);
    const std::string_view expected("kp1S\1\0\0\0\145\0\0\0\1\0\0\0"               // closed, cardinal
                                    "\1\0\0\0\2\0\0\0\0\0\x80\x3E\2\0\0\0"         // degree, dimension, 0.25, points
                                    "\1\0\0\0\2\1\0\0\0\0\0\0\3\0\0\0"             // space 258, no table
                                    "\1\0\0\0\0\0\x80\x3E\0\0\x80\xBF\0\0\0\0"     // 0.25, -1, 0
                                    "\0\0\x80\x3F\0\0\0\xC0\0\0\0\x3F\0\0\x40\x40" // the points
                                    "\xEE\xEE\xEE\xEE\xEE\xEE\xEE\xEE",
                                    88); // left as they were
    std::vector<char> packet = pack(spline.get());
    EXPECT_EQ(std::string_view(packet.data(), packet.size()), expected);
}

TEST(Packet, RestoresTheWholeObject)
{
    std::mt19937 random(9);
    for (Type type : everyType()) {
        SplinePtr spline = make(type, randomValues(random, 10 * type.dimension));
        double error = 0;
        int32_t intervals = 0;
        // Nothing is as in a new object.
        EXPECT_EQ(Spline1SetSpace(spline.get(), 7), SPLINE_OK);
        EXPECT_EQ(Spline1SetAcc(spline.get(), 0.0625, 16), SPLINE_OK);
        EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
        std::vector<char> packet = pack(spline.get());
        EXPECT_EQ(packet.size(), static_cast<size_t>(72 + 40 * type.dimension + 332));
        EXPECT_EQ(Spline1Pack(spline.get(), static_cast<uint32_t>(packet.size() - 1), packet.data()), SPLINE_BAD_ARG);

        SplinePtr other(Spline1Create());
        std::vector<char> shifted(packet.size() + 1); // at an odd address
        std::copy(packet.begin(), packet.end(), shifted.begin() + 1);
        ASSERT_EQ(Spline1Unpack(shifted.data() + 1, other.get()), SPLINE_OK);
        EXPECT_EQ(pack(other.get()), packet);
        SplinePtr copy(Spline1Create());
        ASSERT_EQ(Spline1Copy(other.get(), copy.get()), SPLINE_OK);
        EXPECT_EQ(pack(copy.get()), packet);
    }
}

// Whatever a packet holds, every use of the object stays inside its memory and ends. With its header as it was,
// look-ups stay between the samples of their interval, whether or not the coefficients belong to them.
TEST(Packet, MayBeAStrangers)
{
    std::mt19937 random(10);
    // Below 1000 a packet holds what it announces; the larger numbers no memory holds. Floats of every kind.
    auto word = [&] { return static_cast<uint32_t>(random() % 2 == 0 ? random() % 1000 : random() | 0x40000000); };
    SplinePtr valid = make({SPLINE_OPEN, SPLINE_B, 3, 3}, randomValues(random, 18));
    float params[64], out[64] = {}, samples[17];
    EXPECT_EQ(Spline1ArcLen(valid.get(), 1, nullptr, out), SPLINE_OK);
    const std::vector<char> original = pack(valid.get());
    constexpr size_t table = 64 + 4 * 18;
    std::memcpy(samples, original.data() + table + 4 * 66, sizeof samples);
    std::vector<char> packet(64 + 4 * (1000 * 1000 + 5003));
    for (unsigned round = 0; round < 300; ++round) {
        std::copy(original.begin(), original.end(), packet.begin());
        uint32_t value = 0;
        for (size_t i = 0; i < 64; ++i, value = random() % 4 == 0 ? 0 : word())
            std::memcpy(packet.data() + table + 4 * i, &value, 4);
        for (unsigned changes = round % 3; changes > 0; --changes, value = word())
            std::memcpy(packet.data() + 4 * (1 + random() % 15), &value, 4);
        SplinePtr spline(Spline1Create()), copy(Spline1Create());
        uint32_t result = Spline1Unpack(packet.data(), spline.get());
        EXPECT_TRUE(result == SPLINE_OK || result == SPLINE_NO_MEMORY);
        for (int i = 0; i < 64; ++i)
            params[i] = 5 * (static_cast<float>(i) + 0.4f) / 64; // four in each interval
        double values[64], error;
        int32_t number;
        Spline1ArcLen(spline.get(), 64, params, out);
        Spline1Index(spline.get(), 64, out, params);
        for (int i = 0; i < 64 && round % 3 == 0; ++i)
            ASSERT_TRUE(out[i] >= samples[i / 4] && out[i] <= samples[i / 4 + 1] && params[i] >= 0 && params[i] <= 5);
        Spline1DTangent(spline.get(), 4, params, values);
        Spline1GetAcc(spline.get(), &error, &number);
        Spline1Copy(spline.get(), copy.get());
        pack(copy.get());
    }
}

TEST(LinearTransform, MapsTheCurve)
{
    const double matrix[] = {0, -2, 5, 1, 0, 6, 7, 8, 9};
    const double offsets[] = {10, 20, 30};
    const struct {
        int map;
        std::vector<double> points, mapped;
    } cases[] = {{1, {1, 2, 3, 0, 0, 0}, {10, 2, 3, 10, 0, 0}},
                 {2, {1, 2, 3, 0, 0, 0}, {6, 27, 3, 10, 20, 0}},
                 {3, {1, 2, 3, 0, 0, 0}, {21, 39, 80, 10, 20, 30}},
                 {3, {1, 2, 0, 0}, {6, 21, 10, 20}}};
    LXPtr lx(SplineCreateLX());
    int32_t number = 0;
    for (const auto &[map, points, mapped] : cases) {
        double back[9], backOffsets[3], out[6];
        int32_t dimension = 0;
        auto n = static_cast<size_t>(map);
        EXPECT_EQ(SplineEncodeLX(lx.get(), map, matrix, offsets), SPLINE_OK);
        EXPECT_EQ(SplineDecodeLX(lx.get(), &dimension, back, backOffsets), SPLINE_OK);
        EXPECT_TRUE(dimension == map && std::memcmp(back, matrix, sizeof(double) * n * n) == 0 &&
                    std::memcmp(backOffsets, offsets, sizeof(double) * n) == 0);
        SplinePtr spline = make({SPLINE_CLOSED, SPLINE_B, 3, static_cast<int>(points.size() / 2)}, points);
        float length = 0;
        EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &length), SPLINE_OK);
        EXPECT_EQ(Spline1LinXform(spline.get(), lx.get()), SPLINE_OK);
        EXPECT_EQ(fieldAt<int32_t>(pack(spline.get()), 40), 0); // measured no longer
        EXPECT_EQ(Spline1DCtl(spline.get(), 2, nullptr, out), SPLINE_OK);
        EXPECT_EQ(std::vector<double>(out, out + mapped.size()), mapped);
    }
    EXPECT_EQ(SplineDecodeLX(lx.get(), &number, nullptr, nullptr), SPLINE_OK); // the outputs are optional
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 3, 2}, {0, 0});
    EXPECT_EQ(SplineEncodeLX(lx.get(), 65535, matrix, offsets), SPLINE_NO_MEMORY);
    EXPECT_EQ(Spline1LinXform(spline.get(), lx.get()), SPLINE_BAD_ARG); // empty again
    EXPECT_EQ(SplineDeleteLX(lx.release()), SPLINE_OK);
}

} // namespace
