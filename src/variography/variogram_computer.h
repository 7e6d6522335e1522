#pragma once

#include "covariance/covariance.h"
#include "spatial/spatial_function.h"

namespace talvorix {

// The model's variogram of data of variance data_var: (1 - C(lag) / C(0)) data_var.
SpatialFunction create_variogram_computer(const CovarianceModel& cov, double data_var);

}  // namespace talvorix
