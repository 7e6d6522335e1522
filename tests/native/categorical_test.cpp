#include "categorical/markov_chain.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>

namespace talvorix {
namespace {

using Kernels = FunctionTransiogram<double>::Kernels;

const Ellipsoid sphere(1.0, 1.0, 1.0, 0.0, 0.0, 0.0);

TransiogramHandle<double> table_of(std::size_t n_classes, const Kernels::value_type& row) {
  return std::make_shared<FunctionTransiogram<double>>(Kernels(n_classes, row));
}

Locations on_a_line(int n) {
  Locations locations;
  for (int i = 0; i < n; ++i) {
    locations.emplace_back(std::sqrt(i), 0.0, 0.0);
  }
  return locations;
}

TEST(MarkovChain, HandsSamplersWhatIsNearAndRemembersWhatTheyDraw) {
  const Locations targets = on_a_line(30);
  int drawn = 0;
  std::vector<int> expected(targets.size(), -1);
  const auto at = [](const Vector3& target) {
    return static_cast<std::size_t>(std::lround(target.squaredNorm()));
  };
  // Every second target gets no class and must never turn up as a neighbour.
  const auto conditional = std::make_shared<ConditionalSampler>(
      [&](RandomEngine&, const std::vector<ClassifiedLocation>& neighbors, const Vector3& target,
          const double& u) {
        EXPECT_EQ(u, 0.0);
        EXPECT_EQ(neighbors.size(), 1 + static_cast<std::size_t>(drawn / 2));
        EXPECT_EQ(neighbors[0].category, 1);
        for (std::size_t k = 1; k < neighbors.size(); ++k) {
          EXPECT_GT(neighbors[k].category, 0);
          EXPECT_EQ(neighbors[k].category, expected[at(neighbors[k].location)]);
        }
        return expected[at(target)] = ++drawn % 2 == 0 ? drawn : -1;
      });
  EXPECT_EQ(simulate_markov_chain<double>(targets, {{9, 9, 9}}, {1}, table_of(2, {{}, {}}), sphere,
                                          {-1.0, 1000}, 4, {}, conditional),
            expected);
  EXPECT_EQ(drawn, 30);
}

TEST(MarkovChain, RefusesWhatItCannotUse) {
  const auto run = [](const Kernels::value_type::value_type& kernel,
                      std::shared_ptr<UnconditionalSampler> unconditional = {}) {
    return simulate_markov_chain<double>(on_a_line(9), {}, {}, table_of(2, {kernel, kernel}),
                                         sphere, {}, 1, std::move(unconditional));
  };
  const auto half = [](const auto&, const auto&) { return 0.5; };
  EXPECT_THROW(run({}), std::bad_function_call);
  EXPECT_THROW(run(half, std::make_shared<UnconditionalSampler>()), std::bad_function_call);
  // A sampler's class outside the table is noticed when its row is asked for.
  const auto outside = [](RandomEngine&, const double&) { return 2; };
  EXPECT_THROW(run(half, std::make_shared<UnconditionalSampler>(outside)), std::out_of_range);
}

}  // namespace
}  // namespace talvorix
