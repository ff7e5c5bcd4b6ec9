#include "tests/spline/curves.h"

#include <gmock/gmock.h>

#include <limits>
#include <string_view>

namespace
{

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
        std::vector<float> lengths(20);
        EXPECT_EQ(Spline1ArcLen(spline.get(), 20, nullptr, lengths.data()), SPLINE_OK);
        std::vector<char> packet = pack(spline.get());
        EXPECT_EQ(packet.size(), static_cast<size_t>(72 + 40 * type.dimension + 332));
        EXPECT_EQ(Spline1Pack(spline.get(), static_cast<uint32_t>(packet.size() - 1), packet.data()), SPLINE_BAD_ARG);

        SplinePtr other(Spline1Create());
        std::vector<char> shifted(packet.size() + 1); // at an odd address
        std::copy(packet.begin(), packet.end(), shifted.begin() + 1);
        ASSERT_EQ(Spline1Unpack(shifted.data() + 1, other.get()), SPLINE_OK);
        EXPECT_EQ(pack(other.get()), packet);
        std::vector<float> again(20);
        EXPECT_EQ(Spline1ArcLen(other.get(), 20, nullptr, again.data()), SPLINE_OK);
        EXPECT_EQ(again, lengths);

        SplinePtr copy(Spline1Create());
        ASSERT_EQ(Spline1Copy(other.get(), copy.get()), SPLINE_OK);
        EXPECT_EQ(pack(copy.get()), packet);
        packet[0] = 'x';
        EXPECT_EQ(Spline1Unpack(packet.data(), copy.get()), SPLINE_BAD_ARG);
        EXPECT_EQ(Spline1Unpack(nullptr, copy.get()), SPLINE_BAD_ARG);
        packet[0] = 'k';
        EXPECT_EQ(pack(copy.get()), packet);
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
    float lengths[4];
    double values[64];
    SplineCoord records[4] = {};
    double error = 0;
    int32_t number = 0;
    Spline1DPoint(spline, 4, params, values);
    Spline1CTangent(spline, 4, nullptr, records);
    Spline1ArcLen(spline, 4, params, lengths);
    Spline1Index(spline, 4, nullptr, lengths);
    Spline1GetAcc(spline, &error, &number);
    if (Spline1CountPoints(spline, &number) == SPLINE_OK && number < 1000)
        Spline1CalcAcc(spline, 1, 0.1, &error, &number);
    Spline1CCtl(spline, 4, nullptr, records);
    Spline1CDecimate(spline, 4, records, 2, records + 2);
    SplinePtr copy(Spline1Create());
    Spline1Copy(spline, copy.get());
    pack(copy.get());
    pack(spline);
    Spline1Decode(copy.get(), &number, nullptr, nullptr, nullptr, nullptr);
    Spline1FitDCtl(copy.get(), 4, values);
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
    int unpacked = 0;
    int refused = 0;
    for (int round = 0; round < 1500; ++round) {
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
        ++(result == SPLINE_OK ? unpacked : refused);
        EXPECT_TRUE(result == SPLINE_OK || result == SPLINE_NO_MEMORY);
        exercise(spline.get());
    }
    EXPECT_GT(unpacked, 400);
    EXPECT_GT(refused, 20);
}

TEST(LinearTransform, MapsTheCurve)
{
    std::mt19937 random(11);
    const double matrix[] = {0, -2, 5, 1, 0, 6, 7, 8, 9};
    const double offsets[] = {10, 20, 30};
    for (int32_t n : {1, 2, 3}) {
        SplineLX *lx = SplineCreateLX();
        std::vector<double> control = randomValues(random, 12);
        SplinePtr spline = make({SPLINE_CLOSED, SPLINE_B, 3, 3}, control);
        EXPECT_EQ(Spline1LinXform(spline.get(), lx), SPLINE_BAD_ARG); // empty
        EXPECT_EQ(SplineEncodeLX(lx, n, matrix, offsets), SPLINE_OK);
        EXPECT_EQ(Spline1LinXform(spline.get(), lx), SPLINE_OK);
        std::vector<double> mapped(12);
        Spline1DCtl(spline.get(), 4, nullptr, mapped.data());
        for (size_t i = 0; i < 12; i += 3)
            for (int r = 0; r < 3; ++r) {
                double expected = offsets[r];
                for (int c = 0; c < n; ++c)
                    expected += matrix[r * n + c] * control[i + static_cast<size_t>(c)];
                EXPECT_NEAR(mapped[i + static_cast<size_t>(r)], r < n ? expected : control[i + static_cast<size_t>(r)],
                            1e-4);
            }
        int32_t dimension = 0;
        double back[9] = {};
        EXPECT_EQ(SplineDecodeLX(lx, &dimension, back, nullptr), SPLINE_OK);
        EXPECT_EQ(dimension, n);
        EXPECT_EQ(std::memcmp(back, matrix, sizeof(double) * static_cast<size_t>(n * n)), 0);
        EXPECT_EQ(Spline1LinXform(nullptr, lx), SPLINE_BAD_ARG); // not SPLINE_BAD_HANDLE
        EXPECT_EQ(Spline1LinXform(spline.get(), nullptr), SPLINE_BAD_ARG);
        EXPECT_EQ(SplineEncodeLX(lx, 0, matrix, offsets), SPLINE_BAD_ARG);
        EXPECT_EQ(SplineEncodeLX(lx, 65535, matrix, offsets), SPLINE_NO_MEMORY);
        EXPECT_EQ(SplineDecodeLX(lx, &dimension, nullptr, nullptr), SPLINE_OK);
        EXPECT_EQ(dimension, 0);
        EXPECT_EQ(SplineDeleteLX(lx), SPLINE_OK);
    }
    EXPECT_EQ(SplineDeleteLX(nullptr), SPLINE_BAD_ARG);
}

} // namespace
