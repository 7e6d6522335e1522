#pragma once

#include "distributions/distribution.h"

#include <cstdint>
#include <span>
#include <vector>

namespace talvorix {

// A distribution tabulated by a large sorted sample of it, which answers every question by
// interpolation. The lookups are functions of their own rather than inline ones, so that they are
// rounded alike wherever they are called.
class CDF {
 public:
  // Throws std::invalid_argument when n is not from 1 to 2^31 - 1.
  CDF(const Distribution& dist, long long n, std::int64_t seed);

  // Throws std::invalid_argument when there is no sample.
  explicit CDF(std::vector<double> ascending_sample);

  const std::vector<double>& sample() const { return values_; }
  double min() const { return values_.front(); }
  double max() const { return values_.back(); }
  double median() const { return median_; }
  double q75() const { return q75_; }
  double q90() const { return q90_; }

  // The probability of a value: between two samples the mean of their probabilities, weighted by
  // inverse distance. At the largest sample it is (n - 1) / n; only above it 1.
  double prob(double value) const;

  // The quantile of a probability, which may lie outside [0, 1]: linear between samples.
  double value(double prob) const;

  // The same for as many as there are; in place is fine.
  void probs(std::span<const double> values, std::span<double> probs) const;
  void values(std::span<const double> probs, std::span<double> values) const;

  // In parallel.
  std::vector<double> probs(std::vector<double> values, int n_threads) const;
  std::vector<double> values(std::vector<double> probs, int n_threads) const;

 private:
  double prob_at(std::size_t k, double value) const;

  double dp_;
  std::vector<double> values_;  // ascending
  double median_;
  double q75_;
  double q90_;
};

}  // namespace talvorix
