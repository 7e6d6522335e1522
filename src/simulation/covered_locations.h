#pragma once

#include "core/geometry.h"

#include <stdexcept>

namespace talvorix {

// Throws std::invalid_argument when a simulator is given no locations to cover.
inline void require_covered(const Locations& locs) {
  if (locs.empty()) {
    throw std::invalid_argument("corners is empty; a simulator needs locations to cover");
  }
}

}  // namespace talvorix
