#include "spatial/axis_clusters.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/parallel.h"
#include "spatial/neighborhood.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

namespace talvorix {

namespace {

const double degrees_per_radian = 180.0 / std::acos(-1.0);

// The unit vector along a location, when it has a direction.
std::optional<Vector3> direction_of(const Vector3& location) {
  const Vector3 direction = location.stableNormalized();
  if (!direction.allFinite() || direction.squaredNorm() < 0.5) {
    return std::nullopt;
  }
  return direction;
}

// Of unit vectors. The arctangent keeps the digits of small angles, which the arccosine loses.
double angle_between(const Vector3& u, const Vector3& v) {
  return std::atan2(u.cross(v).norm(), std::abs(u.dot(v))) * degrees_per_radian;
}

// The square of the shorter chord between an end of one axis and those of the other: a measure as
// good as the angle, and cheaper.
double squared_chord(const Vector3& u, const Vector3& v) {
  return std::min((u - v).squaredNorm(), (u + v).squaredNorm());
}

// Rounding may put the chord a little on the wrong side of a limit; the angle then decides.
double widened(double squared_chord) { return squared_chord * (1.0 + 1e-9) + 1e-30; }

// Sets of items that grow together.
class DisjointSets {
 public:
  explicit DisjointSets(std::size_t n) : parent_(n) {
    std::iota(parent_.begin(), parent_.end(), std::size_t{0});
  }

  std::size_t root(std::size_t i) {
    while (parent_[i] != i) {
      parent_[i] = parent_[parent_[i]];
      i = parent_[i];
    }
    return i;
  }
  void join(std::size_t i, std::size_t j) {
    const std::size_t a = root(i);
    const std::size_t b = root(j);
    parent_[std::max(a, b)] = std::min(a, b);
  }

 private:
  std::vector<std::size_t> parent_;
};

// Numbers groups from 0 in order of first appearance; key(i) tells the group of item i.
template <class Key>
std::vector<int> labels_in_order(std::size_t n, Key&& key) {
  std::map<decltype(key(std::size_t{0})), int> numbers;
  std::vector<int> labels;
  labels.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    labels.push_back(numbers.try_emplace(key(i), static_cast<int>(numbers.size())).first->second);
  }
  return labels;
}

// Every axis that has a direction, by both of its ends.
struct AxisEnds {
  Locations ends;
  std::vector<std::size_t> location;  // which location each end belongs to
};

AxisEnds axis_ends(const Locations& locations) {
  AxisEnds axes;
  for (std::size_t i = 0; i < locations.size(); ++i) {
    if (const auto direction = direction_of(locations[i])) {
      for (const double sign : {1.0, -1.0}) {
        axes.ends.emplace_back(sign * *direction);
        axes.location.push_back(i);
      }
    }
  }
  return axes;
}

// Links every axis to those within max_angle degrees of it.
void link_neighbors(const AxisEnds& axes, double max_angle, int n_threads, DisjointSets& sets) {
  const double half_angle = std::min(max_angle, 90.0) / 2.0 / degrees_per_radian;
  const double chord = 2.0 * std::sin(half_angle);
  const double radius = std::sqrt(widened(chord * chord));
  const Neighborhood neighborhood(axes.ends);
  const std::size_t n_axes = axes.ends.size() / 2;
  const int n_workers = check_n_threads(n_threads);
  // Each worker joins in sets of its own, which come together at the end.
  std::vector<DisjointSets> own(static_cast<std::size_t>(n_workers), sets);
  parallel_blocks(n_axes, n_workers, [&](Worker& worker, std::size_t begin, std::size_t end) {
    DisjointSets& joined = own[static_cast<std::size_t>(worker.index())];
    SearchScratch scratch;
    for (std::size_t axis = begin; axis < end; ++axis) {
      worker.poll();
      const Vector3& direction = axes.ends[2 * axis];
      const std::size_t i = axes.location[2 * axis];
      neighborhood.find_within(direction, radius, scratch);
      for (const std::size_t found : scratch.indices) {
        const std::size_t j = axes.location[found];
        if (joined.root(i) != joined.root(j) &&
            angle_between(direction, axes.ends[found]) <= max_angle) {
          joined.join(i, j);
        }
      }
    }
  });
  for (DisjointSets& joined : own) {
    for (const std::size_t i : axes.location) {
      sets.join(i, joined.root(i));
    }
  }
}

}  // namespace

double compute_angular_distance(const Vector3& u, const Vector3& v) {
  const auto a = direction_of(u);
  const auto b = direction_of(v);
  return a && b ? angle_between(*a, *b) : std::numeric_limits<double>::quiet_NaN();
}

std::vector<int> find_clusters(const Locations& locations, double max_angle, int n_threads) {
  DisjointSets sets(locations.size());
  if (max_angle >= 0.0) {
    link_neighbors(axis_ends(locations), max_angle, n_threads, sets);
  }
  return labels_in_order(locations.size(), [&](std::size_t i) { return sets.root(i); });
}

ClusterDistances compute_angular_distance_between_clusters(const Locations& locations,
                                                           const std::vector<int>& labels) {
  require_equal_lengths("labels", labels.size(), "locations", locations.size());
  std::map<int, Locations> clusters;
  for (std::size_t i = 0; i < locations.size(); ++i) {
    Locations& members = clusters[labels[i]];
    if (const auto direction = direction_of(locations[i])) {
      members.push_back(*direction);
    }
  }
  ClusterDistances distances;
  for (const auto& [label, members] : clusters) {
    distances[label];
  }
  InterruptPoller poll;
  for (auto a = clusters.begin(); a != clusters.end(); ++a) {
    for (auto b = std::next(a); b != clusters.end(); ++b) {
      double nearest = std::numeric_limits<double>::quiet_NaN();
      double bound = std::numeric_limits<double>::infinity();
      for (const Vector3& u : a->second) {
        poll();
        for (const Vector3& v : b->second) {
          const double chord = squared_chord(u, v);
          if (chord <= bound) {
            bound = std::min(bound, widened(chord));
            nearest = std::fmin(nearest, angle_between(u, v));
          }
        }
      }
      distances[a->first][b->first] = nearest;
      distances[b->first][a->first] = nearest;
    }
  }
  return distances;
}

std::vector<int> merge_clusters(const Locations& locations, const std::vector<int>& labels,
                                double max_angle) {
  const ClusterDistances distances = compute_angular_distance_between_clusters(locations, labels);
  // The distance between merged clusters is the smallest between their parts, so that repeated
  // merging is the same as following the links of the first distances.
  std::map<int, std::size_t> position;
  for (const auto& [label, others] : distances) {
    position.emplace(label, position.size());
  }
  DisjointSets sets(position.size());
  for (const auto& [a, others] : distances) {
    for (const auto& [b, distance] : others) {
      if (distance <= max_angle) {
        sets.join(position[a], position[b]);
      }
    }
  }
  return labels_in_order(labels.size(),
                         [&](std::size_t i) { return sets.root(position[labels[i]]); });
}

}  // namespace talvorix
