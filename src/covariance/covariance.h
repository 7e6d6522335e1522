#pragma once

#include "core/geometry.h"
#include "covariance/kernel.h"
#include "spatial/ellipsoid.h"

#include <vector>

namespace talvorix {

// One structure of a covariance model. The kernel is what is evaluated; the type is a tag that
// need not match it.
struct Covariance {
  CovarianceType type;
  double sill;
  Ellipsoid ellipsoid;
  Kernel kernel;

  static Covariance of_type(CovarianceType type, double sill, const Ellipsoid& ellipsoid) {
    return {type, sill, ellipsoid, plain_kernel(type)};
  }
  static Covariance nugget(double sill) {
    return of_type(CovarianceType::nugget, sill, Ellipsoid());
  }

  // The covariance of two values a lag h apart.
  double operator()(const Vector3& h) const { return sill * kernel(ellipsoid.forward(h).norm()); }
};

// A model: the sum of its structures, nuggets included.
using CovarianceModel = std::vector<Covariance>;

}  // namespace talvorix
