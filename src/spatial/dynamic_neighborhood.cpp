#include "spatial/dynamic_neighborhood.h"

#include "spatial/kd_tree.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace talvorix {

namespace {

using Tree =
    nanoflann::KDTreeSingleIndexDynamicAdaptor<nanoflann::L2_Simple_Adaptor<double, PointSet>,
                                               PolledPointSet, tree_dimension, std::uint32_t>;

constexpr std::size_t most_points = 1000000000;

}  // namespace

class DynamicNeighborhood::ActiveTree {
 public:
  ActiveTree()
      : tree_(tree_dimension, points_, nanoflann::KDTreeSingleIndexAdaptorParams(tree_leaf_size),
              most_points) {}

  void add(std::size_t index, const Vector3& point) {
    const auto position = static_cast<std::uint32_t>(order_.size());
    order_.push_back(index);
    points_.points.push_back(point);
    tree_.addPoints(position, position);
  }

  template <class Collector>
  void search(const Vector3& center, Collector& results, SearchScratch& scratch) const {
    // The largest of the trees that make up the index comes first: it soon tells how near a point
    // must be to count, which spares most of the walk through the others.
    const auto& trees = tree_.getAllIndices();
    for (auto tree = trees.rbegin(); tree != trees.rend(); ++tree) {
      tree->findNeighbors(results, center.data(), TreeSearchParameters());
    }
    results.sort();
    for (std::size_t i = 0; i < results.size(); ++i) {
      scratch.indices.push_back(order_[scratch.found[i].index]);
    }
  }

  std::size_t size() const { return order_.size(); }

 private:
  // In the order of their activation: the tree numbers points by the order they were added in.
  PolledPointSet points_;
  std::vector<std::size_t> order_;
  Tree tree_;
};

DynamicNeighborhood::DynamicNeighborhood(const Locations& locations, const Ellipsoid& ellipsoid)
    : ellipsoid_(ellipsoid),
      locations_(locations),
      is_active_(locations.size(), false),
      tree_(std::make_unique<ActiveTree>()) {
  for (std::size_t i = 0; i < locations_.size(); ++i) {
    locations_[i] = ellipsoid_.forward(locations_[i]);
    if (!locations_[i].allFinite()) {
      throw std::invalid_argument("locations[" + std::to_string(i) +
                                  "] is not finite in the space of the ellipsoid; a search needs "
                                  "finite coordinates");
    }
  }
}

DynamicNeighborhood::DynamicNeighborhood(DynamicNeighborhood&&) noexcept = default;
DynamicNeighborhood& DynamicNeighborhood::operator=(DynamicNeighborhood&&) noexcept = default;
DynamicNeighborhood::~DynamicNeighborhood() = default;

std::size_t DynamicNeighborhood::active_size() const { return tree_->size(); }

void DynamicNeighborhood::activate(std::size_t index) {
  if (index >= locations_.size()) {
    throw std::out_of_range("there is no location " + std::to_string(index) + " among " +
                            std::to_string(locations_.size()));
  }
  if (is_active_[index]) {
    throw std::invalid_argument("location " + std::to_string(index) + " is active already");
  }
  is_active_[index] = true;
  tree_->add(index, locations_[index]);
}

void DynamicNeighborhood::find_nearest(const Vector3& center, std::size_t max_size,
                                       SearchScratch& scratch) const {
  scratch.indices.clear();
  scratch.last_tree = nullptr;
  const std::size_t k = std::min(max_size, tree_->size());
  if (k == 0) {
    return;
  }
  const Vector3 q = ellipsoid_.forward(center);
  if (k > most_by_insertion) {
    ManyNearestPoints nearest(scratch.found, k, scratch.poll);
    tree_->search(q, nearest, scratch);
  } else {
    if (scratch.found.size() < k) {
      scratch.found.resize(k);
    }
    NearestPoints nearest(scratch.found.data(), k, std::numeric_limits<double>::max());
    tree_->search(q, nearest, scratch);
  }
}

void DynamicNeighborhood::find_within(const Vector3& center, double max_radius,
                                      SearchScratch& scratch) const {
  scratch.indices.clear();
  scratch.last_tree = nullptr;
  PointsWithin within(scratch.found, max_radius * max_radius, scratch.poll);
  tree_->search(ellipsoid_.forward(center), within, scratch);
}

}  // namespace talvorix
