#include "projection/projection.h"

#include "core/map_in_place.h"
#include "covariance/correlation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

constexpr std::size_t lanes = 8;
using Lanes = std::array<double, lanes>;

// One value for each lane. A value comes out the same whichever lane it stands in.
template <class Correlation>
Lanes weighted_means(const std::vector<double>& centers, const std::vector<double>& betas,
                     const std::vector<double>& weights, const Lanes& x) {
  Lanes numerators{};
  Lanes denominators{};
  for (std::size_t i = 0; i < centers.size(); ++i) {
    const double center = centers[i];
    const double beta = betas[i];
    const double weight = weights[i];
    for (std::size_t lane = 0; lane < lanes; ++lane) {
      const double k = Correlation::value(beta * std::abs(x[lane] - center));
      numerators[lane] += weight * k;
      denominators[lane] += k;
    }
  }
  Lanes means{};
  for (std::size_t lane = 0; lane < lanes; ++lane) {
    means[lane] = numerators[lane] / denominators[lane];
  }
  return means;
}

}  // namespace

Projection::Projection(const std::vector<double>& parameters, Covariance::Type kernel)
    : kernel_(kernel) {
  if (parameters.size() % 3 != 0) {
    throw std::invalid_argument("parameters has " + std::to_string(parameters.size()) +
                                " entries; they must come in threes: center, beta and weight");
  }
  const std::size_t n = parameters.size() / 3;
  centers_.reserve(n);
  betas_.reserve(n);
  weights_.reserve(n);
  for (std::size_t i = 0; i < parameters.size(); i += 3) {
    centers_.push_back(parameters[i]);
    betas_.push_back(parameters[i + 1]);
    weights_.push_back(parameters[i + 2]);
  }
}

std::vector<double> Projection::serialize() const {
  std::vector<double> parameters;
  parameters.reserve(3 * centers_.size());
  for (std::size_t i = 0; i < centers_.size(); ++i) {
    parameters.insert(parameters.end(), {centers_[i], betas_[i], weights_[i]});
  }
  return parameters;
}

void Projection::map(std::span<double> values) const {
  correlation::with(kernel_, [&](auto correlation) {
    using Correlation = decltype(correlation);
    for (std::size_t i = 0; i < values.size(); i += lanes) {
      const std::size_t n = std::min(lanes, values.size() - i);
      Lanes x{};
      std::copy_n(values.data() + i, n, x.begin());
      const Lanes means = weighted_means<Correlation>(centers_, betas_, weights_, x);
      std::copy_n(means.begin(), n, values.data() + i);
    }
  });
}

double Projection::forward(double u) const {
  map({&u, 1});
  return u;
}

std::vector<double> Projection::forward(std::vector<double> u, int n_threads) const {
  return map_in_place(std::move(u), n_threads, [this](std::span<double> part) { map(part); });
}

}  // namespace talvorix
