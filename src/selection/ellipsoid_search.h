#pragma once

#include "core/geometry.h"
#include "covariance/covariance.h"
#include "selection/covariance_search.h"
#include "spatial/ellipsoid.h"

#include <cstdint>
#include <vector>

namespace talvorix {

// The settings of a search for the ellipsoid that predicts best, with the defaults of the call that
// takes them as a record.
struct EllipsoidOptimizationParameters {
  double power_a = 3.0;
  int max_nei_size = 400;
  int min_partition_size = 15;
  int max_partition_size = 25;
  int n_partitions = 4;
  int n_centers = 10;
  int n_rays = 400;
  int n_scales = 8;
  int n_iterations = 150;
  int n_iterations_without_upgrade = 50;
  double tol = 0.002;
  double regularization_const = 0.025;
  std::int64_t seed = 1231;
  int n_threads = 0;
  bool debug = false;
};

struct ScoredEllipsoid {
  Ellipsoid ellipsoid;
  double error;
};

// Searches ellipsoids of ranges from min_range to max_range; max_distance bounds the folds and the
// data that a prediction may use.
ScoredEllipsoid optimize_ellipsoid_using_idw(const Locations& data_locs,
                                             const std::vector<double>& data,
                                             const Kernel& cov_kernel, double min_range,
                                             double max_range, double max_distance,
                                             const EllipsoidOptimizationParameters& parameters);

// The same with ranges in parts of the diagonal of the data's box, which is also the distance.
ScoredEllipsoid optimize_ellipsoid(const Locations& data_locs, const std::vector<double>& data,
                                   const Kernel& cov_kernel, double min_range, double max_range,
                                   const EllipsoidOptimizationParameters& parameters);

// How the candidate models of a search are made from an ellipsoid; see generate_covariances.
struct NestedModels {
  int n_kernels;
  int n_covs;
  double delta_angle;
  double min_str_range;
  double max_str_range;
  double min_sill;
  double max_sill;
};

// Searches nested models; n_rays, n_scales and tol of the parameters play no part.
ScoredCovariance optimize_covariance_using_idw(const Locations& data_locs,
                                               const std::vector<double>& data,
                                               const Ellipsoid& ellipsoid, const Kernel& cov_kernel,
                                               const NestedModels& models, double max_distance,
                                               const EllipsoidOptimizationParameters& parameters);

}  // namespace talvorix
