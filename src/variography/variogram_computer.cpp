#include "variography/variogram_computer.h"

#include "covariance/covariance_computer.h"

namespace talvorix {

SpatialFunction create_variogram_computer(const CovarianceModel& cov, double data_var) {
  const CovarianceComputer covariance = create_cov_computer(cov, -1);
  const double sill = covariance(Vector3::Zero());
  return [covariance, sill, data_var](const Vector3& lag) {
    return (1.0 - covariance(lag) / sill) * data_var;
  };
}

}  // namespace talvorix
