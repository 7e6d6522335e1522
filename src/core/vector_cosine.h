#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace talvorix {

// Beyond this the cosine below loses digits.
constexpr double largest_for_vector_cosine = 3.0e6;

// cos(x) for arguments up to that size, within a few units in the last place of 1, in a form that
// vectorises: cos(x) = (-1)^k cos(x - k pi), and Taylor's polynomial from -pi/2 to pi/2.
inline double vector_cosine(double x) {
  constexpr double inverse_pi = 0.31830988618379067;
  // Three parts of pi; the first two leave room for the digits of k.
  constexpr double pi_high = 0x1.921fb54400000p+1;
  constexpr double pi_mid = 0x1.0b4611a600000p-33;
  constexpr double pi_low = 0x1.3198a2e037073p-68;
  constexpr double round_shift = 0x1.8p52;  // leaves the rounded number in the low bits
  const double shifted = x * inverse_pi + round_shift;
  const double k = shifted - round_shift;
  const double r = ((x - k * pi_high) - k * pi_mid) - k * pi_low;
  const double s = r * r;
  const double s2 = s * s;
  const double s4 = s2 * s2;
  const double p0 = (1.0 - s * (1.0 / 2.0)) + s2 * (1.0 / 24.0 - s * (1.0 / 720.0));
  const double p4 = (1.0 / 40320.0 - s * (1.0 / 3628800.0)) +
                    s2 * (1.0 / 479001600.0 - s * (1.0 / 87178291200.0));
  const double p8 = (1.0 / 20922789888000.0 - s * (1.0 / 6402373705728000.0)) +
                    s2 * (1.0 / 2432902008176640000.0);
  const double p = p0 + s4 * (p4 + s4 * p8);
  const std::uint64_t sign = std::bit_cast<std::uint64_t>(shifted) << 63;
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(p) ^ sign);
}

}  // namespace talvorix
