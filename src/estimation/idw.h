#pragma once

#include "covariance/covariance.h"
#include "estimation/estimator.h"

#include <vector>

namespace talvorix {

// Inverse distance weighting. max_weight is the share of the estimate given to data that stand at
// the target.
struct IdwParameters {
  double power_a = 2.0;
  double max_weight = 0.9;
};

// Weights are 1 / d^power_a of the real distance d.
std::vector<double> idw_estimation(const EstimationInput& input, const IdwParameters& parameters,
                                   const SearchLimits& limits, int n_threads);

// Weights are 1 / x^power_a with x = 1 - C(lag), which takes the model's variogram for a distance.
// The model's sills are expected to add up to 1; nothing checks that.
std::vector<double> idw_estimation(const EstimationInput& input, const CovarianceModel& covs,
                                   const IdwParameters& parameters, const SearchLimits& limits,
                                   int n_threads);

Estimator create_idw_estimator(IdwParameters parameters, SearchLimits limits);
Estimator create_idw_estimator(CovarianceModel covs, IdwParameters parameters, SearchLimits limits);

}  // namespace talvorix
