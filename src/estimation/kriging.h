#pragma once

#include "covariance/covariance.h"
#include "estimation/estimator.h"

#include <vector>

namespace talvorix {

// Estimates and kriging variances, one of each for every target. Where the search finds nothing
// the estimate is NaN; where it finds one datum the estimate is that datum; both have variance 0.
// Elsewhere the variance is at least 1e-10.
struct KrigingResult {
  std::vector<double> estimates;
  std::vector<double> variances;
};

KrigingResult compute_simple_kriging(const EstimationInput& input, const CovarianceModel& covs,
                                     double mean, const SearchLimits& limits, int n_threads);

// The estimate includes the Lagrange multiplier as an added term.
KrigingResult compute_ordinary_kriging(const EstimationInput& input, const CovarianceModel& covs,
                                       const SearchLimits& limits, int n_threads);

Estimator create_sk_estimator(CovarianceModel covs, double mean, SearchLimits limits);
Estimator create_ok_estimator(CovarianceModel covs, SearchLimits limits);

}  // namespace talvorix
