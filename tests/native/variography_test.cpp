#include "core/random.h"
#include "variography/exp_variogram_search.h"
#include "variography/map_variogram.h"
#include "variography/variogram_smoothing.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace talvorix {
namespace {

struct Data {
  Locations points;
  std::vector<double> values;

  Data() {
    RandomEngine rng = seeded_engine(4);
    for (int i = 0; i < 800; ++i) {
      points.emplace_back(100.0 * uniform(rng), 60.0 * uniform(rng), 20.0 * uniform(rng));
      values.push_back(uniform(rng));
    }
  }
};

TEST(ExpVariogram, DoesNotDependOnTheNumberOfThreads) {
  const auto [points, values] = Data();
  const ExperimentalVariogram one = compute_exp_variogram(points, values, {}, 1);
  EXPECT_GT(one.lags().size(), 5000U);
  for (const int n_threads : {2, 3}) {
    const ExperimentalVariogram many = compute_exp_variogram(points, values, {}, n_threads);
    EXPECT_EQ(many.variogram(), one.variogram());
    EXPECT_EQ(many.npairs(), one.npairs());
    EXPECT_EQ(many.lags(), one.lags());
    EXPECT_EQ(many.lags_by_dir(), one.lags_by_dir());
  }
}

// Some cells of the map have many data, of which the last counts.
TEST(MapVariogram, AndItsSmoothingDoNotDependOnTheNumberOfThreads) {
  const auto [points, values] = Data();
  const auto both = [&, &points = points, &values = values](int n_threads) {
    const ExperimentalVariogram map = compute_map_variogram(
        points, points, values, {{7, 6, 5}, Vector3::Zero()}, {40, 30, 1.5, 3}, n_threads);
    return std::pair(map, smooth_variogram(map, {0, 0, 20.0, 9.0, 2.0, 0.5, 9, 1}, n_threads));
  };
  const auto [map, smooth] = both(1);
  EXPECT_GT(smooth.lags().size(), 500U);
  for (const int n_threads : {2, 3}) {
    const auto [other_map, other_smooth] = both(n_threads);
    EXPECT_EQ(other_map.variogram(), map.variogram());
    EXPECT_EQ(other_map.lags(), map.lags());
    EXPECT_EQ(other_smooth.variogram(), smooth.variogram());
    EXPECT_EQ(other_smooth.npairs(), smooth.npairs());
  }
}

}  // namespace
}  // namespace talvorix
