#include "selection/ellipsoid_fit.h"

#include "core/arguments.h"
#include "core/memory_limit.h"
#include "core/parallel.h"
#include "core/random.h"
#include "core/soft_limit.h"
#include "covariance/correlation.h"
#include "covariance/metric_slopes.h"
#include "covariance/range_regularization.h"
#include "selection/partitions.h"
#include "selection/standardisation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <limits>
#include <numeric>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

using Parameters = Eigen::Matrix<double, FittedEllipsoid::n_parameters, 1>;

// Sums over columns are taken lane by lane; columns are padded to whole blocks.
using Lanes = Eigen::Array<double, 8, 1>;
constexpr std::size_t n_lanes = 8;

Lanes lanes_at(const double* column) { return Eigen::Map<const Lanes>(column); }

// A fold cut into the data that predict and those that are predicted.
class FoldPartition {
 public:
  FoldPartition(const Fold& fold, const std::vector<std::uint32_t>& order, std::size_t n_training)
      : n_blocks_((n_training + n_lanes - 1) / n_lanes) {
    const std::size_t n = n_blocks_ * n_lanes;
    columns_.assign(5 * n, 0.0);
    for (std::size_t i = 0; i < n; ++i) {
      // Where there is no datum none is far enough away.
      columns_[4 * n + i] = std::numeric_limits<double>::infinity();
    }
    for (std::size_t i = 0; i < n_training; ++i) {
      constexpr double nearest = 1e-8;
      const Vector3& location = fold.locations[order[i]];
      columns_[i] = location[0];
      columns_[n + i] = location[1];
      columns_[2 * n + i] = location[2];
      columns_[3 * n + i] = fold.values[order[i]];
      columns_[4 * n + i] = nearest * nearest;
    }
    for (std::size_t i = n_training; i < order.size(); ++i) {
      test_locations_.push_back(fold.locations[order[i]]);
      test_values_.push_back(fold.values[order[i]]);
    }
  }

  std::size_t n_blocks() const { return n_blocks_; }
  std::size_t n_padded() const { return n_blocks_ * n_lanes; }
  const double* x() const { return column(0); }
  const double* y() const { return column(1); }
  const double* z() const { return column(2); }
  const double* values() const { return column(3); }
  // The squared distance from which on a datum takes part.
  const double* least() const { return column(4); }

  std::size_t n_tests() const { return test_values_.size(); }
  const Vector3& test_location(std::size_t t) const { return test_locations_[t]; }
  double test_value(std::size_t t) const { return test_values_[t]; }

 private:
  const double* column(std::size_t i) const { return columns_.data() + i * n_padded(); }

  std::size_t n_blocks_;
  std::vector<double> columns_;
  Locations test_locations_;
  std::vector<double> test_values_;
};

// What the training data weigh at one test point, by columns: lags in range units, weights
// (1 - c)^-3 and their derivatives with respect to the sill and to the squared lag.
class WeightColumns {
 public:
  explicit WeightColumns(std::size_t n) : n_(n), columns_(6 * n) {}

  double* u1() { return columns_.data(); }
  double* u2() { return columns_.data() + n_; }
  double* u3() { return columns_.data() + 2 * n_; }
  double* weights() { return columns_.data() + 3 * n_; }
  double* by_sill() { return columns_.data() + 4 * n_; }
  double* by_squared_lag() { return columns_.data() + 5 * n_; }

 private:
  std::size_t n_;
  std::vector<double> columns_;
};

// One loop over columns that do not overlap, so that it vectorises.
template <class Correlation, bool with_slopes>
[[gnu::noinline]] void weigh(const Matrix3& m, double sill, const Vector3& at, std::size_t n_blocks,
                             const double* __restrict x, const double* __restrict y,
                             const double* __restrict z, const double* __restrict least,
                             double* __restrict u1, double* __restrict u2, double* __restrict u3,
                             double* __restrict weights, double* __restrict by_sill,
                             double* __restrict by_squared_lag) {
  const double at_x = at[0];
  const double at_y = at[1];
  const double at_z = at[2];
  for (std::size_t i = 0; i < n_blocks * n_lanes; ++i) {
    const double dx = at_x - x[i];
    const double dy = at_y - y[i];
    const double dz = at_z - z[i];
    const double a = m(0, 0) * dx + m(0, 1) * dy + m(0, 2) * dz;
    const double b = m(1, 0) * dx + m(1, 1) * dy + m(1, 2) * dz;
    const double c = m(2, 0) * dx + m(2, 1) * dy + m(2, 2) * dz;
    const bool counts = dx * dx + dy * dy + dz * dz >= least[i];
    const double h = std::sqrt(a * a + b * b + c * c);
    const double k = Correlation::value(h);
    const double inverse = 1.0 / (1.0 - sill * k);
    const double weight = inverse * inverse * inverse;
    weights[i] = counts ? weight : 0.0;
    if constexpr (with_slopes) {
      const double slope = 3.0 * weight * inverse;
      const double by_q = slope * sill * Correlation::slope(h, k) / (2.0 * h);
      u1[i] = a;
      u2[i] = b;
      u3[i] = c;
      by_sill[i] = counts ? slope * k : 0.0;
      by_squared_lag[i] = counts && h > 0.0 ? by_q : 0.0;
    }
  }
}

struct WeightedMean {
  double weight;
  double mean;
};

WeightedMean weighted_mean(const double* weights, const double* values, std::size_t n_blocks) {
  Lanes weight_sums = Lanes::Zero();
  Lanes sums = Lanes::Zero();
  for (std::size_t i = 0; i < n_blocks * n_lanes; i += n_lanes) {
    weight_sums += lanes_at(weights + i);
    sums += lanes_at(weights + i) * lanes_at(values + i);
  }
  const double weight = weight_sums.sum();
  return {weight, sums.sum() / weight};
}

// The derivatives of the weighted mean, which are means of what the values differ from it.
Parameters mean_slopes(WeightColumns& columns, const double* values, std::size_t n_blocks,
                       const WeightedMean& mean, const MetricSlopes& metric) {
  Lanes by_sill = Lanes::Zero();
  std::array<Lanes, 6> moments;
  moments.fill(Lanes::Zero());
  for (std::size_t i = 0; i < n_blocks * n_lanes; i += n_lanes) {
    const Lanes difference = lanes_at(values + i) - mean.mean;
    by_sill += lanes_at(columns.by_sill() + i) * difference;
    const Lanes f = lanes_at(columns.by_squared_lag() + i) * difference;
    const Lanes u1 = lanes_at(columns.u1() + i);
    const Lanes u2 = lanes_at(columns.u2() + i);
    const Lanes u3 = lanes_at(columns.u3() + i);
    const Lanes f1 = f * u1;
    const Lanes f2 = f * u2;
    moments[0] += f1 * u1;
    moments[1] += f2 * u2;
    moments[2] += f * u3 * u3;
    moments[3] += f1 * u2;
    moments[4] += f1 * u3;
    moments[5] += f2 * u3;
  }
  const Vector3 squares(moments[0].sum(), moments[1].sum(), moments[2].sum());
  const Vector3 products(moments[3].sum(), moments[4].sum(), moments[5].sum());
  Parameters slopes;
  slopes[0] = by_sill.sum();
  slopes.segment<3>(1) = metric.by_range.cwiseProduct(squares);
  slopes.tail<3>() = metric.by_angle.transpose() * products;
  return slopes / mean.weight;
}

class EllipsoidFit final : public LeastSquaresProblem {
 public:
  EllipsoidFit(std::vector<FoldPartition> partitions, Covariance::Type cov_type,
               double cauchy_scale, std::optional<RangeRegularization> regularization)
      : partitions_(std::move(partitions)),
        cov_type_(cov_type),
        cauchy_scale_(cauchy_scale),
        regularization_(std::move(regularization)) {}

  std::vector<ResidualBlock> blocks() const override {
    std::vector<ResidualBlock> blocks;
    for (const FoldPartition& partition : partitions_) {
      blocks.push_back({partition.n_tests() + 1, cauchy_scale_});
    }
    if (regularization_) {
      blocks.push_back({regularization_->n_residuals()});
    }
    return blocks;
  }

  void prepare(std::span<const double> parameters, bool /*with_jacobian*/) override {
    metric_ = metric_slopes(parameters.data() + 1);
  }

  void evaluate(std::size_t block, std::span<const double> parameters,
                const ResidualRows& rows) const override {
    if (block == partitions_.size()) {
      regularization_->evaluate(parameters.data(), parameters.size(), rows.residuals, rows.jacobian,
                                rows.stride);
      return;
    }
    correlation::with(cov_type_, [&](auto kernel) {
      if (rows.jacobian == nullptr) {
        evaluate_partition<decltype(kernel), false>(partitions_[block], parameters[0], rows);
      } else {
        evaluate_partition<decltype(kernel), true>(partitions_[block], parameters[0], rows);
      }
    });
  }

 private:
  template <class Correlation, bool with_slopes>
  void evaluate_partition(const FoldPartition& data, double sill, const ResidualRows& rows) const {
    constexpr double least_weight = 1e-8;
    WeightColumns columns(data.n_padded());
    const auto write = [&](std::size_t row, double residual, const Parameters& slopes) {
      rows.residuals[row] = residual;
      if constexpr (with_slopes) {
        for (std::size_t p = 0; p < FittedEllipsoid::n_parameters; ++p) {
          rows.column(p)[row] = slopes[static_cast<Eigen::Index>(p)];
        }
      }
    };
    double sum = 0.0;
    Parameters slope_sums = Parameters::Zero();
    for (std::size_t t = 0; t < data.n_tests(); ++t) {
      weigh<Correlation, with_slopes>(metric_.matrix, sill, data.test_location(t), data.n_blocks(),
                                      data.x(), data.y(), data.z(), data.least(), columns.u1(),
                                      columns.u2(), columns.u3(), columns.weights(),
                                      columns.by_sill(), columns.by_squared_lag());
      const WeightedMean mean = weighted_mean(columns.weights(), data.values(), data.n_blocks());
      double residual = 0.0;
      Parameters slopes = Parameters::Zero();
      if (mean.weight >= least_weight) {
        const double twice_error = 2.0 * (mean.mean - data.test_value(t));
        residual = soft_limit(twice_error);
        if constexpr (with_slopes) {
          slopes = 2.0 * soft_limit_slope(twice_error) *
                   mean_slopes(columns, data.values(), data.n_blocks(), mean, metric_);
        }
      }
      write(t, residual, slopes);
      sum += residual;
      slope_sums += slopes;
    }
    // The last residual is that of the bias.
    const double share = 2.0 / static_cast<double>(data.n_tests());
    write(data.n_tests(), soft_limit(share * sum),
          soft_limit_slope(share * sum) * share * slope_sums);
  }

  std::vector<FoldPartition> partitions_;
  Covariance::Type cov_type_;
  double cauchy_scale_;
  std::optional<RangeRegularization> regularization_;
  MetricSlopes metric_;
};

void check_folds(const std::vector<Fold>& folds, PollRef poll) {
  if (folds.empty()) {
    throw std::invalid_argument("folds is empty; a fit needs at least one fold");
  }
  for (std::size_t f = 0; f < folds.size(); ++f) {
    poll();
    const Fold& fold = folds[f];
    const std::string name = "folds[" + std::to_string(f) + "]";
    require_equal_lengths(("the list of values of " + name).c_str(), fold.values.size(),
                          "its list of locations", fold.locations.size());
    for (std::size_t i = 0; i < fold.values.size(); ++i) {
      if (!fold.locations[i].allFinite() || !std::isfinite(fold.values[i])) {
        throw std::invalid_argument(name + " has a location or a value, number " +
                                    std::to_string(i) + ", that is not finite");
      }
    }
  }
}

// Standardised together, not fold by fold.
std::vector<Fold> standardised(std::vector<Fold> folds) {
  std::vector<double> values;
  for (const Fold& fold : folds) {
    values.insert(values.end(), fold.values.begin(), fold.values.end());
  }
  standardise(values);
  auto next = values.begin();
  for (Fold& fold : folds) {
    for (double& value : fold.values) {
      value = *next++;
    }
  }
  return folds;
}

std::vector<FoldPartition> draw_partitions(const std::vector<Fold>& folds,
                                           const PartitionSizes& sizes, std::int64_t seed,
                                           PollRef poll) {
  RandomEngine rng = seeded_engine(seed);
  // The largest size is never drawn, unless it is the only one: deliberate, and unlike the
  // partitions of a cross-validation.
  const auto n_sizes = std::max(
      1U, static_cast<std::uint32_t>(sizes.largest) - static_cast<std::uint32_t>(sizes.smallest));
  double n_data = 0.0;
  for (const Fold& fold : folds) {
    n_data += static_cast<double>(fold.values.size() + 2 * n_lanes);
  }
  require_memory(std::to_string(sizes.count) + " partitions of each fold",
                 5.0 * sizeof(double) * n_data * sizes.count);
  std::vector<FoldPartition> partitions;
  std::vector<std::uint32_t> order;
  for (const Fold& fold : folds) {
    const std::size_t n = fold.values.size();
    if (n < 3) {
      continue;
    }
    for (int p = 0; p < sizes.count; ++p) {
      poll();
      const std::size_t wanted =
          static_cast<std::uint32_t>(rng()) % n_sizes + static_cast<std::size_t>(sizes.smallest);
      order.resize(n);
      std::iota(order.begin(), order.end(), 0U);
      shuffle(order, rng);
      partitions.emplace_back(fold, order, wanted >= n ? n - 2 : wanted);
    }
  }
  return partitions;
}

void check_max_ranges(const Vector3& max_ranges) {
  for (int a = 0; a < 3; ++a) {
    if (!(max_ranges[a] > 0.0) || !std::isfinite(max_ranges[a])) {
      std::ostringstream message;
      message << 'r' << a + 1 << "_max is " << max_ranges[a]
              << "; it must be above 0 and finite, or the bounds of the range leave no room";
      throw std::invalid_argument(message.str());
    }
  }
}

}  // namespace

std::shared_ptr<LeastSquaresProblem> create_ellipsoid_fit(
    const std::vector<Fold>& folds, Covariance::Type cov_type, const Vector3& max_ranges,
    const EllipsoidLBFGSParameters& parameters, PollRef poll) {
  const PartitionSizes sizes{parameters.min_partition_size, parameters.max_partition_size,
                             parameters.n_partitions};
  check_partition_sizes(sizes, "n_partitions");
  check_max_ranges(max_ranges);
  check_folds(folds, poll);
  std::optional<RangeRegularization> regularization;
  if (parameters.regularization_const > 0.0) {
    regularization.emplace(max_ranges, parameters.regularization_const, 1);
  }
  return std::make_shared<EllipsoidFit>(
      draw_partitions(standardised(folds), sizes, parameters.seed, poll), cov_type,
      parameters.cauchy_loss < 1e-10 ? 0.0 : parameters.cauchy_loss, regularization);
}

FittedEllipsoid optimize_ellipsoid_using_kfold(const std::vector<Fold>& folds,
                                               Covariance::Type cov_type, const Vector3& max_ranges,
                                               const EllipsoidLBFGSParameters& parameters) {
  require_count("n_iterations", parameters.n_iterations);
  InterruptPoller poll;
  auto fit = create_ellipsoid_fit(folds, cov_type, max_ranges, parameters, poll);
  std::vector<double> found{0.5};
  std::vector<ParameterBounds> bounds{{0.0001, 1.0001}};
  for (int a = 0; a < 3; ++a) {
    found.push_back(max_ranges[a] * 0.5);
    bounds.push_back({max_ranges[a] * 0.001, max_ranges[a]});
  }
  found.resize(FittedEllipsoid::n_parameters, 0.0);  // the angles, which are free
  const double cost = minimise(std::move(fit), found, bounds,
                               {parameters.n_iterations, check_n_threads(parameters.n_threads),
                                parameters.debug, &std::cerr},
                               poll);
  FittedEllipsoid result;
  std::copy(found.begin(), found.end(), result.parameters.begin());
  const Matrix3 matrix =
      generic_anisotropy_matrix<double>(found[1], found[2], found[3], found[4], found[5], found[6]);
  result.ellipsoid = Ellipsoid(sort_matrix3d(matrix, true));
  result.cost = cost;
  return result;
}

}  // namespace talvorix
