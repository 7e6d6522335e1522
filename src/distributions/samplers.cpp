#include "distributions/samplers.h"

#include "core/arguments.h"
#include "core/radix_sort.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace talvorix::sampler {

namespace {

constexpr double pi = std::numbers::pi;

double standard_exponential(RandomEngine& rng) { return -std::log(1.0 - uniform(rng)); }

double nonzero_uniform(RandomEngine& rng) {
  for (;;) {
    const double u = uniform(rng);
    if (u != 0.0) {
      return u;
    }
  }
}

// Sorts data ascending and weight along with it; equal data may end in any order.
void sort_together(std::vector<double>& data, std::vector<double>& weight) {
  std::vector<std::pair<double, double>> pairs(data.size());
  for (std::size_t i = 0; i < data.size(); ++i) {
    pairs[i] = {data[i], weight[i]};
  }
  InterruptPoller poll;
  std::sort(pairs.begin(), pairs.end(), [&poll](const auto& p, const auto& q) {
    poll();
    return order_key(p.first) < order_key(q.first);
  });
  for (std::size_t i = 0; i < data.size(); ++i) {
    std::tie(data[i], weight[i]) = pairs[i];
  }
}

}  // namespace

double Lognormal::operator()(RandomEngine& rng, PollRef) const {
  return std::exp(StandardNormal()(rng) * s + m);
}

Gamma::Gamma(double alpha, double beta)
    : alpha_(alpha),
      beta_(beta),
      share_below_(std::numbers::e / (alpha + std::numbers::e)),
      width_(std::sqrt(2.0 * alpha - 1.0)) {}

double Gamma::standard(RandomEngine& rng, PollRef poll) const {
  if (alpha_ < 1.0) return of_small_shape(rng, poll);
  if (alpha_ == 1.0) return standard_exponential(rng);
  if (!(alpha_ < 20.0) || alpha_ != std::floor(alpha_)) return by_tangent(rng, poll);
  return of_integer_shape(rng);
}

double Gamma::of_small_shape(RandomEngine& rng, PollRef poll) const {
  for (;; poll()) {
    const double u1 = uniform(rng);
    const double u2 = nonzero_uniform(rng);
    double x = 0.0;
    double q = 0.0;
    if (u1 < share_below_) {
      x = std::pow(u2, 1.0 / alpha_);
      q = std::exp(-x);
    } else {
      x = 1.0 - std::log(u2);
      q = std::pow(x, alpha_ - 1.0);
    }
    if (uniform(rng) < q) {
      return x;
    }
  }
}

double Gamma::by_tangent(RandomEngine& rng, PollRef poll) const {
  for (;; poll()) {
    double y = 0.0;
    double v = 0.0;
    double x = 0.0;
    for (;; poll()) {
      y = std::tan(pi * uniform(rng));
      v = width_ * y;
      x = v + alpha_ - 1.0;
      if (x > 0.0) {
        break;
      }
    }
    const double w = uniform(rng);
    // A bound that is not a number rejects nothing.
    if (!(std::exp((alpha_ - 1.0) * std::log(x / (alpha_ - 1.0)) - v) * (y * y + 1.0) < w)) {
      return x;
    }
  }
}

double Gamma::of_integer_shape(RandomEngine& rng) const {
  double product = uniform(rng);  // the first alone may be 0, and the draw infinite
  for (int i = 1; i < static_cast<int>(alpha_); ++i) {
    product *= nonzero_uniform(rng);
  }
  return -std::log(product);
}

double Exponential::operator()(RandomEngine& rng, PollRef) const {
  return standard_exponential(rng) / lambda;
}

double Weibull::operator()(RandomEngine& rng, PollRef) const {
  return b * std::pow(standard_exponential(rng), 1.0 / a);
}

double ExtremeValue::operator()(RandomEngine& rng, PollRef) const {
  return a - b * std::log(-std::log(uniform(rng)));
}

double Cauchy::operator()(RandomEngine& rng, PollRef) const {
  return a + b * std::tan(pi * (uniform(rng) - 0.5));
}

double FisherF::beta_variate(RandomEngine& rng, PollRef poll) const {
  for (;; poll()) {
    double x = 0.0;
    double y = 0.0;
    bool taken = false;
    if (a_ >= 1.0 || b_ >= 1.0) {
      x = gamma_a_(rng, poll);
      y = gamma_b_(rng, poll);
      taken = x + y != 0.0;
    } else {
      x = std::pow(uniform(rng), 1.0 / a_);
      y = std::pow(uniform(rng), 1.0 / b_);
      taken = 0.0 < x + y && x + y <= 1.0;
    }
    if (taken) {
      return x / (x + y);
    }
  }
}

double FisherF::operator()(RandomEngine& rng, PollRef poll) const {
  for (;; poll()) {
    const double v = beta_variate(rng, poll);
    if (v != 1.0) {
      return v / (1.0 - v) * (b_ / a_);
    }
  }
}

double StudentT::operator()(RandomEngine& rng, PollRef poll) const {
  for (;; poll()) {
    const double x = 2.0 * uniform(rng) - 1.0;
    const double y = 2.0 * uniform(rng) - 1.0;
    const double s = x * x + y * y;
    if (1e-12 < s && s < 1.0) {
      const double t2 = (std::pow(std::sqrt(s), -4.0 / n) - 1.0) * n / s;
      return std::sqrt(t2) * x;
    }
  }
}

Data::Data(std::vector<double> data, std::vector<double> weight)
    : data_(std::move(data)), cumulative_(std::move(weight)) {
  if (data_.size() < 2) {
    throw std::invalid_argument("Data must have at least 2 elements");
  }
  if (cumulative_.empty()) {
    cumulative_.assign(data_.size(), 1.0);
  }
  if (!std::is_sorted(data_.begin(), data_.end())) {
    require_equal_lengths("weight", cumulative_.size(), "data", data_.size());
    sort_together(data_, cumulative_);
  }
  const double sum = std::accumulate(cumulative_.begin(), cumulative_.end(), 0.0);
  for (double& weight_of_one : cumulative_) {
    weight_of_one /= sum;
  }
  std::partial_sum(cumulative_.begin(), cumulative_.end(), cumulative_.begin());
  guide_ = GuideTable(cumulative_);
}

Data Data::from_parts(std::vector<double> data, std::vector<double> cumulative) {
  if (data.size() < 2) {
    throw std::invalid_argument("Data must have at least 2 elements");
  }
  Data sampler;
  sampler.data_ = std::move(data);
  sampler.cumulative_ = std::move(cumulative);
  sampler.guide_ = GuideTable(sampler.cumulative_);
  return sampler;
}

double Data::operator()(RandomEngine& rng, PollRef) const {
  const std::size_t k = guide_.lower_bound(cumulative_, uniform(rng));
  const double u1 = uniform(rng);
  const double u2 = uniform(rng);
  const double wa = u1 / (u1 + u2);
  const double wb = u2 / (u1 + u2);
  const std::size_t last = data_.size() - 1;
  // The sum of the weights may stay below the uniform by rounding, or be longer than the data.
  if (k > last) return data_[last];
  // The ends mix with their only neighbour all the way, not to the midpoint only.
  if (k == 0) return wb * data_[1] + wa * data_[0];
  if (k == last) return wa * data_[last - 1] + wb * data_[last];
  return ((data_[k] + data_[k + 1]) * wb + (data_[k] + data_[k - 1]) * wa) * 0.5;
}

}  // namespace talvorix::sampler
