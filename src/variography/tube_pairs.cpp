#include "variography/tube_pairs.h"

#include <cmath>

namespace talvorix {

namespace {

// The two loops below stand in functions of their own that are not inlined: only so do compilers
// believe that their columns do not overlap, and vectorise them.

// Of the pairs of a point with each of a run of others: the projection on the direction, the
// squared distance, and by how much the squared projection exceeds the share of it that alignment
// asks for.
[[gnu::noinline]] void measure_pairs(const double* __restrict x, const double* __restrict y,
                                     const double* __restrict z, std::size_t count,
                                     const Vector3& from, const Vector3& direction,
                                     double squared_cosine, double* __restrict projection,
                                     double* __restrict squared, double* __restrict excess) {
  const double start[3] = {from[0], from[1], from[2]};
  const double along[3] = {direction[0], direction[1], direction[2]};
  for (std::size_t j = 0; j < count; ++j) {
    const double dx = start[0] - x[j];
    const double dy = start[1] - y[j];
    const double dz = start[2] - z[j];
    const double p = dx * along[0] + dy * along[1] + dz * along[2];
    const double r2 = dx * dx + dy * dy + dz * dz;
    projection[j] = p;
    squared[j] = r2;
    excess[j] = p * p - squared_cosine * r2;
  }
}

// Turns, in place, squared distances into distances, values into semivariances beside value_from
// and projections into places.
[[gnu::noinline]] void place_pairs(double* __restrict r, double* __restrict g,
                                   double* __restrict place, std::size_t count, double value_from,
                                   double smallest_cosine, LagBins::Ruler ruler) {
  for (std::size_t k = 0; k < count; ++k) {
    const double distance = std::sqrt(r[k]);
    const double cosine = std::abs(place[k]) / distance;
    const double difference = value_from - g[k];
    r[k] = distance;
    g[k] = difference * 0.5 * difference;
    // Data that coincide have no cosine, and are taken.
    const double place_of_distance = ruler.place(distance);
    place[k] = cosine < smallest_cosine ? LagBins::nowhere : place_of_distance;
  }
}

}  // namespace

TubePairs::TubePairs(const Locations& locations, const std::vector<double>& values,
                     double smallest_cosine)
    : locations_(locations),
      values_(values),
      smallest_cosine_(smallest_cosine),
      // A little below the square: rounding must not cost a pair that the cosine admits.
      squared_cosine_(smallest_cosine > 0.0 ? smallest_cosine * smallest_cosine * (1.0 - 1e-12)
                                            : -1.0) {}

void TubePairs::gather(const std::vector<std::uint32_t>& indices) {
  size_ = indices.size();
  if (size_ > x_.size()) {
    for (auto* column :
         {&x_, &y_, &z_, &value_, &projection_, &squared_, &excess_, &r_, &g_, &place_}) {
      column->resize(size_);
    }
    aligned_.resize(size_);
  }
  for (std::size_t i = 0; i < size_; ++i) {
    const Vector3& location = locations_[indices[i]];
    x_[i] = location.x();
    y_[i] = location.y();
    z_[i] = location.z();
    value_[i] = values_[indices[i]];
  }
}

void TubePairs::add_to(LagBins& bins, const Vector3& direction, Worker& worker) {
  for (std::size_t i = 0; i + 1 < size_; ++i) {
    worker.poll();
    const std::size_t next = i + 1;
    measure_pairs(x_.data() + next, y_.data() + next, z_.data() + next, size_ - next,
                  Vector3(x_[i], y_[i], z_[i]), direction, squared_cosine_, projection_.data(),
                  squared_.data(), excess_.data());
    const std::size_t n_aligned = keep_nearly_aligned(size_ - next);
    find_places(i, n_aligned, bins.ruler());
    for (std::size_t k = 0; k < n_aligned; ++k) {
      bins.add(place_[k], r_[k], g_[k], k % LagBins::n_lanes);
    }
  }
}

// Most pairs are out of line. Those that a square root and a division would be wasted on are left
// out here, without a branch for each.
std::size_t TubePairs::keep_nearly_aligned(std::size_t count) {
  std::size_t n_aligned = 0;
  for (std::size_t j = 0; j < count; ++j) {
    aligned_[n_aligned] = static_cast<std::uint32_t>(j);
    const bool out_of_line = excess_[j] < 0.0;
    n_aligned += static_cast<std::size_t>(!out_of_line);
  }
  return n_aligned;
}

void TubePairs::find_places(std::size_t i, std::size_t n_aligned, LagBins::Ruler ruler) {
  const double* value = value_.data() + i + 1;
  for (std::size_t k = 0; k < n_aligned; ++k) {
    const std::uint32_t j = aligned_[k];
    r_[k] = squared_[j];
    g_[k] = value[j];
    place_[k] = projection_[j];
  }
  place_pairs(r_.data(), g_.data(), place_.data(), n_aligned, value_[i], smallest_cosine_, ruler);
}

}  // namespace talvorix
