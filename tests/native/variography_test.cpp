#include "core/random.h"
#include "variography/exp_variogram_search.h"

#include <gtest/gtest.h>

namespace talvorix {
namespace {

TEST(ExpVariogram, DoesNotDependOnTheNumberOfThreads) {
  RandomEngine rng = seeded_engine(4);
  Locations points;
  std::vector<double> values;
  for (int i = 0; i < 800; ++i) {
    points.emplace_back(100.0 * uniform(rng), 60.0 * uniform(rng), 20.0 * uniform(rng));
    values.push_back(uniform(rng));
  }
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

}  // namespace
}  // namespace talvorix
