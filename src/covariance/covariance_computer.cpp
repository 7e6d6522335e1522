#include "covariance/covariance_computer.h"

#include "covariance/kernel_table.h"

namespace talvorix {

CovarianceComputer create_cov_computer(const CovarianceModel& covs, int n) {
  std::vector<CovarianceComputer::Structure> structures;
  structures.reserve(covs.size());
  for (const Covariance& cov : covs) {
    structures.push_back(
        {cov.ellipsoid.matrix(), cov.sill, n < 0 ? cov.kernel : get_kernel(cov, n)});
  }
  return CovarianceComputer(std::move(structures));
}

}  // namespace talvorix
