#include "distributions/pdf.h"

#include "core/map_in_place.h"

#include <array>
#include <span>
#include <utility>

namespace talvorix {

namespace {

double density(double upper, double lower, double dv) { return (upper - lower) / (2.0 * dv); }

}  // namespace

double PDF::prob(double value, double dv) const {
  return density(cdf_.prob(value + dv), cdf_.prob(value - dv), dv);
}

double PDF::value(double prob, double dp) const {
  return (cdf_.value(prob - dp) + cdf_.value(prob + dp)) * 0.5;
}

std::vector<double> PDF::probs(std::vector<double> values, double dv, int n_threads) const {
  return map_in_place(std::move(values), n_threads, [this, dv](std::span<double> part) {
    std::array<double, largest_part> buffer;
    const auto lower = std::span(buffer).first(part.size());
    for (std::size_t i = 0; i < part.size(); ++i) {
      lower[i] = part[i] - dv;
      part[i] += dv;
    }
    cdf_.probs(lower, lower);
    cdf_.probs(part, part);
    for (std::size_t i = 0; i < part.size(); ++i) {
      part[i] = density(part[i], lower[i], dv);
    }
  });
}

std::vector<double> PDF::values(std::vector<double> probs, double dp, int n_threads) const {
  return map_in_place(std::move(probs), n_threads, [this, dp](std::span<double> part) {
    for (double& entry : part) {
      entry = value(entry, dp);
    }
  });
}

}  // namespace talvorix
