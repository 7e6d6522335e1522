#include "selection/fold_search.h"

namespace talvorix {

CandidateSearch::CandidateSearch(const Locations& locations, double max_distance, int max_size)
    : locations_(locations), max_distance_(max_distance), max_size_(max_size) {
  if (!covers_all(max_size, locations.size())) {
    neighborhood_.emplace(locations);
  }
}

void CandidateSearch::find(std::size_t i, SearchScratch& scratch,
                           std::vector<std::uint32_t>& candidates) const {
  candidates.clear();
  const Vector3& location = locations_[i];
  const auto consider = [&](std::size_t j) {
    if (j != i && (locations_[j] - location).norm() < max_distance_) {
      candidates.push_back(static_cast<std::uint32_t>(j));
    }
  };
  if (!neighborhood_) {
    for (std::size_t j = 0; j < locations_.size(); ++j) {
      consider(j);
    }
    return;
  }
  if (max_size_ < 1) {
    neighborhood_->find_within(location, max_distance_, scratch);
  } else {
    neighborhood_->find_nearest(location, static_cast<std::size_t>(max_size_), scratch);
  }
  for (const std::size_t j : scratch.indices) {
    consider(j);
  }
}

}  // namespace talvorix
