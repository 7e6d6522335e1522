#pragma once

#include "core/interrupt.h"
#include "core/made.h"
#include "covariance/covariance.h"
#include "selection/cross_validation.h"
#include "selection/fold.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace talvorix {

// How badly a model predicts: a function of the model and a number of threads. One that calls back
// into the host language needs its interpreter, and says so.
class CovarianceErrorFunction : public Made {
 public:
  // The last argument is polled by long evaluations on one thread, which may be a worker's.
  using Function = std::function<double(const CovarianceModel&, int n_threads, PollRef)>;

  explicit CovarianceErrorFunction(Function function, bool needs_interpreter = false)
      : function_(std::move(function)), needs_interpreter_(needs_interpreter) {}

  double operator()(const CovarianceModel& covariance, int n_threads, PollRef poll) const {
    return function_(covariance, n_threads, poll);
  }
  double operator()(const CovarianceModel& covariance, int n_threads) const {
    InterruptPoller poll;
    return function_(covariance, n_threads, poll);
  }
  bool needs_interpreter() const { return needs_interpreter_; }

 private:
  Function function_;
  bool needs_interpreter_;
};

// Scoring by cross-validation with inverse distances in the model's own metric.
struct IdwScoring {
  CrossValidation validation;
  double power_a = 3.0;
  double regularization_const = 0.0;
  std::int64_t seed = 0;
};

// The mean absolute error of a model over folds, times 1 + regularization_const times the sum of
// log(1 + range^2) over its structures' ranges. With several threads the means of each thread's
// folds are added up, not averaged: deliberate, the measure depends on the thread count.
double compute_covariance_error_idw(const CovarianceModel& cov, const std::vector<Fold>& folds,
                                    const IdwScoring& scoring, int n_threads);
// Of the model of one structure with sill 1.
double compute_ellipsoid_error_idw(const Ellipsoid& ellipsoid, const Kernel& cov_kernel,
                                   const std::vector<Fold>& folds, const IdwScoring& scoring,
                                   int n_threads);

// The same measure as a function, ready to score many models: what does not depend on the model is
// done once, on n_threads.
CovarianceErrorFunction create_covariance_idw_error(const std::vector<Fold>& folds,
                                                    const IdwScoring& scoring, int n_threads);

// The model of one structure with sill 1.
CovarianceModel single_structure(const Ellipsoid& ellipsoid, const Kernel& cov_kernel);

}  // namespace talvorix
