#include "spatial/block_model.h"

#include "core/arguments.h"
#include "core/interrupt.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

BlockModel::BlockModel(CartesianGrid base_grid, CellMask mask)
    : base_grid_(std::move(base_grid)), mask_(std::move(mask)) {
  require_equal_lengths("mask", mask_.size(), "base_grid",
                        static_cast<std::size_t>(base_grid_.total()));
  const auto n_active = static_cast<std::size_t>(std::count(mask_.begin(), mask_.end(), true));
  active_.reserve(n_active);
  locations_.reserve(n_active);
  InterruptPoller poll;
  for (std::size_t i = 0; i < mask_.size(); ++i) {
    poll();
    if (mask_[i]) {
      active_.push_back(static_cast<std::int64_t>(i));
      locations_.push_back(base_grid_.locations()[i]);
    }
  }
}

std::int64_t BlockModel::linear_index(std::int64_t position) const {
  if (position < 0 || position >= static_cast<std::int64_t>(active_.size())) {
    throw std::out_of_range("position " + std::to_string(position) + " is none of the " +
                            std::to_string(active_.size()) + " active cells");
  }
  return active_[static_cast<std::size_t>(position)];
}

Vector3 BlockModel::location(std::int64_t position) const {
  return base_grid_.location(linear_index(position));
}

Vector3 BlockModel::location(const CellTriple& cell) const {
  const std::int64_t index = base_grid_.index(cell);
  if (index < 0 || index >= base_grid_.total() || !mask_[static_cast<std::size_t>(index)]) {
    throw std::out_of_range("invalid index");
  }
  return base_grid_.location(cell);
}

}  // namespace talvorix
