#include "core/random.h"
#include "core/vector_cosine.h"
#include "simulation/fourier_integral.h"
#include "simulation/nugget_simulator.h"
#include "simulation/sum_simulator.h"
#include "simulation/turning_bands.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace talvorix {
namespace {

using Type = Covariance::Type;

Locations random_locations(std::size_t n, double size) {
  RandomEngine rng = seeded_engine(11);
  Locations locations;
  for (std::size_t i = 0; i < n; ++i) {
    const double x = size * uniform(rng);
    const double y = size * uniform(rng);
    locations.emplace_back(x, y, size * uniform(rng));
  }
  return locations;
}

Locations box_corners(double low, double high) {
  Locations corners;
  for (const double x : {low, high}) {
    for (const double y : {low, high}) {
      for (const double z : {low, high}) {
        corners.emplace_back(x, y, z);
      }
    }
  }
  return corners;
}

TEST(VectorCosine, IsTheCosine) {
  RandomEngine rng = seeded_engine(1);
  for (const double scale : {1.0, 10.0, 1e3, largest_for_vector_cosine}) {
    for (int i = 0; i < 20000; ++i) {
      const double x = (2.0 * uniform(rng) - 1.0) * scale;
      EXPECT_NEAR(vector_cosine(x), std::cos(x), 5e-16) << x;
    }
  }
}

// Many values at once and one by one go through different code.
void expect_consistent(const SpatialFunction& field, const Locations& locations, double tolerance) {
  const std::vector<double> values = evaluate(field, locations, 1);
  const std::vector<double> by_three = evaluate(field, locations, 3);
  for (std::size_t i = 0; i < locations.size(); ++i) {
    const double alone = field(locations[i]);
    ASSERT_TRUE(by_three[i] == values[i] || std::isnan(alone)) << i;
    if (std::isfinite(alone)) {
      ASSERT_NEAR(values[i], alone, tolerance) << i;
    } else {
      ASSERT_FALSE(std::isfinite(values[i])) << i;
    }
  }
}

TEST(TurningBands, GiveTheSameInBlocksAndAlone) {
  Locations locations = random_locations(1500, 100.0);
  const Locations covered = locations;
  locations[7] = {1e5, -1e5, 3.0};
  locations[600].y() = std::numeric_limits<double>::quiet_NaN();
  for (const Type type : {Type::spherical, Type::exponential, Type::gaussian}) {
    // All signs of a block in one word, and not.
    for (const double range : {300.0, 40.0, 0.4}) {
      const auto cov = Covariance::of_type(type, 2.0, {range, range, 0.3 * range, 20, 10, 5});
      expect_consistent(create_tbsim_simulator(covered, cov, 3, 40), locations, 1e-7);
    }
  }
}

// Mean over fields and locations of products at a lag.
double covariance_at(const std::vector<SpatialFunction>& fields, const Vector3& lag) {
  const Locations from = random_locations(400, 1000.0);
  Locations to = from;
  for (Vector3& location : to) {
    location += lag;
  }
  double sum = 0.0;
  for (const SpatialFunction& field : fields) {
    const auto a = evaluate(field, from, 1);
    const auto b = evaluate(field, to, 1);
    for (std::size_t i = 0; i < a.size(); ++i) {
      sum += a[i] * b[i] / static_cast<double>(a.size() * fields.size());
    }
  }
  return sum;
}

TEST(TurningBands, ReproduceTheModel) {
  const Locations covered = box_corners(-300.0, 1300.0);
  const Ellipsoid body(200.0, 120.0, 60.0, 35.0, -20.0, 10.0);
  for (const Type type : {Type::spherical, Type::gaussian}) {
    const auto cov = Covariance::of_type(type, 1.5, body);
    std::vector<SpatialFunction> fields;
    for (int seed = 0; seed < 60; ++seed) {
      fields.push_back(create_tbsim_simulator(covered, cov, seed, 200));
    }
    for (const double part : {0.0, 0.3, 0.6, 1.2}) {
      const Vector3 lag = part * body.axis(1);
      EXPECT_NEAR(covariance_at(fields, lag), cov(lag), 0.08) << to_text(type) << " " << part;
    }
  }
}

TEST(TurningBands, FallBackToNoiseWhereLinesWouldBeTooLong) {
  // A line along the field has 10000 cells at an extent of 9998, and one more a little beyond.
  const auto is_noise = [](double extent) {
    const auto cov = Covariance::of_type(Type::spherical, 1.0, Ellipsoid(1, 1, 1, 90, 0, 0));
    const Locations ends = {{0.0, 0.0, 0.0}, {extent, extent, extent}};
    int changing = 0;
    for (int seed = 0; seed < 40; ++seed) {
      const SpatialFunction field = create_tbsim_simulator(ends, cov, seed, 1);
      changing += field(ends[0]) != field(ends[0]) ? 1 : 0;
    }
    return changing;
  };
  EXPECT_EQ(is_noise(5000.0), 0);  // its diagonal is 8660 long
  const int some = is_noise(9998.0);
  EXPECT_GT(some, 0);
  EXPECT_LT(some, 40);
  EXPECT_GT(is_noise(1e9), 35);
}

TEST(FourierIntegral, IsAUnitFieldOfTheModelOnItsLattice) {
  const Locations covered = box_corners(-300.0, 1300.0);
  const auto cov = Covariance::of_type(Type::exponential, 1.5,
                                       Ellipsoid(400.0, 300.0, 260.0, 35.0, -20.0, 10.0));
  std::vector<SpatialFunction> fields;
  for (int seed = 0; seed < 40; ++seed) {
    fields.push_back(create_fim_simulator(covered, cov, seed, {48, 47, 48}, 2));
  }
  EXPECT_NEAR(covariance_at(fields, Vector3::Zero()), 1.5, 0.15);
  // Nodes are 50 apart, so a lag is known to within the size of a cell.
  for (const double part : {0.3, 0.6}) {
    const Vector3 lag = part * cov.ellipsoid.axis(0);
    EXPECT_NEAR(covariance_at(fields, lag), cov(lag), 0.15) << part;
  }
}

TEST(FourierIntegral, EdgesUnitCountsAndSeeds) {
  const auto cov = Covariance::of_type(Type::spherical, 2.0, Ellipsoid(3, 2, 1, 10, 20, 30));
  const Locations flat = {{0, 0, 0}, {10, 0, 0}, {0, 10, 0}, {10, 10, 0}};
  for (const LatticeCounts& counts :
       {LatticeCounts{8, 8, 8}, {7, 1, 5}, {0, -3, 2}, {1, 1, 1}, {2, 2, 2}, {5, 4, 3}}) {
    const auto field = create_fim_simulator(flat, cov, 5, counts, 1);
    const auto again = create_fim_simulator(flat, cov, 5, counts, 1);
    for (const Vector3& location : random_locations(50, 30.0)) {
      EXPECT_TRUE(std::isfinite(field(location)));
      EXPECT_EQ(field(location), again(location));
    }
    for (const double far : {1e9, -1e300, std::numeric_limits<double>::infinity()}) {
      EXPECT_TRUE(std::isfinite(field({far, far, -far})));
    }
  }
  const auto line = create_fim_simulator({{0, 0, 0}, {9, 0, 0}}, cov, 5, {16, 16, 16}, 2);
  EXPECT_TRUE(std::isfinite(line({4.0, 0.0, 0.0})));
  expect_consistent(line, random_locations(300, 10.0), 0.0);
  EXPECT_NE(create_fim_simulator(flat, cov, 6, {8, 8, 8}, 1)({1, 2, 0}),
            create_fim_simulator(flat, cov, 5, {8, 8, 8}, 1)({1, 2, 0}));
  const auto none = Covariance::of_type(Type::spherical, 0.0, Ellipsoid());
  EXPECT_EQ(create_fim_simulator(flat, none, 5, {8, 8, 8}, 1)({1, 2, 0}), 0.0);
  for (const auto& make : {+[](const Locations&locs, const Covariance&c) {
                             return create_fim_simulator(locs, c, 1, {4, 4, 4}, 1);
                           },
                           +[](const Locations&locs, const Covariance&c) {
                             return create_tbsim_simulator(locs, c, 1, 5);
                           }}) {
    EXPECT_THROW(make({}, cov), std::invalid_argument);
  }
  EXPECT_THROW(create_tbsim_simulator(flat, cov, 1, 0), std::invalid_argument);
}

TEST(Nugget, DrawsAnewFromTheEngineOfTheWorker) {
  const auto noise = create_nugget_simulator(2.0, 9);
  RandomEngine main_rng = seeded_engine(9);
  RandomEngine first = seeded_engine(static_cast<std::int64_t>(main_rng()));
  const Locations same(5, Vector3(1, 2, 3));
  const auto values = evaluate(noise, same, 1);
  for (const double value : values) {
    EXPECT_EQ(value, 2.0 * StandardNormal()(first));
  }
  EXPECT_EQ(noise(same.front()), 2.0 * StandardNormal()(first));
  EXPECT_EQ(create_simulator({})(same.front()), 0.0);
}

}  // namespace
}  // namespace talvorix
