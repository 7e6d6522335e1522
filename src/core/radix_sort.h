#pragma once

#include "core/interrupt.h"

#include <bit>
#include <cstdint>
#include <span>

namespace talvorix {

// An integer that orders as the double does, -0.0 just below 0.0. NaN come after infinity, or
// before its negative when their sign bit is set.
inline std::uint64_t order_key(double value) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  // All bits of a negative number turn, and the sign alone of any other. Shifted, not chosen: signs
  // are what a branch predicts worst.
  const auto turned_by_sign = static_cast<std::uint64_t>(static_cast<std::int64_t>(bits) >> 63);
  return bits ^ (turned_by_sign | std::uint64_t{1} << 63);
}

// Sorts ascending, with every NaN at the end, where a binary search for a number never meets it
// before that number. Takes the same time whatever the values are.
void sort_ascending(std::span<double> values, PollRef poll);

}  // namespace talvorix
