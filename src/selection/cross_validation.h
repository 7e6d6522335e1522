#pragma once

#include "core/geometry.h"
#include "covariance/covariance.h"
#include "selection/partitions.h"

#include <cstdint>
#include <vector>

namespace talvorix {

// Repeated leave-one-out: each datum is predicted from random subsets of the data near it.
struct CrossValidation {
  double max_distance;
  int max_size = -1;
  PartitionSizes partitions;
};

// For each datum and partition the estimate minus the value, in standard deviations of the values;
// NaN where there is no estimate. Every worker draws from an engine of its own, so the table
// depends on the thread count.
using ErrorTable = std::vector<std::vector<double>>;

ErrorTable kfold_cross_validation_using_idw(const Locations& data_locs,
                                            std::vector<double> data_values,
                                            const CovarianceModel& covs,
                                            const CrossValidation& validation, double power_a,
                                            std::int64_t seed, int n_threads);
ErrorTable kfold_cross_validation_using_sk(const Locations& data_locs,
                                           std::vector<double> data_values,
                                           const CovarianceModel& covs,
                                           const CrossValidation& validation, std::int64_t seed,
                                           int n_threads);
// The multiplier of ordinary kriging is in the estimate, as everywhere.
ErrorTable kfold_cross_validation_using_ok(const Locations& data_locs,
                                           std::vector<double> data_values,
                                           const CovarianceModel& covs,
                                           const CrossValidation& validation, std::int64_t seed,
                                           int n_threads);

}  // namespace talvorix
