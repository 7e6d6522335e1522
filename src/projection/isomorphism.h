#pragma once

#include "core/interrupt.h"
#include "projection/projection.h"
#include "projection/projection_fit.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace talvorix {

// A smooth map of numbers together with the way back, fitted so that the round trip stays close to
// where it started.
class Isomorphism {
 public:
  Isomorphism(Projection forward_proj, Projection backward_proj)
      : forward_(std::move(forward_proj)), backward_(std::move(backward_proj)) {}

  const Projection& forward_proj() const { return forward_; }
  const Projection& backward_proj() const { return backward_; }

 private:
  Projection forward_;
  Projection backward_;
};

// How an isomorphism is fitted to samples; what is said of spans and sizes is relative to the data.
struct IsomorphismParameters {
  Covariance::Type kernel_forward = Covariance::Type::exponential;
  int n_centers_forward = 27;
  Covariance::Type kernel_backward = Covariance::Type::spherical;
  int n_centers_backward = 33;
  // How far weights and centres may lie beyond the data, in spans of the data.
  double weight_tol = 10.0;
  double center_tol = 10.0;
  // Per span of the data.
  double min_beta = 1e-06;
  double max_beta = 4.0;
  // In equal shares of the sample among the partitions.
  double min_partition_size = 0.5;
  double max_partition_size = 2.0;
  int n_partitions = 20;
  double cauchy_loss = 0.0;
  int n_iterations = 50;
  int n_threads = 0;
  std::int64_t seed = 123154;
  bool debug = false;
};

// Throws std::invalid_argument for counts and factors that are negative or cross.
void check(const IsomorphismParameters& iso_params);

// Fits the way forward to the samples, and the way back to what the way forward makes of the
// source.
Isomorphism optimize_isomorphism(const std::vector<double>& source,
                                 const std::vector<double>& target, const ProjectionShape& forward,
                                 const ProjectionShape& backward, const ProjectionFit& fit,
                                 PollRef poll);

// The same with bounds and sizes made from the data, one way at a time. From several threads if
// need be.
class IsomorphismFitter {
 public:
  // Throws std::invalid_argument for empty samples.
  IsomorphismFitter(std::vector<double> source_data, std::vector<double> target_data,
                    const IsomorphismParameters& iso_params);

  Projection fit_forward(PollRef poll) const;
  Projection fit_backward(const Projection& forward_proj, PollRef poll) const;

 private:
  std::vector<double> source_;
  std::vector<double> target_;
  ProjectionShape forward_;
  ProjectionShape backward_;
  ProjectionFit fit_;
};

Isomorphism optimize_isomorphism(const std::vector<double>& source_data,
                                 const std::vector<double>& target_data,
                                 const IsomorphismParameters& iso_params, PollRef poll);

}  // namespace talvorix
