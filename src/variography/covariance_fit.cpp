#include "variography/covariance_fit.h"

#include "core/arguments.h"
#include "core/memory_limit.h"
#include "core/parallel.h"
#include "core/soft_limit.h"
#include "covariance/correlation.h"
#include "covariance/metric_slopes.h"
#include "covariance/range_regularization.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

constexpr std::size_t n_structure_parameters = RangeRegularization::parameters_per_structure;
// Lags that are evaluated together: their columns stay in the nearest caches.
constexpr std::size_t block_size = 512;

// The lags that take part, by columns.
struct LagColumns {
  std::vector<double> x;
  std::vector<double> y;
  std::vector<double> z;
  std::vector<double> variogram;  // in parts of the total sill
  std::vector<double> weight;

  std::size_t size() const { return x.size(); }
};

// Adds the covariances of one structure to the sums and writes their derivatives. One loop over
// columns that do not overlap, so that it vectorises.
template <class Correlation>
[[gnu::noinline]] void add_with_slopes(const MetricSlopes& m, double sill, std::size_t n,
                                       const double* __restrict x, const double* __restrict y,
                                       const double* __restrict z, double* __restrict sums,
                                       double* __restrict by_sill, double* __restrict by_r1,
                                       double* __restrict by_r2, double* __restrict by_r3,
                                       double* __restrict by_a, double* __restrict by_b,
                                       double* __restrict by_c) {
  for (std::size_t i = 0; i < n; ++i) {
    const double u1 = m.matrix(0, 0) * x[i] + m.matrix(0, 1) * y[i] + m.matrix(0, 2) * z[i];
    const double u2 = m.matrix(1, 0) * x[i] + m.matrix(1, 1) * y[i] + m.matrix(1, 2) * z[i];
    const double u3 = m.matrix(2, 0) * x[i] + m.matrix(2, 1) * y[i] + m.matrix(2, 2) * z[i];
    const double h = std::sqrt(u1 * u1 + u2 * u2 + u3 * u3);
    const double k = Correlation::value(h);
    const double slope = sill * Correlation::slope(h, k) / (2.0 * h);
    const double by_squared_lag = h > 0.0 ? slope : 0.0;
    sums[i] += sill * k;
    by_sill[i] = k;
    by_r1[i] = by_squared_lag * m.by_range[0] * (u1 * u1);
    by_r2[i] = by_squared_lag * m.by_range[1] * (u2 * u2);
    by_r3[i] = by_squared_lag * m.by_range[2] * (u3 * u3);
    const double p12 = by_squared_lag * (u1 * u2);
    const double p13 = by_squared_lag * (u1 * u3);
    const double p23 = by_squared_lag * (u2 * u3);
    by_a[i] = m.by_angle(0, 0) * p12 + m.by_angle(1, 0) * p13 + m.by_angle(2, 0) * p23;
    by_b[i] = m.by_angle(0, 1) * p12 + m.by_angle(1, 1) * p13 + m.by_angle(2, 1) * p23;
    by_c[i] = m.by_angle(0, 2) * p12 + m.by_angle(1, 2) * p13 + m.by_angle(2, 2) * p23;
  }
}

// The sums alone.
template <class Correlation>
[[gnu::noinline]] void add(const Matrix3& m, double sill, std::size_t n, const double* __restrict x,
                           const double* __restrict y, const double* __restrict z,
                           double* __restrict sums) {
  for (std::size_t i = 0; i < n; ++i) {
    const double u1 = m(0, 0) * x[i] + m(0, 1) * y[i] + m(0, 2) * z[i];
    const double u2 = m(1, 0) * x[i] + m(1, 1) * y[i] + m(1, 2) * z[i];
    const double u3 = m(2, 0) * x[i] + m(2, 1) * y[i] + m(2, 2) * z[i];
    sums[i] += sill * Correlation::value(std::sqrt(u1 * u1 + u2 * u2 + u3 * u3));
  }
}

[[gnu::noinline]] void scale(std::size_t n, const double* __restrict factors,
                             double* __restrict column) {
  for (std::size_t i = 0; i < n; ++i) {
    column[i] *= factors[i];
  }
}

class VariogramFit final : public LeastSquaresProblem {
 public:
  VariogramFit(LagColumns lags, const CovarianceFit& fit)
      : lags_(std::move(lags)),
        cov_type_(fit.cov_type),
        n_structures_(static_cast<std::size_t>(fit.n_structures)),
        cauchy_scale_(fit.cauchy_loss < 1e-10 ? 0.0 : fit.cauchy_loss),
        metrics_(n_structures_) {
    if (fit.regularization_const > 0.0) {
      regularization_.emplace(fit.max_ranges, fit.regularization_const / fit.n_structures,
                              n_structures_);
    }
  }

  std::vector<ResidualBlock> blocks() const override {
    std::vector<ResidualBlock> blocks;
    for (std::size_t first = 0; first < lags_.size(); first += block_size) {
      blocks.push_back({std::min(block_size, lags_.size() - first), cauchy_scale_, true});
    }
    if (regularization_) {
      blocks.push_back({regularization_->n_residuals()});
    }
    return blocks;
  }

  void prepare(std::span<const double> parameters, bool /*with_jacobian*/) override {
    for (std::size_t k = 0; k < n_structures_; ++k) {
      metrics_[k] = metric_slopes(parameters.data() + n_structure_parameters * k + 1);
    }
  }

  void evaluate(std::size_t block, std::span<const double> parameters,
                const ResidualRows& rows) const override {
    const std::size_t first = block * block_size;
    if (first >= lags_.size()) {
      regularization_->evaluate(parameters.data(), parameters.size(), rows.residuals, rows.jacobian,
                                rows.stride);
      return;
    }
    const std::size_t n = std::min(block_size, lags_.size() - first);
    correlation::with(cov_type_, [&](auto kernel) {
      add_structures<decltype(kernel)>(first, n, parameters, rows);
    });
    finish(first, n, parameters.back(), rows);
  }

 private:
  // The residuals become covariances, and the Jacobian holds their derivatives.
  template <class Correlation>
  void add_structures(std::size_t first, std::size_t n, std::span<const double> parameters,
                      const ResidualRows& rows) const {
    const double* const x = lags_.x.data() + first;
    const double* const y = lags_.y.data() + first;
    const double* const z = lags_.z.data() + first;
    std::fill_n(rows.residuals, n, 0.0);
    for (std::size_t k = 0; k < n_structures_; ++k) {
      const std::size_t p = n_structure_parameters * k;
      if (rows.jacobian == nullptr) {
        add<Correlation>(metrics_[k].matrix, parameters[p], n, x, y, z, rows.residuals);
      } else {
        add_with_slopes<Correlation>(metrics_[k], parameters[p], n, x, y, z, rows.residuals,
                                     rows.column(p), rows.column(p + 1), rows.column(p + 2),
                                     rows.column(p + 3), rows.column(p + 4), rows.column(p + 5),
                                     rows.column(p + 6));
      }
    }
  }

  // Takes the covariances to residuals.
  void finish(std::size_t first, std::size_t n, double nugget, const ResidualRows& rows) const {
    const double* const variogram = lags_.variogram.data() + first;
    const double* const weight = lags_.weight.data() + first;
    std::array<double, block_size> factors;
    for (std::size_t i = 0; i < n; ++i) {
      const double by_nugget = is_zero_lag(first + i) ? 1.0 : 0.0;
      const double covariance = rows.residuals[i] + by_nugget * nugget;
      const double twice_error = 2.0 * ((1.0 - covariance) - variogram[i]);
      rows.residuals[i] = soft_limit(twice_error) * weight[i];
      factors[i] = -2.0 * soft_limit_slope(twice_error) * weight[i];
      if (rows.jacobian != nullptr) {
        rows.column(n_structure_parameters * n_structures_)[i] = by_nugget;
      }
    }
    if (rows.jacobian != nullptr) {
      for (std::size_t p = 0; p <= n_structure_parameters * n_structures_; ++p) {
        scale(n, factors.data(), rows.column(p));
      }
    }
  }

  // The nugget's threshold is on the lag itself, not on one in range units.
  bool is_zero_lag(std::size_t i) const {
    const double squared =
        lags_.x[i] * lags_.x[i] + lags_.y[i] * lags_.y[i] + lags_.z[i] * lags_.z[i];
    return std::sqrt(squared) < 1e-10;
  }

  LagColumns lags_;
  Covariance::Type cov_type_;
  std::size_t n_structures_;
  double cauchy_scale_;
  std::optional<RangeRegularization> regularization_;
  std::vector<MetricSlopes> metrics_;
};

void check_arguments(const VariogramMap& map, const CovarianceFit& fit) {
  require_equal_lengths("variogram", map.variogram.size(), "lags", map.lags.size());
  require_equal_lengths("weight", map.weight.size(), "lags", map.lags.size());
  require_positive_count("n_structures", fit.n_structures);
  require_count("n_iterations", fit.n_iterations);
  // The triangle of the derivatives, and the solver's copies of it.
  constexpr double n_copies = 6.0;
  const double n_parameters = 1.0 + n_structure_parameters * static_cast<double>(fit.n_structures);
  require_memory("a fit of " + std::to_string(fit.n_structures) + " structures",
                 n_copies * sizeof(double) * n_parameters * n_parameters);
  for (int a = 0; a < 3; ++a) {
    const double lower = fit.min_ranges[a];
    const double upper = fit.max_ranges[a];
    if (!(lower < upper) || !std::isfinite(lower) || !std::isfinite(upper)) {
      std::ostringstream message;
      message << "min_r" << a + 1 << " must be below max_r" << a + 1
              << ", and both finite, but they are " << lower << " and " << upper;
      throw std::invalid_argument(message.str());
    }
  }
  for (std::size_t i = 0; i < map.lags.size(); ++i) {
    const char* const wrong = !map.lags[i].allFinite()        ? "lags["
                              : !std::isfinite(map.weight[i]) ? "weight["
                                                              : nullptr;
    if (wrong != nullptr) {
      throw std::invalid_argument(wrong + std::to_string(i) + "] is not finite");
    }
  }
}

// Weighs the lags, near ones more, and leaves out those without a weight.
LagColumns weighted_lags(const VariogramMap& map, const CovarianceFit& fit, PollRef poll) {
  const double unit = fit.max_ranges.norm() / 3.0;
  const double highest = fit.total_sill * fit.threshold;
  std::vector<double> weights(map.lags.size());
  double weight_sum = 0.0;
  for (std::size_t i = 0; i < weights.size(); ++i) {
    poll();
    const double distance = map.lags[i].norm() / unit + 0.0001;
    const double weight = std::pow(1.0 / distance, fit.b) * map.weight[i];
    // Lags that take no part count here all the same: deliberate.
    weight_sum += weight;
    const bool takes_part = std::isfinite(map.variogram[i]) && !(map.variogram[i] > highest);
    weights[i] = takes_part ? weight : 0.0;
  }
  LagColumns lags;
  const auto n = static_cast<double>(weights.size());
  for (std::size_t i = 0; i < weights.size(); ++i) {
    poll();
    const double weight = weights[i] / weight_sum;
    if (weight >= 1e-30) {
      lags.x.push_back(map.lags[i][0]);
      lags.y.push_back(map.lags[i][1]);
      lags.z.push_back(map.lags[i][2]);
      lags.variogram.push_back(map.variogram[i] / fit.total_sill);
      lags.weight.push_back(n * weight);
    }
  }
  return lags;
}

std::vector<double> start_of(const CovarianceFit& fit) {
  std::vector<double> start;
  for (int k = 0; k < fit.n_structures; ++k) {
    start.push_back(1.0 / fit.n_structures);
    for (int a = 0; a < 3; ++a) {
      start.push_back((fit.max_ranges[a] + fit.min_ranges[a]) * 0.5);
    }
    start.insert(start.end(), 3, 0.0);
  }
  start.push_back(0.0);
  return start;
}

std::vector<ParameterBounds> bounds_of(const CovarianceFit& fit) {
  constexpr ParameterBounds of_sill{0.0001, 1.0};
  constexpr double infinity = std::numeric_limits<double>::infinity();
  std::vector<ParameterBounds> bounds;
  for (int k = 0; k < fit.n_structures; ++k) {
    bounds.push_back(of_sill);
    for (int a = 0; a < 3; ++a) {
      bounds.push_back({fit.min_ranges[a], fit.max_ranges[a]});
    }
    bounds.insert(bounds.end(), 3, {-infinity, infinity});
  }
  bounds.push_back(of_sill);
  return bounds;
}

CovarianceModel model_of(const std::vector<double>& parameters, const CovarianceFit& fit) {
  double sill_sum = parameters.back();
  for (std::size_t p = 0; p + 1 < parameters.size(); p += n_structure_parameters) {
    sill_sum += parameters[p];
  }
  CovarianceModel model;
  for (std::size_t p = 0; p + 1 < parameters.size(); p += n_structure_parameters) {
    const double* const q = parameters.data() + p;
    model.push_back(Covariance::of_type(
        fit.cov_type, fit.total_sill * q[0] / sill_sum,
        Ellipsoid(generic_anisotropy_matrix<double>(q[1], q[2], q[3], q[4], q[5], q[6]))));
  }
  model.push_back(Covariance::nugget(fit.total_sill * parameters.back() / sill_sum));
  return model;
}

}  // namespace

std::shared_ptr<LeastSquaresProblem> create_covariance_fit(const VariogramMap& map,
                                                           const CovarianceFit& fit, PollRef poll) {
  check_arguments(map, fit);
  LagColumns lags = weighted_lags(map, fit, poll);
  if (lags.size() == 0) {
    return nullptr;
  }
  return std::make_shared<VariogramFit>(std::move(lags), fit);
}

CovarianceModel extract_covariance_from_varmap(const VariogramMap& map, const CovarianceFit& fit) {
  InterruptPoller poll;
  auto problem = create_covariance_fit(map, fit, poll);
  std::vector<double> found = start_of(fit);
  if (problem != nullptr) {
    minimise(std::move(problem), found, bounds_of(fit),
             {fit.n_iterations, check_n_threads(fit.n_threads), fit.debug}, poll);
  }
  return model_of(found, fit);
}

}  // namespace talvorix
