#pragma once

#include "covariance/covariance.h"

#include <Eigen/Core>

#include <utility>
#include <vector>

// Covariance models over any scalar: plain double, or a dual number that carries derivatives with
// respect to sills, ranges and angles. The scalar's own exp, sqrt, sin and cos are found by name.

namespace talvorix {

template <class T>
using GenericVector = Eigen::Matrix<T, 3, 1>;

// Angles in radians, in the form that the rotation matrices take them.
template <class T>
struct generic_cov_structure {
  Covariance::Type type;
  T sill;
  T r1, r2, r3;
  T azimuth, dip, rake;
};

// The plain kernels, but for the nugget's threshold, which is 1e-30 here on purpose. Where a
// branch gives a constant, its derivative is zero.
template <class T>
class GenericKernel {
 public:
  explicit GenericKernel(Covariance::Type type) : type_(type) {}

  T operator()(const T& h) const {
    using std::exp;
    switch (type_) {
      case Covariance::Type::spherical:
        return h > T(1.0) ? T(0.0) : T((1.0 - 1.5 * h) + (0.5 * h * h) * h);
      case Covariance::Type::gaussian:
        return exp(-3.0 * h * h);
      case Covariance::Type::exponential:
        return exp(-3.0 * h);
      case Covariance::Type::idw:
        return h < T(1e-6) ? T(1000000.0) : T(1.0 / (h * h));
      case Covariance::Type::nugget:
        break;
    }
    return h < T(1e-30) ? T(1.0) : T(0.0);
  }

 private:
  Covariance::Type type_;
};

template <class T>
T generic_norm(const GenericVector<T>& u) {
  using std::sqrt;
  return sqrt(u.x() * u.x() + u.y() * u.y() + u.z() * u.z());
}

// A range at or below 1e-30 reads as 1.
template <class T>
Eigen::Matrix<T, 3, 3> generic_anisotropy_matrix(const T& r1, const T& r2, const T& r3,
                                                 const T& azimuth, const T& dip, const T& rake) {
  using std::cos;
  using std::sin;
  const auto inverse = [](const T& r) { return r <= T(1e-30) ? T(1.0) : T(1.0 / r); };
  const T zero(0.0);
  const T one(1.0);
  Eigen::Matrix<T, 3, 3> A, B, C;
  A << cos(azimuth), sin(azimuth), zero, -sin(azimuth), cos(azimuth), zero, zero, zero, one;
  B << cos(dip), zero, -sin(dip), zero, one, zero, sin(dip), zero, cos(dip);
  C << one, zero, zero, zero, cos(rake), sin(rake), zero, -sin(rake), cos(rake);
  const Eigen::Matrix<T, 3, 3> CB = C * B;
  const Eigen::Matrix<T, 3, 3> R = CB * A;
  return GenericVector<T>(inverse(r1), inverse(r2), inverse(r3)).asDiagonal() * R;
}

template <class T>
class GenericCovariance {
 public:
  explicit GenericCovariance(const generic_cov_structure<T>& s)
      : kernel_(s.type),
        matrix_(generic_anisotropy_matrix(s.r1, s.r2, s.r3, s.azimuth, s.dip, s.rake)),
        sill_(s.sill) {}

  T operator()(const GenericVector<T>& lag) const {
    return kernel_(generic_norm<T>(matrix_ * lag)) * sill_;
  }

 private:
  GenericKernel<T> kernel_;
  Eigen::Matrix<T, 3, 3> matrix_;
  T sill_;
};

template <class T>
class GenericNestedCovariance {
 public:
  GenericNestedCovariance(const std::vector<generic_cov_structure<T>>& structures, T nugget)
      : structures_(structures.begin(), structures.end()), nugget_(std::move(nugget)) {}

  T operator()(const GenericVector<T>& lag) const {
    T sum(0.0);
    for (const GenericCovariance<T>& structure : structures_) {
      sum += structure(lag);
    }
    // The nugget's threshold is on the lag itself, not on one in range units.
    sum += generic_norm<T>(lag) < T(1e-10) ? nugget_ : T(0.0);
    return sum;
  }

 private:
  std::vector<GenericCovariance<T>> structures_;
  T nugget_;
};

template <class T>
GenericKernel<T> create_cov_kernel(Covariance::Type type) {
  return GenericKernel<T>(type);
}

template <class T>
GenericCovariance<T> create_cov(Covariance::Type type, const T& sill, const T& r1, const T& r2,
                                const T& r3, const T& azimuth, const T& dip, const T& rake) {
  return GenericCovariance<T>({type, sill, r1, r2, r3, azimuth, dip, rake});
}

template <class T>
GenericNestedCovariance<T> create_nested_cov(
    const std::vector<generic_cov_structure<T>>& structures, const T& nugget) {
  return GenericNestedCovariance<T>(structures, nugget);
}

}  // namespace talvorix
