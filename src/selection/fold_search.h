#pragma once

#include "core/geometry.h"
#include "spatial/neighborhood.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace talvorix {

// Whether a search for max_size data counts as one for all n of them. The comparison is unsigned on
// purpose: every negative size reads as a very large one.
inline bool covers_all(int max_size, std::size_t n) {
  return n <= static_cast<std::uint64_t>(static_cast<std::int64_t>(max_size));
}

// Finds the data from which each datum of a fold may be predicted: those nearer than max_distance,
// of the max_size nearest, or of all when that covers them all.
class CandidateSearch {
 public:
  // The locations must outlive this.
  CandidateSearch(const Locations& locations, double max_distance, int max_size);

  // In the order in which the search gives them; the datum itself is left out.
  void find(std::size_t i, SearchScratch& scratch, std::vector<std::uint32_t>& candidates) const;

 private:
  const Locations& locations_;
  double max_distance_;
  int max_size_;
  std::optional<Neighborhood> neighborhood_;  // none when all data are looked at
};

}  // namespace talvorix
