#include "tests/spline/curves.h"

#include <gmock/gmock.h>

#include <limits>
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
        float length = 0;
        EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &length), SPLINE_OK);
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
        packet[0] = 'x';
        EXPECT_EQ(Spline1Unpack(packet.data(), copy.get()), SPLINE_BAD_ARG);
        EXPECT_EQ(Spline1Unpack(nullptr, copy.get()), SPLINE_BAD_ARG);
    }
}

/// Whether the header announces no more than was given, or more than any memory holds.
bool isReadable(const std::vector<char> &packet)
{
    auto field = [&](size_t offset) { return static_cast<double>(fieldAt<int32_t>(packet, offset)); };
    double points = field(28) >= 1 && field(4) == 1 && field(20) >= 1 ? field(20) * field(28) : 0;
    double table = field(28) >= 1 && field(40) == 1 && field(44) >= 1 ? 5 * field(44) + 3 : 0;
    return 64 + 4 * (points + table) <= static_cast<double>(packet.size()) || points > 0x1FFFFFFF ||
           (table > 0x1FFFFFFF && 64 + 4 * points <= static_cast<double>(packet.size()));
}

/// Uses an object of any contents in every way. Results do not matter here, memory and time do.
void exercise(Spline1 *spline)
{
    float params[4] = {0.5f, 1e9f, -1, std::nanf("")};
    double values[64];
    SplineCoord records[4] = {};
    double error = 0;
    int32_t number = 0;
    Spline1DPoint(spline, 4, params, values);
    Spline1CTangent(spline, 4, nullptr, records);
    Spline1Index(spline, 4, params, params);
    Spline1GetAcc(spline, &error, &number);
    Spline1CCtl(spline, 4, nullptr, records);
    Spline1CDecimate(spline, 2, records, 2, records + 2);
    SplinePtr copy(Spline1Create());
    Spline1Copy(spline, copy.get());
    pack(copy.get());
}

TEST(Packet, MayCarryAnyHeader)
{
    constexpr int32_t numbers[] = {INT32_MIN, -1, 0, 1, 2, 3, 4, 7, 100, 101, 1000, 0x40000000, INT32_MAX};
    constexpr float floats[] = {
        -1, 0, 1e-30f, 0.5f, 1e30f, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()};
    std::mt19937 random(10);
    SplinePtr valid = make({SPLINE_OPEN, SPLINE_B, 3, 3}, randomValues(random, 30));
    float length = 0;
    Spline1ArcLen(valid.get(), 1, nullptr, &length);
    for (int round = 0; round < 300; ++round) {
        std::vector<char> packet = pack(valid.get());
        packet.resize(packet.size() + 12000);
        for (unsigned changes = 1 + random() % 3; changes > 0; --changes) {
            unsigned field = 1 + random() % 15;
            bool isFloat = field == 6 || field >= 13;
            std::memcpy(packet.data() + 4 * field,
                        isFloat ? static_cast<const void *>(&floats[random() % 7])
                                : static_cast<const void *>(&numbers[random() % 13]),
                        4);
        }
        if (!isReadable(packet))
            continue;
        SplinePtr spline(Spline1Create());
        uint32_t result = Spline1Unpack(packet.data(), spline.get());
        EXPECT_TRUE(result == SPLINE_OK || result == SPLINE_NO_MEMORY);
        exercise(spline.get());
    }
}

TEST(LinearTransform, MapsTheCurve)
{
    const double matrix[] = {0, -2, 5, 1, 0, 6, 7, 8, 9};
    const double offsets[] = {10, 20, 30};
    const double expected[][3] = {{10, 2, 3}, {6, 27, 3}, {21, 39, 80}}; // of (1, 2, 3), by the map's dimension
    SplineLX *lx = SplineCreateLX();
    SplinePtr spline = make({SPLINE_CLOSED, SPLINE_B, 3, 3}, {1, 2, 3});
    EXPECT_EQ(Spline1LinXform(spline.get(), lx), SPLINE_BAD_ARG); // empty
    for (int32_t n : {1, 2, 3}) {
        double point[] = {1, 2, 3};
        double back[9] = {};
        int32_t dimension = 0;
        EXPECT_EQ(Spline1FitDCtl(spline.get(), 1, point), SPLINE_OK);
        EXPECT_EQ(SplineEncodeLX(lx, n, matrix, offsets), SPLINE_OK);
        EXPECT_EQ(SplineDecodeLX(lx, &dimension, back, nullptr), SPLINE_OK);
        EXPECT_EQ(std::memcmp(back, matrix, sizeof(double) * static_cast<size_t>(n * n)), 0);
        float length = 0;
        EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &length), SPLINE_OK);
        EXPECT_EQ(Spline1LinXform(spline.get(), lx), SPLINE_OK);
        EXPECT_EQ(fieldAt<int32_t>(pack(spline.get()), 40), 0); // measured no longer
        EXPECT_EQ(Spline1DCtl(spline.get(), 1, nullptr, point), SPLINE_OK);
        EXPECT_THAT(point, testing::ElementsAreArray(expected[n - 1]));
    }
    EXPECT_EQ(Spline1LinXform(nullptr, lx), SPLINE_BAD_ARG); // not SPLINE_BAD_HANDLE
    EXPECT_EQ(SplineEncodeLX(lx, 0, matrix, offsets), SPLINE_BAD_ARG);
    EXPECT_EQ(SplineEncodeLX(lx, 65535, matrix, offsets), SPLINE_NO_MEMORY);
    EXPECT_EQ(Spline1LinXform(spline.get(), lx), SPLINE_BAD_ARG); // empty again
    EXPECT_EQ(SplineDeleteLX(lx), SPLINE_OK);
}

} // namespace
