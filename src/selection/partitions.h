#pragma once

#include "core/random.h"
#include "selection/fold_search.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace talvorix {

// How many random subsets each datum is predicted from, and how large they are.
struct PartitionSizes {
  int smallest = 10;
  int largest = 40;
  int count = 15;
};

// Throws std::invalid_argument when a size is negative or the largest is below the smallest.
void check_partition_sizes(const PartitionSizes& sizes, const char* count_name);

// The partitions of one datum, one after the other.
struct Partitions {
  std::vector<std::uint32_t> indices;
  std::vector<std::uint32_t> ends;  // of each partition among the indices

  void clear() {
    indices.clear();
    ends.clear();
  }
};

// Draws the partitions of one datum after the other. One for each worker: its engine carries on
// from datum to datum.
class PartitionSampler {
 public:
  // The search must outlive this.
  PartitionSampler(const CandidateSearch& search, const PartitionSizes& sizes, RandomEngine rng)
      : search_(search), sizes_(sizes), rng_(rng) {}

  // Replaces what partitions holds. With two candidates or fewer there are none, and nothing is
  // drawn.
  void draw(std::size_t i, Partitions& partitions);

 private:
  const CandidateSearch& search_;
  PartitionSizes sizes_;
  RandomEngine rng_;
  SearchScratch scratch_;
  std::vector<std::uint32_t> candidates_;
};

}  // namespace talvorix
