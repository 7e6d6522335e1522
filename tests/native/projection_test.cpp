// The fit of projections against one that is written down as it is defined, with dual numbers and
// one cost of the solver's for each partition.

#include "projection/projection_fit.h"

#include "core/interrupt.h"
#include "core/random.h"
#include "covariance/generic_covariance.h"

#include <ceres/ceres.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace talvorix {
namespace {

template <class T>
T limited(const T& x) {
  using std::abs;
  using std::sqrt;
  if (abs(x) <= T(1.0)) {
    return x;
  }
  const T g = 2.0 * sqrt(abs(x)) - 1.0;
  return x > T(0.0) ? g : T(-g);
}

struct LiteralResidual {
  double inv_std;
  std::vector<double> xs;
  std::vector<double> ys;
  std::size_t n_centers;
  Covariance::Type kernel_type;

  template <class T>
  bool operator()(T const* const* parameters, T* residuals) const {
    using std::abs;
    using std::sqrt;
    const auto kernel = create_cov_kernel<T>(kernel_type);
    const auto n = static_cast<double>(xs.size());
    T S(0.0);
    for (std::size_t i = 0; i < xs.size(); ++i) {
      T numerator(0.0);
      T denominator(0.0);
      for (std::size_t c = 0; c < n_centers; ++c) {
        const T* of_center = parameters[0] + 3 * c;
        const T k = kernel(T(of_center[1] * abs(T(xs[i]) - of_center[0])));
        numerator += of_center[2] * k;
        denominator += k;
      }
      const T r = limited(T(2.0 * ((numerator / denominator - ys[i]) * inv_std)));
      residuals[i] = r / n;
      S += r * r / n;
    }
    residuals[xs.size()] = limited(T(2.0 * sqrt(S)));
    return true;
  }
};

std::vector<double> literal_fit(const std::vector<double>& source,
                                const std::vector<double>& target, const ProjectionShape& shape,
                                const ProjectionFit& fit) {
  const std::size_t n = source.size();
  const auto count = static_cast<double>(n);
  double mean = 0.0;
  for (const double x : source) {
    mean += x / count;
  }
  double variance = 0.0;
  for (const double x : source) {
    variance += (x - mean) * (x - mean) / count;
  }
  RandomEngine rng = seeded_engine(fit.seed);
  const auto n_centers = static_cast<std::size_t>(shape.n_centers);
  std::vector<double> parameters;
  for (std::size_t c = 0; c < n_centers; ++c) {
    const std::size_t drawn = rng() % n;
    parameters.push_back(source[drawn]);
    parameters.push_back((shape.beta.min + shape.beta.max) * 0.5);
    parameters.push_back(target[drawn]);
  }
  ceres::Problem problem;
  problem.AddParameterBlock(parameters.data(), static_cast<int>(parameters.size()));
  for (int p = 0; p < fit.n_partitions; ++p) {
    std::size_t size =
        rng() % static_cast<unsigned>(fit.max_partition_size - fit.min_partition_size + 1) + 1 +
        static_cast<unsigned>(fit.min_partition_size);
    size = size >= n ? n - 1 : size;
    auto* residual =
        new LiteralResidual{1.0 / std::sqrt(variance), {}, {}, n_centers, shape.kernel};
    for (std::size_t i = 0; i < size; ++i) {
      const std::size_t drawn = rng() % n;
      residual->xs.push_back(source[drawn]);
      residual->ys.push_back(target[drawn]);
    }
    auto* cost = new ceres::DynamicAutoDiffCostFunction<LiteralResidual, 7>(residual);
    cost->AddParameterBlock(static_cast<int>(parameters.size()));
    cost->SetNumResiduals(static_cast<int>(size) + 1);
    problem.AddResidualBlock(
        cost, fit.cauchy_loss > 0.0 ? new ceres::CauchyLoss(fit.cauchy_loss) : nullptr,
        parameters.data());
  }
  for (std::size_t c = 0; c < n_centers; ++c) {
    int i = static_cast<int>(3 * c);
    for (const Interval& bound : {shape.center, shape.beta, shape.weight}) {
      problem.SetParameterLowerBound(parameters.data(), i, bound.min);
      problem.SetParameterUpperBound(parameters.data(), i, bound.max);
      ++i;
    }
  }
  ceres::Solver::Options options;
  options.linear_solver_type = ceres::DENSE_QR;
  options.max_num_iterations = fit.n_iterations;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);
  return parameters;
}

TEST(Projection, IsFittedAsWrittenDown) {
  RandomEngine rng(1);
  StandardNormal normal;
  std::vector<double> source;
  std::vector<double> target;
  for (int i = 0; i < 300; ++i) {
    const double x = normal(rng);
    source.push_back(std::exp(x));
    target.push_back(x + 0.1 * normal(rng) + (i % 50 == 0 ? 5.0 : 0.0));
  }
  for (const auto kernel : {Covariance::Type::spherical, Covariance::Type::gaussian,
                            Covariance::Type::exponential, Covariance::Type::idw}) {
    // Next to a centre the last kernel amplifies rounding.
    const double tolerance = kernel == Covariance::Type::idw ? 1e-4 : 1e-6;
    for (const double cauchy_loss : {0.0, 0.5}) {
      const ProjectionShape shape{kernel, 6, {-4.0, 4.0}, {1e-3, 2.0}, {-1.0, 20.0}};
      // The paths part by rounding as they go on.
      ProjectionFit fit{12, 20, 60, cauchy_loss, 8, 1, 77, false};
      const std::vector<double> expected = literal_fit(source, target, shape, fit);
      for (const int n_threads : {1, 2}) {
        fit.n_threads = n_threads;
        InterruptPoller poll;
        const std::vector<double> found =
            optimize_projection(source, target, shape, fit, poll).serialize();
        ASSERT_EQ(found.size(), expected.size());
        for (std::size_t i = 0; i < found.size(); ++i) {
          EXPECT_NEAR(found[i], expected[i], tolerance * (1.0 + std::abs(expected[i])))
              << to_text(kernel) << ", parameter " << i;
        }
      }
    }
  }
}

}  // namespace
}  // namespace talvorix
