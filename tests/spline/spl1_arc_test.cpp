#include "tests/spline/curves.h"

#include <gmock/gmock.h>

#include <functional>
#include <limits>

namespace
{

using namespace curves;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

/// What a packet says about the arc table.
struct Table {
    explicit Table(const Spline1 *spline)
    {
        std::vector<char> packet = pack(spline);
        auto points = static_cast<size_t>(fieldAt<int32_t>(packet, 20) * fieldAt<int32_t>(packet, 28));
        intervals = fieldAt<int32_t>(packet, 44);
        step = static_cast<double>(fieldAt<float>(packet, 60));
        floats.resize(static_cast<size_t>(5 * intervals + 3));
        std::memcpy(floats.data(), packet.data() + 64 + 4 * points, floats.size() * sizeof(float));
    }

    double coefficient(int interval, int c) const
    {
        return static_cast<double>(floats[static_cast<size_t>(4 * interval + c)]);
    }
    double lastParameter() const
    {
        return static_cast<double>(floats[static_cast<size_t>(4 * intervals + 1)]);
    }
    double length(int i) const
    {
        return static_cast<double>(floats[static_cast<size_t>(4 * intervals + 2 + i)]);
    }

    int32_t intervals;
    double step;
    std::vector<float> floats;
};

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

double midpointSum(const Reference &curve, double from, double to, double count)
{
    double width = (to - from) / count;
    double sum = 0;
    for (double j = 0.5; j < count; ++j)
        sum += curve.speed(from + j * width);
    return sum * width;
}

// The bound on the step is what makes every integrated length good; that it is not needlessly strict is
// seen against the fewest equal steps that would have done.
TEST(ArcLength, IntegratesWithinTheAccuracyWithoutWaste)
{
    std::mt19937 random(5);
    double logOfExcess = 0;
    int compared = 0;
    for (size_t number = 0; number < 360; ++number) {
        Case given = randomCase(random, number);
        SplinePtr spline = make(given.type, given.control);
        ASSERT_EQ(Spline1SetAcc(spline.get(), given.accuracy, given.intervals), SPLINE_OK);
        float length = 0;
        ASSERT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &length), SPLINE_OK);
        Reference curve(given.type, given.control);
        Table table(spline.get());
        double allowed = given.accuracy / 2;
        double spacing = curve.end() / (2 * table.intervals);
        std::vector<double> truth{0};
        double total = 0;
        for (int j = 1; j <= 2 * table.intervals; ++j) {
            total += curve.length((j - 1) * spacing, j * spacing);
            truth.push_back(total);
        }
        for (int i = 0; i < table.intervals; ++i) {
            auto end = static_cast<size_t>(2 * i + 2);
            ASSERT_NEAR(table.length(i + 1), truth[end], allowed + 1e-7 * total) << given.type << ", case " << number;
            // Each piece passes through its middle sample as well.
            double x = (2 * i + 1) * spacing;
            double y = (table.coefficient(i, 3) - table.coefficient(i, 0) * x) /
                       (table.coefficient(i, 2) * x + table.coefficient(i, 1));
            if (truth[end - 1] > truth[end - 2] && truth[end] > truth[end - 1]) {
                ASSERT_NEAR(y, truth[end - 1], allowed + 0.002 * total) << given.type << ", case " << number;
            }
        }

        if (given.type.degree == 1 || given.intervals != 1 || total < 1)
            continue;
        double spent = 2 * std::ceil(spacing / table.step);
        double enough = 2;
        while (std::abs(midpointSum(curve, 0, curve.end() / 2, enough / 2) - truth[1]) > allowed ||
               std::abs(midpointSum(curve, 0, curve.end(), enough) - total) > allowed)
            enough += 2;
        logOfExcess += std::log(spent / enough);
        ++compared;
    }
    ASSERT_GT(compared, 50);
    EXPECT_LT(std::exp(logOfExcess / compared), 5.5) << "evaluations spent, over the fewest that would do";
}

// Random queries, both ways, in any order: the map is monotone, stays in range and inverts itself.
TEST(ArcLength, MapsBothWays)
{
    std::mt19937 random(6);
    for (size_t number = 0; number < 144; ++number) {
        Case given = randomCase(random, number);
        SplinePtr spline = make(given.type, given.control);
        double error = 0;
        int32_t intervals = 0;
        ASSERT_EQ(Spline1SetAcc(spline.get(), 0.001, 64), SPLINE_OK);
        ASSERT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
        Reference curve(given.type, given.control);
        double total = Table(spline.get()).length(intervals);
        std::vector<float> params(8);
        std::vector<float> lengths(params.size());
        std::vector<float> back(params.size());
        for (float &param : params)
            param = static_cast<float>(curve.end() * (static_cast<double>(random() % 1200) / 1000 - 0.1));
        auto count = static_cast<int32_t>(params.size());
        ASSERT_EQ(Spline1ArcLen(spline.get(), count, params.data(), lengths.data()), SPLINE_OK);
        ASSERT_EQ(Spline1Index(spline.get(), count, lengths.data(), back.data()), SPLINE_OK);
        for (size_t i = 0; i < params.size(); ++i) {
            double u = std::min(std::max(static_cast<double>(params[i]), 0.0), curve.end());
            auto length = static_cast<double>(lengths[i]);
            // The error is sampled halfway between the samples of the table; on a piece where the curve
            // stands still for half its length the truth may lie further off.
            EXPECT_NEAR(length, curve.length(0, u), 6 * error * total + 0.001) << given.type << ", case " << number;
            EXPECT_NEAR(curve.length(0, static_cast<double>(back[i])), length, 6 * error * total + 0.001);
            EXPECT_TRUE(length >= 0 && length <= total);
        }
    }
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
    Table lines(spline.get());
    EXPECT_EQ(lines.step, 1.0);
    EXPECT_THAT(lines.floats, testing::Pointwise(testing::FloatNear(1e-6f),
                                                 {-1.0, 0.5, 0.0, 0.0, 1.5, -0.25, 0.0, 1.0, 0.0, 2.0, 0.0, 2.0, 8.0}));
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.5, 1), SPLINE_OK);
    EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &total), SPLINE_OK);
    Table hyperbola(spline.get()); // through (0, 0), (1, 2) and (2, 8): y = 4 x / (3 - x), (y + 4)(x - 3) = -12
    EXPECT_THAT(hyperbola.floats,
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
    int32_t same = 0;
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.01, intervals), SPLINE_OK);
    EXPECT_EQ(Spline1GetAcc(spline.get(), &again, &same), SPLINE_OK);
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
        {5, 5, 5, 5, 5, 5},
        {0, 0, 1e30, 0, 0, 1e-30},
        {nan, 0, 1, 1, 2, 2},
        {infinity, 0, 1, 1, 2, 2},
        {infinity, -infinity, -infinity, infinity},
        {0, 0, 0, 0, 0, 0, 3, 4, 3, 4, 3, 4, 3, 4}};
    for (Type type : everyType())
        for (const std::vector<double> &control : extremes) {
            if (type.dimension != 2)
                continue;
            SplinePtr spline = make(type, control);
            float out[40];
            double values[80];
            double error = 0;
            int32_t intervals = 0;
            EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
            EXPECT_TRUE(error >= 0) << type;
            EXPECT_EQ(Spline1Index(spline.get(), 40, nullptr, out), SPLINE_OK);
            double end = Table(spline.get()).lastParameter();
            EXPECT_GE(Table(spline.get()).step * 4.1e6, end) << "unbounded work";
            if (std::isfinite(control[0])) {
                for (float param : out)
                    EXPECT_TRUE(static_cast<double>(param) >= 0 && static_cast<double>(param) <= end) << type;
            }
            EXPECT_EQ(Spline1DTangent(spline.get(), 40, out, values), SPLINE_OK);
            EXPECT_EQ(Spline1DPoint(spline.get(), 40, out, values), SPLINE_OK);
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
    float out[2] = {7, 7};
    double error = 7;
    int32_t intervals = 7;
    EXPECT_EQ(Spline1ArcLen(empty.get(), 2, nullptr, out), SPLINE_BAD_ARG); // no points
    EXPECT_EQ(Spline1GetAcc(empty.get(), &error, &intervals), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1CalcAcc(empty.get(), 0, 0.1, &error, &intervals), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1ArcLen(spline.get(), 0, nullptr, out), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1Index(spline.get(), 1, nullptr, nullptr), SPLINE_BAD_ARG);
    EXPECT_EQ(Spline1GetAcc(spline.get(), nullptr, &intervals), SPLINE_BAD_ARG);
    for (double accuracy : {0.0, 1.0, -1.0, nan, infinity})
        EXPECT_EQ(Spline1CalcAcc(spline.get(), 0, accuracy, &error, &intervals), SPLINE_BAD_ARG);
    EXPECT_TRUE(error == 7 && out[0] == 7.0f);
}

} // namespace
