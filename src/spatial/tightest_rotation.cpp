#include "spatial/tightest_rotation.h"

#include "core/arguments.h"
#include "core/parallel.h"
#include "core/random.h"
#include "spatial/extreme_points.h"
#include "spatial/point_columns.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace talvorix {

namespace {

// The frame whose first axis is +x.
Ellipsoid unrotated_frame() { return rotation(90.0, 0.0, 0.0); }

Ellipsoid random_frame(RandomEngine& rng) {
  const double azimuth = 360.0 * uniform(rng);
  const double dip = 90.0 * uniform(rng) - 90.0;
  const double rake = 180.0 * uniform(rng);
  return rotation(azimuth, dip, rake);
}

double score_of_box(const PointColumns& points, const Matrix3& frame) {
  const auto extent = [&](Eigen::Index row) {
    ProjectionRange range;
    widen_by_projections(points, 0, points.padded_size(), frame.row(row).transpose(), range);
    return range.largest - range.smallest;
  };
  return std::log(extent(1) + 1.0) + std::log(extent(0) + 1.0) + std::log(extent(2) + 1.0);
}

struct Candidate {
  double score = 1e30;
  Ellipsoid frame = unrotated_frame();
};

std::size_t draw_modulo(RandomEngine& rng, std::size_t n) {
  return static_cast<std::size_t>(rng()) % n;
}

}  // namespace

RotatedBox optimize_rotation(const Locations& locations, const RotationSearch& search,
                             std::int64_t seed, int n_threads) {
  if (locations.empty()) {
    throw std::invalid_argument("locations is empty; a box needs at least one location");
  }
  const std::size_t sample_size = require_count("sample_size", search.sample_size);
  const std::size_t n_iterations = require_count("n_iterations", search.n_iterations);
  const Locations outline = extreme_points(locations, search.n_rays, seed, n_threads);
  if (outline.empty()) {
    throw std::invalid_argument(search.n_rays == 0
                                    ? "n_rays is 0; the outline needs at least one ray"
                                    : "locations has no entry that can be measured: all hold NaN");
  }
  const std::size_t n_samples = std::min(sample_size, outline.size());

  RandomEngine rng = seeded_engine(seed);
  const int n_workers = check_n_threads(n_threads);
  std::vector<Candidate> best(static_cast<std::size_t>(n_workers));
  std::vector<RandomEngine> engines;
  engines.reserve(best.size());
  for (std::size_t worker = 0; worker < best.size(); ++worker) {
    engines.push_back(seeded_engine(static_cast<std::int64_t>(rng())));
  }
  const bool all_points = n_samples == outline.size();
  const bool fixed = search.use_fixed_samples || all_points;
  Locations samples = outline;
  if (!all_points) {
    samples.clear();
    for (std::size_t k = 0; k < n_samples; ++k) {
      samples.push_back(outline[draw_modulo(rng, outline.size())]);
    }
  }

  parallel_blocks(n_iterations, n_workers, [&](Worker& worker, std::size_t begin, std::size_t end) {
    RandomEngine& engine = engines[static_cast<std::size_t>(worker.index())];
    Candidate& own_best = best[static_cast<std::size_t>(worker.index())];
    PointColumns points(samples);
    for (std::size_t i = begin; i < end; ++i) {
      worker.poll();
      const Ellipsoid frame = i == 0 ? unrotated_frame() : random_frame(engine);
      for (std::size_t k = 0; !fixed && k < n_samples; ++k) {
        points.set(k, outline[draw_modulo(engine, outline.size())]);
      }
      const double score = score_of_box(points, frame.matrix());
      if (score < own_best.score) {
        own_best = {score, frame};
      }
    }
  });

  Candidate winner;
  for (const Candidate& candidate : best) {
    if (candidate.score < winner.score) {
      winner = candidate;
    }
  }
  return {winner.frame, BoundingBox(winner.frame.forward(outline, n_threads))};
}

}  // namespace talvorix
