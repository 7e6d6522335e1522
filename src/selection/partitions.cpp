#include "selection/partitions.h"

#include "core/arguments.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace talvorix {

void check_partition_sizes(const PartitionSizes& sizes, const char* count_name) {
  require_count("min_partition_size", sizes.smallest);
  require_count(count_name, sizes.count);
  if (sizes.largest < sizes.smallest) {
    throw std::invalid_argument("max_partition_size is " + std::to_string(sizes.largest) +
                                ", below min_partition_size, which is " +
                                std::to_string(sizes.smallest));
  }
}

void PartitionSampler::draw(std::size_t i, Partitions& partitions) {
  partitions.clear();
  search_.find(i, scratch_, candidates_);
  if (candidates_.size() <= 2) {
    return;
  }
  const auto n_sizes = static_cast<std::uint32_t>(sizes_.largest - sizes_.smallest) + 1U;
  for (int p = 0; p < sizes_.count; ++p) {
    const std::size_t wanted =
        static_cast<std::uint32_t>(rng_()) % n_sizes + static_cast<std::size_t>(sizes_.smallest);
    const std::size_t size = std::min(wanted, candidates_.size());
    // The whole list, although its beginning alone is used, and from where the last shuffle left
    // it: later draws depend on it.
    shuffle(candidates_, rng_);
    partitions.indices.insert(partitions.indices.end(), candidates_.begin(),
                              candidates_.begin() + static_cast<std::ptrdiff_t>(size));
    partitions.ends.push_back(static_cast<std::uint32_t>(partitions.indices.size()));
  }
}

}  // namespace talvorix
