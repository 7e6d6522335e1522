#pragma once

#include "core/geometry.h"

#include <cstdint>

namespace talvorix {

// size unit vectors of a low-discrepancy sequence on one hemisphere, which a random rotation that
// depends on the seed alone turns. The seed is also the first index of the sequence; a negative
// one counts as the negative index it is.
Locations generate_random_semisphere(int size, std::int64_t seed);

// 2 size unit vectors: the semisphere's, then the negated continuation of its sequence. The second
// half is not the antipode of the first.
Locations generate_random_sphere(int size, std::int64_t seed);

}  // namespace talvorix
