#pragma once

#include "core/weight_power.h"
#include "covariance/mapped_model.h"
#include "selection/partitions.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <span>
#include <vector>

namespace talvorix {

// Predicts a datum from its partitions with weights of inverse distance, where a model of total
// sill 1 stands for the distance by 1 - C(lag). A datum at no distance is left out rather than
// given all the weight. One for each worker.
template <class Power>
class CorrelatedIdw {
 public:
  CorrelatedIdw(const MappedModel& model, const std::vector<double>& values, Power power)
      : points_(model), values_(values), power_(power) {}

  // Writes, for each partition, the estimate minus the value of datum i; NaN where no datum has a
  // weight.
  void errors(std::size_t i, std::span<const std::uint32_t> indices,
              std::span<const std::uint32_t> ends, double* errors) {
    constexpr double least = 1e-10;
    points_.gather(indices);
    const double* covariances = points_.covariances_with_point(i);
    weights_.resize(std::max(weights_.size(), indices.size()));
    for (std::size_t k = 0; k < indices.size(); ++k) {
      const double distance = 1.0 - covariances[k];
      const double weight = power_(1.0 / distance);
      weights_[k] = distance > least ? weight : 0.0;
    }
    std::size_t begin = 0;
    for (const std::size_t end : ends) {
      double sum = 0.0;
      double weight_sum = 0.0;
      for (std::size_t k = begin; k < end; ++k) {
        sum += weights_[k] * values_[indices[k]];
        weight_sum += weights_[k];
      }
      *errors++ = weight_sum > least ? sum / weight_sum - values_[i]
                                     : std::numeric_limits<double>::quiet_NaN();
      begin = end;
    }
  }

 private:
  GatheredPoints points_;
  const std::vector<double>& values_;
  Power power_;
  std::vector<double> weights_;
};

}  // namespace talvorix
