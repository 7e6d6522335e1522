#include "estimation/ensemble_ellipsoid.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/parallel.h"
#include "core/ranking.h"
#include "estimation/target_loop.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <span>
#include <stdexcept>

namespace talvorix {

namespace {

// Rows are the axes times their ranges, so that blending is linear in the range.
Matrix3 range_matrix(const EllipsoidInfo& info) {
  constexpr double least = 1e-6;
  return Ellipsoid(1.0 / (info.r1 + least), 1.0 / (info.r2 + least), 1.0 / (info.r3 + least),
                   info.azimuth, info.dip, info.rake)
      .matrix();
}

// Which row of a matrix, and in which direction, stands where when its axes are matched with those
// of another.
struct Alignment {
  std::array<Eigen::Index, 3> order{0, 1, 2};
  std::array<bool, 3> flipped{false, false, false};
  double score = 1e30;  // what any must stay below

  Matrix3 apply(const Matrix3& B) const {
    Matrix3 aligned;
    for (std::size_t k = 0; k < 3; ++k) {
      aligned.row(static_cast<Eigen::Index>(k)) =
          flipped[k] ? Matrix3::RowXpr::PlainObject(-B.row(order[k])) : B.row(order[k]);
    }
    return aligned;
  }
};

// The alignment of B that comes closest to A, by the Frobenius norm of the difference. Of equally
// close ones the first counts, in the order of the loops.
Alignment align(const Matrix3& A, const Matrix3& B) {
  constexpr std::array<std::array<std::size_t, 3>, 6> orders{
      {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}}};
  // Squared distances of every row of A from every row of B and from its opposite.
  std::array<std::array<std::array<double, 2>, 3>, 3> d2{};
  for (std::size_t k = 0; k < 3; ++k) {
    for (std::size_t j = 0; j < 3; ++j) {
      const auto a = A.row(static_cast<Eigen::Index>(k));
      const auto b = B.row(static_cast<Eigen::Index>(j));
      d2[k][j] = {(b - a).squaredNorm(), (b + a).squaredNorm()};
    }
  }
  Alignment best;
  double best_squared = std::numeric_limits<double>::infinity();
  for (const auto& order : orders) {
    for (std::size_t signs = 0; signs < 8; ++signs) {
      const std::array<std::size_t, 3> flip{signs >> 2 & 1, signs >> 1 & 1, signs & 1};
      const double squared =
          d2[0][order[0]][flip[0]] + d2[1][order[1]][flip[1]] + d2[2][order[2]][flip[2]];
      if (!(squared < best_squared)) {
        continue;
      }
      // The root can make equal what was not.
      const double score = std::sqrt(squared);
      if (score < best.score) {
        best_squared = squared;
        best.score = score;
        for (std::size_t k = 0; k < 3; ++k) {
          best.order[k] = static_cast<Eigen::Index>(order[k]);
          best.flipped[k] = flip[k] != 0;
        }
      }
    }
  }
  return best;
}

// Blends range matrices. One for each worker; nothing is allocated once it has grown.
class RangeBlender {
 public:
  // Calls matrix_of(i) for each position i of w, which must not be empty.
  template <class MatrixOf>
  Ellipsoid operator()(std::span<const double> w, MatrixOf&& matrix_of, PollRef poll) {
    order_.resize(w.size());
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    const DescendingRank ranks_before{w};
    std::sort(order_.begin(), order_.end(), [&](std::size_t a, std::size_t b) {
      poll();
      return ranks_before(a, b);
    });
    matrices_.clear();
    for (const std::size_t i : order_) {
      poll();
      matrices_.push_back(matrix_of(i));
    }
    unused_.resize(w.size() - 1);
    std::iota(unused_.begin(), unused_.end(), std::size_t{1});
    Matrix3 A = matrices_.front();
    double W = w[0];
    while (!unused_.empty()) {
      poll();
      auto closest = unused_.begin();
      Alignment best = align(A, matrices_[*closest]);
      for (auto j = unused_.begin() + 1; j != unused_.end(); ++j) {
        const Alignment other = align(A, matrices_[*j]);
        if (other.score < best.score) {
          best = other;
          closest = j;
        }
      }
      // The sorted matrix takes the weight at its new place in the unsorted list, on purpose.
      const double weight = w[*closest];
      A = (weight * best.apply(matrices_[*closest])) / (W + weight) + (W * A) / (W + weight);
      W += weight;
      unused_.erase(closest);
    }
    for (Eigen::Index k = 0; k < 3; ++k) {
      A.row(k) /= A.row(k).squaredNorm();
    }
    return Ellipsoid(sort_matrix3d(A, true));
  }

 private:
  std::vector<std::size_t> order_;
  std::vector<Matrix3> matrices_;    // in the order of falling weight
  std::vector<std::size_t> unused_;  // positions in matrices_, ascending
};

void require_entries(const std::vector<double>& w) {
  if (w.empty()) {
    throw std::invalid_argument("w is empty; an ensemble needs at least one ellipsoid");
  }
}

}  // namespace

Ellipsoid ensemble_model(const std::vector<double>& w, const std::vector<EllipsoidInfo>& infos) {
  require_equal_lengths("the ellipsoids", infos.size(), "w", w.size());
  require_entries(w);
  InterruptPoller poll;
  return RangeBlender()(
      w, [&](std::size_t i) { return range_matrix(infos[i]); }, poll);
}

Ellipsoid ensemble_ellipsoid(const std::vector<double>& w,
                             const std::vector<Ellipsoid>& ellipsoids) {
  require_equal_lengths("ellipsoids", ellipsoids.size(), "w", w.size());
  require_entries(w);
  InterruptPoller poll;
  return RangeBlender()(
      w, [&](std::size_t i) { return range_matrix(ellipsoids[i].info()); }, poll);
}

std::vector<Ellipsoid> ensemble_local_ellipsoids(const Locations& target_locs,
                                                 const LocalEllipsoids& local,
                                                 const SearchLimits& limits, double eps,
                                                 int n_threads) {
  require_equal_lengths("ellipsoids", local.ellipsoids.size(), "ellipsoid_locs", local.locs.size());
  require_equal_lengths("ellipsoid_weights", local.weights.size(), "ellipsoid_locs",
                        local.locs.size());
  if (!limits.dhids.empty()) {
    require_equal_lengths("dhids", limits.dhids.size(), "ellipsoid_locs", local.locs.size());
  }
  n_threads = check_n_threads(n_threads);
  const Neighborhood neighborhood(local.locs);
  const NeiGetter getter =
      create_nei_getter({target_locs, neighborhood, local.locs, local.weights}, limits);
  std::vector<Matrix3> matrices(local.ellipsoids.size());
  parallel_for(matrices.size(), n_threads, [&](Worker&, std::size_t i) {
    matrices[i] = range_matrix(local.ellipsoids[i].info());
  });
  std::vector<Ellipsoid> result(target_locs.size());
  visit_targets(target_locs, neighborhood, getter, n_threads, [&](Worker& worker) {
    return [&, blend = RangeBlender(), w = std::vector<double>()](
               std::size_t i, const std::vector<std::size_t>& neighbors) mutable {
      if (neighbors.empty()) {
        return;
      }
      w.clear();
      double sum = 0.0;
      for (const std::size_t j : neighbors) {
        const double d = (local.locs[j] - target_locs[i]).norm();
        w.push_back(local.weights[j] / (d * d * d + eps));
        sum += w.back();
      }
      for (double& weight : w) {
        weight /= sum;
      }
      result[i] = blend(
          w, [&](std::size_t k) { return matrices[neighbors[k]]; }, worker);
    };
  });
  return result;
}

}  // namespace talvorix
