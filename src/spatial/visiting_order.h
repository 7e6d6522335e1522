#pragma once

#include "core/geometry.h"
#include "spatial/neighborhood.h"

#include <cstddef>
#include <vector>

namespace talvorix {

// The order in which a loop over targets should visit them, so that one target's neighbours are
// likely to be the next one's: the given order where it steps from place to place already, else
// along a Hilbert curve through the search space. The stretches of the order are dealt out so that
// each of n_threads static blocks holds a share of every region, and so about the same work.
//
// It is a permutation of 0 to targets.size() - 1 and changes no result.
std::vector<std::size_t> visiting_order(const Locations& targets, const Neighborhood& neighborhood,
                                        int n_threads);

}  // namespace talvorix
