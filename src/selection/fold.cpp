#include "selection/fold.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/random.h"
#include "core/ranking.h"
#include "selection/fold_search.h"

#include <cstddef>
#include <stdexcept>

namespace talvorix {

std::vector<Fold> create_folds(const Locations& data_locs, const std::vector<double>& data,
                               double max_distance, int max_size, int n_centers,
                               std::int64_t seed) {
  require_equal_lengths("data", data.size(), "data_locs", data_locs.size());
  if (data.empty() && n_centers > 0) {
    throw std::invalid_argument("data is empty; a fold around a center needs data");
  }
  std::vector<Fold> folds;
  if (n_centers > 0) {
    RandomEngine rng = seeded_engine(seed);
    const std::vector<std::size_t> by_value = descending_order(data);
    const bool nearest_only = max_size >= 1 && !covers_all(max_size, data.size());
    const Neighborhood neighborhood(data_locs);
    InterruptPoller poll;
    SearchScratch scratch;
    scratch.poll = &poll;
    for (int i = 0; i < n_centers; ++i) {
      poll();
      const std::size_t rank = i == 0 ? 0 : rng() % (data.size() / 2 + 1);
      const Vector3& center = data_locs[by_value[rank]];
      if (nearest_only) {
        neighborhood.find_nearest(center, static_cast<std::size_t>(max_size), scratch);
      } else {
        neighborhood.find_within(center, max_distance, scratch);
      }
      Fold fold;
      for (const std::size_t j : scratch.indices) {
        if ((data_locs[j] - center).norm() <= max_distance) {
          fold.locations.push_back(data_locs[j]);
          fold.values.push_back(data[j]);
        }
      }
      if (!fold.values.empty()) {
        folds.push_back(std::move(fold));
      }
    }
  }
  if (folds.empty()) {
    folds.push_back({data_locs, data});
  }
  return folds;
}

}  // namespace talvorix
