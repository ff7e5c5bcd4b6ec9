#include "bench/spline/curve.h"
#include "bench/support/row.h"

#include <unsupported/Eigen/Splines>

#include <string>

namespace
{

std::function<void(benchmark::State &)> library(int form, int degree, int count)
{
    return [=](benchmark::State &state) {
        std::vector<double> data = bench::wavyLine(count);
        Spline1 *spline = Spline1Create();
        Spline1Encode(spline, form, SPLINE_B, degree, 3, 0);
        for (auto _ : state)
            benchmark::DoNotOptimize(Spline1FitDPoints(spline, count, data.data()));
        Spline1Destroy(spline);
    };
}

/// Elimination on the open cubic system in double precision, the diagonal worked out beforehand.
std::function<void(benchmark::State &)> handWritten(int count)
{
    return [=](benchmark::State &state) {
        std::vector<double> data = bench::wavyLine(count);
        auto rows = static_cast<size_t>(count);
        std::vector<double> factor(rows);
        std::vector<double> inverse(rows);
        double pivot = 2.0 / 3;
        inverse[0] = 1 / pivot;
        for (size_t k = 1; k < rows; ++k) {
            factor[k] = (k + 1 == rows ? 1.0 / 3 : 1.0 / 6) * inverse[k - 1];
            inverse[k] = 1 / (2.0 / 3 - factor[k] * (k == 1 ? 1.0 / 3 : 1.0 / 6));
        }
        std::vector<double> control(data.size());
        for (auto _ : state) {
            for (size_t c = 0; c < 3; ++c)
                control[c] = data[c];
            for (size_t k = 1; k < rows; ++k)
                for (size_t c = 3 * k; c < 3 * k + 3; ++c)
                    control[c] = data[c] - factor[k] * control[c - 3];
            for (size_t c = 3 * rows - 3; c < 3 * rows; ++c)
                control[c] *= inverse[rows - 1];
            for (size_t k = rows - 1; k-- > 0;)
                for (size_t c = 3 * k; c < 3 * k + 3; ++c)
                    control[c] = (control[c] - (k == 0 ? 1.0 / 3 : 1.0 / 6) * control[c + 3]) * inverse[k];
            benchmark::DoNotOptimize(control.data());
            benchmark::ClobberMemory();
        }
    };
}

/// Eigen solves the collocation matrix as a dense one, so only a small task can be asked of it.
void eigen(benchmark::State &state)
{
    constexpr int count = 200;
    using Curve = Eigen::Spline<double, 3, 3>;
    std::vector<double> values = bench::wavyLine(count);
    Eigen::Map<const Eigen::Matrix<double, 3, Eigen::Dynamic>> data(values.data(), 3, count);
    Eigen::MatrixXd points = data;
    for (auto _ : state) {
        Curve curve = Eigen::SplineFitting<Curve>::Interpolate(points, 3);
        benchmark::DoNotOptimize(curve.ctrls().data());
    }
}

const bool registered = [] {
    bench::contend("fit 200 points, open, degree 3", "general", library(SPLINE_OPEN, 3, 200), 10);
    bench::contend("fit 200 points, open, degree 3", "Eigen::SplineFitting", eigen);
    for (int count : {1000, 100000}) {
        std::string points = "fit " + std::to_string(count) + " points";
        bench::contend(points + ", open, degree 3", "general", library(SPLINE_OPEN, 3, count));
        bench::contend(points + ", open, degree 3", "elimination by hand", handWritten(count));
        bench::contend(points + ", open, degree 2", "general", library(SPLINE_OPEN, 2, count));
        bench::contend(points + ", closed, degree 3", "general", library(SPLINE_CLOSED, 3, count));
    }
    return true;
}();

} // namespace
