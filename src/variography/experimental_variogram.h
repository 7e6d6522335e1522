#pragma once

#include "core/geometry.h"

#include <vector>

namespace talvorix {

// Semivariances by direction and lag, as parallel lists with one entry for each lag bin that has
// pairs. Entries of one direction stand together, by ascending lag.
class ExperimentalVariogram {
 public:
  struct Entries {
    Locations lags;  // lag distance times direction
    std::vector<double> variogram;
    std::vector<int> npairs;
  };

  // Throws std::invalid_argument when the lists of entries are not equally long, std::out_of_range
  // when an entry's direction is none of the directions.
  ExperimentalVariogram(Entries entries, std::vector<int> direction_ids, Locations directions);

  const Locations& lags() const { return entries_.lags; }
  const std::vector<double>& variogram() const { return entries_.variogram; }
  const std::vector<int>& npairs() const { return entries_.npairs; }
  const std::vector<int>& direction_ids() const { return direction_ids_; }
  // All that were searched, those without entries included.
  const Locations& directions() const { return directions_; }
  // For each direction the positions of its entries.
  const std::vector<std::vector<int>>& lags_by_dir() const { return lags_by_dir_; }

  // The entries of the direction nearest to this one among those that have any. A direction and its
  // opposite are two.
  Entries get_variogram(const Vector3& direction) const;
  Entries get_variogram_by_direction_id(int direction_id) const;

 private:
  Locations directions_;
  std::vector<int> direction_ids_;
  Entries entries_;
  std::vector<std::vector<int>> lags_by_dir_;
};

}  // namespace talvorix
