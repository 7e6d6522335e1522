#pragma once

#include "core/geometry.h"
#include "covariance/covariance.h"

#include <vector>

namespace talvorix {

// A model made ready to be evaluated: a flat list of matrices, sills and kernels.
class CovarianceComputer {
 public:
  struct Structure {
    Matrix3 matrix;  // from lags in model units to lags in range units
    double sill;
    Kernel kernel;
  };

  explicit CovarianceComputer(std::vector<Structure> structures)
      : structures_(std::move(structures)) {}

  const std::vector<Structure>& structures() const { return structures_; }

  double operator()(const Vector3& lag) const {
    double sum = 0.0;
    for (const Structure& structure : structures_) {
      sum += structure.sill * structure.kernel((structure.matrix * lag).norm());
    }
    return sum;
  }

 private:
  std::vector<Structure> structures_;
};

// With n below 0 the structures' own kernels, otherwise tables of n entries per range.
CovarianceComputer create_cov_computer(const CovarianceModel& covs, int n);

}  // namespace talvorix
