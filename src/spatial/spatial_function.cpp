#include "spatial/spatial_function.h"

#include "core/parallel.h"

namespace talvorix {

std::vector<double> evaluate(const SpatialFunction& function, const Locations& locs,
                             int n_threads) {
  std::vector<double> values(locs.size());
  parallel_for(locs.size(), check_n_threads(n_threads),
               [&](Worker&, std::size_t i) { values[i] = function(locs[i]); });
  return values;
}

}  // namespace talvorix
