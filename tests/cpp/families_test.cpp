// The headers for C++ of the families that run on any machine, besides the containers.
#include "tests/support/heap_watch.h"

#include "general/general.hpp"

#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

struct Spot {
    double x, y;
};
using Curve = general::Spline<Spot>;
static_assert(sizeof(Curve) == sizeof(void *) && sizeof(general::LinearMap) == sizeof(void *));

/// The closed polygon around a rectangle.
Curve rectangle(double width, double height)
{
    Curve curve;
    general::check(curve.setType({SPLINE_CLOSED, SPLINE_B, 1}));
    general::check(curve.fit(std::vector<Spot>{{0, 0}, {width, 0}, {width, height}, {0, height}}));
    return curve;
}

std::vector<double> numbers(const std::vector<Spot> &spots)
{
    std::vector<double> values;
    for (Spot spot : spots)
        values.insert(values.end(), {std::round(spot.x * 1000) / 1000, std::round(spot.y * 1000) / 1000});
    return values;
}

TEST(CppSpline, MeasuresAndEvaluates)
{
    test_support::HeapWatch watch;
    {
        Curve curve = rectangle(4, 2), copy;
        EXPECT_EQ(general::check(curve.length()), 12.0F);
        auto params = general::check(curve.equalDistances(4));
        EXPECT_THAT(general::check(curve.lengths(params)), ElementsAre(0.0F, 3.0F, 6.0F, 9.0F));
        EXPECT_EQ(general::check(curve.parameters(std::array<float, 4>{0, 3, 6, 9})), params);
        EXPECT_THAT(numbers(general::check(curve.points(params))), ElementsAre(0, 0, 3, 0, 4, 2, 1, 2));
        EXPECT_THAT(numbers(general::check(curve.tangents(params))), ElementsAre(1, 0, 1, 0, -1, 0, -1, 0));
        EXPECT_THAT(numbers(general::check(curve.decimated(*curve.points(4), 2))), ElementsAre(0, 0, 4, 2));
        general::LinearMap map;
        general::check(map.set({{0, -1}, {1, 0}}, {5, 0}));
        general::check(copy.assign(curve));
        general::check(copy.transform(map));
        EXPECT_THAT(numbers(general::check(copy.controlPoints())), ElementsAre(5, 0, 5, 4, 3, 4, 3, 0));
        Spot out[4] = {};
        EXPECT_TRUE(curve.points(params, out) && curve.tangents(params, general::Span<Spot>(out, 4)));
        EXPECT_EQ(curve.points(params, general::Span<Spot>(out, 3)), SPLINE_BAD_ARG);
        EXPECT_EQ(curve.tangents(general::Span<float>(params.data(), 3), out), SPLINE_BAD_ARG);
        EXPECT_EQ(curve.points(0).result(), SPLINE_BAD_ARG);
        EXPECT_EQ(Curve().length().result(), SPLINE_BAD_ARG); // it has no type
    }
    EXPECT_EQ(watch.liveBlocks(), 0);
}

TEST(CppSpline, UnpacksWhatIsWhole)
{
    Curve curve = rectangle(4, 2), empty, other;
    general::check(curve.length());
    const std::vector<char> whole = general::check(curve.pack()), bare = general::check(Curve().pack());
    EXPECT_EQ(whole.size(), 64U + 4 * (8 + 5 * 16 + 3));
    EXPECT_EQ(bare.size(), 64U);
    for (size_t received = 0; received < whole.size(); ++received)
        EXPECT_EQ(other.unpack(std::vector<char>(whole.begin(), whole.begin() + received).data(), received),
                  SPLINE_BAD_ARG);
    EXPECT_EQ(other.unpack(nullptr, whole.size()), SPLINE_BAD_ARG);
    EXPECT_EQ((general::Spline<std::array<double, 3>>().unpack(whole.data(), whole.size())), SPLINE_BAD_ARG);
    EXPECT_EQ(other.size(), 0U);
    general::check(empty.unpack(bare.data(), bare.size()));
    general::check(other.unpack(whole.data(), whole.size()));
    EXPECT_EQ(general::check(other.length()), 12.0F);
    for (size_t changed : {0, 20, 28, 44}) { // magic, dimension, points, intervals
        std::vector<char> damaged = whole;
        damaged[changed + 3] = 0x7F;
        EXPECT_EQ(other.unpack(damaged.data(), damaged.size()), SPLINE_BAD_ARG) << changed;
    }
}

TEST(CppText, LoopsOverOptionsAndTokens)
{
    std::vector<std::string> words = {"program", "-vn", "3", "-x", "rest", "-v"}, told;
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    testing::internal::CaptureStderr();
    for (auto option : general::options(6, argv.data(), "n:v"))
        told.push_back(option.letter + std::string(option.argument != nullptr ? option.argument : ""));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("x"));
    for (const char *operand : general::operands(6, argv.data()))
        told.emplace_back(operand);
    char text[] = " ,one,  two ";
    for (char *token : general::tokens(text, ", "))
        told.emplace_back(token);
    EXPECT_THAT(told, ElementsAre("v", "n3", "?", "rest", "-v", "one", "two"));
}

} // namespace
