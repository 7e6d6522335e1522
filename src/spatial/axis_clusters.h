#pragma once

#include "core/geometry.h"

#include <map>
#include <vector>

namespace talvorix {

// Degrees in [0, 90] between two axes: a direction and its opposite are the same axis. NaN when
// either has no length.
double compute_angular_distance(const Vector3& u, const Vector3& v);

// Groups locations by the axis from the origin through them: two belong together when a chain of
// locations links them by steps of at most max_angle degrees. Labels count from 0 in order of first
// appearance; a location of no length is a cluster of its own.
std::vector<int> find_clusters(const Locations& locations, double max_angle, int n_threads);

using ClusterDistances = std::map<int, std::map<int, double>>;

// The smallest angular distance between members of each two clusters, both ways round; NaN when no
// two of their members can be measured.
ClusterDistances compute_angular_distance_between_clusters(const Locations& locations,
                                                           const std::vector<int>& labels);

// Makes clusters one that are at most max_angle degrees apart, repeatedly, and labels them from 0
// in order of first appearance.
std::vector<int> merge_clusters(const Locations& locations, const std::vector<int>& labels,
                                double max_angle);

}  // namespace talvorix
