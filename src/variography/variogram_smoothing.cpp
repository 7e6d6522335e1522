#include "variography/variogram_smoothing.h"

#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/memory_limit.h"
#include "core/parallel.h"
#include "core/random.h"
#include "core/truncation.h"
#include "core/weight_power.h"
#include "spatial/neighborhood.h"
#include "variography/ascending_draws.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace talvorix {

namespace {

[[noreturn]] void throw_no_lags() { throw std::runtime_error("No lags found"); }

void require_finite_lags(const Locations& lags) {
  for (std::size_t i = 0; i < lags.size(); ++i) {
    if (!lags[i].allFinite()) {
      throw std::invalid_argument("vario has a lag that is not finite, its entry " +
                                  std::to_string(i) + "; a search needs finite lags");
    }
  }
}

struct NewEntries {
  Locations lags;
  std::vector<int> direction_ids;
};

// How many new entries each direction has.
std::vector<std::size_t> counts_of_new_entries(const ExperimentalVariogram& vario, int n_lags) {
  std::vector<std::size_t> counts;
  double total = 0.0;
  for (const std::vector<int>& entries : vario.lags_by_dir()) {
    counts.push_back(n_lags > 0 ? static_cast<std::size_t>(n_lags) : entries.size());
    total += static_cast<double>(counts.back());
  }
  if (total > static_cast<double>(std::numeric_limits<int>::max())) {
    throw std::invalid_argument("n_lags is " + std::to_string(n_lags) + " for each of " +
                                std::to_string(counts.size()) +
                                " directions: more lags in all than can be numbered");
  }
  constexpr double bytes_per_lag = 100.0;
  require_memory("the table of lags", bytes_per_lag * total);
  return counts;
}

NewEntries draw_entries(const ExperimentalVariogram& vario, const VariogramSmoothing& smoothing,
                        RandomEngine& rng, InterruptPoller& poll) {
  const std::vector<std::size_t> counts = counts_of_new_entries(vario, smoothing.n_lags);
  NewEntries drawn;
  for (std::size_t d = 0; d < counts.size(); ++d) {
    poll();
    double longest = 0.0;
    for (const int entry : vario.lags_by_dir()[d]) {
      longest = std::max(longest, vario.lags()[static_cast<std::size_t>(entry)].norm());
    }
    // Each direction has a sampler of its own, though the engine is one.
    StandardNormal normal;
    const auto lengths = ascending_draws(counts[d], poll, [&] { return std::abs(normal(rng)); });
    for (const double length : lengths) {
      poll();
      drawn.lags.emplace_back((length * longest + smoothing.max_r * 0.02) * vario.directions()[d]);
      drawn.direction_ids.push_back(static_cast<int>(d));
    }
  }
  return drawn;
}

struct Smoothed {
  double variogram = 0.0;
  double npairs = 0.0;
};

// Sums over neighbours of a weight, and of the weight times what is to be averaged.
struct WeightedSums {
  double weight = 0.0;
  double variogram = 0.0;
  double npairs = 0.0;

  void add(double w, double v, double n) {
    weight += w;
    variogram += w * v;
    npairs += w * n;
  }
  Smoothed mean() const { return {variogram / weight, npairs / weight}; }
};

Smoothed blend(const WeightedSums& at_lag, const WeightedSums& around, double max_weight) {
  if (at_lag.weight <= 0.0 && around.weight > 0.0) {
    return around.mean();
  }
  if (at_lag.weight > 0.0 && around.weight <= 0.0) {
    return at_lag.mean();
  }
  if (at_lag.weight > 0.0 && around.weight > 0.0) {
    const Smoothed near = around.mean();
    const Smoothed here = at_lag.mean();
    return {near.variogram * (1.0 - max_weight) + here.variogram * max_weight,
            near.npairs * (1.0 - max_weight) + here.npairs * max_weight};
  }
  return {};
}

// The mean around one new lag at a time.
template <class Power>
class MeanAround {
 public:
  MeanAround(const VariogramSmoothing& smoothing, double all_pairs, Power power)
      : smoothing_(smoothing), all_pairs_(all_pairs), power_(power) {}

  void start(const Vector3& lag, const Vector3& direction) {
    lag_ = lag;
    direction_ = direction;
    at_lag_ = {};
    around_ = {};
  }

  void add(const Vector3& entry, double variogram, double npairs) {
    const Vector3 offset = lag_ - entry;
    const double distance = offset.norm();
    const double off_line = (offset - offset.dot(direction_) * direction_).norm();
    if (!(distance <= smoothing_.max_r && off_line <= smoothing_.bandwidth)) {
      return;
    }
    const double share = npairs / all_pairs_;
    constexpr double no_distance = 1e-30;
    if (distance <= no_distance) {
      at_lag_.add(share, variogram, npairs);
    } else {
      around_.add(power_(1.0 / distance) * share, variogram, npairs);
    }
  }

  Smoothed mean() const { return blend(at_lag_, around_, smoothing_.max_weight); }

 private:
  const VariogramSmoothing& smoothing_;
  double all_pairs_;
  Power power_;
  Vector3 lag_ = Vector3::Zero();
  Vector3 direction_ = Vector3::Zero();
  WeightedSums at_lag_;
  WeightedSums around_;
};

double largest_norm(const Locations& lags) {
  double largest = 0.0;
  for (const Vector3& lag : lags) {
    largest = std::max(largest, lag.norm());
  }
  return largest;
}

// The entries that may be within the radius of lags along a direction, in their order along it. All
// these lags stand on one line, and so the entries in the tube around it are the same for all.
class NearLine {
 public:
  struct Entry {
    double along;
    Vector3 lag;
    double variogram;
    double npairs;
  };

  // The slack is more than what rounding can do to a distance.
  NearLine(const ExperimentalVariogram& vario, const VariogramSmoothing& smoothing, double slack)
      : vario_(vario), smoothing_(smoothing), slack_(slack) {}

  void gather(const Vector3& direction, Worker& worker) {
    entries_.clear();
    begin_ = 0;
    const double length = direction.norm();
    axis_ = length > 0.0 && std::isfinite(length) ? Vector3(direction / length)
                                                  : Vector3(Vector3::Zero());
    // Off the line of a direction that is no unit vector, the bandwidth means something else.
    const bool is_unit = std::abs(length - 1.0) < 1e-12;
    const double reach =
        is_unit ? std::min(smoothing_.max_r, smoothing_.bandwidth) : smoothing_.max_r;
    for (std::size_t l = 0; l < vario_.lags().size(); ++l) {
      worker.poll();
      const Vector3& lag = vario_.lags()[l];
      const double along = lag.dot(axis_);
      if (!((lag - along * axis_).norm() > reach + slack_)) {
        entries_.push_back(
            {along, lag, vario_.variogram()[l], static_cast<double>(vario_.npairs()[l])});
      }
    }
    std::sort(entries_.begin(), entries_.end(), [&](const Entry& a, const Entry& b) {
      worker.poll();
      return a.along < b.along;
    });
  }

  // Calls visit for at least the entries within the radius of a lag. Lags come in ascending order.
  template <class Visit>
  void visit_around(const Vector3& lag, Visit&& visit) {
    const double place = lag.dot(axis_);
    const double reach = smoothing_.max_r + slack_;
    while (begin_ < entries_.size() && entries_[begin_].along < place - reach) {
      ++begin_;
    }
    for (std::size_t l = begin_; l < entries_.size() && !(entries_[l].along > place + reach); ++l) {
      visit(entries_[l]);
    }
  }

 private:
  const ExperimentalVariogram& vario_;
  const VariogramSmoothing& smoothing_;
  double slack_;
  Vector3 axis_ = Vector3::Zero();
  std::vector<Entry> entries_;
  std::size_t begin_ = 0;
};

template <class Power>
std::vector<Smoothed> smoothed_entries(const ExperimentalVariogram& vario,
                                       const VariogramSmoothing& smoothing,
                                       const NewEntries& entries, int n_threads, Power&& power) {
  const bool by_radius = smoothing.max_n_neis < 1;
  const Neighborhood neighborhood(by_radius ? Locations() : vario.lags());
  const double slack = 1e-9 * (largest_norm(vario.lags()) + largest_norm(entries.lags));
  const double squared_radius = smoothing.max_r * smoothing.max_r;
  double all_pairs = 0.0;
  for (const int npairs : vario.npairs()) {
    all_pairs += npairs;
  }
  std::vector<Smoothed> smoothed(entries.lags.size());
  parallel_blocks(smoothed.size(), check_n_threads(n_threads),
                  [&](Worker& worker, std::size_t begin, std::size_t end) {
                    MeanAround mean(smoothing, all_pairs, power);
                    NearLine near_line(vario, smoothing, slack);
                    SearchScratch scratch;
                    for (std::size_t t = begin; t < end; ++t) {
                      worker.poll();
                      const Vector3& lag = entries.lags[t];
                      const int id = entries.direction_ids[t];
                      const Vector3& direction = vario.directions()[static_cast<std::size_t>(id)];
                      mean.start(lag, direction);
                      if (by_radius) {
                        if (t == begin || id != entries.direction_ids[t - 1]) {
                          near_line.gather(direction, worker);
                        }
                        near_line.visit_around(lag, [&](const NearLine::Entry& entry) {
                          // The radius of a search is one that nothing stands on.
                          if ((lag - entry.lag).squaredNorm() < squared_radius) {
                            mean.add(entry.lag, entry.variogram, entry.npairs);
                          }
                        });
                      } else {
                        neighborhood.find_nearest(
                            lag, static_cast<std::size_t>(smoothing.max_n_neis), scratch);
                        for (const std::size_t l : scratch.indices) {
                          mean.add(vario.lags()[l], vario.variogram()[l], vario.npairs()[l]);
                        }
                      }
                      smoothed[t] = mean.mean();
                    }
                  });
  return smoothed;
}

// Only the very powers that are multiplications are taken as such.
template <class Body>
decltype(auto) with_exact_power(double power, Body&& body) {
  if (power == 1.0 || power == 2.0 || power == 3.0) {
    return with_weight_power(power, body);
  }
  return body(GeneralPower{power});
}

}  // namespace

ExperimentalVariogram smooth_variogram(const ExperimentalVariogram& vario,
                                       const VariogramSmoothing& smoothing, int n_threads) {
  const std::size_t n_samples = require_count("sampling_size", smoothing.sampling_size);
  require_finite_lags(vario.lags());
  if (vario.lags().empty()) {
    throw_no_lags();
  }
  RandomEngine rng = seeded_engine(smoothing.seed);
  InterruptPoller poll;
  // A sample of entries. Which they are serves nothing further; that they are drawn moves the draws
  // that follow: deliberate.
  for (std::size_t i = 0; i < n_samples; ++i) {
    poll();
    rng();
  }
  NewEntries entries = draw_entries(vario, smoothing, rng, poll);
  const std::vector<Smoothed> smoothed = with_exact_power(smoothing.power_a, [&](auto&& power) {
    return smoothed_entries(vario, smoothing, entries, n_threads, power);
  });

  ExperimentalVariogram::Entries kept;
  std::vector<int> direction_ids;
  for (std::size_t t = 0; t < smoothed.size(); ++t) {
    poll();
    const int npairs = truncated_to_int(smoothed[t].npairs);
    if (npairs > 0) {
      kept.lags.push_back(entries.lags[t]);
      kept.variogram.push_back(smoothed[t].variogram);
      kept.npairs.push_back(npairs);
      direction_ids.push_back(entries.direction_ids[t]);
    }
  }
  if (kept.lags.empty()) {
    throw_no_lags();
  }
  return {std::move(kept), std::move(direction_ids), vario.directions()};
}

}  // namespace talvorix
