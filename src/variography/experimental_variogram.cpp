#include "variography/experimental_variogram.h"

#include "core/arguments.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

ExperimentalVariogram::ExperimentalVariogram(Entries entries, std::vector<int> direction_ids,
                                             Locations directions)
    : directions_(std::move(directions)),
      direction_ids_(std::move(direction_ids)),
      entries_(std::move(entries)),
      lags_by_dir_(directions_.size()) {
  const std::size_t n_entries = entries_.lags.size();
  require_equal_lengths("variogram", entries_.variogram.size(), "lags", n_entries);
  require_equal_lengths("npairs", entries_.npairs.size(), "lags", n_entries);
  require_equal_lengths("direction_id", direction_ids_.size(), "lags", n_entries);
  for (std::size_t i = 0; i < n_entries; ++i) {
    const int id = direction_ids_[i];
    if (id < 0 || static_cast<std::size_t>(id) >= directions_.size()) {
      throw std::out_of_range("direction_id[" + std::to_string(i) + "] is " + std::to_string(id) +
                              ", but there are " + std::to_string(directions_.size()) +
                              " directions");
    }
    lags_by_dir_[static_cast<std::size_t>(id)].push_back(static_cast<int>(i));
  }
}

ExperimentalVariogram::Entries ExperimentalVariogram::get_variogram(
    const Vector3& direction) const {
  const Vector3 unit = direction.normalized();
  double best_distance = 1e30;
  int best = -1;
  for (std::size_t i = 0; i < directions_.size(); ++i) {
    if (lags_by_dir_[i].empty()) {
      continue;
    }
    const double distance = (directions_[i] - unit).norm();
    if (distance < best_distance) {
      best_distance = distance;
      best = static_cast<int>(i);
    }
  }
  return get_variogram_by_direction_id(best);
}

ExperimentalVariogram::Entries ExperimentalVariogram::get_variogram_by_direction_id(
    int direction_id) const {
  Entries found;
  for (std::size_t i = 0; i < direction_ids_.size(); ++i) {
    if (direction_ids_[i] == direction_id) {
      found.lags.push_back(entries_.lags[i]);
      found.variogram.push_back(entries_.variogram[i]);
      found.npairs.push_back(entries_.npairs[i]);
    }
  }
  return found;
}

}  // namespace talvorix
