#pragma once

#include "core/geometry.h"
#include "covariance/covariance.h"
#include "estimation/local_covariances.h"
#include "selection/ellipsoid_fit.h"
#include "selection/ellipsoid_search.h"

#include <vector>

namespace talvorix {

// Which areas get a model of their own: folds of up to max_size data, reaching as far as the data's
// diagonal over count times reach.
struct LocalAreas {
  int count;
  double reach;
  int max_size;
};

// Searches an ellipsoid for each area as optimize_ellipsoid does, with ranges in parts of the
// diagonal of the area's box.
LocalCovariances optimize_local_ellipsoids(const Locations& data_locs,
                                           const std::vector<double>& data,
                                           const Kernel& cov_kernel, double min_range,
                                           double max_range, const LocalAreas& areas,
                                           const EllipsoidOptimizationParameters& parameters);

// The folds within an area that its ellipsoid is fitted to, and the largest range it may get.
struct LocalFits {
  int n_folds;
  int max_fold_size;
  double max_range;
};

// Fits an ellipsoid for each area by least squares. The errors add up to 1.
LocalCovariances optimize_local_ellipsoids_using_lbfgs(
    const Locations& data_locs, const std::vector<double>& data, Covariance::Type cov_type,
    const LocalAreas& areas, const LocalFits& fits, const EllipsoidLBFGSParameters& parameters);

}  // namespace talvorix
