#include "core/random.h"
#include "estimation/kriging.h"
#include "simulation/conditioning.h"
#include "simulation/ensemble_simulator.h"
#include "simulation/simulator_generator.h"
#include "simulation/turning_bands.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

namespace talvorix {
namespace {

const Locations field_corners = {{-50, -50, -50}, {50, 50, 50}};
const Covariance structure =
    Covariance::of_type(Covariance::Type::gaussian, 1.0, Ellipsoid(60, 40, 20, 30, 10, 5));

SpatialFunction constant(double value) {
  return SpatialFunction([value](const Vector3&) { return value; });
}

Locations scattered(std::size_t n, double half) {
  RandomEngine rng = seeded_engine(17);
  Locations locations;
  for (std::size_t i = 0; i < n; ++i) {
    const double x = half * (2.0 * uniform(rng) - 1.0);
    const double y = half * (2.0 * uniform(rng) - 1.0);
    locations.emplace_back(x, y, half * (2.0 * uniform(rng) - 1.0));
  }
  return locations;
}

TEST(SimulatorPool, MixesWithWeightsWhoseSquaresAddUpToOne) {
  const auto pool = create_simulator_pool({constant(1.0), constant(10.0), constant(100.0)});
  RandomEngine rng = seeded_engine(8);
  const double u1 = uniform(rng);
  const double u2 = uniform(rng);
  const double u3 = uniform(rng);
  const double sum = u1 + u2 + u3;
  const double expected =
      std::sqrt(u1 / sum) + 10.0 * std::sqrt(u2 / sum) + 100.0 * std::sqrt(u3 / sum);
  EXPECT_NEAR(pool(8)({1, 2, 3}), expected, 1e-12);
  EXPECT_NEAR(evaluate(pool(8), scattered(5, 9.0), 2)[4], expected, 1e-12);
  const auto alone = create_simulator_pool({constant(7.0)});
  EXPECT_EQ(alone(1)({0, 0, 0}), 7.0);
  EXPECT_EQ(alone(2)({0, 0, 0}), 7.0);
}

TEST(TurningGenerator, LooksUpTurnedLocationsAndIsZeroOutside) {
  // A base field that tells where it was evaluated.
  const Locations box = {{-4, -4, -4}, {4, 4, 4}};
  const SpatialFunction where(
      [](const Vector3& x) { return 1e4 * x.x() + 1e2 * x.y() + x.z() + 1e6; });
  const Ellipsoid body(3, 2, 1, 20, 10, 30);
  const auto generator = create_simulator_generator(body, box, where, 16, 2);
  RandomEngine rng = seeded_engine(5);
  const double azimuth = 360.0 * uniform(rng) - 180.0;
  const double dip = 360.0 * uniform(rng) - 180.0;
  const double rake = 360.0 * uniform(rng) - 180.0;
  const auto field = generator(5);
  int n_inside = 0;
  for (const Vector3& location : scattered(400, 6.0)) {
    const Vector3 turned = rotation(azimuth, dip, rake).forward(body.forward(location));
    const Vector3 node = ((turned.array() + 4.0) / 0.5).floor();
    if ((node.array() < 0.0).any() || (node.array() > 15.0).any()) {
      // Between the first node and one step before it, truncation leads to the first as well.
      EXPECT_TRUE(field(location) == 0.0 || node.minCoeff() == -1.0);
    } else {
      EXPECT_NEAR(field(location), where(node * 0.5 - Vector3::Constant(4.0)), 1e-6);
      ++n_inside;
    }
  }
  EXPECT_GT(n_inside, 50);
  EXPECT_THROW(create_simulator_generator(body, box, where, 0, 1), std::invalid_argument);
}

TEST(TurningGenerator, GivesFieldsOfTheModel) {
  const CovarianceModel model = {structure, Covariance::nugget(0.5)};
  const auto by_lines = create_tbsim_simulator_generator(field_corners, model, 3, 300, 2, 40);
  const auto by_transform =
      create_fim_simulator_generator(field_corners, model, 3, {48, 48, 48}, 2, 40);
  const Locations locations = scattered(300, 50.0);
  for (const auto* generator : {&by_lines, &by_transform}) {
    double squares = 0.0;
    for (int seed = 0; seed < 60; ++seed) {
      for (const double value : evaluate((*generator)(seed), locations, 1)) {
        squares += value * value / (60.0 * 300.0);
      }
    }
    // One base field serves all seeds, so its own variance shows.
    EXPECT_NEAR(squares, 1.5, 0.5);
  }
  EXPECT_THROW(create_tbsim_simulator_generator({}, structure, 1, 9, 1, 9), std::invalid_argument);
}

TEST(Conditioning, IsExactAtDataForLocalModelsToo) {
  const Locations data_locs = scattered(40, 50.0);
  std::vector<double> data;
  for (const Vector3& location : data_locs) {
    data.push_back(0.1 * location.x() + 3.0);
  }
  const CovarianceModel model = {structure};
  const Neighborhood neighborhood(data_locs, structure.ellipsoid);
  const SearchLimits limits{12, -1.0, -1, {}, -1};
  const auto simulator = create_tbsim_simulator(field_corners, structure, 4, 50);
  const auto at_data = simulate(create_sk_estimator(model, 0.0, limits), data_locs, neighborhood,
                                data_locs, data, simulator, 2);
  EXPECT_THROW(simulate(create_sk_estimator(model, 0.0, limits), data_locs, neighborhood, data_locs,
                        {1.0}, simulator, 1),
               std::invalid_argument);

  const LocalCovariances local({{-20, 0, 0}, {20, 0, 0}}, {model, model}, {1.0, 1.0});
  const SimulatorFactory factory = [](const CovarianceModel& covs, std::int64_t seed) {
    return create_tbsim_simulator(field_corners, covs, seed, 50);
  };
  EnsembleParameters parameters;
  parameters.use_sk = true;
  parameters.run_normalization = false;
  const auto blended = ensemble_simulation({data_locs, neighborhood, data_locs, data}, local,
                                           parameters, limits, factory, 6, 2);
  for (std::size_t i = 0; i < data.size(); ++i) {
    EXPECT_NEAR(at_data[i], data[i], 1e-8);
    EXPECT_NEAR(blended[i], data[i], 1e-8);
  }

  // On a centre with the whole weight, the field there is that centre's own.
  RandomEngine rng = seeded_engine(6);
  const auto first = static_cast<std::int64_t>(rng());
  const auto ensemble = create_ensemble_simulator(local, factory, {1.0, 2.0}, 6);
  EXPECT_NEAR(ensemble({-20, 0, 0}), factory(model, first)({-20, 0, 0}), 1e-12);
  // Halfway, both count alike.
  const auto second = static_cast<std::int64_t>(rng());
  const Vector3 middle(0, 5, 5);
  const double expected =
      std::sqrt(0.5) * (factory(model, first)(middle) + factory(model, second)(middle));
  EXPECT_NEAR(ensemble(middle), expected, 1e-12);
  EXPECT_NEAR(unconditional_ensemble_simulation({middle}, local, factory, {1.0, 2.0}, 6, 2)[0],
              expected, 1e-12);
}

}  // namespace
}  // namespace talvorix
