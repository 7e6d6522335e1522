#pragma once

#include "covariance/covariance.h"

#include <span>
#include <vector>

namespace talvorix {

// A smooth map of numbers: the mean of the weights of fitted centres, each counted by a kernel of
// its distance times its beta.
class Projection {
 public:
  // The parameters come in threes: centre, beta, weight. Throws std::invalid_argument otherwise.
  Projection(const std::vector<double>& parameters, Covariance::Type kernel);

  Covariance::Type kernel() const { return kernel_; }
  std::vector<double> serialize() const;

  // NaN where no centre counts.
  double forward(double u) const;
  std::vector<double> forward(std::vector<double> u, int n_threads) const;
  // In place, on the calling thread.
  void map(std::span<double> values) const;

 private:
  Covariance::Type kernel_;
  std::vector<double> centers_;
  std::vector<double> betas_;
  std::vector<double> weights_;
};

}  // namespace talvorix
