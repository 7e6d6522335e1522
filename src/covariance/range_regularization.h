#pragma once

#include "core/geometry.h"

#include <algorithm>
#include <cstddef>

namespace talvorix {

// Residuals that keep a fitted structure modest: three that fall as its ranges move away from their
// largest values, and a faint one that draws its sill to 1. A structure has seven parameters: sill,
// three ranges, three angles.
class RangeRegularization {
 public:
  static constexpr std::size_t residuals_per_structure = 4;
  static constexpr std::size_t parameters_per_structure = 7;

  RangeRegularization(const Vector3& max_ranges, double constant, std::size_t n_structures)
      : max_ranges_(max_ranges), constant_(constant), n_structures_(n_structures) {}

  std::size_t n_residuals() const { return residuals_per_structure * n_structures_; }

  // The Jacobian is by columns, stride apart; none is written when it is null.
  void evaluate(const double* parameters, std::size_t n_parameters, double* residuals,
                double* jacobian, std::size_t stride) const {
    if (jacobian != nullptr) {
      for (std::size_t p = 0; p < n_parameters; ++p) {
        std::fill_n(jacobian + p * stride, n_residuals(), 0.0);
      }
    }
    for (std::size_t k = 0; k < n_structures_; ++k) {
      const std::size_t first = parameters_per_structure * k;
      std::size_t row = residuals_per_structure * k;
      const auto write = [&](std::size_t parameter, double residual, double slope) {
        residuals[row] = residual;
        if (jacobian != nullptr) {
          jacobian[parameter * stride + row] = slope;
        }
        ++row;
      };
      for (std::size_t a = 0; a < 3; ++a) {
        const double largest = max_ranges_[static_cast<Eigen::Index>(a)];
        const double t = (parameters[first + 1 + a] - largest) / largest;
        const double sum = 1.0 + t * t;
        const double slope = 2.0 * t / largest;
        if (t >= 0.0) {
          write(first + 1 + a, constant_ * sum, constant_ * slope);
        } else {
          write(first + 1 + a, constant_ / sum, -constant_ * slope / (sum * sum));
        }
      }
      const double excess = parameters[first] - 1.0;
      write(first, constant_ * 0.001 * excess * excess, constant_ * 0.002 * excess);
    }
  }

 private:
  Vector3 max_ranges_;
  double constant_;
  std::size_t n_structures_;
};

}  // namespace talvorix
