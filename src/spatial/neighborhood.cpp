#include "spatial/neighborhood.h"

#include "core/arguments.h"
#include "spatial/kd_tree.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace talvorix {

namespace {

using Tree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, PointSet>,
                                                 PolledPointSet, tree_dimension, std::uint32_t>;

// The tree's list of points in the order of its leaves; the library has renamed it since.
template <class AnyTree>
auto& leaf_order(AnyTree& tree) {
  if constexpr (requires { tree.vAcc_; }) {
    return tree.vAcc_;
  } else {
    return tree.vAcc;
  }
}

}  // namespace

class SearchTree {
 public:
  explicit SearchTree(Locations points)
      : points_{{std::move(points)}, {}},
        tree_(tree_dimension, points_, nanoflann::KDTreeSingleIndexAdaptorParams(tree_leaf_size)) {
    // The points of a leaf are put next to each other, so that a query walks through memory.
    auto& order = leaf_order(tree_);
    given_.assign(order.begin(), order.end());
    Locations in_leaf_order;
    in_leaf_order.reserve(given_.size());
    for (std::size_t i = 0; i < given_.size(); ++i) {
      in_leaf_order.push_back(points_.points[given_[i]]);
      order[i] = static_cast<std::uint32_t>(i);
    }
    points_.points = std::move(in_leaf_order);
  }

  // Position in the given list of a point that a search found.
  std::size_t given_index(const FoundPoint& point) const { return given_[point.index]; }

  Locations in_given_order() const {
    Locations points(given_.size());
    for (std::size_t i = 0; i < given_.size(); ++i) {
      points[given_[i]] = points_.points[i];
    }
    return points;
  }

  template <class Collector>
  void search(const Vector3& center, Collector& results) const {
    tree_.findNeighbors(results, center.data(), TreeSearchParameters());
    results.sort();
  }

 private:
  PolledPointSet points_;
  Tree tree_;
  std::vector<std::uint32_t> given_;
};

namespace {

Locations search_points(const Locations& locations, const std::optional<Ellipsoid>& ellipsoid) {
  if (locations.size() >= std::numeric_limits<std::uint32_t>::max()) {
    throw std::invalid_argument("locations has more entries than the search can number");
  }
  Locations points = locations;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!points[i].allFinite()) {
      throw std::invalid_argument("locations[" + std::to_string(i) +
                                  "] is not finite; a search needs finite coordinates");
    }
    if (ellipsoid) {
      points[i] = ellipsoid->forward(points[i]);
      if (!points[i].allFinite()) {
        throw std::invalid_argument("the ellipsoid maps locations[" + std::to_string(i) +
                                    "] to a point that is not finite; a search needs an "
                                    "ellipsoid of finite, non-degenerate axes");
      }
    }
  }
  return points;
}

void require_finite_center(const Vector3& center) {
  if (!center.allFinite()) {
    throw std::invalid_argument("center is not finite; a search needs finite coordinates");
  }
}

}  // namespace

Neighborhood::Neighborhood(const Locations& locations)
    : Neighborhood(locations, std::optional<Ellipsoid>()) {}

Neighborhood::Neighborhood(const Locations& locations, const Ellipsoid& ellipsoid)
    : Neighborhood(locations, std::optional<Ellipsoid>(ellipsoid)) {}

Neighborhood::Neighborhood(const Locations& locations, std::optional<Ellipsoid> ellipsoid)
    : size_(locations.size()), ellipsoid_(std::move(ellipsoid)) {
  if (size_ > 0) {
    tree_ = std::make_shared<const SearchTree>(search_points(locations, ellipsoid_));
  }
}

Neighborhood Neighborhood::from_parts(const Locations& mapped_locations,
                                      std::optional<Ellipsoid> ellipsoid) {
  Neighborhood result(mapped_locations, std::nullopt);
  result.ellipsoid_ = std::move(ellipsoid);
  return result;
}

Locations Neighborhood::mapped_locations() const {
  return tree_ ? tree_->in_given_order() : Locations();
}

void Neighborhood::find_nearest(const Vector3& center, std::size_t max_size,
                                SearchScratch& scratch) const {
  scratch.indices.clear();
  const std::size_t k = std::min(max_size, size_);
  if (k == 0) {
    return;
  }
  const Vector3 q = to_search_space(center);
  constexpr double unbounded = std::numeric_limits<double>::max();
  std::size_t count = 0;
  if (k > most_by_insertion) {
    ManyNearestPoints nearest(scratch.found, k, scratch.poll);
    tree_->search(q, nearest);
    count = nearest.size();
  } else {
    if (scratch.found.size() < k) {
      scratch.found.resize(k);
    }
    double bound = unbounded;
    if (scratch.last_tree == tree_.get() && scratch.last_size == k) {
      const double reach = scratch.last_reach + (q - scratch.last_center).norm();
      // The slack covers the rounding of the two lengths.
      bound = std::min(reach * reach * (1.0 + 1e-9), unbounded);
    }
    NearestPoints nearest(scratch.found.data(), k, bound);
    tree_->search(q, nearest);
    if (nearest.size() < k && bound < unbounded) {
      nearest = NearestPoints(scratch.found.data(), k, unbounded);
      tree_->search(q, nearest);
    }
    count = nearest.size();
    scratch.last_tree = count == k ? tree_.get() : nullptr;
    scratch.last_size = k;
    scratch.last_center = q;
    scratch.last_reach = std::sqrt(nearest.worstDist());
  }
  for (std::size_t i = 0; i < count; ++i) {
    scratch.indices.push_back(tree_->given_index(scratch.found[i]));
  }
}

void Neighborhood::find_within(const Vector3& center, double max_radius,
                               SearchScratch& scratch) const {
  scratch.indices.clear();
  scratch.last_tree = nullptr;
  if (size_ == 0) {
    return;
  }
  PointsWithin within(scratch.found, max_radius * max_radius, scratch.poll);
  tree_->search(to_search_space(center), within);
  for (const FoundPoint& point : scratch.found) {
    scratch.indices.push_back(tree_->given_index(point));
  }
}

std::vector<std::size_t> Neighborhood::find_neighbors(const Vector3& center,
                                                      long long max_size) const {
  const std::size_t count = require_count("max_size", max_size);
  require_finite_center(center);
  InterruptPoller poll;
  SearchScratch scratch;
  scratch.poll = &poll;
  find_nearest(center, count, scratch);
  return std::move(scratch.indices);
}

std::vector<std::size_t> Neighborhood::find_neighbors(const Vector3& center,
                                                      double max_radius) const {
  require_finite_center(center);
  InterruptPoller poll;
  SearchScratch scratch;
  scratch.poll = &poll;
  find_within(center, max_radius, scratch);
  return std::move(scratch.indices);
}

std::size_t Neighborhood::nearest_neighbor(const Vector3& center) const {
  if (size_ == 0) {
    throw std::invalid_argument("nearest_neighbor: the neighborhood holds no locations");
  }
  const auto found = find_neighbors(center, 1LL);
  if (found.empty()) {
    throw std::invalid_argument("nearest_neighbor: center is too far away to measure distances");
  }
  return found.front();
}

}  // namespace talvorix
