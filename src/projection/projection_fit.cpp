#include "projection/projection_fit.h"

#include "algebra/least_squares.h"
#include "core/arguments.h"
#include "core/memory_limit.h"
#include "core/parallel.h"
#include "core/random.h"
#include "core/soft_limit.h"
#include "covariance/correlation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <numeric>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

// A random subset of the pairs, one list after the other.
struct Partition {
  std::vector<double> xs;
  std::vector<double> ys;
};

// Adds up the kernels of one centre, and the weight times them. With derivatives, the kernels and
// their slopes are kept in the columns that the derivatives will take.
template <class Correlation, bool keep>
[[gnu::noinline]] void add_center(const double* __restrict xs, std::size_t n, double center,
                                  double beta, double weight, double* __restrict numerators,
                                  double* __restrict denominators, double* __restrict kernels,
                                  double* __restrict slopes) {
  for (std::size_t t = 0; t < n; ++t) {
    const double h = beta * std::abs(xs[t] - center);
    const double k = Correlation::value(h);
    if constexpr (keep) {
      kernels[t] = k;
      slopes[t] = Correlation::slope(h, k);
    }
    numerators[t] += weight * k;
    denominators[t] += k;
  }
}

// Turns kernels and slopes into derivatives of the residuals: chain holds those of a residual by
// its numerator.
[[gnu::noinline]] void differentiate_center(
    const double* __restrict xs, std::size_t n, double center, double beta, double weight,
    const double* __restrict means, const double* __restrict chain, double* __restrict by_center,
    double* __restrict by_beta, double* __restrict by_weight) {
  for (std::size_t t = 0; t < n; ++t) {
    const double lag = xs[t] - center;
    const double by_distance = by_beta[t] * (weight - means[t]) * chain[t];
    by_center[t] = -beta * std::copysign(1.0, lag) * by_distance;
    by_beta[t] = std::abs(lag) * by_distance;
    by_weight[t] *= chain[t];
  }
}

// For each subset one residual a pair and one on their root mean square.
class ProjectionProblem final : public LeastSquaresProblem {
 public:
  ProjectionProblem(std::vector<Partition> partitions, Covariance::Type kernel, double inv_std,
                    double cauchy_loss)
      : partitions_(std::move(partitions)),
        kernel_(kernel),
        inv_std_(inv_std),
        cauchy_loss_(cauchy_loss) {}

  std::vector<ResidualBlock> blocks() const override {
    std::vector<ResidualBlock> blocks;
    blocks.reserve(partitions_.size());
    for (const Partition& partition : partitions_) {
      blocks.push_back({partition.xs.size() + 1, cauchy_loss_});
    }
    return blocks;
  }

  void evaluate(std::size_t block, std::span<const double> parameters,
                const ResidualRows& rows) const override {
    correlation::with(kernel_, [&](auto correlation) {
      using Correlation = decltype(correlation);
      if (rows.jacobian == nullptr) {
        evaluate<Correlation, false>(partitions_[block], parameters, rows);
      } else {
        evaluate<Correlation, true>(partitions_[block], parameters, rows);
      }
    });
  }

 private:
  template <class Correlation, bool with_jacobian>
  void evaluate(const Partition& partition, std::span<const double> parameters,
                const ResidualRows& rows) const {
    const std::size_t n = partition.xs.size();
    const std::size_t n_parameters = parameters.size();
    static thread_local std::vector<double> scratch;
    scratch.assign(2 * n, 0.0);
    double* const means = scratch.data();  // numerators at first
    double* const chain = means + n;       // denominators at first
    for (std::size_t p = 0; p < n_parameters; p += 3) {
      double* const kernels = with_jacobian ? rows.column(p + 2) : nullptr;
      double* const slopes = with_jacobian ? rows.column(p + 1) : nullptr;
      add_center<Correlation, with_jacobian>(partition.xs.data(), n, parameters[p],
                                             parameters[p + 1], parameters[p + 2], means, chain,
                                             kernels, slopes);
    }
    const auto count = static_cast<double>(n);
    double mean_square = 0.0;
    for (std::size_t t = 0; t < n; ++t) {
      means[t] /= chain[t];
      const double twice_error = 2.0 * ((means[t] - partition.ys[t]) * inv_std_);
      const double limited = soft_limit(twice_error);
      rows.residuals[t] = limited / count;
      mean_square += limited * limited / count;
      chain[t] = soft_limit_slope(twice_error) * 2.0 * inv_std_ / (count * chain[t]);
    }
    const double deviation = std::sqrt(mean_square);
    rows.residuals[n] = soft_limit(2.0 * deviation);
    if constexpr (with_jacobian) {
      // Where all pairs fit exactly, the root has no slope; flat is what lies between its sides.
      const double by_deviation =
          deviation > 0.0 ? 2.0 * soft_limit_slope(2.0 * deviation) / deviation : 0.0;
      const std::span<const double> limited(rows.residuals, n);  // over their count
      const auto differentiate_deviation = [&](double* column) {
        column[n] =
            by_deviation * count * std::inner_product(limited.begin(), limited.end(), column, 0.0);
      };
      for (std::size_t p = 0; p < n_parameters; p += 3) {
        differentiate_center(partition.xs.data(), n, parameters[p], parameters[p + 1],
                             parameters[p + 2], means, chain, rows.column(p), rows.column(p + 1),
                             rows.column(p + 2));
        differentiate_deviation(rows.column(p));
        differentiate_deviation(rows.column(p + 1));
        differentiate_deviation(rows.column(p + 2));
      }
    }
  }

  std::vector<Partition> partitions_;
  Covariance::Type kernel_;
  double inv_std_;
  double cauchy_loss_;
};

void check(const std::vector<double>& source, const std::vector<double>& target,
           const ProjectionShape& shape, const ProjectionFit& fit) {
  if (source.empty()) {
    throw std::invalid_argument("source is empty; a projection is fitted to pairs of values");
  }
  require_equal_lengths("target", target.size(), "source", source.size());
  require_count("n_centers", shape.n_centers);
  require_count("n_partitions", fit.n_partitions);
  require_count("n_iterations", fit.n_iterations);
  require_count("min_partition_size", fit.min_partition_size);
  if (fit.max_partition_size < fit.min_partition_size) {
    throw std::invalid_argument("max_partition_size is " + std::to_string(fit.max_partition_size) +
                                ", below min_partition_size, which is " +
                                std::to_string(fit.min_partition_size));
  }
}

// Of the source, with the population's form of the standard deviation.
double inverse_deviation(const std::vector<double>& values) {
  const auto n = static_cast<double>(values.size());
  const double mean = std::accumulate(values.begin(), values.end(), 0.0) / n;
  double squares = 0.0;
  for (const double value : values) {
    squares += (value - mean) * (value - mean);
  }
  return 1.0 / std::sqrt(squares / n);
}

std::vector<double> starting_parameters(const std::vector<double>& source,
                                        const std::vector<double>& target,
                                        const ProjectionShape& shape, RandomEngine& rng) {
  std::vector<double> parameters;
  require_memory("the list of parameters", 24.0 * static_cast<double>(shape.n_centers));
  parameters.reserve(3 * static_cast<std::size_t>(shape.n_centers));
  for (int i = 0; i < shape.n_centers; ++i) {
    const std::size_t drawn = rng() % source.size();
    parameters.insert(parameters.end(),
                      {source[drawn], (shape.beta.min + shape.beta.max) * 0.5, target[drawn]});
  }
  return parameters;
}

std::vector<Partition> draw_partitions(const std::vector<double>& source,
                                       const std::vector<double>& target, const ProjectionFit& fit,
                                       RandomEngine& rng, PollRef poll) {
  const std::size_t n = source.size();
  const auto n_sizes = static_cast<std::size_t>(fit.max_partition_size) -
                       static_cast<std::size_t>(fit.min_partition_size) + 1;
  const std::size_t largest = std::min(n - 1, static_cast<std::size_t>(fit.max_partition_size) + 1);
  require_memory("the list of partitions",
                 16.0 * static_cast<double>(fit.n_partitions) * static_cast<double>(largest));
  std::vector<Partition> partitions(static_cast<std::size_t>(fit.n_partitions));
  for (Partition& partition : partitions) {
    // Larger by one than the sizes say: deliberate.
    std::size_t size = rng() % n_sizes + 1 + static_cast<std::size_t>(fit.min_partition_size);
    if (size >= n) {
      size = n - 1;
    }
    partition.xs.reserve(size);
    partition.ys.reserve(size);
    for (std::size_t i = 0; i < size; ++i) {
      poll();
      const std::size_t drawn = rng() % n;
      partition.xs.push_back(source[drawn]);
      partition.ys.push_back(target[drawn]);
    }
  }
  return partitions;
}

bool are_feasible(const std::vector<double>& parameters,
                  const std::vector<ParameterBounds>& bounds) {
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const bool has_room = bounds[i].lower < bounds[i].upper;
    if (!has_room || !(parameters[i] >= bounds[i].lower && parameters[i] <= bounds[i].upper)) {
      return false;
    }
  }
  return true;
}

}  // namespace

Projection optimize_projection(const std::vector<double>& source, const std::vector<double>& target,
                               const ProjectionShape& shape, const ProjectionFit& fit,
                               PollRef poll) {
  check(source, target, shape, fit);
  RandomEngine rng = seeded_engine(fit.seed);
  std::vector<double> parameters = starting_parameters(source, target, shape, rng);
  auto problem =
      std::make_shared<ProjectionProblem>(draw_partitions(source, target, fit, rng, poll),
                                          shape.kernel, inverse_deviation(source), fit.cauchy_loss);
  std::vector<ParameterBounds> bounds;
  bounds.reserve(parameters.size());
  for (int i = 0; i < shape.n_centers; ++i) {
    for (const Interval& of : {shape.center, shape.beta, shape.weight}) {
      bounds.push_back({of.min, of.max});
    }
  }
  if (are_feasible(parameters, bounds)) {
    LeastSquaresOptions options;
    options.n_iterations = fit.n_iterations;
    options.n_threads = check_n_threads(fit.n_threads);
    options.debug = fit.debug;
    minimise(std::move(problem), parameters, bounds, options, poll);
  }
  return {parameters, shape.kernel};
}

}  // namespace talvorix
