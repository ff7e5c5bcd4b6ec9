#include "bench/spline/curve.h"
#include "bench/support/row.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

namespace {

constexpr int queries = 50000; // more than a branch predictor remembers

/// An object with its arc table, and the table as its packet has it.
struct Measured {
    explicit Measured(int32_t intervals, double scale) : spline(bench::makeCurve(SPLINE_B, 3, 200, scale))
    {
        float length = 0;
        Spline1SetAcc(spline, 0.01, intervals);
        Spline1ArcLen(spline, 1, nullptr, &length);
        uint32_t size = 0;
        Spline1PacketSize(spline, &size);
        std::vector<char> packet(size);
        Spline1Pack(spline, size, packet.data());
        auto floats = static_cast<size_t>(5 * intervals + 3);
        coefficients.resize(floats);
        std::memcpy(coefficients.data(), packet.data() + 64 + 12 * 200, floats * sizeof(float));
        lengths.assign(coefficients.end() - intervals - 1, coefficients.end());
        float end = coefficients[static_cast<size_t>(4 * intervals + 1)];
        for (int i = 0; i <= intervals; ++i)
            params.push_back(end * static_cast<float>(i) / static_cast<float>(intervals));
    }
    ~Measured() { Spline1Destroy(spline); }
    Measured(const Measured &) = delete;
    Measured &operator=(const Measured &) = delete;

    Spline1 *spline;
    std::vector<float> coefficients;
    std::vector<float> lengths;
    std::vector<float> params;
};

std::vector<float> randomValues(float end)
{
    std::mt19937 random(2);
    std::uniform_real_distribution<float> uniform(0, end);
    std::vector<float> values(queries);
    std::generate(values.begin(), values.end(), [&] { return uniform(random); });
    return values;
}

std::function<void(benchmark::State &)> lengthToParameter(int32_t intervals, double scale)
{
    return [=](benchmark::State &state) {
        Measured curve(intervals, scale);
        std::vector<float> in = randomValues(curve.lengths.back());
        std::vector<float> out(queries);
        for (auto _ : state) {
            Spline1Index(curve.spline, queries, in.data(), out.data());
            benchmark::DoNotOptimize(out.data());
            benchmark::ClobberMemory();
        }
    };
}

std::function<void(benchmark::State &)> parameterToLength(int32_t intervals, double scale)
{
    return [=](benchmark::State &state) {
        Measured curve(intervals, scale);
        std::vector<float> in = randomValues(curve.params.back());
        std::vector<float> out(queries);
        for (auto _ : state) {
            Spline1ArcLen(curve.spline, queries, in.data(), out.data());
            benchmark::DoNotOptimize(out.data());
            benchmark::ClobberMemory();
        }
    };
}

/// std::upper_bound over the samples, then the interval's formula.
std::function<void(benchmark::State &)> search(int32_t intervals, double scale, bool byLength)
{
    return [=](benchmark::State &state) {
        Measured curve(intervals, scale);
        const std::vector<float> &samples = byLength ? curve.lengths : curve.params;
        std::vector<float> in = randomValues(samples.back());
        std::vector<float> out(queries);
        for (auto _ : state) {
            for (size_t i = 0; i < in.size(); ++i) {
                auto above = std::upper_bound(samples.begin() + 1, samples.end() - 1, in[i]);
                const float *c = curve.coefficients.data() + 4 * (above - samples.begin() - 1);
                auto x = static_cast<double>(in[i]);
                double c0 = static_cast<double>(byLength ? c[1] : c[0]);
                double c1 = static_cast<double>(byLength ? c[0] : c[1]);
                out[i] =
                    static_cast<float>((static_cast<double>(c[3]) - c0 * x) / (static_cast<double>(c[2]) * x + c1));
            }
            benchmark::DoNotOptimize(out.data());
            benchmark::ClobberMemory();
        }
    };
}

/// Alternating between two accuracies discards the table each time.
std::function<void(benchmark::State &)> build(int kind, int degree, double accuracy)
{
    return [=](benchmark::State &state) {
        Spline1 *spline = bench::makeCurve(kind, degree, 200);
        float length = 0;
        double other = accuracy;
        for (auto _ : state) {
            other = other == accuracy ? accuracy * 1.0001 : accuracy;
            Spline1SetAcc(spline, other, 64);
            Spline1ArcLen(spline, 1, nullptr, &length);
            benchmark::DoNotOptimize(length);
        }
        uint32_t size = 0;
        Spline1PacketSize(spline, &size);
        std::vector<char> packet(size);
        Spline1Pack(spline, size, packet.data());
        float step = 0;
        std::memcpy(&step, packet.data() + 60, sizeof step);
        double spacing = 199.0 / 128;
        state.counters["evaluations"] = 128 * std::ceil(spacing / static_cast<double>(step));
        Spline1Destroy(spline);
    };
}

const bool registered = [] {
    for (double scale : {1.0, 1e-6})
        for (int32_t intervals : {16, 256}) {
            std::string suffix = ", " + std::to_string(intervals) + " intervals" + (scale < 1 ? ", tiny curve" : "");
            const std::string params = "50000 lengths to parameters" + suffix;
            const std::string lengths = "50000 parameters to lengths" + suffix;
            bench::contend(params, "general", lengthToParameter(intervals, scale), 1);
            bench::contend(params, "std::upper_bound", search(intervals, scale, true));
            bench::contend(lengths, "general", parameterToLength(intervals, scale), 2);
            bench::contend(lengths, "std::upper_bound", search(intervals, scale, false));
        }
    bench::contend("arc table of 200 points, B-spline degree 2", "general", build(SPLINE_B, 2, 0.01));
    bench::contend("arc table of 200 points, B-spline degree 3", "general", build(SPLINE_B, 3, 0.01));
    bench::contend("arc table of 200 points, cardinal degree 3", "general", build(SPLINE_CARDINAL, 3, 0.01));
    bench::contend("arc table of 200 points, degree 1", "general", build(SPLINE_B, 1, 0.01));
    return true;
}();

} // namespace
