#include "selection/covariance_search.h"

#include "core/arguments.h"
#include "core/console.h"
#include "core/parallel.h"
#include "core/random.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace talvorix {

namespace {

constexpr std::int64_t perturbation_seed = 1213541;

// What a worker knows of its own search. Only it writes here, but for the flag below.
struct OwnSearch {
  ScoredCovariance best;
  int iteration = 0;
  int last_improvement = 0;
};

// Which workers still count as active, and the console: one lock guards both.
class SharedState {
 public:
  explicit SharedState(int n_workers) : active_(static_cast<std::size_t>(n_workers), 1) {}

  bool any_active() {
    const std::lock_guard lock(mutex_);
    return std::find(active_.begin(), active_.end(), 1) != active_.end();
  }
  void retire(int worker) {
    const std::lock_guard lock(mutex_);
    active_[static_cast<std::size_t>(worker)] = 0;
  }
  void report(const std::string& prefix, int worker, const ScoredCovariance& found) {
    std::ostringstream line;
    line << prefix << "Thread " << worker << " found a better cov: " << to_text(found.model)
         << " with error " << found.error;
    const std::lock_guard lock(mutex_);
    print_progress(line.str());
  }

 private:
  std::mutex mutex_;
  std::vector<int> active_;
};

// A model whose structures, but for nuggets, have ranges of 0.1 to 1 times the old ones and angles
// up to 15 degrees away.
CovarianceModel perturbed(const CovarianceModel& model, RandomEngine& rng) {
  CovarianceModel result = model;
  for (Covariance& structure : result) {
    if (structure.type == Covariance::Type::nugget) {
      continue;
    }
    const EllipsoidInfo old = structure.ellipsoid.info();
    uniform(rng);  // drawn and not used
    const auto shrunk = [&](double range) { return (0.1 + uniform(rng) * 0.9) * range; };
    const auto moved = [&](double angle) { return (-15.0 + uniform(rng) * 30.0) + angle; };
    // One after the other: the order of the draws counts.
    std::array<double, 3> ranges{};
    ranges[0] = shrunk(old.r1);
    ranges[1] = shrunk(old.r2);
    ranges[2] = shrunk(old.r3);
    std::sort(ranges.begin(), ranges.end());
    const double azimuth = moved(old.azimuth);
    const double dip = moved(old.dip);
    const double rake = moved(old.rake);
    structure.ellipsoid = Ellipsoid(ranges[2], ranges[1], ranges[0], azimuth, dip, rake);
  }
  return result;
}

// Improves a worker's best when the model is better; a NaN never is.
bool try_model(const CovarianceModel& model, const CovarianceErrorFunction& error_function,
               OwnSearch& own, Worker& worker) {
  const double error = error_function(model, 1, worker);
  if (error < own.best.error) {
    own.best = {model, error};
    own.last_improvement = own.iteration;
    return true;
  }
  return false;
}

void merge(const std::vector<OwnSearch>& workers, ScoredCovariance& best) {
  for (const OwnSearch& own : workers) {
    if (own.best.error < best.error) {
      best = own.best;
    }
  }
}

void scan(const std::vector<CovarianceModel>& covs, const CovarianceErrorFunction& error_function,
          const CovarianceSearch& search, std::vector<OwnSearch>& workers) {
  const auto n_workers = static_cast<int>(workers.size());
  SharedState shared(n_workers);
  parallel_for(covs.size(), n_workers, [&](Worker& worker, std::size_t i) {
    OwnSearch& own = workers[static_cast<std::size_t>(worker.index())];
    const int k = ++own.iteration;
    // Limits hold only while some worker is active. Workers retire after as many candidates as
    // there are workers, so that usually all are scanned: deliberate.
    const bool limited = shared.any_active();
    const int since_improvement = k - own.last_improvement;
    if (limited &&
        (k > search.n_iterations || since_improvement > search.n_iterations_without_upgrade)) {
      return;
    }
    if (k > n_workers || since_improvement > search.n_iterations_without_upgrade) {
      shared.retire(worker.index());
    }
    if (try_model(covs[i], error_function, own, worker) && search.debug) {
      shared.report("", worker.index(), own.best);
    }
  });
}

// Every worker perturbs its own best of the scan and never looks at the others'.
void perturb(const CovarianceErrorFunction& error_function, const CovarianceSearch& search,
             std::vector<OwnSearch>& workers) {
  const auto n_workers = static_cast<int>(workers.size());
  RandomEngine rng = seeded_engine(perturbation_seed);
  std::vector<RandomEngine> engines;
  engines.reserve(workers.size());
  for (std::size_t worker = 0; worker < workers.size(); ++worker) {
    engines.push_back(seeded_engine(static_cast<std::int64_t>(rng())));
  }
  SharedState shared(n_workers);
  const auto n_models = static_cast<std::size_t>(search.n_iterations) + workers.size();
  parallel_for(n_models, n_workers, [&](Worker& worker, std::size_t) {
    const auto number = static_cast<std::size_t>(worker.index());
    OwnSearch& own = workers[number];
    const CovarianceModel model = perturbed(own.best.model, engines[number]);
    if (try_model(model, error_function, own, worker) && search.debug) {
      shared.report("[scale improvement] ", worker.index(), own.best);
    }
  });
}

}  // namespace

ScoredCovariance optimize_covariance(const std::vector<CovarianceModel>& covs,
                                     const CovarianceErrorFunction& error_function,
                                     const CovarianceSearch& search, int n_threads) {
  if (covs.empty()) {
    throw std::invalid_argument("covs is empty; a search needs at least one model");
  }
  require_count("n_iterations", search.n_iterations);
  const int n_workers = check_n_threads(n_threads);
  ScoredCovariance best{covs.front(), error_function(covs.front(), n_workers)};
  std::vector<OwnSearch> workers(static_cast<std::size_t>(n_workers), OwnSearch{best});
  scan(covs, error_function, search, workers);
  merge(workers, best);
  if (search.debug) {
    std::ostringstream error;
    error << "Best error: " << best.error;
    print_progress("Best model: " + to_text(best.model));
    print_progress(error.str());
  }
  perturb(error_function, search, workers);
  merge(workers, best);
  return best;
}

std::string to_text(const CovarianceModel& model) {
  std::ostringstream text;
  text << "[";
  for (const Covariance& structure : model) {
    text << "{sill:" << structure.sill << ",anisotropy:" << structure.ellipsoid.text()
         << ",type:" << to_text(structure.type) << "},";
  }
  text << "]";
  return text.str();
}

}  // namespace talvorix
