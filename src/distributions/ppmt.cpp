#include "distributions/ppmt.h"

#include "core/arguments.h"
#include "core/memory_limit.h"
#include "core/parallel.h"
#include "core/radix_sort.h"
#include "distributions/cdf.h"
#include "distributions/distribution.h"
#include "distributions/linear_algebra.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace talvorix {

namespace {

using Eigen::Index;
using Eigen::MatrixXd;

constexpr long long table_size = 200000;
constexpr std::int64_t table_seed = 121515;

// Rows that are carried through all steps together.
constexpr Index rows_at_once = 256;

std::span<double> column_of(MatrixXd& data, Index j) {
  return {data.col(j).data(), static_cast<std::size_t>(data.rows())};
}

struct Moments {
  std::vector<double> mean;
  std::vector<double> std;
};

// Of each column, the deviation in the population's form.
Moments moments_of(const MatrixXd& data, int n_threads) {
  const auto n_columns = static_cast<std::size_t>(data.cols());
  const auto n = static_cast<double>(data.rows());
  Moments moments{std::vector<double>(n_columns), std::vector<double>(n_columns)};
  parallel_for(n_columns, n_threads, [&](Worker& worker, std::size_t j) {
    const auto column = data.col(static_cast<Index>(j));
    double mean = 0.0;
    for (const double value : column) {
      worker.poll();
      mean += value / n;
    }
    double variance = 0.0;
    for (const double value : column) {
      worker.poll();
      variance += (value - mean) * (value - mean) / n;
    }
    moments.mean[j] = mean;
    moments.std[j] = std::sqrt(variance);
  });
  return moments;
}

// A row comes out the same however many stand around it.
void standardise(MatrixXd& rows, const std::vector<double>& mean, const std::vector<double>& std) {
  for (Index j = 0; j < rows.cols(); ++j) {
    const auto variable = static_cast<std::size_t>(j);
    rows.col(j).array() = (rows.col(j).array() - mean[variable]) / std[variable];
  }
}

void restore(MatrixXd& rows, const std::vector<double>& mean, const std::vector<double>& std) {
  for (Index j = 0; j < rows.cols(); ++j) {
    const auto variable = static_cast<std::size_t>(j);
    rows.col(j).array() = rows.col(j).array() * std[variable] + mean[variable];
  }
}

void rotate(const MatrixXd& rows, const MatrixXd& rotation, MatrixXd& rotated) {
  rotated.setZero(rows.rows(), rows.cols());
  for (Index j = 0; j < rows.cols(); ++j) {
    for (Index k = 0; k < rows.cols(); ++k) {
      rotated.col(j) += rows.col(k) * rotation(k, j);
    }
  }
}

// Calls change(rows, scratch) for a copy of every few rows in turn, and puts it back.
template <class Change>
void change_rows(MatrixXd& data, int n_threads, Change&& change) {
  const auto n = static_cast<std::size_t>((data.rows() + rows_at_once - 1) / rows_at_once);
  parallel_blocks(n, n_threads, [&](Worker& worker, std::size_t begin, std::size_t end) {
    MatrixXd rows;
    MatrixXd scratch;
    for (std::size_t part = begin; part < end; ++part) {
      worker.poll();
      const Index first = static_cast<Index>(part) * rows_at_once;
      auto of_part = data.middleRows(first, std::min(rows_at_once, data.rows() - first));
      rows = of_part;
      change(rows, scratch);
      of_part = rows;
    }
  });
}

using Steps = std::vector<std::shared_ptr<const PPMT::Step>>;

void go_forward(const Steps& steps, MatrixXd& rows, MatrixXd& scratch) {
  for (const auto& step : steps) {
    standardise(rows, step->mean, step->std);
    rotate(rows, step->rotation, scratch);
    rows.swap(scratch);
    for (Index j = 0; j < rows.cols(); ++j) {
      step->isomorphisms[static_cast<std::size_t>(j)].forward_proj().map(column_of(rows, j));
    }
    standardise(rows, step->post_mean, step->post_std);
  }
}

void go_backward(const Steps& steps, MatrixXd& rows, MatrixXd& scratch) {
  for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
    restore(rows, (*step)->post_mean, (*step)->post_std);
    for (Index j = 0; j < rows.cols(); ++j) {
      (*step)->isomorphisms[static_cast<std::size_t>(j)].backward_proj().map(column_of(rows, j));
    }
    rotate(rows, (*step)->inverse_rotation, scratch);
    rows.swap(scratch);
    restore(rows, (*step)->mean, (*step)->std);
  }
}

// Quantiles at evenly spaced probabilities, with the first and the last one replaced by what lies
// beyond the range by some spans of it.
std::vector<double> bins_of(const CDF& table, const Interval& range, double extrapolation_tol,
                            int n_bins, PollRef poll) {
  const double q = 1.0 / (n_bins + 3);
  std::vector<double> bins(static_cast<std::size_t>(n_bins));
  for (std::size_t i = 0; i < bins.size(); ++i) {
    bins[i] = table.value(static_cast<double>(i + 1) * q);
  }
  const double margin = (range.max - range.min) * extrapolation_tol;
  bins.front() = range.min - margin;
  bins.back() = range.max + margin;
  sort_ascending(bins, poll);
  return bins;
}

std::vector<double> normal_bins(double extrapolation_tol, int n_bins, PollRef poll) {
  const CDF table(gaussian_distribution(0.0, 1.0), table_size, table_seed);
  const double q = 1.0 / (n_bins + 3);
  return bins_of(table, {table.value(q), table.value(n_bins * q)}, extrapolation_tol, n_bins, poll);
}

std::vector<double> data_bins(std::vector<double> column, double extrapolation_tol, int n_bins,
                              PollRef poll) {
  const auto [lowest, highest] = std::minmax_element(column.begin(), column.end());
  const Interval range{*lowest, *highest};
  const CDF table(data_distribution(std::move(column)), table_size, table_seed);
  return bins_of(table, range, extrapolation_tol, n_bins, poll);
}

// The axis transforms of one step, fitted side by side. The ways back depend on the ways forward,
// and so all ways forward are given out first: the threads then have as much to do as each other.
class AxisFits {
 public:
  AxisFits(const MatrixXd& rotated, const std::vector<double>& target, const PpmtSettings& settings)
      : rotated_(rotated), target_(target), settings_(settings), axes_(to_size(rotated.cols())) {}

  std::vector<Isomorphism> run(int n_threads) {
    const int n_workers = std::min(n_threads, static_cast<int>(axes_.size()));
    IsomorphismParameters& iso_params = settings_.iso_params;
    iso_params.n_threads = std::min(check_n_threads(iso_params.n_threads), n_threads / n_workers);
    run_workers(n_workers, [this](Worker& worker) { work(worker); });
    std::vector<Isomorphism> isomorphisms;
    isomorphisms.reserve(axes_.size());
    for (Axis& axis : axes_) {
      isomorphisms.emplace_back(std::move(*axis.forward), std::move(*axis.backward));
    }
    return isomorphisms;
  }

 private:
  struct Axis {
    std::optional<IsomorphismFitter> fitter;
    std::optional<Projection> forward;
    std::optional<Projection> backward;
    std::atomic<bool> has_forward{false};
  };

  static std::size_t to_size(Index n) { return static_cast<std::size_t>(n); }

  void work(Worker& worker) {
    for (std::size_t task = next_++; task < 2 * axes_.size(); task = next_++) {
      worker.poll();
      if (task < axes_.size()) {
        fit_forward(task, worker);
      } else {
        fit_backward(axes_[task - axes_.size()], worker);
      }
    }
  }

  void fit_forward(std::size_t j, Worker& worker) {
    {
      const std::lock_guard lock(output_);
      std::cout << "optimizing isomorphism for dimension " << j + 1 << "/" << axes_.size()
                << std::endl;
    }
    const auto column = rotated_.col(static_cast<Index>(j));
    Axis& axis = axes_[j];
    axis.fitter.emplace(data_bins({column.begin(), column.end()}, settings_.extrapolation_tol,
                                  settings_.n_bins, worker),
                        target_, settings_.iso_params);
    axis.forward = axis.fitter->fit_forward(worker);
    axis.has_forward.store(true, std::memory_order_release);
  }

  static void fit_backward(Axis& axis, Worker& worker) {
    while (!axis.has_forward.load(std::memory_order_acquire)) {
      worker.poll();
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    axis.backward = axis.fitter->fit_backward(*axis.forward, worker);
  }

  const MatrixXd& rotated_;
  const std::vector<double>& target_;
  PpmtSettings settings_;
  std::vector<Axis> axes_;
  std::atomic<std::size_t> next_{0};
  std::mutex output_;
};

PPMT::Step fit_step(MatrixXd& data, double prob_random_rotation, std::uint32_t seed,
                    const std::vector<double>& target, const PpmtSettings& settings,
                    int n_threads) {
  InterruptPoller poll;
  RandomEngine rng(seed);
  PPMT::Step step;
  Moments before = moments_of(data, n_threads);
  step.mean = std::move(before.mean);
  step.std = std::move(before.std);
  change_rows(data, n_threads,
              [&](MatrixXd& rows, MatrixXd&) { standardise(rows, step.mean, step.std); });
  if (uniform(rng) <= prob_random_rotation) {
    step.rotation = create_random_rotation(data.cols(), settings.min_v, settings.max_v, rng);
    step.inverse_rotation = step.rotation.transpose();
  } else {
    OptimumRotation optimum = compute_optimum_rotation(data, false, poll);
    step.rotation = std::move(optimum.rotation);
    step.inverse_rotation = std::move(optimum.inverse);
  }
  change_rows(data, n_threads, [&](MatrixXd& rows, MatrixXd& scratch) {
    rotate(rows, step.rotation, scratch);
    rows.swap(scratch);
  });
  step.isomorphisms = AxisFits(data, target, settings).run(n_threads);
  change_rows(data, n_threads, [&](MatrixXd& rows, MatrixXd&) {
    for (Index j = 0; j < rows.cols(); ++j) {
      step.isomorphisms[static_cast<std::size_t>(j)].forward_proj().map(column_of(rows, j));
    }
  });
  Moments after = moments_of(data, n_threads);
  step.post_mean = std::move(after.mean);
  step.post_std = std::move(after.std);
  change_rows(data, n_threads,
              [&](MatrixXd& rows, MatrixXd&) { standardise(rows, step.post_mean, step.post_std); });
  return step;
}

void check(const MatrixXd& data, const PpmtSettings& settings) {
  require_count("n_steps", settings.n_steps);
  constexpr int fewest_bins = 2;
  if (settings.n_bins < fewest_bins) {
    throw std::invalid_argument("n_bins must be 2 or more, but is " +
                                std::to_string(settings.n_bins));
  }
  check(settings.iso_params);
  require_range(settings.min_v, settings.max_v);
  require_memory("the table of bins", sizeof(double) *
                                          (2.0 * static_cast<double>(data.cols()) + 2.0) *
                                          static_cast<double>(settings.n_bins));
  if (data.rows() < 2 || data.cols() < 1) {
    throw std::invalid_argument("data has " + std::to_string(data.rows()) + " rows and " +
                                std::to_string(data.cols()) +
                                " columns; a transform is fitted to 2 rows or more");
  }
  for (Index j = 0; j < data.cols(); ++j) {
    for (Index i = 0; i < data.rows(); ++i) {
      if (!std::isfinite(data(i, j))) {
        throw std::invalid_argument("row " + std::to_string(i) + ", column " + std::to_string(j) +
                                    " of data is " + std::to_string(data(i, j)) +
                                    "; every value must be finite");
      }
    }
  }
}

void require_width(const char* name, std::size_t width, std::size_t n_variables) {
  if (width != n_variables) {
    throw std::invalid_argument(std::string(name) + " has " + std::to_string(width) +
                                " variables but the transform was fitted to " +
                                std::to_string(n_variables) + "; they must be as many");
  }
}

MatrixXd row_of(const std::vector<double>& u) {
  return Eigen::Map<const Eigen::RowVectorXd>(u.data(), static_cast<Index>(u.size()));
}

std::vector<double> values_of(const MatrixXd& row) { return {row.data(), row.data() + row.size()}; }

}  // namespace

PPMT::PPMT(const MatrixXd& data, const PpmtSettings& settings)
    : n_variables_(static_cast<std::size_t>(data.cols())) {
  check(data, settings);
  const int n_threads = check_n_threads(settings.n_threads);
  RandomEngine rng = seeded_engine(settings.seed);
  MatrixXd X = data;
  // The table of the normal distribution is the same at every step.
  InterruptPoller poll;
  const std::vector<double> target = normal_bins(settings.extrapolation_tol, settings.n_bins, poll);
  for (int s = 0; s < settings.n_steps; ++s) {
    std::cout << "Step " << s << std::endl;
    const auto seed = static_cast<std::uint32_t>(rng());
    const double prob_random_rotation = s == 0 ? -1.0 : settings.prob_random_rotation;
    steps_.push_back(std::make_shared<const Step>(
        fit_step(X, prob_random_rotation, seed, target, settings, n_threads)));
  }
}

PPMT::PPMT(std::size_t n_variables, Steps steps)
    : n_variables_(n_variables), steps_(std::move(steps)) {
  const auto n = static_cast<Index>(n_variables);
  for (const auto& step : steps_) {
    for (const MatrixXd* table : {&step->rotation, &step->inverse_rotation}) {
      if (table->rows() != n || table->cols() != n) {
        throw std::invalid_argument("a rotation of the transform has another size than " +
                                    std::to_string(n) + " variables");
      }
    }
    for (const auto* list : {&step->mean, &step->std, &step->post_mean, &step->post_std}) {
      require_equal_lengths("a list of a step", list->size(), "the variables", n_variables);
    }
    require_equal_lengths("isomorphisms", step->isomorphisms.size(), "the variables", n_variables);
  }
}

MatrixXd PPMT::forward(MatrixXd data, int n_threads) const {
  require_width("data", static_cast<std::size_t>(data.cols()), n_variables_);
  change_rows(data, check_n_threads(n_threads),
              [this](MatrixXd& rows, MatrixXd& scratch) { go_forward(steps_, rows, scratch); });
  return data;
}

MatrixXd PPMT::backward(MatrixXd data, int n_threads) const {
  require_width("data", static_cast<std::size_t>(data.cols()), n_variables_);
  change_rows(data, check_n_threads(n_threads),
              [this](MatrixXd& rows, MatrixXd& scratch) { go_backward(steps_, rows, scratch); });
  return data;
}

std::vector<double> PPMT::forward(const std::vector<double>& u) const {
  require_width("u", u.size(), n_variables_);
  MatrixXd row = row_of(u);
  MatrixXd scratch;
  go_forward(steps_, row, scratch);
  return values_of(row);
}

std::vector<double> PPMT::backward(const std::vector<double>& u) const {
  require_width("u", u.size(), n_variables_);
  MatrixXd row = row_of(u);
  MatrixXd scratch;
  go_backward(steps_, row, scratch);
  return values_of(row);
}

}  // namespace talvorix
