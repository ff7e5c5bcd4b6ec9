#include "bench/spline/curve.h"
#include "bench/support/row.h"

#include <unsupported/Eigen/Splines>

#include <algorithm>
#include <random>
#include <string>

namespace {

constexpr int controlPoints = 200;
constexpr int samples = 1000;

enum class Order { rising, random };

/// Parameters well inside the curve, so that the hand-written loop needs no rule for the ends.
std::vector<float> parameters(Order order)
{
    std::vector<float> params;
    for (int i = 0; i < samples; ++i)
        params.push_back(2 + static_cast<float>(i) * (controlPoints - 6.0f) / samples);
    if (order == Order::random)
        std::shuffle(params.begin(), params.end(), std::mt19937(1));
    return params;
}

using Call = uint32_t (*)(Spline1 *, int32_t, const float *, double *);

std::function<void(benchmark::State &)> library(Call call, int kind, int degree, Order order)
{
    return [=](benchmark::State &state) {
        Spline1 *spline = bench::makeCurve(kind, degree, controlPoints);
        std::vector<float> params = parameters(order);
        std::vector<double> values(3 * samples);
        for (auto _ : state) {
            call(spline, samples, params.data(), values.data());
            benchmark::DoNotOptimize(values.data());
            benchmark::ClobberMemory();
        }
        state.SetItemsProcessed(state.iterations() * samples);
        Spline1Destroy(spline);
    };
}

/// What one would write for one kind and degree: the basis in closed form, single-precision control
/// points, no check, no rule for the ends.
template<int Degree, bool Cardinal>
void weightsOf(double f, double (&w)[Degree + 1])
{
    if constexpr (Degree == 1) {
        w[0] = 1 - f;
        w[1] = f;
    } else if constexpr (Degree == 2) {
        w[0] = 0.5 * (1 - f) * (1 - f);
        w[1] = 0.5 + f * (1 - f);
        w[2] = 0.5 * f * f;
    } else if constexpr (Cardinal) {
        w[0] = f * (-0.5 + f * (1 - 0.5 * f));
        w[1] = 1 + f * f * (1.5 * f - 2.5);
        w[2] = f * (0.5 + f * (2 - 1.5 * f));
        w[3] = f * f * (0.5 * f - 0.5);
    } else {
        double g = 1 - f;
        w[0] = g * g * g / 6;
        w[1] = (4 + f * f * (3 * f - 6)) / 6;
        w[2] = (1 + f * (3 + f * (3 - 3 * f))) / 6;
        w[3] = f * f * f / 6;
    }
}

template<int Degree, bool Cardinal>
void slopesOf(double f, double (&w)[Degree + 1])
{
    if constexpr (Degree == 1) {
        w[0] = -1;
        w[1] = 1;
    } else if constexpr (Degree == 2) {
        w[0] = f - 1;
        w[1] = 1 - 2 * f;
        w[2] = f;
    } else if constexpr (Cardinal) {
        w[0] = -0.5 + f * (2 - 1.5 * f);
        w[1] = f * (4.5 * f - 5);
        w[2] = 0.5 + f * (4 - 4.5 * f);
        w[3] = f * (1.5 * f - 1);
    } else {
        w[0] = -0.5 * (1 - f) * (1 - f);
        w[1] = f * (1.5 * f - 2);
        w[2] = 0.5 + f * (1 - 1.5 * f);
        w[3] = 0.5 * f * f;
    }
}

template<int Degree, bool Cardinal, bool Tangents>
void handWritten(const std::vector<float> &control, const std::vector<float> &params, double *out)
{
    for (float param : params) {
        double u = static_cast<double>(param) + (Degree == 2 ? 0.5 : 0);
        int k = static_cast<int>(u);
        double f = u - k;
        const float *point = control.data() + 3 * (k - (Degree > 1 ? 1 : 0));
        double w[Degree + 1];
        if constexpr (Tangents)
            slopesOf<Degree, Cardinal>(f, w);
        else
            weightsOf<Degree, Cardinal>(f, w);
        double x = 0;
        double y = 0;
        double z = 0;
        for (int j = 0; j <= Degree; ++j, point += 3) {
            x += w[j] * static_cast<double>(point[0]);
            y += w[j] * static_cast<double>(point[1]);
            z += w[j] * static_cast<double>(point[2]);
        }
        double scale = Tangents ? 1 / std::sqrt(x * x + y * y + z * z) : 1;
        *out++ = x * scale;
        *out++ = y * scale;
        *out++ = z * scale;
    }
}

template<int Degree, bool Cardinal, bool Tangents>
std::function<void(benchmark::State &)> loop(Order order)
{
    return [=](benchmark::State &state) {
        std::vector<double> values = bench::wavyLine(controlPoints);
        std::vector<float> control(values.begin(), values.end());
        std::vector<float> params = parameters(order);
        std::vector<double> out(3 * samples);
        for (auto _ : state) {
            handWritten<Degree, Cardinal, Tangents>(control, params, out.data());
            benchmark::DoNotOptimize(out.data());
            benchmark::ClobberMemory();
        }
    };
}

/// Eigen's B-spline over uniform knots with the same control points.
template<int Degree, bool Tangents>
void eigen(benchmark::State &state)
{
    using Curve = Eigen::Spline<double, 3, Degree>;
    std::vector<double> values = bench::wavyLine(controlPoints);
    Eigen::Map<const Eigen::Array<double, 3, Eigen::Dynamic>> control(values.data(), 3, controlPoints);
    typename Curve::KnotVectorType knots(controlPoints + Degree + 1);
    for (int i = 0; i < knots.size(); ++i)
        knots(i) = i - (Degree + 1) / 2.0 + (Degree == 2 ? 0.5 : 0);
    Curve curve(knots, control);
    std::vector<float> params = parameters(Order::rising);
    std::vector<double> out(3 * samples);
    for (auto _ : state) {
        for (size_t i = 0; i < params.size(); ++i) {
            Eigen::Map<Eigen::Array3d> target(out.data() + 3 * i);
            auto u = static_cast<double>(params[i]);
            if constexpr (Tangents)
                target = curve.template derivatives<1>(u, 1).col(1).matrix().normalized().array();
            else
                target = curve(u);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}

/// Within 1.5 times the time of the loop.
constexpr double aimOfLoop = 0.67;
constexpr double aimOfEigen = 10;

template<int Degree, bool Cardinal>
void addRows(const std::string &type)
{
    constexpr int kind = Cardinal ? SPLINE_CARDINAL : SPLINE_B;
    const std::string points = "1000 points, " + type;
    const std::string tangents = "1000 tangents, " + type;
    bench::contend(points, "general", library(&Spline1DPoint, kind, Degree, Order::rising), aimOfLoop);
    bench::contend(points, "loop over the basis", loop<Degree, Cardinal, false>(Order::rising));
    bench::contend(points + ", any order", "general", library(&Spline1DPoint, kind, Degree, Order::random), aimOfLoop);
    bench::contend(points + ", any order", "loop over the basis", loop<Degree, Cardinal, false>(Order::random));
    bench::contend(tangents, "general", library(&Spline1DTangent, kind, Degree, Order::rising), aimOfLoop);
    bench::contend(tangents, "loop over the basis", loop<Degree, Cardinal, true>(Order::rising));
    bench::contend(tangents + ", any order", "general", library(&Spline1DTangent, kind, Degree, Order::random));
    bench::contend(tangents + ", any order", "loop over the basis", loop<Degree, Cardinal, true>(Order::random));
}

template<int Degree>
void addEigenRows(const std::string &type)
{
    const std::string points = "1000 points, " + type + ", against Eigen";
    const std::string tangents = "1000 tangents, " + type + ", against Eigen";
    bench::contend(points, "general", library(&Spline1DPoint, SPLINE_B, Degree, Order::rising), aimOfEigen);
    bench::contend(points, "Eigen::Spline", &eigen<Degree, false>);
    bench::contend(points, "limit: loop over the basis", loop<Degree, false, false>(Order::rising));
    bench::contend(tangents, "general", library(&Spline1DTangent, SPLINE_B, Degree, Order::rising), aimOfEigen);
    bench::contend(tangents, "Eigen::Spline", &eigen<Degree, true>);
    bench::contend(tangents, "limit: loop over the basis", loop<Degree, false, true>(Order::rising));
}

const bool registered = [] {
    addRows<1, false>("B-spline degree 1");
    addRows<2, false>("B-spline degree 2");
    addRows<3, false>("B-spline degree 3");
    addRows<1, true>("cardinal degree 1");
    addRows<3, true>("cardinal degree 3");
    addEigenRows<1>("B-spline degree 1");
    addEigenRows<2>("B-spline degree 2");
    addEigenRows<3>("B-spline degree 3");
    return true;
}();

} // namespace
