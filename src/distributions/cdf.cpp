#include "distributions/cdf.h"

#include "core/arguments.h"
#include "core/lower_bound.h"
#include "core/map_in_place.h"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace talvorix {

namespace {

// By way of a signed number, which most processors convert in one instruction.
double to_double(std::size_t k) { return static_cast<double>(static_cast<std::int64_t>(k)); }

}  // namespace

CDF::CDF(const Distribution& dist, long long n, std::int64_t seed)
    : CDF(dist.histogram(static_cast<long long>(require_positive_count("N", n)), seed)) {}

CDF::CDF(std::vector<double> ascending_sample)
    : dp_(1.0 / static_cast<double>(require_positive_count(
                    "the number of samples", static_cast<long long>(ascending_sample.size())))),
      values_(std::move(ascending_sample)),
      median_(value(0.5)),
      q75_(value(0.75)),
      q90_(value(0.9)) {}

double CDF::prob_at(std::size_t k, double value) const {
  if (k == values_.size()) {
    return 1.0;
  }
  const double base = to_double(k) * dp_;
  if (k == 0 || k + 1 == values_.size()) {
    return base;
  }
  // Keeps the weight of a sample that the value equals finite; linear interpolation would differ.
  constexpr double guard = 1e-07;
  const double wl = 1.0 / ((value - values_[k - 1]) + guard);
  const double wr = 1.0 / ((values_[k] - value) + guard);
  return (base - dp_) * wl / (wl + wr) + base * wr / (wl + wr);
}

double CDF::prob(double value) const { return prob_at(lower_bound(values_, value), value); }

double CDF::value(double prob) const {
  if (prob < 0.0) {
    return values_.front();
  }
  const double x = to_double(values_.size()) * prob;
  const std::size_t last = values_.size() - 1;
  // NaN goes to the largest sample as well.
  if (!(x < to_double(last))) {
    return values_.back();
  }
  const auto i = static_cast<std::int64_t>(x);
  const double f = x - static_cast<double>(i);
  const double* const sample = values_.data() + i;
  return f * sample[1] + (1.0 - f) * sample[0];
}

void CDF::probs(std::span<const double> values, std::span<double> probs) const {
  constexpr std::size_t at_once = 16;
  std::size_t i = 0;
  for (; i + at_once <= values.size(); i += at_once) {
    const auto found = lower_bounds<at_once>(values_, values.data() + i);
    for (std::size_t q = 0; q < at_once; ++q) {
      probs[i + q] = prob_at(found[q], values[i + q]);
    }
  }
  for (; i < values.size(); ++i) {
    probs[i] = prob(values[i]);
  }
}

void CDF::values(std::span<const double> probs, std::span<double> values) const {
  for (std::size_t i = 0; i < probs.size(); ++i) {
    values[i] = value(probs[i]);
  }
}

std::vector<double> CDF::probs(std::vector<double> values, int n_threads) const {
  return map_in_place(std::move(values), n_threads,
                      [this](std::span<double> part) { probs(part, part); });
}

std::vector<double> CDF::values(std::vector<double> probs, int n_threads) const {
  return map_in_place(std::move(probs), n_threads,
                      [this](std::span<double> part) { values(part, part); });
}

}  // namespace talvorix
