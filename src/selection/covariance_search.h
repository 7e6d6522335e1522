#pragma once

#include "covariance/covariance.h"
#include "selection/covariance_error.h"

#include <string>
#include <vector>

namespace talvorix {

struct CovarianceSearch {
  int n_iterations = 8000;
  int n_iterations_without_upgrade = 8000;
  bool debug = false;
};

struct ScoredCovariance {
  CovarianceModel model;
  double error;
};

// The best of many models: first of those given, which the workers share out, then of random
// perturbations of each worker's best, whose ranges only shrink. Depends on the thread count.
ScoredCovariance optimize_covariance(const std::vector<CovarianceModel>& covs,
                                     const CovarianceErrorFunction& error_function,
                                     const CovarianceSearch& search, int n_threads);

// As progress is reported: "[{sill:...,anisotropy:...,type:...},]".
std::string to_text(const CovarianceModel& model);

}  // namespace talvorix
