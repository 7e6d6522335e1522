#include "covariance/kernel.h"

#include "core/vector_exp.h"

namespace talvorix {

namespace {

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
