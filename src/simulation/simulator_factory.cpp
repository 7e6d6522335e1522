#include "simulation/simulator_factory.h"

#include "core/arguments.h"
#include "simulation/covered_locations.h"
#include "simulation/turning_bands.h"

#include <utility>

namespace talvorix {

SimulatorFactory create_fim_factory(Locations locs, const LatticeCounts& counts, int n_threads) {
  require_covered(locs);
  return
      [locs = std::move(locs), counts, n_threads](const CovarianceModel& covs, std::int64_t seed) {
        return create_fim_simulator(locs, covs, seed, counts, n_threads);
      };
}

SimulatorFactory create_tbsim_factory(Locations locs, int n) {
  require_covered(locs);
  require_positive_count("n", n);
  return [locs = std::move(locs), n](const CovarianceModel& covs, std::int64_t seed) {
    return create_tbsim_simulator(locs, covs, seed, n);
  };
}

}  // namespace talvorix
