#include "distributions/distribution_transform.h"

#include "core/arguments.h"
#include "core/map_in_place.h"

#include <span>
#include <utility>

namespace talvorix {

namespace {

std::vector<double> carry(const CDF& from, const CDF& to, std::vector<double> z, int n_threads) {
  return map_in_place(std::move(z), n_threads, [&](std::span<double> part) {
    from.probs(part, part);
    to.values(part, part);
  });
}

}  // namespace

DistributionTransform::DistributionTransform(const Distribution& source, const Distribution& target,
                                             long long n, std::int64_t seed)
    : source_(source, static_cast<long long>(require_positive_count("n", n)), seed),
      target_(target, n, seed) {}

std::vector<double> DistributionTransform::forward(std::vector<double> z, int n_threads) const {
  return carry(source_, target_, std::move(z), n_threads);
}

std::vector<double> DistributionTransform::backward(std::vector<double> z, int n_threads) const {
  return carry(target_, source_, std::move(z), n_threads);
}

}  // namespace talvorix
