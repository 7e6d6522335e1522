#include "core/random.h"
#include "core/soft_limit.h"
#include "covariance/generic_covariance.h"
#include "selection/ellipsoid_fit.h"
#include "variography/covariance_fit.h"

#include <ceres/jet.h>
#include <gtest/gtest.h>
#include <Eigen/Dense>

#include <cmath>
#include <numeric>
#include <vector>

namespace talvorix {
namespace {

using Type = Covariance::Type;
constexpr Type types[] = {Type::spherical, Type::gaussian, Type::exponential, Type::nugget,
                          Type::idw};

template <int n>
using Dual = ceres::Jet<double, n>;

template <class T>
T literally_limited(const T& r) {
  return abs(r) > T(1.0) ? (r > T(0.0) ? 1.0 : -1.0) * (2.0 * pow(abs(r), 0.5) - 2.0 + 1.0) : r;
}

template <class T>
void regularise(const T* p, const Vector3& largest, double c, std::vector<T>& residuals) {
  for (int i = 0; i < 3; ++i) {
    const T t = (p[1 + i] - largest[i]) / largest[i];
    residuals.push_back(t >= T(0.0) ? T(c * (1.0 + t * t)) : T(c / (1.0 + t * t)));
  }
  residuals.push_back(c * 0.001 * (p[0] - 1.0) * (p[0] - 1.0));
}

// Holds residuals and derivatives of all blocks to those of literal ones.
template <int n>
void expect_equal(LeastSquaresProblem& problem, const std::vector<double>& parameters,
                  const std::vector<Dual<n>>& expected) {
  std::vector<double> scale(n, 0.0);
  for (const Dual<n>& residual : expected) {
    for (int p = 0; p < n; ++p) {
      scale[p] = std::max(scale[p], std::abs(residual.v[p]));
    }
  }
  std::size_t row = 0;
  const std::vector<ResidualBlock> blocks = problem.blocks();
  for (std::size_t b = 0; b < blocks.size(); ++b) {
    // More rows than the block's own, which nothing may write to.
    const auto size = static_cast<Eigen::Index>(blocks[b].n_residuals);
    Eigen::MatrixXd rows = Eigen::MatrixXd::Constant(size + 3, n + 1, 0.25);
    problem.prepare(parameters, true);
    problem.evaluate(b, parameters, {rows.col(n).data(), rows.data(), rows.rows() + 0UL});
    EXPECT_TRUE((rows.bottomRows(3).array() == 0.25).all());
    Eigen::VectorXd alone = Eigen::VectorXd::Constant(size + 1, 0.25);
    problem.prepare(parameters, false);
    problem.evaluate(b, parameters, {alone.data(), nullptr, 0});
    EXPECT_EQ(alone[size], 0.25);
    for (Eigen::Index i = 0; i < size; ++i, ++row) {
      ASSERT_LT(row, expected.size());
      const Dual<n>& literal = expected[row];
      ASSERT_NEAR(rows(i, n), literal.a, 1e-9 * (1.0 + std::abs(literal.a)));
      ASSERT_NEAR(alone[i], literal.a, 1e-9 * (1.0 + std::abs(literal.a)));
      for (int p = 0; p < n; ++p) {
        ASSERT_NEAR(rows(i, p), literal.v[p], 1e-9 * scale[p])
            << "row " << i << ", parameter " << p;
      }
    }
  }
  EXPECT_EQ(row, expected.size());
}

template <int n>
std::vector<Dual<n>> seeded(const std::vector<double>& parameters) {
  std::vector<Dual<n>> duals;
  for (std::size_t p = 0; p < parameters.size(); ++p) {
    duals.emplace_back(parameters[p], static_cast<int>(p));
  }
  return duals;
}

TEST(EllipsoidFit, HasTheResidualsAndDerivativesOfTheLiteralCost) {
  using T = Dual<7>;
  RandomEngine rng = seeded_engine(3);
  std::vector<Fold> folds;
  std::vector<double> all;
  for (const int n : {40, 2, 23, 9}) {
    Fold fold;
    for (int i = 0; i < n; ++i) {
      fold.locations.emplace_back(90.0 * uniform(rng), 60.0 * uniform(rng), 9.0 * uniform(rng));
      fold.values.push_back(std::pow(uniform(rng), 4.0));
    }
    fold.locations.back() = fold.locations.front();  // the nearer than 1e-8 count for nothing
    all.insert(all.end(), fold.values.begin(), fold.values.end());
    folds.push_back(fold);
  }
  const Eigen::Map<const Eigen::ArrayXd> values(all.data(), static_cast<Eigen::Index>(all.size()));
  const double mean = values.mean();
  const double deviation = std::sqrt((values - mean).square().mean());
  // Long and thin; inside and at the largest ranges; one that reads as 1.
  const std::vector<std::vector<double>> points{{0.7, 40.0, 9.0, 0.05, 0.4, -1.2, 2.1},
                                                {1.0001, 60.0, 50.0, 20.0, -2.0, 0.3, 0.0},
                                                {0.5, 30.0, 25.0, 10.0, 0.0, 0.0, 0.0},
                                                {0.3, 30.0, 1e-31, 10.0, 1.0, 0.5, 0.0}};
  const Vector3 largest(60.0, 50.0, 20.0);
  EllipsoidLBFGSParameters settings;
  settings.min_partition_size = 5;
  settings.max_partition_size = 23;
  settings.n_partitions = 4;
  settings.regularization_const = 1.5;
  InterruptPoller poll;
  for (const Type type : types) {
    const auto problem = create_ellipsoid_fit(folds, type, largest, settings, poll);
    for (const std::vector<double>& point : points) {
      const std::vector<T> p = seeded<7>(point);
      const auto covariance = create_cov<T>(type, p[0], p[1], p[2], p[3], p[4], p[5], p[6]);
      std::vector<T> expected;
      RandomEngine draws = seeded_engine(settings.seed);
      for (const Fold& fold : folds) {
        const std::size_t n = fold.values.size();
        for (int partition = 0; partition < (n < 3 ? 0 : 4); ++partition) {
          const std::size_t drawn = 5 + draws() % 18;
          const std::size_t k = drawn >= n ? n - 2 : drawn;
          std::vector<std::size_t> order(n);
          std::iota(order.begin(), order.end(), 0UL);
          shuffle(order, draws);
          T sum(0.0);
          for (std::size_t t = k; t < n; ++t) {
            const Vector3& at = fold.locations[order[t]];
            T P(0.0), Q(0.0);
            for (std::size_t i = 0; i < k; ++i) {
              const Vector3 lag = at - fold.locations[order[i]];
              if (lag.norm() >= 1e-8) {
                const T c = covariance(lag.cast<T>());
                const T u = 1.0 / ((1.0 - c) * (1.0 - c) * (1.0 - c));
                P += u * T((fold.values[order[i]] - mean) / deviation);
                Q += u;
              }
            }
            const T e = P / Q - T((fold.values[order[t]] - mean) / deviation);
            expected.push_back(Q >= T(1e-8) ? literally_limited<T>(2.0 * e) : T(0.0));
            sum += expected.back();
          }
          expected.push_back(literally_limited<T>(2.0 * (sum / static_cast<double>(n - k))));
        }
      }
      regularise(p.data(), largest, 1.5, expected);
      expect_equal<7>(*problem, point, expected);
    }
  }
}

TEST(CovarianceFit, HasTheResidualsAndDerivativesOfTheLiteralCost) {
  using T = Dual<15>;
  RandomEngine rng = seeded_engine(4);
  VariogramMap map;
  for (int i = 0; i < 700; ++i) {
    map.lags.emplace_back(200.0 * uniform(rng) - 100.0, 80.0 * uniform(rng), 30.0 * uniform(rng));
    map.variogram.push_back(i % 7 == 0 ? 9.0 * uniform(rng) : 1.5 * uniform(rng));
    map.weight.push_back(uniform(rng));
  }
  map.variogram[5] = std::nan("");
  map.variogram[6] = INFINITY;
  map.weight[8] = 0.0;
  CovarianceFit fit{
      2,    Type::spherical, Vector3(1, 1, 1), Vector3(90, 50, 20), 2.0, 9, 0.7, 0.0, 0.4, 4.0, 1,
      false};
  const std::vector<std::vector<double>> points{
      {0.4, 60.0, 33.0, 12.0, 0.4, -1.2, 2.1, 0.5, 90.0, 0.01, 5.0, -3.0, 0.2, 1.0, 0.2},
      {0.5, 45.0, 25.0, 10.0, 0.0, 0.0, 0.0, 0.5, 45.0, 25.0, 10.0, 0.0, 0.0, 0.0, 0.0001}};
  InterruptPoller poll;
  for (const Type type : types) {
    fit.cov_type = type;
    const auto problem = create_covariance_fit(map, fit, poll);
    for (const std::vector<double>& point : points) {
      const std::vector<T> p = seeded<15>(point);
      std::vector<generic_cov_structure<T>> structures;
      for (int k = 0; k < 14; k += 7) {
        structures.push_back(
            {type, p[k], p[k + 1], p[k + 2], p[k + 3], p[k + 4], p[k + 5], p[k + 6]});
      }
      const auto covariance = create_nested_cov<T>(structures, p[14]);
      const auto f = [&](int i) {
        const double D = fit.max_ranges.norm();
        return std::pow(1.0 / (map.lags[i].norm() / (D / 3.0) + 0.0001), 0.7) * map.weight[i];
      };
      double W = 0.0;
      for (int i = 0; i < 700; ++i) {
        W += f(i);
      }
      std::vector<T> expected;
      for (int i = 0; i < 700; ++i) {
        if (std::isfinite(map.variogram[i]) && map.variogram[i] <= 8.0 && f(i) > 0.0) {
          const T e = 2.0 * ((1.0 - covariance(map.lags[i].cast<T>())) - map.variogram[i] / 2.0);
          expected.push_back(literally_limited<T>(e) * (700.0 * f(i) / W));
        }
      }
      EXPECT_LT(expected.size(), 697U);
      regularise(p.data(), fit.max_ranges, 0.2, expected);
      regularise(p.data() + 7, fit.max_ranges, 0.2, expected);
      expect_equal<15>(*problem, point, expected);
    }
  }
}

TEST(CovarianceFit, AtNoDistanceOnlySillsAndNuggetCount) {
  const CovarianceFit fit{
      1,    Type::exponential, Vector3(1, 1, 1), Vector3(9, 9, 9), 1.0, 9, 0.0, 0.0, 0.0, 4.0, 1,
      false};
  InterruptPoller poll;
  const auto problem = create_covariance_fit(
      {{Vector3::Zero(), Vector3(0, 0, 1e-9)}, {0.5, 0.5}, {1.0, 1.0}}, fit, poll);
  const std::vector<double> point{0.6, 5.0, 4.0, 3.0, 0.1, 0.2, 0.3, 0.15};
  Eigen::MatrixXd rows(2, 9);
  problem->prepare(point, true);
  problem->evaluate(0, point, {rows.col(8).data(), rows.data(), 2});
  Eigen::VectorXd expected = Eigen::VectorXd::Zero(9);
  expected << -2.0, 0, 0, 0, 0, 0, 0, -2.0, -0.5;
  EXPECT_TRUE(rows.row(0).transpose().isApprox(expected));
  EXPECT_EQ(rows(1, 7), 0.0);
  EXPECT_NEAR(rows(1, 8), -0.2, 1e-8);
}

}  // namespace
}  // namespace talvorix
