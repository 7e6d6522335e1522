#pragma once

#include <cmath>
#include <utility>

namespace talvorix {

// The power of a weight. The three common ones are multiplications; a power within 1e-6 of one of
// them counts as it.
struct Cube {
  double operator()(double x) const { return x * x * x; }
};
struct Square {
  double operator()(double x) const { return x * x; }
};
struct Identity {
  double operator()(double x) const { return x; }
};
struct GeneralPower {
  double power;
  double operator()(double x) const { return std::pow(x, power); }
};

// Calls body with the weight function for power, so that the choice stands outside its loops.
template <class Body>
decltype(auto) with_weight_power(double power, Body&& body) {
  constexpr double tolerance = 1e-6;
  if (std::abs(power - 3.0) < tolerance) {
    return body(Cube{});
  }
  if (std::abs(power - 2.0) < tolerance) {
    return body(Square{});
  }
  if (std::abs(power - 1.0) < tolerance) {
    return body(Identity{});
  }
  return body(GeneralPower{power});
}

}  // namespace talvorix
