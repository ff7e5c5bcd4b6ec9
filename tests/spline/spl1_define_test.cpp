#include "tests/spline/curves.h"

#include "tests/support/heap_watch.h"

#include <gmock/gmock.h>

#include <functional>
#include <limits>

namespace {

using namespace curves;

TEST(SplineObject, AcceptsExactlyTheTypesThereAre)
{
    for (int code = 0; code < 4 * 4 * 5 * 5; ++code) {
        int form = code % 4 - 1;
        int kind = code / 4 % 4 - 1;
        int degree = code / 16 % 5;
        int dimension = code / 80;
        bool valid = (form == 0 || form == 1) && (dimension == 2 || dimension == 3) &&
                     ((kind == 0 && degree >= 1 && degree <= 3) || (kind == 1 && (degree == 1 || degree == 3)));
        SplinePtr spline(Spline1Create());
        int32_t read[4] = {};
        double tension = 0;
        uint32_t expected = valid ? SPLINE_OK : SPLINE_BAD_ARG;
        EXPECT_EQ(Spline1Encode(spline.get(), form, kind, degree, dimension, 0.25), expected);
        EXPECT_EQ(Spline1Decode(spline.get(), &read[0], &read[1], &read[2], &read[3], &tension), expected);
        if (valid) {
            EXPECT_THAT(read, testing::ElementsAre(form, kind, degree, dimension));
            EXPECT_EQ(tension, 0.25);
        }
    }
}

TEST(SplineObject, ChangesOfTypeKeepPointsOfTheSameDimension)
{
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 3, 2}, {0, 0, 1, 1, 2, 2});
    double out[9];
    EXPECT_EQ(Spline1Encode(spline.get(), SPLINE_OPEN, SPLINE_CARDINAL, 2, 2, 0), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1DPoint(spline.get(), 3, nullptr, out), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1Encode(spline.get(), SPLINE_OPEN, SPLINE_CARDINAL, 3, 2, 0), SPLINE_OK);
    EXPECT_EQ(Spline1DPoint(spline.get(), 3, nullptr, out), SPLINE_OK);
    EXPECT_EQ(Spline1Encode(spline.get(), SPLINE_OPEN, SPLINE_CARDINAL, 3, 3, 0), SPLINE_OK);
    EXPECT_EQ(Spline1DPoint(spline.get(), 3, nullptr, out), SPLINE_BAD_ARG); // to be loaded again
}

TEST(SplineObject, ChecksAccuracyAndSpace)
{
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 1, 2});
    EXPECT_EQ(Spline1SetSpace(spline.get(), 3), SPLINE_BAD_ARG); // no points
    for (double accuracy : {0.0, -0.1, 1.0, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(Spline1SetAcc(spline.get(), accuracy, 8), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.5, 0), SPLINE_BAD_ARG);
}

TEST(SplineObject, CopiesWhatTheSourceHas)
{
    SplinePtr source = make({SPLINE_OPEN, SPLINE_B, 3, 2}, {0, 0, 1, 1, 2, 0});
    SplinePtr target = make({SPLINE_OPEN, SPLINE_B, 3, 3}, {1, 1, 1});
    EXPECT_EQ(Spline1Copy(source.get(), source.get()), SPLINE_OK); // itself: nothing is lost
    EXPECT_EQ(Spline1Copy(source.get(), target.get()), SPLINE_OK);
    EXPECT_EQ(pack(target.get()), pack(source.get()));
    // Without a type the points are not copied; a type alone does not bring them back.
    double out[2];
    Spline1Encode(source.get(), 9, 9, 9, 9, 0);
    EXPECT_EQ(Spline1Copy(source.get(), target.get()), SPLINE_OK);
    EXPECT_EQ(Spline1Encode(target.get(), SPLINE_OPEN, SPLINE_B, 3, 2, 0), SPLINE_OK);
    EXPECT_EQ(Spline1DPoint(target.get(), 1, nullptr, out), SPLINE_BAD_ARG);
    EXPECT_EQ(pack(target.get()).size(), 72u);
}

// The handle is looked at first: everything else that is passed here is wrong as well.
TEST(SplineObject, RefusesWhatIsNone)
{
    uint32_t foreign[32] = {};
    for (Spline1 *none : {static_cast<Spline1 *>(nullptr), reinterpret_cast<Spline1 *>(foreign)}) {
        const uint32_t results[] = {
            Spline1Verify(none),
            Spline1Destroy(none),
            Spline1Encode(none, 9, 9, 9, 9, 0),
            Spline1Copy(none, none),
            Spline1SetAcc(none, 0, 0),
            Spline1GetAcc(none, nullptr, nullptr),
            Spline1FitCPoints(none, 0, nullptr),
            Spline1DCtl(none, 0, nullptr, nullptr),
            Spline1CPoint(none, 0, nullptr, nullptr),
            Spline1DTangent(none, 0, nullptr, nullptr),
            Spline1Index(none, 0, nullptr, nullptr),
            Spline1Pack(none, 0, nullptr),
            Spline1Unpack(nullptr, none),
            Spline1CDecimate(none, 0, nullptr, 0, nullptr),
        };
        EXPECT_THAT(results, testing::Each(uint32_t{SPLINE_BAD_HANDLE}));
    }
}

// Each call that runs out of memory leaves a valid object, and the same call then succeeds.
TEST(SplineObject, SurvivesExhaustedMemory)
{
    test_support::failEachAllocation([](test_support::HeapWatch &watch) {
        Spline1 *spline = Spline1Create();
        Spline1 *copy = Spline1Create();
        SplineLX *lx = SplineCreateLX();
        if (spline != nullptr && copy != nullptr && lx != nullptr) {
            const double values[] = {0, 0, 4, 1, 3, 7, -2, 5};
            const double matrix[] = {1, 2, 3, 4};
            double points[40];
            float lengths[20];
            SplineCoord records[20];
            unsigned char packet[2000];
            double error = 0;
            int32_t number = 0;
            EXPECT_EQ(Spline1Encode(spline, SPLINE_CLOSED, SPLINE_B, 3, 2, 0), SPLINE_OK);
            const std::function<uint32_t()> calls[] = {
                [&] { return Spline1FitDCtl(spline, 2, values); },
                [&] { return Spline1DTangent(spline, 20, nullptr, points); },
                [&] { return Spline1FitDPoints(spline, 4, values); },
                [&] { return Spline1SetSpace(spline, 1), Spline1CTangent(spline, 20, nullptr, records); },
                [&] { return Spline1ArcLen(spline, 20, nullptr, lengths); },
                [&] { return Spline1GetAcc(spline, &error, &number); },
                [&] { return Spline1CalcAcc(spline, 2, 0.001, &error, &number); },
                [&] { return Spline1Copy(spline, copy); },
                [&] { return Spline1Pack(copy, sizeof packet, packet); },
                [&] { return Spline1Unpack(packet, copy); },
                [&] { return SplineEncodeLX(lx, 2, matrix, values); },
                [&] { return Spline1LinXform(copy, lx); },
            };
            for (const auto &call : calls) {
                uint32_t result = call();
                if (result == SPLINE_NO_MEMORY && watch.failed())
                    result = call();
                EXPECT_EQ(result, SPLINE_OK);
            }
        }
        for (Spline1 *object : {spline, copy})
            if (object != nullptr) {
                EXPECT_EQ(Spline1Destroy(object), SPLINE_OK);
                EXPECT_EQ(watch.wordOfLastFreedBlock(), 0u) << "a destroyed spline keeps its magic";
            }
        if (lx != nullptr)
            SplineDeleteLX(lx);
    });
}

} // namespace
