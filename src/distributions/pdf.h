#pragma once

#include "distributions/cdf.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace talvorix {

// The same table as a CDF's, asked for densities and smoothed quantiles.
class PDF {
 public:
  PDF(const Distribution& dist, long long n, std::int64_t seed) : cdf_(dist, n, seed) {}

  explicit PDF(CDF cdf) : cdf_(std::move(cdf)) {}

  const CDF& cdf() const { return cdf_; }

  // Density: the share of probability within dv of the value, either way.
  double prob(double value, double dv) const;

  // Mean of the quantiles dp below and above the probability.
  double value(double prob, double dp) const;

  // In parallel.
  std::vector<double> probs(std::vector<double> values, double dv, int n_threads) const;
  std::vector<double> values(std::vector<double> probs, double dp, int n_threads) const;

 private:
  CDF cdf_;
};

}  // namespace talvorix
