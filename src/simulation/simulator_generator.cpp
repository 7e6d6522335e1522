#include "simulation/simulator_generator.h"

#include "core/arguments.h"
#include "core/memory_limit.h"
#include "core/parallel.h"
#include "core/random.h"
#include "simulation/covered_locations.h"
#include "simulation/nugget_simulator.h"
#include "simulation/sum_simulator.h"
#include "simulation/turning_bands.h"
#include "spatial/bounding_box.h"
#include "spatial/cartesian_grid.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace talvorix {

namespace {

class MixtureField final : public SpatialField {
 public:
  MixtureField(std::shared_ptr<const std::vector<SpatialFunction>> parts,
               std::vector<double> weights)
      : parts_(std::move(parts)), weights_(std::move(weights)) {}

  double value(const Vector3& location, int worker) const override {
    double sum = 0.0;
    for (std::size_t j = 0; j < weights_.size(); ++j) {
      sum += weights_[j] * (*parts_)[j].field().value(location, worker);
    }
    return sum;
  }

  void values(std::span<const Vector3> locations, double* values, int worker,
              PollRef poll) const override {
    std::array<double, 1024> of_part;
    while (!locations.empty()) {
      const std::size_t n = std::min(locations.size(), of_part.size());
      std::fill_n(values, n, 0.0);
      for (std::size_t j = 0; j < weights_.size(); ++j) {
        poll();
        (*parts_)[j].field().values(locations.first(n), of_part.data(), worker, poll);
        for (std::size_t i = 0; i < n; ++i) {
          values[i] += weights_[j] * of_part[i];
        }
      }
      locations = locations.subspan(n);
      values += n;
    }
  }

 private:
  std::shared_ptr<const std::vector<SpatialFunction>> parts_;
  std::vector<double> weights_;
};

// The values of a field on the nodes of a lattice, which all its turns share.
struct Lattice {
  Vector3 origin;
  Vector3 cell;
  std::array<double, 3> counts;
  // After one leading 0, which locations outside read.
  std::vector<double> values;

  double at(const Vector3& location) const {
    std::array<double, 3> node{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto row = static_cast<Eigen::Index>(axis);
      node[axis] = std::trunc((location[row] - origin[row]) / cell[row]);
      if (!(node[axis] >= 0.0 && node[axis] < counts[axis])) {
        return values.front();
      }
    }
    const double index = (node[0] * counts[1] + node[1]) * counts[2] + node[2];
    return values[static_cast<std::size_t>(index) + 1];
  }
};

class TurnedField final : public SpatialField {
 public:
  TurnedField(std::shared_ptr<const Lattice> lattice, const Matrix3& to_lattice)
      : lattice_(std::move(lattice)), to_lattice_(to_lattice) {}

  double value(const Vector3& location, int) const override {
    return lattice_->at(to_lattice_ * location);
  }

 private:
  std::shared_ptr<const Lattice> lattice_;
  Matrix3 to_lattice_;
};

Locations box_corners(const Vector3& lower, const Vector3& upper) {
  Locations corners;
  for (const double x : {lower.x(), upper.x()}) {
    for (const double y : {lower.y(), upper.y()}) {
      for (const double z : {lower.z(), upper.z()}) {
        corners.emplace_back(x, y, z);
      }
    }
  }
  return corners;
}

SimulatorGenerator nugget_generator(double sill) {
  return
      [sigma = std::sqrt(sill)](std::int64_t seed) { return create_nugget_simulator(sigma, seed); };
}

// The structure in its own space.
Covariance standard_copy(const Covariance& cov) {
  Covariance copy = cov;
  copy.ellipsoid = Ellipsoid();
  return copy;
}

// make_base(corners, structure) simulates the field that is turned.
template <class MakeBase>
SimulatorGenerator turning_generator(const Locations& locs, const Covariance& cov, int n_threads,
                                     int n_base_simulation_points, MakeBase&& make_base) {
  require_covered(locs);
  if (cov.type == Covariance::Type::nugget) {
    return nugget_generator(cov.sill);
  }
  const Locations corners = rotation_corners(locs, cov, n_threads);
  return create_simulator_generator(cov.ellipsoid, corners, make_base(corners, standard_copy(cov)),
                                    n_base_simulation_points, n_threads);
}

// make_generator(structure, seed) makes the generator of one structure.
template <class MakeGenerator>
SimulatorGenerator model_generator(const CovarianceModel& covs, std::int64_t seed,
                                   MakeGenerator&& make_generator) {
  RandomEngine rng = seeded_engine(seed);
  std::vector<SimulatorGenerator> generators;
  generators.reserve(covs.size());
  for (const Covariance& cov : covs) {
    generators.push_back(make_generator(cov, static_cast<std::int64_t>(rng())));
  }
  return create_simulator_generator(std::move(generators));
}

}  // namespace

SimulatorGenerator create_simulator_pool(std::vector<SpatialFunction> simulators) {
  const auto parts = std::make_shared<const std::vector<SpatialFunction>>(std::move(simulators));
  return [parts](std::int64_t seed) {
    RandomEngine rng = seeded_engine(seed);
    std::vector<double> weights(parts->size());
    double sum = 0.0;
    for (double& weight : weights) {
      weight = uniform(rng);
      sum += weight;
    }
    for (double& weight : weights) {
      weight = std::sqrt(weight / sum);
    }
    return SpatialFunction(std::make_shared<MixtureField>(parts, std::move(weights)));
  };
}

SimulatorGenerator create_simulator_generator(std::vector<SimulatorGenerator> generators) {
  return [generators = std::move(generators)](std::int64_t seed) {
    RandomEngine rng = seeded_engine(seed);
    std::vector<SpatialFunction> parts;
    parts.reserve(generators.size());
    for (const SimulatorGenerator& generator : generators) {
      parts.push_back(generator(static_cast<std::int64_t>(rng())));
    }
    return create_simulator(std::move(parts));
  };
}

SimulatorGenerator create_simulator_generator(const Ellipsoid& ellipsoid, const Locations& locs,
                                              const SpatialFunction& base,
                                              int n_base_simulation_points, int n_threads) {
  require_positive_count("n_base_simulation_points", n_base_simulation_points);
  const std::int64_t n = n_base_simulation_points;
  // The nodes' locations, their values, and these once more while they are put behind the first 0.
  const auto n_nodes = std::pow(static_cast<double>(n), 3.0);
  require_memory("a lattice of " + std::to_string(n) + " nodes along each axis",
                 n_nodes * (sizeof(Vector3) + 2.0 * sizeof(double)));
  const BoundingBox box(locs);
  const CartesianGrid grid(box.size(), {n, n, n}, box.lower(), {90.0, 0.0, 0.0});
  auto lattice = std::make_shared<Lattice>();
  lattice->origin = grid.origin();
  lattice->cell = grid.cell_size();
  lattice->counts.fill(static_cast<double>(n));
  lattice->values = evaluate(base, grid.locations(), n_threads);
  lattice->values.insert(lattice->values.begin(), 0.0);
  return
      [lattice = std::shared_ptr<const Lattice>(std::move(lattice)), ellipsoid](std::int64_t seed) {
        RandomEngine rng = seeded_engine(seed);
        const double azimuth = uniform(rng) * 360.0 - 180.0;
        const double dip = uniform(rng) * 360.0 - 180.0;
        const double rake = uniform(rng) * 360.0 - 180.0;
        const Matrix3 turn = rotation(azimuth, dip, rake).matrix();
        return SpatialFunction(std::make_shared<TurnedField>(lattice, turn * ellipsoid.matrix()));
      };
}

Locations rotation_corners(const Locations& locs, const Covariance& cov, int n_threads) {
  const BoundingBox real_box(locs);
  const BoundingBox box(
      cov.ellipsoid.forward(box_corners(real_box.lower(), real_box.upper()), n_threads));
  const Vector3 length = box.size();
  const double f = 0.5 * length.norm();
  const Vector3 lower = (box.lower() + box.upper()) * 0.5 - f * length;
  // The middle of the new lower end and the old upper one, not of the old ends: deliberate.
  const Vector3 upper = (lower + box.upper()) * 0.5 + f * length;
  return box_corners(lower, upper);
}

SimulatorGenerator create_fim_simulator_generator(const Locations& locs, const Covariance& cov,
                                                  std::int64_t seed, const LatticeCounts& counts,
                                                  int n_threads, int n_base_simulation_points) {
  return turning_generator(locs, cov, n_threads, n_base_simulation_points,
                           [&](const Locations& corners, const Covariance& structure) {
                             return create_fim_simulator(corners, structure, seed, counts,
                                                         n_threads);
                           });
}

SimulatorGenerator create_fim_simulator_generator(const Locations& locs,
                                                  const CovarianceModel& covs, std::int64_t seed,
                                                  const LatticeCounts& counts, int n_threads,
                                                  int n_base_simulation_points) {
  return model_generator(covs, seed, [&](const Covariance& cov, std::int64_t structure_seed) {
    return create_fim_simulator_generator(locs, cov, structure_seed, counts, n_threads,
                                          n_base_simulation_points);
  });
}

SimulatorGenerator create_tbsim_simulator_generator(const Locations& locs, const Covariance& cov,
                                                    std::int64_t seed, int n, int n_threads,
                                                    int n_base_simulation_points) {
  return turning_generator(locs, cov, n_threads, n_base_simulation_points,
                           [&](const Locations& corners, const Covariance& structure) {
                             return create_tbsim_simulator(corners, structure, seed, n);
                           });
}

SimulatorGenerator create_tbsim_simulator_generator(const Locations& locs,
                                                    const CovarianceModel& covs, std::int64_t seed,
                                                    int n, int n_threads,
                                                    int n_base_simulation_points) {
  return model_generator(covs, seed, [&](const Covariance& cov, std::int64_t structure_seed) {
    return create_tbsim_simulator_generator(locs, cov, structure_seed, n, n_threads,
                                            n_base_simulation_points);
  });
}

}  // namespace talvorix
