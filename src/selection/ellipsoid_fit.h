#pragma once

#include "algebra/least_squares.h"
#include "core/geometry.h"
#include "covariance/covariance.h"
#include "selection/fold.h"
#include "spatial/ellipsoid.h"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace talvorix {

// The settings of a fit of an ellipsoid by least squares, with the defaults of the call that takes
// them as a record.
struct EllipsoidLBFGSParameters {
  double regularization_const = 1.0;
  double cauchy_loss = 0.0;
  int min_partition_size = 15;
  int max_partition_size = 30;
  int n_partitions = 7;
  int n_iterations = 1000;
  std::int64_t seed = 123151;
  int n_threads = 0;
  bool debug = false;
};

struct FittedEllipsoid {
  static constexpr std::size_t n_parameters = 7;

  Ellipsoid ellipsoid;
  std::array<double, n_parameters> parameters;  // sill, r1, r2, r3, three angles in radians
  double cost;                                  // half the sum of squares
};

// The sum of squares that the fit makes small: errors of predictions of one part of a fold from the
// other, and their mean, for n_partitions random partitions of each fold; and a regularisation of
// the ranges.
std::shared_ptr<LeastSquaresProblem> create_ellipsoid_fit(
    const std::vector<Fold>& folds, Covariance::Type cov_type, const Vector3& max_ranges,
    const EllipsoidLBFGSParameters& parameters, PollRef poll);

// Fits the ellipsoid in whose metric inverse distances predict best, with ranges up to max_ranges.
// The result does not depend on the thread count.
FittedEllipsoid optimize_ellipsoid_using_kfold(const std::vector<Fold>& folds,
                                               Covariance::Type cov_type, const Vector3& max_ranges,
                                               const EllipsoidLBFGSParameters& parameters);

}  // namespace talvorix
