#include "variography/exp_variogram_search.h"

#include "core/arguments.h"
#include "core/parallel.h"
#include "core/random.h"
#include "core/ranking.h"
#include "spatial/bounding_box.h"
#include "spatial/ellipsoid.h"
#include "spatial/extreme_points.h"
#include "spatial/sphere_directions.h"
#include "variography/lag_bins.h"
#include "variography/tube_pairs.h"
#include "variography/tube_search.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace talvorix {

namespace {

constexpr std::int64_t fixed_seed = 123125;
constexpr int n_outline_rays = 300;
constexpr double tube_radius = 1.01;

// The smallest cosine whose angle is not above the tolerance, in radians: comparing with it gives
// what comparing the arccosine would, for NaN and for cosines rounded above 1 as well.
double smallest_aligned_cosine(double tolerance) {
  if (!(std::acos(0.0) > tolerance)) {
    return -std::numeric_limits<double>::infinity();
  }
  if (tolerance < 0.0) {
    return std::nextafter(1.0, 2.0);
  }
  // Doubles from 0 to 1 are ordered as their bits are.
  std::uint64_t misaligned = 0;
  auto aligned = std::bit_cast<std::uint64_t>(1.0);
  while (aligned - misaligned > 1) {
    const std::uint64_t middle = misaligned + (aligned - misaligned) / 2;
    (std::acos(std::bit_cast<double>(middle)) > tolerance ? misaligned : aligned) = middle;
  }
  return std::bit_cast<double>(aligned);
}

// The data around which pairs are looked for: the highest value, then others drawn from the upper
// part of the values, at least a quarter of them. The highest may be drawn again. With as many
// centers as there are data but one, or a negative count, all are taken in order.
std::vector<std::size_t> choose_centers(const std::vector<double>& values, int n_centers,
                                        RandomEngine& rng) {
  const auto n = static_cast<std::ptrdiff_t>(values.size());
  std::vector<std::size_t> order(values.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  if (n_centers < 0 || n_centers >= n - 1) {
    return order;
  }
  order = descending_order(values);
  const double share = n_centers / static_cast<double>(n) + 0.25;
  const double limit = static_cast<double>(n) * share;
  std::size_t n_upper = 0;
  while (n_upper < values.size() && static_cast<double>(n_upper) < limit) {
    ++n_upper;
  }
  std::vector<std::size_t> upper(order.begin(),
                                 order.begin() + static_cast<std::ptrdiff_t>(n_upper));
  shuffle(upper, rng);
  std::vector<std::size_t> centers = {order.front()};
  for (std::size_t s = 1; s < upper.size() && centers.size() < static_cast<std::size_t>(n_centers);
       ++s) {
    centers.push_back(upper[s]);
  }
  return centers;
}

// A unit vector at right angles to e. The draws lie in the first octant: deliberate.
Vector3 random_perpendicular(const Vector3& e, double tol, RandomEngine& rng, Worker& worker) {
  for (;;) {
    worker.poll();
    const double x = uniform(rng);
    const double y = uniform(rng);
    const double z = uniform(rng);
    const Vector3 v = Vector3(x, y, z).normalized();
    if (std::abs(std::abs(v.dot(e)) - 1.0) > tol) {
      return (v - v.dot(e) * e).normalized();
    }
  }
}

// From model units to the space in which the tube along a direction has radius 1. box_length is the
// length of the data's box along it.
Matrix3 tube_matrix(const Vector3& e, const Vector3& p, double box_length, double bandwidth) {
  const Vector3 q = e.cross(p).normalized();
  Matrix3 matrix;
  matrix << e.transpose() / (3.0 * box_length), p.transpose() / (bandwidth * box_length),
      q.transpose() / (bandwidth * box_length);
  return matrix;
}

// Distances from a half-normal variate in units of the box, so that short lags come dense.
std::vector<double> random_lags(const Vector3& direction, const Matrix3& box,
                                const ExpVariogramSearch& search, RandomEngine& rng,
                                Worker& worker) {
  StandardNormal normal;
  std::vector<double> distances;
  for (int i = 0; i < search.n_lags; ++i) {
    worker.poll();
    const double L = std::abs(normal(rng)) + search.lag_tol;
    distances.push_back((box * (L * direction)).norm());
  }
  return distances;
}

ExperimentalVariogram::Entries entries_of(const LagBins& bins, const Vector3& direction,
                                          int window_size) {
  ExperimentalVariogram::Entries entries;
  for (std::size_t lag = 0; lag < bins.size(); ++lag) {
    const LagBins::Bin pairs = bins.window(lag, window_size);
    if (pairs.count > 0.0) {
      constexpr double most = std::numeric_limits<int>::max();
      entries.lags.emplace_back(bins.distance(lag) * direction);
      entries.variogram.push_back(pairs.sum / pairs.count);
      entries.npairs.push_back(static_cast<int>(std::min(pairs.count, most)));
    }
  }
  return entries;
}

}  // namespace

ExperimentalVariogram compute_exp_variogram(const Locations& data_locs,
                                            const std::vector<double>& data_values,
                                            const ExpVariogramSearch& search, int n_threads) {
  require_equal_lengths("data_values", data_values.size(), "data_locs", data_locs.size());
  require_count("n_lags", search.n_lags);
  require_count("n_directions", search.n_directions);
  if (data_locs.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw std::invalid_argument("data_locs has more entries than the search can number");
  }
  const double smallest_cosine =
      smallest_aligned_cosine(search.angle_tol / 180.0 * std::acos(-1.0));
  RandomEngine rng = seeded_engine(fixed_seed);
  const auto draw_seed = [&] { return static_cast<std::int64_t>(rng()); };
  const BoundingBox outline(extreme_points(data_locs, n_outline_rays, draw_seed(), n_threads));
  const Vector3 sizes = outline.size();
  const Matrix3 box = Ellipsoid(sizes.x(), sizes.y(), sizes.z(), 90.0, 0.0, 0.0).inv_matrix();
  Locations directions = generate_random_sphere(search.n_directions, draw_seed());
  std::vector<std::int64_t> seeds;
  for (std::size_t d = 0; d < directions.size(); ++d) {
    seeds.push_back(draw_seed());
  }
  const std::vector<std::size_t> centers = choose_centers(data_values, search.n_centers, rng);

  std::vector<ExperimentalVariogram::Entries> by_direction(directions.size());
  parallel_blocks(directions.size(), check_n_threads(n_threads),
                  [&](Worker& worker, std::size_t begin, std::size_t end) {
                    TubeSearch tube;
                    TubePairs pairs(data_locs, data_values, smallest_cosine);
                    LagBins bins;
                    std::vector<std::uint32_t> found;
                    for (std::size_t d = begin; d < end; ++d) {
                      worker.poll();
                      const Vector3& direction = directions[d];
                      RandomEngine own_rng = seeded_engine(seeds[d]);
                      const Vector3 e = direction.normalized();
                      const Vector3 p = random_perpendicular(e, search.tol, own_rng, worker);
                      tube.build(data_locs,
                                 tube_matrix(e, p, (box * direction).norm(), search.bandwidth),
                                 tube_radius, worker);
                      bins.reset(random_lags(direction, box, search, own_rng, worker));
                      for (const std::size_t center : centers) {
                        worker.poll();
                        tube.find(center, found);
                        pairs.gather(found);
                        pairs.add_to(bins, direction, worker);
                      }
                      by_direction[d] = entries_of(bins, direction, search.window_size);
                    }
                  });

  ExperimentalVariogram::Entries all;
  std::vector<int> direction_ids;
  for (std::size_t d = 0; d < directions.size(); ++d) {
    const auto& [lags, variogram, npairs] = by_direction[d];
    all.lags.insert(all.lags.end(), lags.begin(), lags.end());
    all.variogram.insert(all.variogram.end(), variogram.begin(), variogram.end());
    all.npairs.insert(all.npairs.end(), npairs.begin(), npairs.end());
    direction_ids.insert(direction_ids.end(), lags.size(), static_cast<int>(d));
  }
  return {std::move(all), std::move(direction_ids), std::move(directions)};
}

}  // namespace talvorix
