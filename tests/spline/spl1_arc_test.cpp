#include "tests/spline/curves.h"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <limits>
#include <utility>

namespace {

using namespace curves;

/// The arc table in a packet.
std::vector<float> tableOf(const Spline1 *spline)
{
    std::vector<char> packet = pack(spline);
    std::vector<float> floats(static_cast<size_t>(5 * fieldAt<int32_t>(packet, 44) + 3));
    std::memcpy(floats.data(), packet.data() + 64 + 4 * fieldAt<int32_t>(packet, 20) * fieldAt<int32_t>(packet, 28),
                floats.size() * sizeof(float));
    return floats;
}

auto near(const std::vector<double> &values)
{
    return testing::Pointwise(testing::FloatNear(1e-6f), values);
}

double stepOf(const Spline1 *spline)
{
    return static_cast<double>(fieldAt<float>(pack(spline), 60));
}

/// Random points, and what makes the speed vanish or nearly so: equal neighbours, reversals on a line,
/// reversals that miss each other by little.
std::vector<double> randomControl(std::mt19937 &random, int dimension, int degeneracy)
{
    constexpr double scales[] = {0.3, 4, 60}, flattenings[] = {1, 1, 0, 1e-5};
    std::vector<double> values =
        randomValues(random, dimension * (1 + static_cast<int>(random() % 9)), scales[random() % 3]);
    auto components = static_cast<size_t>(dimension);
    for (size_t i = components; i < values.size(); ++i)
        if (degeneracy == 1 && random() % 2 == 0)
            values[i] = values[i - components];
        else if (i % components != 0)
            values[i] = static_cast<double>(static_cast<float>(values[i] * flattenings[degeneracy]));
    return values;
}

// The bound on the step is what makes every integrated length good; what it costs is bounded too.
TEST(ArcLength, IntegratesWithinTheAccuracyWithoutWaste)
{
    constexpr double accuracies[] = {0.2, 0.02, 0.002};
    constexpr int32_t intervalCounts[] = {1, 3, 16};
    std::mt19937 random(5);
    double evaluations = 0;
    for (int number = 0; number < 240; ++number) {
        Type type = everyType()[static_cast<size_t>(number) % everyType().size()];
        SCOPED_TRACE(testing::Message() << type << ", case " << number);
        std::vector<double> control = randomControl(random, type.dimension, number / 24 % 4);
        SplinePtr spline = make(type, control);
        Reference curve(type, control);
        double accuracy = accuracies[random() % 3];
        int32_t intervals = intervalCounts[random() % 3];
        float total = 1e30f;
        ASSERT_EQ(Spline1SetAcc(spline.get(), accuracy, intervals), SPLINE_OK);
        ASSERT_EQ(Spline1ArcLen(spline.get(), 1, &total, &total), SPLINE_OK);
        std::vector<float> table = tableOf(spline.get());
        double truth = 0, piece = curve.end() / intervals;
        for (int32_t i = 1; i <= intervals; ++i) {
            truth += curve.length((i - 1) * piece, i * piece);
            ASSERT_NEAR(static_cast<double>(table[static_cast<size_t>(4 * intervals + 2 + i)]), truth,
                        accuracy / 2 + 1e-6 * static_cast<double>(total));
        }
        if (type.degree > 1 && curve.end() > 0)
            evaluations += curve.end() / stepOf(spline.get());
    }
    EXPECT_LT(evaluations, 75000);
}

// Steps along the curve between places at equal distances, as shares of the ideal one. A look-up lost in its
// own rounding, far from the start or among very small or large coordinates, makes steps of 0 and of several.
TEST(ArcLength, SpacesPlacesEquallyOnCurvesOfAnyLengthAndSize)
{
    std::ifstream file(COASTLINE);
    std::mt19937 random(3);
    auto noise = [&] { return static_cast<double>(random() % 1000) / 1000 - 0.5; };
    using Curve = std::function<std::pair<double, double>(int)>;
    const Curve ellipse = [](int i) { return std::pair(2 * std::cos(i * 0.2617994), std::sin(i * 0.2617994)); };
    const Curve wave = [](int i) { return std::pair(i, 2 * std::sin(0.3 * i)); };
    const Curve straight = [](int i) { return std::pair(10 * i, 0); };
    const Curve noisy = [&](int i) { return std::pair(10 * i + noise(), noise()); };
    const Curve coastline = [&, x = 0.0, y = 0.0, comma = ' '](int) mutable {
        EXPECT_TRUE(file >> x >> comma >> y);
        return std::pair(x, y);
    };
    const struct {
        const char *name;
        Curve curve;
        int form, count;
        int32_t intervals;
        double scale, least, most;
    } rows[] = {{"ellipse", ellipse, SPLINE_CLOSED, 24, 64, 1, 0.99, 1.01},
                {"small ellipse", ellipse, SPLINE_CLOSED, 24, 64, 1e-5, 0.99, 1.01},
                {"large ellipse", ellipse, SPLINE_CLOSED, 24, 64, 1e6, 0.99, 1.01},
                {"tiny wave", wave, SPLINE_OPEN, 200, 200, 1e-6, 0.75, 1.25},
                {"wave", wave, SPLINE_OPEN, 20000, 20000, 1, 0.75, 1.25},
                {"large wave", wave, SPLINE_OPEN, 20000, 20000, 1e6, 0.75, 1.25},
                {"coastline", coastline, SPLINE_CLOSED, 3058, 4096, 1, 0.2, 2},
                {"straight track", straight, SPLINE_OPEN, 50000, 50000, 1, 0.75, 1.25},
                {"noisy track", noisy, SPLINE_OPEN, 50000, 12500, 1, 0.75, 1.25}};
    for (const auto &row : rows) {
        std::vector<double> points;
        for (int i = 0; i < row.count; ++i) {
            auto [x, y] = row.curve(i);
            points.insert(points.end(), {x * row.scale, y * row.scale});
        }
        Type type{row.form, SPLINE_B, 3, 2};
        SplinePtr spline = make(type);
        int32_t places = 3 * row.intervals + 1, steps = places - (type.closed() ? 0 : 1);
        std::vector<float> params(static_cast<size_t>(places)), lengths(params.size());
        float total = 1e30f;
        ASSERT_EQ(Spline1FitDPoints(spline.get(), row.count, points.data()), SPLINE_OK);
        ASSERT_EQ(Spline1DCtl(spline.get(), row.count, nullptr, points.data()), SPLINE_OK);
        ASSERT_EQ(Spline1SetAcc(spline.get(), 0.01, row.intervals), SPLINE_OK);
        ASSERT_EQ(Spline1Index(spline.get(), places, nullptr, params.data()), SPLINE_OK);
        ASSERT_EQ(Spline1ArcLen(spline.get(), places, params.data(), lengths.data()), SPLINE_OK);
        ASSERT_EQ(Spline1ArcLen(spline.get(), 1, &total, &total), SPLINE_OK);
        Reference curve(type, points);
        double stored = static_cast<double>(total) / steps, ideal = curve.length(0, curve.end(), 4) / steps;
        double least = 1, most = 1, astray = 0;
        for (size_t i = 1; i < params.size(); ++i) {
            double step = curve.length(static_cast<double>(params[i - 1]), static_cast<double>(params[i]), 4) / ideal;
            least = std::min(least, step);
            most = std::max(most, step);
            astray = std::max(astray, std::abs(static_cast<double>(lengths[i]) / stored - static_cast<double>(i)));
        }
        EXPECT_TRUE(least >= row.least && most <= row.most) << row.name << ": " << least << " to " << most;
        EXPECT_LE(astray, 0.05) << row.name << ": to the parameter and back";
    }
}

TEST(ArcLength, GeneratesItsInputAtEqualSteps)
{
    SplinePtr open = make({SPLINE_OPEN, SPLINE_B, 1, 2}, {0, 0, 1, 0, 3, 0});
    SplinePtr closed = make({SPLINE_CLOSED, SPLINE_B, 1, 2}, {0, 0, 4, 0, 4, 4, 0, 4});
    auto results = [](decltype(&Spline1ArcLen) call, const SplinePtr &spline, int32_t count) {
        std::vector<float> out(static_cast<size_t>(count));
        EXPECT_EQ(call(spline.get(), count, nullptr, out.data()), SPLINE_OK);
        return out;
    };
    EXPECT_THAT(results(Spline1ArcLen, open, 2), near({0, 3}));
    EXPECT_THAT(results(Spline1Index, open, 4), near({0, 1, 1.5, 2}));
    EXPECT_THAT(results(Spline1ArcLen, open, 1), near({0}));
    EXPECT_THAT(results(Spline1ArcLen, closed, 4), near({0, 4, 8, 12}));
    EXPECT_THAT(results(Spline1Index, closed, 1), near({0}));
    float out[] = {-5, 99, std::nanf("")};
    EXPECT_EQ(Spline1ArcLen(closed.get(), 3, out, out), SPLINE_OK); // in place
    EXPECT_THAT(out, testing::ElementsAre(0.0f, 16.0f, 0.0f));
}

TEST(ArcLength, StoresLinesAndHyperbolas)
{
    // Speed 2 on the first span and 6 on the second.
    SplinePtr spline = make({SPLINE_OPEN, SPLINE_CARDINAL, 1, 2}, {0, 0, 2, 0, 8, 0});
    auto tableWith = [&](int32_t intervals) {
        float total = 0;
        EXPECT_EQ(Spline1SetAcc(spline.get(), 0.5, intervals), SPLINE_OK);
        EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &total), SPLINE_OK);
        EXPECT_EQ(stepOf(spline.get()), 1.0);
        return tableOf(spline.get());
    };
    EXPECT_THAT(tableWith(2), near({-1, 0.5, 0, 0, 1.5, -0.25, 0, 1, 0, 2, 0, 2, 8}));
    // Through (0, 0), (1, 2) and (2, 8): y = 4 x / (3 - x), (y + 4)(x - 3) = -12
    EXPECT_THAT(tableWith(1), near({-1.0 / 3, 0.25, -1.0 / 12, 0, 0, 2, 0, 8}));
    // It says 0.8 and 4 at 0.5 and 1.5, where the lengths are 1 and 5: an eighth of the total, and half of 0.5
    double error = 0;
    int32_t intervals = 0;
    EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
    EXPECT_NEAR(error, 0.125 + 0.25, 1e-7);
}

TEST(ArcLength, IsRebuiltWhenPointsOrSettingsChange)
{
    const double control[] = {0, 0, 4, 1, 3, 7, -2, 5};
    SplinePtr spline = make({SPLINE_CLOSED, SPLINE_B, 3, 2}, {0, 0, 1, 0, 1, 1});
    const std::function<uint32_t()> changes[] = {
        [&] { return Spline1SetAcc(spline.get(), 0.02, 16); },
        [&] { return Spline1SetAcc(spline.get(), 0.02, 17); },
        [&] { return Spline1FitDPoints(spline.get(), 4, control); },
        [&] { return Spline1Encode(spline.get(), SPLINE_OPEN, SPLINE_B, 3, 2, 0); },
        [&] { return Spline1Encode(spline.get(), SPLINE_OPEN, SPLINE_CARDINAL, 3, 2, 0); },
        [&] { return Spline1Encode(spline.get(), SPLINE_OPEN, SPLINE_CARDINAL, 3, 2, 0.5); },
        [&] { return Spline1SetAcc(spline.get(), 0.02, 17); }}; // the settings that it has: nothing changes
    for (const auto &change : changes) {
        double error = 0;
        int32_t intervals = 0;
        float length = 0;
        EXPECT_EQ(Spline1ArcLen(spline.get(), 1, nullptr, &length), SPLINE_OK);
        EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
        EXPECT_GT(error, 0);
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
    }
    EXPECT_EQ(Spline1CalcAcc(spline.get(), 12, 0.01, &error, &intervals), SPLINE_OK);
    EXPECT_LE(error, 0.01);
    EXPECT_EQ(pack(spline.get()), before);
    double measured = 0;
    EXPECT_EQ(Spline1SetAcc(spline.get(), 0.01, intervals), SPLINE_OK);
    EXPECT_EQ(Spline1GetAcc(spline.get(), &measured, &intervals), SPLINE_OK);
    EXPECT_EQ(measured, error);
}

// Sizes, numbers that are none, and standstills: the work stays bounded and the answers defined.
TEST(ArcLength, StaysBoundedOnExtremeCurves)
{
    constexpr double largest = std::numeric_limits<float>::max();
    const std::vector<double> extremes[] = {
        {-largest, largest, largest, -largest, -largest, -largest, largest, largest},
        {1e-38, 0, 1e-45, 0, 0, 1e-40},
        {5, 5},
        {0, 0, 1e30, 0, 0, 1e-30},
        {NAN, 0, 1, 1, 2, 2},
        {INFINITY, -INFINITY, -INFINITY, INFINITY},
        {0, 0, 0, 0, 0, 0, 3, 4, 3, 4, 3, 4, 3, 4}};
    double error = 0;
    int32_t intervals = 0;
    for (Type type : everyType())
        for (const std::vector<double> &control : extremes) {
            if (type.dimension != 2 || (type.kind == SPLINE_CARDINAL && type.tension == 0))
                continue; // the others differ in nothing that matters here
            SplinePtr spline = make(type, control);
            float out[40];
            double values[80], end = Reference(type, control).end();
            EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
            EXPECT_TRUE(error >= 0) << type;
            EXPECT_GE(stepOf(spline.get()) * 4.1e6, end) << "unbounded work";
            EXPECT_EQ(Spline1Index(spline.get(), 40, nullptr, out), SPLINE_OK);
            EXPECT_EQ(Spline1DTangent(spline.get(), 40, out, values), SPLINE_OK);
            if (std::isfinite(control[0])) {
                EXPECT_THAT(out, testing::Each(testing::AllOf(testing::Ge(0), testing::Le(end)))) << type;
            }
        }
    // A zigzag of degree 2 between 0 and S: the change of its speed falls by 4 S on each edge, and for the rest
    // the change at the start makes up for the largest second derivative: 3 edges 4 S step^2 / 24 = accuracy / 2.
    // On 40000 edges of 4e6 the work stops at a step of 0.01, and the achieved error tells what that may cost.
    for (int edges : {1, 40000}) {
        std::vector<double> zigzag;
        for (int i = 0; i <= edges; ++i)
            zigzag.insert(zigzag.end(), {i % 2 * (edges == 1 ? 4 : 4e6), 0});
        SplinePtr spline = make({SPLINE_OPEN, SPLINE_B, 2, 2}, zigzag);
        EXPECT_EQ(Spline1SetAcc(spline.get(), 1e-3, 16), SPLINE_OK);
        EXPECT_EQ(Spline1GetAcc(spline.get(), &error, &intervals), SPLINE_OK);
        EXPECT_NEAR(stepOf(spline.get()), edges == 1 ? std::sqrt(12e-3 / 48) : 0.01, 1e-8);
    }
    EXPECT_NEAR(error, 5e-4 + 1e-4, 2e-6);
}

} // namespace
