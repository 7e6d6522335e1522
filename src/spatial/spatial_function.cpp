#include "spatial/spatial_function.h"

#include "core/parallel.h"

#include <algorithm>

namespace talvorix {

void SpatialField::values(std::span<const Vector3> locations, double* values, int worker,
                          PollRef poll) const {
  for (const Vector3& location : locations) {
    poll();
    *values++ = value(location, worker);
  }
}

std::vector<double> evaluate(const SpatialFunction& function, const Locations& locs,
                             int n_threads) {
  std::vector<double> values(locs.size());
  parallel_blocks(locs.size(), check_n_threads(n_threads),
                  [&](Worker& worker, std::size_t begin, std::size_t end) {
                    constexpr std::size_t at_once = 1024;
                    while (begin < end) {
                      worker.poll();
                      const std::size_t n = std::min(at_once, end - begin);
                      function.field().values(std::span(locs).subspan(begin, n),
                                              values.data() + begin, worker.index(), worker);
                      begin += n;
                    }
                  });
  return values;
}

}  // namespace talvorix
