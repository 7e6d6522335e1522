#pragma once

#include "core/parallel.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

namespace talvorix {

constexpr std::size_t largest_part = 1024;

// map(part) for parts of the values, small enough to poll between them, in parallel.
template <class Map>
std::vector<double> map_in_place(std::vector<double> values, int n_threads, Map&& map) {
  parallel_blocks(values.size(), check_n_threads(n_threads),
                  [&](Worker& worker, std::size_t begin, std::size_t end) {
                    while (begin < end) {
                      worker.poll();
                      const std::size_t n = std::min(largest_part, end - begin);
                      map(std::span(values).subspan(begin, n));
                      begin += n;
                    }
                  });
  return values;
}

}  // namespace talvorix
