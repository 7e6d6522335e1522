#pragma once

#include "algebra/least_squares.h"
#include "core/geometry.h"
#include "covariance/covariance.h"

#include <memory>
#include <vector>

namespace talvorix {

// Semivariances at lags, each with a weight.
struct VariogramMap {
  Locations lags;
  std::vector<double> variogram;
  std::vector<double> weight;
};

struct CovarianceFit {
  int n_structures;
  Covariance::Type cov_type;  // of all structures but the nugget
  Vector3 min_ranges;
  Vector3 max_ranges;
  double total_sill;
  int n_iterations;
  double b;            // power of the inverse distance that weighs lags
  double cauchy_loss;  // below 1e-10 none
  double regularization_const;
  double threshold;  // in parts of total_sill; higher semivariances take no part
  int n_threads;
  bool debug;
};

// The sum of squares that the fit makes small, as a function of seven parameters for each structure
// (sill, three ranges, three angles in radians) and the nugget. Null when no lag takes part.
std::shared_ptr<LeastSquaresProblem> create_covariance_fit(const VariogramMap& map,
                                                           const CovarianceFit& fit, PollRef poll);

// Fits a nested covariance model to a map of semivariances by bounded least squares. The result
// does not depend on the thread count. Without a lag that takes part, and where a number on the way
// is not finite, it is the start: equal sills, ranges halfway between their bounds and no nugget.
CovarianceModel extract_covariance_from_varmap(const VariogramMap& map, const CovarianceFit& fit);

}  // namespace talvorix
