#pragma once

#include "core/geometry.h"
#include "core/parallel.h"
#include "variography/lag_bins.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace talvorix {

// The data of one tube in columns, and the pairs among them. One for each worker.
class TubePairs {
 public:
  // A pair counts when the cosine between it and a direction is not below smallest_cosine. The
  // lists must outlive this.
  TubePairs(const Locations& locations, const std::vector<double>& values, double smallest_cosine);

  void gather(const std::vector<std::uint32_t>& indices);

  // Adds every pair that stands along the direction to its bin.
  void add_to(LagBins& bins, const Vector3& direction, Worker& worker);

 private:
  std::size_t keep_nearly_aligned(std::size_t count);
  void find_places(std::size_t i, std::size_t n_aligned, LagBins::Ruler ruler);

  const Locations& locations_;
  const std::vector<double>& values_;
  double smallest_cosine_;
  double squared_cosine_;
  std::size_t size_ = 0;
  std::vector<double> x_, y_, z_, value_;              // of the data
  std::vector<double> projection_, squared_, excess_;  // of the pairs of one datum
  std::vector<std::uint32_t> aligned_;                 // which of them are left
  std::vector<double> r_, g_, place_;                  // of those
};

}  // namespace talvorix
