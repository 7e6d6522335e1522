#include "selection/covariance_error.h"

#include "core/arguments.h"
#include "core/parallel.h"
#include "core/weight_power.h"
#include "covariance/covariance_computer.h"
#include "selection/correlated_idw.h"
#include "selection/fold_search.h"
#include "selection/partitions.h"
#include "selection/standardisation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <span>
#include <stdexcept>
#include <utility>

namespace talvorix {

namespace {

struct ErrorSum {
  double sum = 0.0;
  double count = 0.0;
};

// All partitions of a fold, kept. They depend on the locations and the seed alone, and drawing them
// costs many times what scoring a model does.
struct KeptPartitions {
  std::vector<std::uint32_t> indices;
  std::vector<std::uint32_t> ends;  // of each partition, counted from its datum's first index
  std::vector<std::uint32_t> data;  // those that have partitions
  std::vector<std::size_t> first_indices;  // of each of them
};

class ScoredFold {
 public:
  ScoredFold(const Fold& fold, const IdwScoring& scoring)
      : locations_(fold.locations), values_(fold.values), scoring_(scoring) {
    require_equal_lengths("the values of a fold", values_.size(), "its locations",
                          locations_.size());
    standardise(values_);
  }

  double indices_at_most() const {
    return static_cast<double>(locations_.size()) *
           static_cast<double>(scoring_.validation.partitions.count) *
           std::min(static_cast<double>(locations_.size()),
                    static_cast<double>(scoring_.validation.partitions.largest));
  }

  void keep_partitions(PollRef poll) {
    auto kept = std::make_unique<KeptPartitions>();
    draw(poll, [&](std::uint32_t i, const Partitions& partitions) {
      kept->data.push_back(i);
      kept->first_indices.push_back(kept->indices.size());
      kept->indices.insert(kept->indices.end(), partitions.indices.begin(),
                           partitions.indices.end());
      kept->ends.insert(kept->ends.end(), partitions.ends.begin(), partitions.ends.end());
    });
    kept_ = std::move(kept);
  }

  template <class Power>
  ErrorSum score(const CovarianceComputer& computer, Power power, PollRef poll) const {
    const MappedModel model(computer, locations_, 1);
    CorrelatedIdw<Power> idw(model, values_, power);
    std::vector<double> errors(static_cast<std::size_t>(scoring_.validation.partitions.count));
    ErrorSum total;
    const auto add = [&](std::uint32_t i, std::span<const std::uint32_t> indices,
                         std::span<const std::uint32_t> ends) {
      idw.errors(i, indices, ends, errors.data());
      for (const double error : errors) {
        if (std::isfinite(error)) {
          total.sum += std::abs(error);
          total.count += 1.0;
        }
      }
    };
    if (kept_) {
      const std::span<const std::uint32_t> indices(kept_->indices);
      const std::span<const std::uint32_t> ends(kept_->ends);
      for (std::size_t d = 0; d < kept_->data.size(); ++d) {
        poll();
        const auto of_datum = ends.subspan(d * errors.size(), errors.size());
        add(kept_->data[d], indices.subspan(kept_->first_indices[d], of_datum.back()), of_datum);
      }
    } else {
      draw(poll, [&](std::uint32_t i, const Partitions& partitions) {
        add(i, partitions.indices, partitions.ends);
      });
    }
    return total;
  }

 private:
  // Calls use(i, partitions) for every datum that has any, as a validation on one thread draws
  // them.
  template <class Use>
  void draw(PollRef poll, Use&& use) const {
    const CrossValidation& validation = scoring_.validation;
    const CandidateSearch search(locations_, validation.max_distance, validation.max_size);
    RandomEngine main_rng = seeded_engine(scoring_.seed);
    PartitionSampler sampler(search, validation.partitions,
                             seeded_engine(static_cast<std::int64_t>(main_rng())));
    Partitions partitions;
    for (std::size_t i = 0; i < locations_.size(); ++i) {
      poll();
      sampler.draw(i, partitions);
      if (!partitions.ends.empty()) {
        use(static_cast<std::uint32_t>(i), partitions);
      }
    }
  }

  Locations locations_;
  std::vector<double> values_;
  IdwScoring scoring_;
  std::unique_ptr<const KeptPartitions> kept_;
};

// Long ranges are punished by their logarithm, in the units of the coordinates.
double range_penalty(const CovarianceModel& cov) {
  double penalty = 0.0;
  for (const Covariance& structure : cov) {
    const Vector3 squared_ranges =
        structure.ellipsoid.matrix().rowwise().squaredNorm().cwiseInverse();
    penalty += std::log(1.0 + squared_ranges[1]) + std::log(1.0 + squared_ranges[0]) +
               std::log(1.0 + squared_ranges[2]);
  }
  return penalty;
}

class IdwErrorMeasure {
 public:
  IdwErrorMeasure(const std::vector<Fold>& folds, const IdwScoring& scoring) : scoring_(scoring) {
    check_partition_sizes(scoring.validation.partitions, "n_partitions");
    for (const Fold& fold : folds) {
      folds_.emplace_back(fold, scoring);
    }
  }

  // Makes ready for many models.
  void keep_partitions(int n_threads) {
    // Beyond this they are drawn anew for every model.
    constexpr double most_indices_kept = 1e8;
    double n_indices = 0.0;
    for (const ScoredFold& fold : folds_) {
      n_indices += fold.indices_at_most();
    }
    if (n_indices <= most_indices_kept) {
      parallel_for(folds_.size(), check_n_threads(n_threads),
                   [&](Worker& worker, std::size_t i) { folds_[i].keep_partitions(worker); });
    }
  }

  double operator()(const CovarianceModel& cov, int n_threads, PollRef poll) const {
    if (cov.empty()) {
      throw std::invalid_argument("the covariance model is empty; it needs at least one structure");
    }
    const CovarianceComputer computer = create_cov_computer(cov, -1);
    const double error = with_weight_power(scoring_.power_a, [&](auto power) {
      return mean_absolute_error(computer, power, check_n_threads(n_threads), poll);
    });
    return (1.0 + scoring_.regularization_const * range_penalty(cov)) * error;
  }

 private:
  template <class Power>
  double mean_absolute_error(const CovarianceComputer& computer, Power power, int n_workers,
                             PollRef poll) const {
    std::vector<ErrorSum> sums(static_cast<std::size_t>(n_workers));
    const auto add = [&](ErrorSum& own, const ScoredFold& fold, PollRef own_poll) {
      const ErrorSum more = fold.score(computer, power, own_poll);
      own.sum += more.sum;
      own.count += more.count;
    };
    if (n_workers == 1) {
      // Often inside a worker of the search, whose poll is the one to use.
      for (const ScoredFold& fold : folds_) {
        add(sums.front(), fold, poll);
      }
    } else {
      parallel_for(folds_.size(), n_workers, [&](Worker& worker, std::size_t i) {
        add(sums[static_cast<std::size_t>(worker.index())], folds_[i], worker);
      });
    }
    double total = 0.0;
    for (const ErrorSum& own : sums) {
      total += own.count > 0.0 ? own.sum / own.count : 0.0;
    }
    return total;
  }

  IdwScoring scoring_;
  std::vector<ScoredFold> folds_;
};

}  // namespace

CovarianceModel single_structure(const Ellipsoid& ellipsoid, const Kernel& cov_kernel) {
  return {{Covariance::Type::spherical, 1.0, ellipsoid, cov_kernel}};
}

double compute_covariance_error_idw(const CovarianceModel& cov, const std::vector<Fold>& folds,
                                    const IdwScoring& scoring, int n_threads) {
  InterruptPoller poll;
  return IdwErrorMeasure(folds, scoring)(cov, n_threads, poll);
}

double compute_ellipsoid_error_idw(const Ellipsoid& ellipsoid, const Kernel& cov_kernel,
                                   const std::vector<Fold>& folds, const IdwScoring& scoring,
                                   int n_threads) {
  return compute_covariance_error_idw(single_structure(ellipsoid, cov_kernel), folds, scoring,
                                      n_threads);
}

CovarianceErrorFunction create_covariance_idw_error(const std::vector<Fold>& folds,
                                                    const IdwScoring& scoring, int n_threads) {
  const auto measure = std::make_shared<IdwErrorMeasure>(folds, scoring);
  measure->keep_partitions(n_threads);
  return CovarianceErrorFunction([measure](const CovarianceModel& cov, int threads, PollRef poll) {
    return (*measure)(cov, threads, poll);
  });
}

}  // namespace talvorix
