#pragma once

#include "core/vector_exp.h"
#include "covariance/covariance.h"

#include <cmath>

// The kernels that models are fitted with, together with their slopes, one type each: what loops
// over many distances are compiled for. They are those of GenericKernel, the nugget's threshold
// included; where a kernel is constant or stops, its slope is 0.

namespace talvorix::correlation {

struct Spherical {
  static double value(double h) { return h > 1.0 ? 0.0 : (1.0 - 1.5 * h) + (0.5 * h * h) * h; }
  static double slope(double h, double /*value*/) { return h > 1.0 ? 0.0 : -1.5 + 1.5 * h * h; }
};

struct Gaussian {
  static double value(double h) { return vector_exp(-3.0 * h * h); }
  static double slope(double h, double value) { return -6.0 * h * value; }
};

struct Exponential {
  static double value(double h) { return vector_exp(-3.0 * h); }
  static double slope(double /*h*/, double value) { return -3.0 * value; }
};

struct Idw {
  static double value(double h) { return h < 1e-6 ? 1000000.0 : 1.0 / (h * h); }
  static double slope(double h, double value) { return h < 1e-6 ? 0.0 : -2.0 * value / h; }
};

struct Nugget {
  static double value(double h) { return h < 1e-30 ? 1.0 : 0.0; }
  static double slope(double /*h*/, double /*value*/) { return 0.0; }
};

// Calls body with the kernel of a type, so that the choice stands outside its loops.
template <class Body>
decltype(auto) with(Covariance::Type type, Body&& body) {
  switch (type) {
    case Covariance::Type::spherical:
      return body(Spherical{});
    case Covariance::Type::gaussian:
      return body(Gaussian{});
    case Covariance::Type::exponential:
      return body(Exponential{});
    case Covariance::Type::idw:
      return body(Idw{});
    case Covariance::Type::nugget:
      break;
  }
  return body(Nugget{});
}

}  // namespace talvorix::correlation
