#include "tests/spline/curves.h"

#include "tests/support/handles.h"

#include <gmock/gmock.h>

#include <functional>

namespace {

using namespace curves;
using namespace test_support;

TEST(SplineObject, AcceptsExactlyTheTypesThereAre)
{
    for (int code = 0; code < 4 * 4 * 5 * 5; ++code) {
        const int32_t type[] = {code % 4 - 1, code / 4 % 4 - 1, code / 16 % 5, code / 80};
        auto [form, kind, degree, dimension] = type;
        bool valid = (form == 0 || form == 1) && (dimension == 2 || dimension == 3) &&
                     ((kind == 0 && degree >= 1 && degree <= 3) || (kind == 1 && (degree == 1 || degree == 3)));
        uint32_t expected = valid ? SPLINE_OK : SPLINE_BAD_ARG;
        SplinePtr spline(Spline1Create());
        int32_t read[4] = {};
        double tension = 0;
        EXPECT_EQ(Spline1Encode(spline.get(), form, kind, degree, dimension, 0.25), expected);
        EXPECT_EQ(Spline1Decode(spline.get(), &read[0], &read[1], &read[2], &read[3], &tension), expected);
        if (valid) {
            EXPECT_THAT(read, testing::ElementsAreArray(type));
            EXPECT_EQ(tension, 0.25);
        }
    }
}

TEST(SplineObject, CopiesWhatTheSourceHasAndDropsPointsOfAnotherDimension)
{
    SplinePtr source = make({SPLINE_OPEN, SPLINE_B, 3, 2}, {0, 0, 1, 1, 2, 0});
    SplinePtr target = make({SPLINE_OPEN, SPLINE_B, 3, 3}, {1, 1, 1});
    EXPECT_EQ(Spline1Copy(source.get(), source.get()), SPLINE_OK); // itself: nothing is lost
    EXPECT_EQ(Spline1Copy(source.get(), target.get()), SPLINE_OK);
    EXPECT_EQ(pack(target.get()), pack(source.get()));
    double out[3];
    EXPECT_EQ(Spline1Encode(target.get(), SPLINE_OPEN, SPLINE_CARDINAL, 3, 2, 0), SPLINE_OK);
    EXPECT_EQ(Spline1DPoint(target.get(), 1, nullptr, out), SPLINE_OK);
    EXPECT_EQ(Spline1Encode(target.get(), SPLINE_OPEN, SPLINE_CARDINAL, 3, 3, 0), SPLINE_OK);
    EXPECT_EQ(Spline1DPoint(target.get(), 1, nullptr, out), SPLINE_BAD_ARG); // to be loaded again
    // Without a type the points are not copied; a type alone does not bring them back.
    EXPECT_EQ(Spline1Encode(source.get(), SPLINE_OPEN, SPLINE_CARDINAL, 2, 2, 0), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1DPoint(source.get(), 1, nullptr, out), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1Copy(source.get(), target.get()), SPLINE_OK);
    EXPECT_EQ(Spline1Encode(target.get(), SPLINE_OPEN, SPLINE_B, 3, 2, 0), SPLINE_OK);
    EXPECT_EQ(Spline1DPoint(target.get(), 1, nullptr, out), SPLINE_BAD_ARG);
    EXPECT_EQ(pack(target.get()).size(), 72u);
}

TEST(SplineObject, RefusesWhatIsNone)
{
    expectRefusal(SPLINE_BAD_HANDLE, Spline1Destroy, Spline1Copy, Spline1Encode, Spline1Decode, Spline1SetSpace,
                  Spline1GetSpace, Spline1CountPoints, Spline1SetAcc, Spline1GetAcc, Spline1CalcAcc, Spline1FitCPoints,
                  Spline1DCtl, Spline1CPoint, Spline1DTangent, Spline1Index, Spline1PacketSize, Spline1Pack,
                  Spline1CDecimate);
    expectRefusal(SPLINE_BAD_ARG, Spline1LinXform); // unlike every other call
    expectRefusal(1, Spline1Verify);
    EXPECT_EQ(Spline1Unpack(nullptr, nullptr), SPLINE_BAD_HANDLE);
}

TEST(SplineObject, RefusesWrongArgumentsAndStaysAsItIs)
{
    constexpr Type plane{SPLINE_OPEN, SPLINE_B, 3, 2};
    SplinePtr held = make(plane, {0, 0, 1, 1}), unloaded = make(plane), untyped(Spline1Create());
    Spline1 *spline = held.get(), *empty = unloaded.get(), *typeless = untyped.get();
    LXPtr map(SplineCreateLX());
    std::vector<char> before = pack(spline);
    double values[8] = {}, error = 7;
    float params[4] = {};
    int32_t intervals = 7;
    SplineCoord records[2] = {};
    expectEach(SPLINE_BAD_ARG, {Spline1Decode(spline, nullptr, nullptr, nullptr, nullptr, nullptr),
                                Spline1SetSpace(empty, 3), Spline1GetSpace(spline, nullptr),
                                Spline1CountPoints(spline, nullptr), Spline1FitDCtl(spline, 0, values),
                                Spline1FitCPoints(spline, 1, nullptr), Spline1FitDPoints(typeless, 1, values),
                                Spline1DCtl(spline, 0, nullptr, values), Spline1DCtl(spline, 2, nullptr, nullptr),
                                Spline1DCtl(empty, 1, nullptr, values), Spline1CCtl(spline, 2, nullptr, records)});
    expectEach(SPLINE_BAD_ARG, {Spline1DPoint(spline, 0, nullptr, values), Spline1DTangent(spline, 1, nullptr, nullptr),
                                Spline1DPoint(empty, 1, nullptr, values),
                                Spline1CTangent(spline, INT32_MAX, nullptr, records)}); // no space, before memory
    expectEach(SPLINE_BAD_ARG,
               {Spline1SetAcc(spline, 0, 8), Spline1SetAcc(spline, -0.1, 8), Spline1SetAcc(spline, 1, 8),
                Spline1SetAcc(spline, NAN, 8), Spline1SetAcc(spline, 0.5, 0),
                Spline1GetAcc(spline, nullptr, &intervals), Spline1GetAcc(spline, &error, nullptr),
                Spline1GetAcc(empty, &error, &intervals), Spline1CalcAcc(spline, 0, 1, &error, &intervals),
                Spline1CalcAcc(spline, 0, NAN, &error, &intervals), Spline1CalcAcc(spline, 0, 0.1, nullptr, &intervals),
                Spline1CalcAcc(spline, 0, 0.1, &error, nullptr), Spline1CalcAcc(empty, 0, 0.1, &error, &intervals),
                Spline1ArcLen(spline, 0, nullptr, params), Spline1Index(spline, 1, params, nullptr),
                Spline1ArcLen(empty, 1, nullptr, params)});
    expectEach(SPLINE_BAD_ARG,
               {Spline1PacketSize(spline, nullptr), Spline1Pack(spline, 1000, nullptr), Spline1Unpack(nullptr, spline),
                Spline1Unpack(values, spline), Spline1LinXform(spline, nullptr), Spline1LinXform(spline, map.get()),
                SplineDeleteLX(nullptr), SplineEncodeLX(nullptr, 1, values, values),
                SplineEncodeLX(map.get(), 0, values, values), SplineEncodeLX(map.get(), 1, nullptr, values),
                SplineEncodeLX(map.get(), 1, values, nullptr), SplineDecodeLX(nullptr, &intervals, values, values),
                SplineDecodeLX(map.get(), nullptr, values, values)});
    expectEach(SPLINE_BAD_ARG,
               {Spline1DDecimate(spline, 0, values, 1, values + 4), Spline1DDecimate(spline, 1, nullptr, 1, values),
                Spline1DDecimate(spline, 1, values, 0, values + 4), Spline1CDecimate(spline, 1, records, 1, nullptr),
                Spline1CDecimate(typeless, 1, records, 1, records + 1)});
    EXPECT_THAT(values, testing::Each(0));
    EXPECT_EQ(pack(spline), before);
    EXPECT_EQ(error, 7);
    EXPECT_EQ(intervals, 7);

    EXPECT_EQ(Spline1SetSpace(spline, 1), SPLINE_OK);
    expectEach(SPLINE_NO_MEMORY,
               {Spline1DPoint(spline, INT32_MAX, nullptr, values), Spline1CTangent(spline, INT32_MAX, nullptr, records),
                SplineEncodeLX(map.get(), 65535, values, values)});
    EXPECT_EQ(Spline1FitDCtl(spline, INT32_MAX, values), SPLINE_NO_MEMORY);
    EXPECT_EQ(Spline1DPoint(spline, 1, nullptr, values), SPLINE_BAD_ARG); // nothing is held now
}

// Each call that runs out of memory leaves a valid object, and the same call then succeeds. When
// every buffer has grown, nothing is allocated any more.
TEST(SplineObject, SurvivesExhaustedMemory)
{
    failEachAllocation([](HeapWatch &watch) {
        SplinePtr owned(Spline1Create()), other(Spline1Create());
        LXPtr map(SplineCreateLX());
        Spline1 *spline = owned.get(), *copy = other.get();
        if (spline == nullptr || copy == nullptr || map == nullptr)
            return;
        const double values[] = {0, 0, 4, 1, 3, 7, -2, 5};
        double points[40], error = 0, accuracy = 0.1;
        float lengths[20];
        SplineCoord records[20];
        unsigned char packet[2000];
        int32_t number = 0;
        EXPECT_EQ(Spline1Encode(spline, SPLINE_CLOSED, SPLINE_B, 3, 2, 0), SPLINE_OK);
        const std::function<uint32_t()> steps[] = {
            [&] { return Spline1FitDCtl(spline, 2, values); },
            [&] { return Spline1DTangent(spline, 20, nullptr, points); },
            [&] { return Spline1FitDPoints(spline, 4, values); },
            [&] { return Spline1SetSpace(spline, 1), Spline1CTangent(spline, 20, nullptr, records); },
            [&] { return Spline1SetAcc(spline, accuracy /= 2, 16), Spline1ArcLen(spline, 20, nullptr, lengths); },
            [&] { return Spline1SetAcc(spline, accuracy /= 2, 16), Spline1GetAcc(spline, &error, &number); },
            [&] { return SplineEncodeLX(map.get(), 2, values, values); },
            [&] { return Spline1LinXform(spline, map.get()); },
            // From here on every call makes blocks of its own.
            [&] { return Spline1CalcAcc(spline, 2, 0.001, &error, &number); },
            [&] { return Spline1Copy(spline, copy); },
            [&] { return Spline1LinXform(copy, map.get()), Spline1Copy(spline, copy); },
            [&] { return Spline1Pack(spline, sizeof packet, packet), Spline1Unpack(packet, copy); },
        };
        for (const auto &step : steps) {
            uint32_t result = step();
            if (result == SPLINE_NO_MEMORY && watch.failed())
                result = step();
            EXPECT_EQ(result, SPLINE_OK);
        }
        int allocations = watch.allocations();
        for (size_t i = 0; i < 8; ++i)
            EXPECT_EQ(steps[i](), SPLINE_OK);
        EXPECT_EQ(watch.allocations(), allocations);
        EXPECT_EQ(Spline1Destroy(owned.release()), SPLINE_OK);
        EXPECT_EQ(watch.wordOfLastFreedBlock(), 0u) << "a destroyed spline keeps its magic";
    });
}

} // namespace
