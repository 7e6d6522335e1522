#pragma once

#include "distributions/cdf.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace talvorix {

// Carries values from one distribution to another: to the value of the same probability. Clamped to
// the tabulated range, without a model of the tails; equal values stay equal.
class DistributionTransform {
 public:
  // Both tables are drawn with the same seed, which correlates their samples; sorting each by
  // itself makes that immaterial. Throws std::invalid_argument when n is not from 1 to 2^31 - 1.
  DistributionTransform(const Distribution& source, const Distribution& target, long long n,
                        std::int64_t seed);

  DistributionTransform(CDF source, CDF target)
      : source_(std::move(source)), target_(std::move(target)) {}

  const CDF& source() const { return source_; }
  const CDF& target() const { return target_; }

  double forward(double z) const { return target_.value(source_.prob(z)); }
  double backward(double z) const { return source_.value(target_.prob(z)); }

  // In parallel.
  std::vector<double> forward(std::vector<double> z, int n_threads) const;
  std::vector<double> backward(std::vector<double> z, int n_threads) const;

 private:
  CDF source_;
  CDF target_;
};

}  // namespace talvorix
