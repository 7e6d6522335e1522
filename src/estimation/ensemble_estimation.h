#pragma once

#include "estimation/estimator.h"
#include "estimation/local_covariances.h"
#include "spatial/ellipsoid.h"

#include <vector>

namespace talvorix {

// How local models are chosen for a target, and what each counts.
struct EnsembleParameters {
  Ellipsoid search_ellipsoid;  // the metric in which the nearest centres are found
  int max_cov_neis = 0;        // how many of them; below 1 all
  double power_a = 2.0;        // of the inverse of distance times error
  double max_weight = 0.9;     // share of models at the very place of the target, or without error
  bool run_normalization = true;
  bool use_sk = false;
  double sk_mean = 0.0;  // of what is kriged, so after normalisation
};

// Kriges each target by every one of its nearest local models, always as a full system, and blends
// the estimates. NaN where the search finds no datum or no model has a weight.
std::vector<double> ensemble_estimation(const EstimationInput& input,
                                        const LocalCovariances& local_covs,
                                        const EnsembleParameters& parameters,
                                        const SearchLimits& limits, int n_threads);

Estimator create_ensemble_estimator(LocalCovariances local_covs, EnsembleParameters parameters,
                                    SearchLimits limits);

}  // namespace talvorix
