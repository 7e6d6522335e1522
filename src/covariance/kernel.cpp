#include "covariance/kernel.h"

#include <bit>
#include <cstdint>

namespace talvorix {

namespace {

// exp of arguments at or below 0, to the last bit or two, in a form that vectorises: a third of the
// cost of the general one, in what is the bulk of making a kriging system.
// exp(x) = 2^n exp(r) with |r| <= ln 2 / 2, and Taylor's polynomial for the latter.
inline double exp_of_negative(double x) {
  constexpr double log2_e = 1.4426950408889634;
  constexpr double ln2_high = 0x1.62e42fefa3800p-1;
  constexpr double ln2_low = 0x1.ef35793c76730p-45;
  constexpr double round_shift = 0x1.8p52;  // leaves the rounded number in the low bits
  constexpr double smallest = -708.0;       // below this the result is flushed to 0
  const double shifted = x * log2_e + round_shift;
  const double n = shifted - round_shift;
  const double r = (x - n * ln2_high) - n * ln2_low;
  const double r2 = r * r;
  const double r4 = r2 * r2;
  const double p0 = (1.0 + r) + r2 * (1.0 / 2.0 + r * (1.0 / 6.0));
  const double p4 = (1.0 / 24.0 + r * (1.0 / 120.0)) + r2 * (1.0 / 720.0 + r * (1.0 / 5040.0));
  const double p8 =
      (1.0 / 40320.0 + r * (1.0 / 362880.0)) + r2 * (1.0 / 3628800.0 + r * (1.0 / 39916800.0));
  const double p12 = 1.0 / 479001600.0 + r * (1.0 / 6227020800.0);
  const double p = p0 + r4 * (p4 + r4 * (p8 + r4 * p12));
  const auto power = (std::bit_cast<std::uint64_t>(shifted) + 1023) << 52;
  const double result = p * std::bit_cast<double>(power);
  // NaN is not below anything, and passes.
  return x < smallest ? 0.0 : result;
}

// Runs over whole blocks of lanes, the last one into the padding, so that the loop has no tail.
template <class Correlation>
void accumulate_lanes(const double* __restrict squared_distances, std::size_t count, double sill,
                      double* __restrict sums, Correlation correlation) {
  const std::size_t padded = (count + Kernel::padding - 1) / Kernel::padding * Kernel::padding;
  for (std::size_t i = 0; i < padded; ++i) {
    sums[i] += sill * correlation(squared_distances[i]);
  }
}

}  // namespace

double Kernel::operator()(double h) const {
  switch (form_) {
    case Form::spherical:
      return spherical_kernel(h);
    case Form::gaussian:
      return gaussian_kernel(h);
    case Form::exponential:
      return exponential_kernel(h);
    case Form::nugget:
      return nugget_kernel(h);
    case Form::idw:
      return idw_kernel(h);
    case Form::function:
      break;
  }
  return function_(h);
}

void Kernel::accumulate(const double* squared_distances, std::size_t count, double sill,
                        double* sums) const {
  switch (form_) {
    case Form::spherical:
      accumulate_lanes(squared_distances, count, sill, sums,
                       [](double d2) { return spherical_kernel(std::sqrt(d2)); });
      return;
    case Form::gaussian:
      accumulate_lanes(squared_distances, count, sill, sums,
                       [](double d2) { return exp_of_negative(-3.0 * d2); });
      return;
    case Form::exponential:
      accumulate_lanes(squared_distances, count, sill, sums,
                       [](double d2) { return exp_of_negative(-3.0 * std::sqrt(d2)); });
      return;
    case Form::nugget:
      accumulate_lanes(squared_distances, count, sill, sums,
                       [](double d2) { return d2 < 1e-16 ? 1.0 : 0.0; });
      return;
    case Form::idw:
    case Form::function:
      break;
  }
  for (std::size_t i = 0; i < count; ++i) {
    sums[i] += sill * (*this)(std::sqrt(squared_distances[i]));
  }
}

}  // namespace talvorix
