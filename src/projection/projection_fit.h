#pragma once

#include "core/interrupt.h"
#include "projection/projection.h"

#include <cstdint>
#include <vector>

namespace talvorix {

struct Interval {
  double min;
  double max;
};

// The settings that fits of projections and of pairs of them share.
struct ProjectionFit {
  // How many random subsets of the pairs are fitted to, and how large they are; each is larger by
  // one than drawn between these ends, and smaller than the sample.
  int n_partitions;
  int min_partition_size;
  int max_partition_size;
  // Above 0, the scale of the loss that makes subsets with large residuals count less.
  double cauchy_loss;
  int n_iterations;
  int n_threads;
  std::int64_t seed;
  bool debug;
};

// What a single projection is made of, and the bounds of it.
struct ProjectionShape {
  Covariance::Type kernel;
  int n_centers;
  Interval weight;
  Interval beta;
  Interval center;
};

// Fits a map from source to target, pair by pair, by least squares with residuals that are limited
// softly. The poll is that of the thread which calls. From a start that is not finite or lies out
// of bounds it does not move.
//
// Throws std::invalid_argument for an empty source, lists of unequal lengths, negative counts and
// partition sizes that cross.
Projection optimize_projection(const std::vector<double>& source, const std::vector<double>& target,
                               const ProjectionShape& shape, const ProjectionFit& fit,
                               PollRef poll);

}  // namespace talvorix
