#include "selection/ellipsoid_search.h"

#include "core/arguments.h"
#include "core/parallel.h"
#include "core/random.h"
#include "covariance/model_generator.h"
#include "selection/covariance_error.h"
#include "selection/fold.h"
#include "spatial/bounding_box.h"
#include "spatial/extreme_points.h"
#include "spatial/orientation_generator.h"

#include <cstddef>
#include <stdexcept>

namespace talvorix {

namespace {

// The measure that a search scores its models by: folds and their seed drawn from the main engine.
CovarianceErrorFunction measure_on_folds(const Locations& data_locs,
                                         const std::vector<double>& data, double max_distance,
                                         const EllipsoidOptimizationParameters& parameters) {
  const int n_workers = check_n_threads(parameters.n_threads);
  RandomEngine rng = seeded_engine(parameters.seed);
  // One draw for each thread goes unused; the folds follow after them.
  rng.discard(static_cast<unsigned long long>(n_workers));
  const auto folds_seed = static_cast<std::int64_t>(rng());
  const auto fold_seed = static_cast<std::int64_t>(rng());
  const std::vector<Fold> folds = create_folds(
      data_locs, data, max_distance, parameters.max_nei_size, parameters.n_centers, folds_seed);
  IdwScoring scoring;
  scoring.validation.max_distance = max_distance;
  // More than any fold has: each datum may be predicted from all others.
  scoring.validation.max_size = static_cast<int>(data_locs.size()) + 2;
  scoring.validation.partitions = {parameters.min_partition_size, parameters.max_partition_size,
                                   parameters.n_partitions};
  scoring.power_a = parameters.power_a;
  scoring.regularization_const = parameters.regularization_const;
  scoring.seed = fold_seed;
  return create_covariance_idw_error(folds, scoring, n_workers);
}

ScoredCovariance search(const std::vector<CovarianceModel>& candidates,
                        const CovarianceErrorFunction& error_function,
                        const EllipsoidOptimizationParameters& parameters) {
  return optimize_covariance(
      candidates, error_function,
      {parameters.n_iterations, parameters.n_iterations_without_upgrade, parameters.debug},
      parameters.n_threads);
}

}  // namespace

ScoredEllipsoid optimize_ellipsoid_using_idw(const Locations& data_locs,
                                             const std::vector<double>& data,
                                             const Kernel& cov_kernel, double min_range,
                                             double max_range, double max_distance,
                                             const EllipsoidOptimizationParameters& parameters) {
  require_equal_lengths("data", data.size(), "data_locs", data_locs.size());
  require_count("n_iterations", parameters.n_iterations);
  const std::vector<Ellipsoid> ellipsoids =
      generate_ellipsoids(min_range, max_range, parameters.n_rays, parameters.n_scales,
                          parameters.seed, parameters.tol);
  if (ellipsoids.empty()) {
    throw std::invalid_argument(
        "there is no ellipsoid to try: tol admits no pair of directions, or n_rays or n_scales is "
        "0");
  }
  std::vector<CovarianceModel> candidates;
  candidates.reserve(ellipsoids.size());
  for (const Ellipsoid& ellipsoid : ellipsoids) {
    candidates.push_back(single_structure(ellipsoid, cov_kernel));
  }
  const auto error_function = measure_on_folds(data_locs, data, max_distance, parameters);
  const ScoredCovariance best = search(candidates, error_function, parameters);
  return {best.model.front().ellipsoid, best.error};
}

ScoredEllipsoid optimize_ellipsoid(const Locations& data_locs, const std::vector<double>& data,
                                   const Kernel& cov_kernel, double min_range, double max_range,
                                   const EllipsoidOptimizationParameters& parameters) {
  if (data_locs.empty()) {
    throw std::invalid_argument("data_locs is empty; a search needs data");
  }
  const BoundingBox outline(
      extreme_points(data_locs, parameters.n_rays, parameters.seed, parameters.n_threads));
  const double diagonal = outline.size().norm();
  return optimize_ellipsoid_using_idw(data_locs, data, cov_kernel, min_range * diagonal,
                                      max_range * diagonal, diagonal, parameters);
}

ScoredCovariance optimize_covariance_using_idw(const Locations& data_locs,
                                               const std::vector<double>& data,
                                               const Ellipsoid& ellipsoid, const Kernel& cov_kernel,
                                               const NestedModels& models, double max_distance,
                                               const EllipsoidOptimizationParameters& parameters) {
  require_equal_lengths("data", data.size(), "data_locs", data_locs.size());
  require_count("n_iterations", parameters.n_iterations);
  const auto error_function = measure_on_folds(data_locs, data, max_distance, parameters);
  const std::vector<CovarianceModel> candidates = generate_covariances(
      ellipsoid, models.n_kernels, cov_kernel, models.n_covs, parameters.seed, models.delta_angle,
      models.min_str_range, models.max_str_range, models.min_sill, models.max_sill);
  if (candidates.empty()) {
    throw std::invalid_argument("n_covs is " + std::to_string(models.n_covs) +
                                "; a search needs at least one model");
  }
  return search(candidates, error_function, parameters);
}

}  // namespace talvorix
