#pragma once

#include "spatial/neighborhood.h"

#include <nanoflann.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

// What the search trees are built over, and what their queries collect points in.

namespace talvorix {

#if NANOFLANN_VERSION >= 0x150
using TreeSearchParameters = nanoflann::SearchParameters;
#else
using TreeSearchParameters = nanoflann::SearchParams;
#endif

constexpr int tree_dimension = 3;
constexpr std::size_t tree_leaf_size = 10;

struct PointSet {
  Locations points;

  std::size_t kdtree_get_point_count() const { return points.size(); }
  double kdtree_get_pt(std::size_t i, std::size_t dimension) const {
    return points[i][static_cast<Eigen::Index>(dimension)];
  }
  template <class Box>
  bool kdtree_get_bbox(Box&) const {
    return false;
  }
};

// What trees are built from: the same points, with a look for the user's wish to stop. Queries
// measure distances through the plain set, so they pay nothing for it.
struct PolledPointSet : PointSet {
  mutable InterruptPoller poll;

  double kdtree_get_pt(std::size_t i, std::size_t dimension) const {
    poll();
    return PointSet::kdtree_get_pt(i, dimension);
  }
};

// What the trees expect to find named in anything that collects points.
struct Results {
  using DistanceType = double;
  using IndexType = std::uint32_t;
};

// Up to so many neighbours an insertion into a sorted run beats a heap.
constexpr std::size_t most_by_insertion = 96;

// The k nearest in ascending order, by insertion; only points nearer than the bound are taken.
// Of equally near points the one met first stands first.
class NearestPoints : public Results {
 public:
  NearestPoints(FoundPoint* points, std::size_t capacity, double bound)
      : points_(points), capacity_(capacity), bound_(bound) {}

  bool addPoint(double squared_distance, std::uint32_t index) {
    if (squared_distance < bound_) {
      std::size_t i = count_ < capacity_ ? count_++ : capacity_ - 1;
      for (; i > 0 && points_[i - 1].squared_distance > squared_distance; --i) {
        points_[i] = points_[i - 1];
      }
      points_[i] = {squared_distance, index};
      if (count_ == capacity_) {
        bound_ = points_[capacity_ - 1].squared_distance;
      }
    }
    return true;
  }
  double worstDist() const { return bound_; }
  std::size_t size() const { return count_; }
  bool full() const { return count_ == capacity_; }
  void sort() {}

 private:
  FoundPoint* points_;
  std::size_t capacity_;
  std::size_t count_ = 0;
  double bound_;
};

inline bool nearer(const FoundPoint& a, const FoundPoint& b) {
  return a.squared_distance < b.squared_distance ||
         (a.squared_distance == b.squared_distance && a.index < b.index);
}

// The k nearest where k is large: a heap, sorted at the end.
class ManyNearestPoints : public Results {
 public:
  ManyNearestPoints(std::vector<FoundPoint>& points, std::size_t capacity, InterruptPoller* poll)
      : points_(points), capacity_(capacity), poll_(poll) {
    points_.clear();
  }

  bool addPoint(double squared_distance, std::uint32_t index) {
    if (poll_ != nullptr) {
      (*poll_)();
    }
    if (full()) {
      if (squared_distance >= points_.front().squared_distance) {
        return true;
      }
      std::pop_heap(points_.begin(), points_.end(), nearer);
      points_.pop_back();
    }
    points_.push_back({squared_distance, index});
    std::push_heap(points_.begin(), points_.end(), nearer);
    return true;
  }
  double worstDist() const {
    return full() ? points_.front().squared_distance : std::numeric_limits<double>::max();
  }
  std::size_t size() const { return points_.size(); }
  bool full() const { return points_.size() == capacity_; }
  void sort() { std::sort_heap(points_.begin(), points_.end(), nearer); }

 private:
  std::vector<FoundPoint>& points_;
  std::size_t capacity_;
  InterruptPoller* poll_;
};

// All points nearer than a radius.
class PointsWithin : public Results {
 public:
  PointsWithin(std::vector<FoundPoint>& points, double squared_radius, InterruptPoller* poll)
      : points_(points), squared_radius_(squared_radius), poll_(poll) {
    points_.clear();
  }

  bool addPoint(double squared_distance, std::uint32_t index) {
    if (poll_ != nullptr) {
      (*poll_)();
    }
    points_.push_back({squared_distance, index});
    return true;
  }
  double worstDist() const { return squared_radius_; }
  std::size_t size() const { return points_.size(); }
  bool full() const { return true; }
  void sort() { std::sort(points_.begin(), points_.end(), nearer); }

 private:
  std::vector<FoundPoint>& points_;
  double squared_radius_;
  InterruptPoller* poll_;
};

}  // namespace talvorix
