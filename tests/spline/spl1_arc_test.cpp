#include "tests/spline/curves.h"

#include <gmock/gmock.h>

#include <functional>
#include <limits>

namespace {

using namespace curves;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

/// The arc table in a packet.
std::vector<float> tableOf(const Spline1 *spline)
{
    std::vector<char> packet = pack(spline);
    std::vector<float> floats(static_cast<size_t>(5 * fieldAt<int32_t>(packet, 44) + 3));
    std::memcpy(floats.data(), packet.data() + 64 + 4 * fieldAt<int32_t>(packet, 20) * fieldAt<int32_t>(packet, 28),
                floats.size() * sizeof(float));
    return floats;
}

double stepOf(const Spline1 *spline)
{
    return static_cast<double>(fieldAt<float>(pack(spline), 60));
}

struct Case {
    Type type;
    std::vector<double> control;
    double accuracy;
    int32_t intervals;
};

/// Random curves, and what makes the speed vanish or nearly so: equal neighbours, reversals on a line,
/// reversals that miss each other by little.
Case randomCase(std::mt19937 &random, size_t number)
{
    static const std::vector<Type> types = everyType();
    constexpr double scales[] = {0.3, 4, 60};
    constexpr double accuracies[] = {0.2, 0.02, 0.002};
    constexpr int32_t intervals[] = {1, 3, 16};
    Case result{types[number % types.size()], {}, accuracies[random() % 3], intervals[random() % 3]};
    int dimension = result.type.dimension;
    int count = 1 + static_cast<int>(random() % 9);
    result.control = randomValues(random, count * dimension, scales[random() % 3]);
    int degeneracy = static_cast<int>(number / types.size() % 4);
    for (int i = 1; degeneracy != 0 && i < count; ++i)
        for (int c = 0; c < dimension; ++c) {
            double &value = result.control[static_cast<size_t>(i * dimension + c)];
            double before = result.control[static_cast<size_t>((i - 1) * dimension + c)];
            if (degeneracy == 1 && random() % 2 == 0)
                value = before;
            else if (degeneracy == 2 && c > 0)
                value = 0.5 * result.control[static_cast<size_t>(i * dimension)];
            else if (degeneracy == 3 && c > 0)
                value = static_cast<double>(static_cast<float>(value * 1e-5));
        }
    return result;
}

// The bound on the step is what makes every integrated length good; what it costs is bounded too. Each
// piece passes through its middle sample, and the inverse leads back.
TEST(ArcLength, IntegratesWithinTheAccuracyWithoutWaste)
{
    std::mt19937 random(5);
    double evaluations = 0;
    for (size_t number = 0; number < 240; ++number) {
        Case given = randomCase(random, number);
        SCOPED_TRACE(testing::Message() << given.type << ", case " << number);
        SplinePtr spline = make(given.type, given.control);
        Reference curve(given.type, given.control);
        auto samples = static_cast<size_t>(2 * given.intervals);
        std::vector<float> params;
        std::vector<double> truth{0};
        for (size_t j = 0; j <= samples; ++j) {
            params.push_back(static_cast<float>(curve.end() * static_cast<double>(j) / static_cast<double>(samples)));
            if (j > 0)
                truth.push_back(truth.back() +
                                curve.length(static_cast<double>(params[j - 1]), static_cast<double>(params[j])));
        }
        std::vector<float> lengths(samples + 1);
        auto count = static_cast<int32_t>(params.size());
        ASSERT_EQ(Spline1SetAcc(spline.get(), given.accuracy, given.intervals), SPLINE_OK);
        ASSERT_EQ(Spline1ArcLen(spline.get(), count, params.data(), lengths.data()), SPLINE_OK);
        std::vector<float> table = tableOf(spline.get());
        for (size_t j = 0; j <= samples; j += 2)
            ASSERT_NEAR(static_cast<double>(table[2 * samples + 2 + j / 2]), truth[j],
                        given.accuracy / 2 + 1e-6 * truth.back());
        // A piece that begins or ends at a standstill jumps there.
        auto moves = [&](size_t j) {
            return std::min(truth[j] - truth[j - 1], truth[j + 1] - truth[j]) > 1e-3 * truth.back();
        };
        for (size_t j = 1; j <= samples; j += 2)
            if (moves(j)) {
                ASSERT_NEAR(static_cast<double>(lengths[j]), truth[j], given.accuracy / 2 + 0.002 * truth.back());
            }
        if (given.type.degree > 1 && curve.end() > 0)
            evaluations += curve.end() / stepOf(spline.get());
        std::vector<float> again(lengths.size());
        ASSERT_EQ(Spline1Index(spline.get(), count, lengths.data(), again.data()), SPLINE_OK);
        ASSERT_EQ(Spline1ArcLen(spline.get(), count, again.data(), again.data()), SPLINE_OK);
        for (size_t j = 1; j <= samples; j += 2)
            if (moves(j)) {
                ASSERT_NEAR(static_cast<double>(again[j]), static_cast<double>(lengths[j]), 0.002 * truth.back());
            }
    }
    EXPECT_LT(evaluations, 55000);
}

TEST(ArcLength, GeneratesItsInputAtEqualSteps)
{
    SplinePtr open = make({SPLINE_OPEN, SPLINE_B, 1, 2}, {0, 0, 1, 0, 3, 0});
    SplinePtr closed = make({SPLINE_CLOSED, SPLINE_B, 1, 2}, {0, 0, 4, 0, 4, 4, 0, 4});
    float out[5] = {};
    EXPECT_EQ(Spline1ArcLen(open.get(), 2, nullptr, out), SPLINE_OK);
    EXPECT_THAT(std::vector<float>(out, out + 2), testing::ElementsAre(0.0f, 3.0f));
    EXPECT_EQ(Spline1Index(open.get(), 4, nullptr, out), SPLINE_OK);
    EXPECT_THAT(std::vector<float>(out, out + 4), testing::Pointwise(testing::FloatNear(1e-5f), {0.0, 1.0, 1.5, 2.0}));
    EXPECT_EQ(Spline1ArcLen(closed.get(), 4, nullptr, out), SPLINE_OK);
    EXPECT_THAT(std::vector<float>(out, out + 4), testing::Pointwise(testing::FloatNear(1e-5f), {0.0, 4.0, 8.0, 12.0}));
    EXPECT_EQ(Spline1Index(closed.get(), 1, nullptr, out), SPLINE_OK);
    EXPECT_EQ(out[0], 0.0f);
    out[0] = -5;
    out[1] = 99;
    out[2] = std::nanf("");
    EXPECT_EQ(Spline1ArcLen(closed.get(), 3, out, out), SPLINE_OK); // in place
    EXPECT_THAT(std::vector<float>(out, out + 3), testing::ElementsAre(0.0f, 16.0f, 0.0f));
}

TEST(ArcLength, StoresLinesAndHyperbolas)
{
    // Speed 2 on the first span and 6 on the second.
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_CARDINAL, 1, 2}, {0, 0, 2, 0, 8, 0});
    float total = 0;
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.5, 2), SPLINE_OK);
    EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &total), SPLINE_OK);
    std::vector<float> lines = tableOf(spline.get());
    EXPECT_EQ(stepOf(spline.get()), 1.0);
    EXPECT_THAT(lines, testing::Pointwise(testing::FloatNear(1e-6f),
                                          {-1.0, 0.5, 0.0, 0.0, 1.5, -0.25, 0.0, 1.0, 0.0, 2.0, 0.0, 2.0, 8.0}));
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.5, 1), SPLINE_OK);
    EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &total), SPLINE_OK);
    // Through (0, 0), (1, 2) and (2, 8): y = 4 x / (3 - x), (y + 4)(x - 3) = -12
    EXPECT_THAT(tableOf(spline.get()),
                testing::Pointwise(testing::FloatNear(1e-6f), {-1.0 / 3, 0.25, -1.0 / 12, 0.0, 0.0, 2.0, 0.0, 8.0}));
}

TEST(ArcLength, IsRebuiltWhenPointsOrSettingsChange)
{
    std::mt19937 random(7);
    std::vector<double> control = randomValues(random, 12);
    SplinePtr spline = make({SPLINE_CLOSED, SPLINE_B, 3, 2}, control);
    const std::function<uint32_t()> changes[] = {
        [&] { return Spline1SetAcc(spline.get(), 0.02, 16); },
        [&] { return Spline1SetAcc(spline.get(), 0.02, 17); },
        [&] { return Spline1FitDPoints(spline.get(), 6, control.data()); },
        [&] { return Spline1Encode(spline.get(), SPLINE_OPEN, SPLINE_B, 3, 2, 0); },
        [&] { return Spline1SetAcc(spline.get(), 0.02, 17); }, // the settings that it has: nothing changes
    };
    for (const auto &change : changes) {
        double error = 0;
        int32_t intervals = 0;
        EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
        EXPECT_EQ(change(), SPLINE_OK);
        bool isLast = &change == std::end(changes) - 1;
        EXPECT_EQ(fieldAt<int32_t>(pack(spline.get()), 40), isLast ? 1 : 0);
        EXPECT_EQ(fieldAt<float>(pack(spline.get()), 56), isLast ? static_cast<float>(error) : -1.0f);
    }
}

TEST(ArcLength, SearchesTheNumberOfIntervals)
{
    std::mt19937 random(8);
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 3, 2}, randomValues(random, 60));
    std::vector<char> before = pack(spline.get());
    double error = 0;
    int32_t intervals = 0;
    for (int32_t rounds : {-3, 0, 2}) {
        EXPECT_EQ(Spline1CalcAcc(spline.get(), rounds, 1e-6, &error, &intervals), SPLINE_OK);
        EXPECT_EQ(intervals, 64 << std::max(rounds, 0)); // out of reach: every round is used
        EXPECT_GT(error, 1e-6);
    }
    EXPECT_EQ(Spline1CalcAcc(spline.get(), 12, 0.01, &error, &intervals), SPLINE_OK);
    EXPECT_LE(error, 0.01);
    EXPECT_EQ(pack(spline.get()), before);

    double again = 0;
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.01, intervals), SPLINE_OK);
    EXPECT_EQ(Spline1GetAcc(spline.get(), &again, &intervals), SPLINE_OK);
    EXPECT_EQ(again, error);
}

// Sizes, numbers that are none, and standstills: the work stays bounded and the answers defined.
TEST(ArcLength, StaysBoundedOnExtremeCurves)
{
    constexpr double largest = std::numeric_limits<float>::max();
    const std::vector<std::vector<double>> extremes = {
        {-largest, largest, largest, -largest, -largest, -largest, largest, largest},
        {1e-38, 0, 1e-45, 0, 0, 1e-40},
        {5, 5},
        {0, 0, 1e30, 0, 0, 1e-30},
        {nan, 0, 1, 1, 2, 2},
        {infinity, -infinity, -infinity, infinity},
        {0, 0, 0, 0, 0, 0, 3, 4, 3, 4, 3, 4, 3, 4}};
    for (Type type : everyType())
        for (const std::vector<double> &control : extremes) {
            if (type.dimension != 2 || (type.kind == SPLINE_CARDINAL && type.tension == 0))
                continue;
            SplinePtr spline = make(type, control);
            float out[40];
            double values[80];
            double error = 0;
            int32_t intervals = 0;
            EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
            EXPECT_TRUE(error >= 0) << type;
            EXPECT_EQ(Spline1Index(spline.get(), 40, nullptr, out), SPLINE_OK);
            double end =
                type.closed() ? static_cast<double>(control.size() / 2) : static_cast<double>(control.size() / 2 - 1);
            EXPECT_GE(stepOf(spline.get()) * 4.1e6, end) << "unbounded work";
            if (std::isfinite(control[0])) {
                for (float param : out)
                    EXPECT_TRUE(static_cast<double>(param) >= 0 && static_cast<double>(param) <= end) << type;
            }
            EXPECT_EQ(Spline1DTangent(spline.get(), 40, out, values), SPLINE_OK);
        }
    // Where the bound on the work is reached, the achieved error tells.
    double error = 0;
    int32_t intervals = 0;
    SplinePtr huge = make({SPLINE_OPEN, SPLINE_B, 3, 2}, {0, 0, 1e20, 0, 0, 1e20, 1e20, 1e20});
    EXPECT_EQ(Spline1SetAcc(huge.get(), 1e-5, 1000), SPLINE_OK);
    EXPECT_EQ(Spline1GetAcc(huge.get(), &error, &intervals), SPLINE_OK);
    EXPECT_GT(error, 1e-12);
}

TEST(ArcLength, ReportsTheFirstThingWrong)
{
    SplinePtr empty = make({SPLINE_OPEN, SPLINE_B, 3, 2});
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 3, 2}, {0, 0, 1, 1});
    float out = 0;
    double error = 7;
    int32_t intervals = 7;
    EXPECT_EQ(Spline1ArcLen(empty.get(), 1, nullptr, &out), SPLINE_BAD_ARG); // no points
    EXPECT_EQ(Spline1ArcLen(spline.get(), 0, nullptr, &out), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1GetAcc(spline.get(), nullptr, &intervals), SPLINE_BAD_ARG);
    for (double accuracy : {0.0, 1.0, -1.0, nan})
        EXPECT_EQ(Spline1CalcAcc(spline.get(), 0, accuracy, &error, &intervals), SPLINE_BAD_ARG);
    EXPECT_EQ(error, 7);
}

} // namespace
