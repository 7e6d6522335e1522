#pragma once

#include "core/parallel.h"
#include "estimation/estimator.h"
#include "spatial/visiting_order.h"

#include <cstddef>
#include <limits>
#include <utility>
#include <variant>
#include <vector>

namespace talvorix {

struct Estimate {
  double value;
  double variance = 0.0;
};

// The loop that all estimation runs in. Each worker calls make_visit(worker) once for a function
// that is then called with (i, neighbors) for each of its targets i.
template <class MakeVisit>
void visit_targets(const Locations& target_locs, const Neighborhood& neighborhood,
                   const NeiGetter& getter, int n_threads, const MakeVisit& make_visit) {
  const auto order = visiting_order(target_locs, neighborhood, n_threads);
  const auto run = [&](const auto& find_neighbors, Worker& worker, std::size_t begin,
                       std::size_t end) {
    SearchScratch search;
    auto visit = make_visit(worker);
    for (std::size_t k = begin; k < end; ++k) {
      worker.poll();
      const std::size_t i = order[k];
      find_neighbors(target_locs[i], search);
      visit(i, std::as_const(search.indices));
    }
  };
  std::visit(
      [&](const auto& find_neighbors) {
        parallel_blocks(order.size(), n_threads,
                        [&](Worker& worker, std::size_t begin, std::size_t end) {
                          run(find_neighbors, worker, begin, end);
                        });
      },
      getter);
}

// Each worker calls make_method(worker) once for a function of (neighbors, target) that gives the
// Estimate of a target with two neighbours or more; with one the estimate is its datum and without
// any NaN, both with variance 0. store(i, estimate) takes the result of target i.
template <class MakeMethod, class Store>
void estimate_targets(const EstimationInput& input, const NeiGetter& getter, int n_threads,
                      const MakeMethod& make_method, const Store& store) {
  visit_targets(input.target_locs, input.neighborhood, getter, n_threads, [&](Worker& worker) {
    return [&input, &store, method = make_method(worker)](
               std::size_t i, const std::vector<std::size_t>& neighbors) mutable {
      if (neighbors.empty()) {
        store(i, Estimate{std::numeric_limits<double>::quiet_NaN()});
      } else if (neighbors.size() == 1) {
        store(i, Estimate{input.data[neighbors.front()]});
      } else {
        store(i, method(neighbors, input.target_locs[i]));
      }
    };
  });
}

}  // namespace talvorix
