#include "spatial/axis_clusters.h"
#include "spatial/dynamic_neighborhood.h"
#include "spatial/extreme_points.h"
#include "spatial/tightest_rotation.h"
#include "spatial/visiting_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>

namespace talvorix {
namespace {

using Indices = std::vector<std::size_t>;

Locations random_points(std::size_t n) {
  std::mt19937 rng(23);
  std::uniform_real_distribution<double> coordinate(-100.0, 100.0);
  Locations points(n);
  for (Vector3& point : points) {
    point = {coordinate(rng), coordinate(rng), coordinate(rng)};
  }
  return points;
}

Indices numbers(std::size_t n) {
  Indices result(n);
  std::iota(result.begin(), result.end(), std::size_t{0});
  return result;
}

TEST(DynamicNeighborhood, FindsTheActiveOnes) {
  Locations points = random_points(500);
  const Ellipsoid ellipsoid(80.0, 30.0, 12.0, 35.0, -20.0, 70.0);
  Indices order = numbers(points.size());
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  DynamicNeighborhood given(points, ellipsoid);
  DynamicNeighborhood neighborhood(std::move(given));  // it may move about in memory
  SearchScratch scratch;
  Indices active;
  for (std::size_t n = 0; n <= points.size(); ++n) {
    ASSERT_EQ(neighborhood.active_size(), n);
    const Vector3 center = points[n % points.size()] + Vector3(3.0, -2.0, 1.0);
    const auto distance = [&](std::size_t i) {
      return ellipsoid.forward(points[i] - center).norm();
    };
    const auto nearer = [&](std::size_t i, std::size_t j) { return distance(i) < distance(j); };
    if (n < 20 || n % 7 == 3 || n == points.size()) {
      std::sort(active.begin(), active.end(), nearer);
      for (const std::size_t k : {0, 1, 2, 13, 150, 1000}) {
        neighborhood.find_nearest(center, k, scratch);
        const Indices expected(active.begin(), active.begin() + std::min(k, n));
        ASSERT_EQ(scratch.indices, expected) << k << " nearest of " << n;
      }
      for (const double radius : {0.0, 0.3, 1.0, 4.0, 1e9}) {
        neighborhood.find_within(center, radius, scratch);
        const auto too_far = [&](std::size_t i) { return distance(i) >= radius; };
        const Indices expected(active.begin(), std::find_if(active.begin(), active.end(), too_far));
        ASSERT_EQ(scratch.indices, expected) << "radius " << radius << " among " << n;
      }
    }
    if (n == points.size()) break;
    neighborhood.activate(order[n]);
    active.push_back(order[n]);
    EXPECT_THROW(neighborhood.activate(order[n / 2]), std::invalid_argument);
    EXPECT_THROW(neighborhood.activate(points.size()), std::out_of_range);
  }
  points[2].y() = std::nan("");
  EXPECT_THROW(DynamicNeighborhood(points, ellipsoid), std::invalid_argument);
}

// The cells of 30 x 20 x 10, row by row.
Locations grid() {
  Locations cells;
  for (int i = 0; i < 6000; ++i) {
    cells.emplace_back(i % 30, i / 30 % 20, i / 600);
  }
  return cells;
}

TEST(VisitingOrder, IsAPermutationWhateverTheTargets) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double largest = std::numeric_limits<double>::max();
  const Ellipsoid ellipsoid(9.0, 5.0, 2.0, 30.0, 20.0, 10.0);
  for (const auto& neighborhood : {Neighborhood(grid()), Neighborhood(grid(), ellipsoid)}) {
    for (const std::size_t n : {0, 1, 63, 64, 1000}) {
      std::vector<Locations> lists(4, random_points(n));
      for (std::size_t i = 0; i < n; i += 3) {
        lists[1][i].y() = std::nan("");
        lists[2][i].x() = i % 2 == 0 ? infinity : -infinity;
        lists[3][i].z() = i % 2 == 0 ? largest : -largest;
      }
      lists.emplace_back(n, Vector3(1.0, 2.0, 3.0));
      lists.emplace_back(n, Vector3::Constant(std::nan("")));
      for (const Locations& targets : lists) {
        for (const int n_threads : {1, 2, 3}) {
          Indices order = visiting_order(targets, neighborhood, n_threads);
          std::sort(order.begin(), order.end());
          ASSERT_EQ(order, numbers(n)) << n << " targets, " << n_threads << " threads";
        }
      }
    }
  }
}

TEST(VisitingOrder, WalksFromNeighbourToNeighbour) {
  const Neighborhood neighborhood(grid());
  Locations targets = grid();
  EXPECT_EQ(visiting_order(targets, neighborhood, 1), numbers(6000)) << "this walks already";
  targets[7].x() = std::nan("");
  EXPECT_EQ(visiting_order(targets, neighborhood, 1), numbers(6000)) << "but for a step";
  targets = grid();
  std::shuffle(targets.begin(), targets.end(), std::mt19937(3));
  const auto path = [&](const Indices& order) {
    double length = 0.0;
    for (std::size_t i = 1; i < order.size(); ++i) {
      length += (targets[order[i]] - targets[order[i - 1]]).norm();
    }
    return length;
  };
  for (const std::size_t n_threads : {1, 2, 3}) {
    const Indices order = visiting_order(targets, neighborhood, static_cast<int>(n_threads));
    EXPECT_LT(path(order), 0.12 * path(numbers(6000))) << n_threads << " threads";
    // Each worker's share lies all over the grid.
    const std::size_t share = 6000 / n_threads;
    for (std::size_t begin = 0; begin < 6000; begin += share) {
      Vector3 mean = Vector3::Zero();
      for (std::size_t i = begin; i < begin + share; ++i) {
        mean += targets[order[i]] / share;
      }
      const Vector3 middle(14.5, 9.5, 4.5);
      EXPECT_LT((mean - middle).cwiseQuotient(middle).cwiseAbs().maxCoeff(), 0.3) << n_threads;
    }
  }
}

TEST(ParallelSearches, GiveTheSameOnAnyNumberOfThreads) {
  const Locations points = random_points(3000);
  const Locations outline = extreme_points(points, 50, 3, 1);
  const std::vector<int> clusters = find_clusters(points, 1.0, 1);
  EXPECT_GT(outline.size(), 20U);
  EXPECT_GT(*std::max_element(clusters.begin(), clusters.end()), 20);
  for (const int n_threads : {2, 3}) {
    EXPECT_EQ(extreme_points(points, 50, 3, n_threads), outline);
    EXPECT_EQ(find_clusters(points, 1.0, n_threads), clusters);
    // This one depends on the number of threads, but not on how they are run.
    const RotationSearch search{30, 200, false, 40};
    const RotatedBox found = optimize_rotation(points, search, 5, n_threads);
    const RotatedBox again = optimize_rotation(points, search, 5, n_threads);
    EXPECT_EQ(found.rotation.matrix(), again.rotation.matrix());
    EXPECT_EQ(found.box.corners(), again.box.corners());
  }
}

}  // namespace
}  // namespace talvorix
