#pragma once

#include "core/geometry.h"
#include "covariance/kernel.h"
#include "spatial/ellipsoid.h"

#include <string>
#include <string_view>
#include <vector>

namespace talvorix {

// One structure of a covariance model. The kernel is what is evaluated; the type is a tag that
// need not match it.
struct Covariance {
  // The numbers are part of the interface.
  enum class Type : int { spherical = 1, gaussian = 2, exponential = 3, nugget = 4, idw = 5 };

  Type type;
  double sill;
  Ellipsoid ellipsoid;
  Kernel kernel;

  // A structure with the plain kernel of its type.
  static Covariance of_type(Type type, double sill, const Ellipsoid& ellipsoid);
  static Covariance nugget(double sill) { return of_type(Type::nugget, sill, Ellipsoid()); }

  // The covariance of two values a lag h apart.
  double operator()(const Vector3& h) const { return sill * kernel(ellipsoid.forward(h).norm()); }
};

// Any text but the four exact lower-case names of the other types is a nugget.
Covariance::Type parse_covariance_type(std::string_view text);
std::string to_text(Covariance::Type type);

// The plain kernel of a type; unknown types give the nugget's.
Kernel plain_kernel(Covariance::Type type);

inline Covariance Covariance::of_type(Type type, double sill, const Ellipsoid& ellipsoid) {
  return {type, sill, ellipsoid, plain_kernel(type)};
}

// A model: the sum of its structures, nuggets included.
using CovarianceModel = std::vector<Covariance>;

}  // namespace talvorix
