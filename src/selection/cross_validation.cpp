#include "selection/cross_validation.h"

#include "core/arguments.h"
#include "core/parallel.h"
#include "core/random.h"
#include "core/weight_power.h"
#include "covariance/covariance_computer.h"
#include "covariance/mapped_model.h"
#include "estimation/kriging_solver.h"
#include "selection/correlated_idw.h"
#include "selection/fold_search.h"
#include "selection/standardisation.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <memory>
#include <stdexcept>

namespace talvorix {

namespace {

// Calls make_method(model, values, worker) once for each worker and what it returns with every
// datum that has partitions, them and the row for their errors.
template <class MakeMethod>
ErrorTable validate(const Locations& data_locs, std::vector<double> values,
                    const CovarianceModel& covs, const CrossValidation& validation,
                    std::int64_t seed, int n_threads, MakeMethod&& make_method) {
  require_equal_lengths("data_values", values.size(), "data_locs", data_locs.size());
  check_partition_sizes(validation.partitions, "n_partition_size");
  if (covs.empty()) {
    throw std::invalid_argument("covs is empty; a model has at least one structure");
  }
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  ErrorTable table(values.size(),
                   std::vector<double>(static_cast<std::size_t>(validation.partitions.count), nan));
  standardise(values);
  const CandidateSearch search(data_locs, validation.max_distance, validation.max_size);
  const int n_workers = check_n_threads(n_threads);
  RandomEngine rng = seeded_engine(seed);
  std::vector<std::int64_t> seeds;
  seeds.reserve(static_cast<std::size_t>(n_workers));
  for (int worker = 0; worker < n_workers; ++worker) {
    seeds.push_back(static_cast<std::int64_t>(rng()));
  }
  const MappedModel model(create_cov_computer(covs, -1), data_locs, n_workers);
  parallel_blocks(
      values.size(), n_workers, [&](Worker& worker, std::size_t begin, std::size_t end) {
        auto method = make_method(model, values, worker);
        PartitionSampler sampler(search, validation.partitions,
                                 seeded_engine(seeds[static_cast<std::size_t>(worker.index())]));
        Partitions partitions;
        for (std::size_t i = begin; i < end; ++i) {
          worker.poll();
          sampler.draw(i, partitions);
          if (!partitions.ends.empty()) {
            method(i, partitions, table[i].data());
          }
        }
      });
  return table;
}

template <class System>
ErrorTable validate_kriging(const Locations& data_locs, std::vector<double> values,
                            const CovarianceModel& covs, const CrossValidation& validation,
                            std::int64_t seed, int n_threads, const System& system) {
  const auto make_method = [&](const MappedModel& model, const std::vector<double>& data,
                               Worker& worker) {
    auto solver = std::make_unique<KrigingSolver<System>>(system, model, data_locs, data, worker);
    return [&, solver = std::move(solver), used = std::vector<std::size_t>()](
               std::size_t i, const Partitions& partitions, double* errors) mutable {
      auto begin = partitions.indices.begin();
      for (const std::uint32_t end_position : partitions.ends) {
        worker.poll();
        const auto end = partitions.indices.begin() + end_position;
        used.assign(begin, end);
        *errors++ = solver->solve(used, data_locs[i]).value - data[i];
        begin = end;
      }
    };
  };
  return validate(data_locs, std::move(values), covs, validation, seed, n_threads, make_method);
}

}  // namespace

ErrorTable kfold_cross_validation_using_idw(const Locations& data_locs,
                                            std::vector<double> data_values,
                                            const CovarianceModel& covs,
                                            const CrossValidation& validation, double power_a,
                                            std::int64_t seed, int n_threads) {
  return with_weight_power(power_a, [&](auto power) {
    const auto make_method = [&](const MappedModel& model, const std::vector<double>& data,
                                 Worker&) {
      return [idw = std::make_unique<CorrelatedIdw<decltype(power)>>(model, data, power)](
                 std::size_t i, const Partitions& partitions, double* errors) {
        idw->errors(i, partitions.indices, partitions.ends, errors);
      };
    };
    return validate(data_locs, std::move(data_values), covs, validation, seed, n_threads,
                    make_method);
  });
}

ErrorTable kfold_cross_validation_using_sk(const Locations& data_locs,
                                           std::vector<double> data_values,
                                           const CovarianceModel& covs,
                                           const CrossValidation& validation, std::int64_t seed,
                                           int n_threads) {
  // The values are standardised, so the known mean is 0.
  return validate_kriging(data_locs, std::move(data_values), covs, validation, seed, n_threads,
                          SimpleSystem{0.0});
}

ErrorTable kfold_cross_validation_using_ok(const Locations& data_locs,
                                           std::vector<double> data_values,
                                           const CovarianceModel& covs,
                                           const CrossValidation& validation, std::int64_t seed,
                                           int n_threads) {
  return validate_kriging(data_locs, std::move(data_values), covs, validation, seed, n_threads,
                          OrdinarySystem{});
}

}  // namespace talvorix
