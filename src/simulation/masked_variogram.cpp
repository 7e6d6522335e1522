#include "simulation/masked_variogram.h"

#include "core/interrupt.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace talvorix::fft {

MaskedVariogram masked_variogram(const array& values) {
  const Extents& n = values.extents();
  const Extents padded = {2 * n[0] - 1, 2 * n[1] - 1, 2 * n[2] - 1};
  InterruptPoller poll;
  // One grid serves for all that is transformed: large ones take long to come by.
  array grid(padded, 0.0);
  const auto spectrum_of = [&](auto&& of_present_value) {
    for (std::int64_t i = 0; i < n[0]; ++i) {
      for (std::int64_t j = 0; j < n[1]; ++j) {
        poll();
        for (std::int64_t k = 0; k < n[2]; ++k) {
          const double z = values(i, j, k);
          grid(i, j, k) = std::isfinite(z) ? of_present_value(z) : 0.0;
        }
      }
    }
    complex_array spectrum;
    spectrum.forward(grid);
    return spectrum;
  };
  complex_array spectrum_of_values = spectrum_of([](double z) { return z; });
  complex_array spectrum_of_squares = spectrum_of([](double z) { return z * z; });
  complex_array spectrum_of_presence = spectrum_of([](double) { return 1.0; });

  // Over all pairs at a lag, the sum of (z - z')^2 is that of the squares at either end, less twice
  // that of the products: correlations of the three grids, and so products of their spectra.
  for (std::int64_t i = 0; i < spectrum_of_values.size(); ++i) {
    poll();
    const std::complex<double> present = spectrum_of_presence(i);
    const double squares = (spectrum_of_squares(i) * std::conj(present)).real();
    const double products = std::norm(spectrum_of_values(i));
    spectrum_of_squares(i) = 2.0 * squares - 2.0 * products;
    spectrum_of_presence(i) = std::norm(present);
  }
  spectrum_of_values = complex_array();
  MaskedVariogram result{std::move(grid), array(padded, 0.0)};
  result.variogram.backward(spectrum_of_squares);
  result.npairs.backward(spectrum_of_presence);
  const auto n_padded = static_cast<double>(result.npairs.size());
  for (std::int64_t i = 0; i < result.npairs.size(); ++i) {
    poll();
    double& p = result.npairs(i);
    double& g = result.variogram(i);
    p /= n_padded;
    g = p <= 1e-08 ? 0.0 : g / (2.0 * n_padded) / p;
  }
  return result;
}

}  // namespace talvorix::fft
