#include "algebra/least_squares.h"

#include "algebra/search_guard.h"
#include "core/crew.h"
#include "core/memory_limit.h"
#include "core/watched_call.h"

#include <ceres/ceres.h>
#include <Eigen/Dense>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace talvorix {

namespace {

// Residuals and derivatives side by side: the last column is that of the residuals.
using Rows = Eigen::MatrixXd;

// A run of blocks that one worker evaluates into one matrix.
struct Chunk {
  std::size_t first_block;
  std::size_t n_blocks;
  std::size_t n_rows;
};

// Turns the rows into as many as there are columns, or fewer, with the same inner products of
// columns.
void reduce(Rows& rows) {
  const Eigen::Index n = rows.cols();
  if (rows.rows() <= n) {
    return;
  }
  const Eigen::HouseholderQR<Eigen::Ref<Rows>> decomposition(rows);
  Rows triangle = rows.topRows(n).triangularView<Eigen::Upper>();
  rows = std::move(triangle);
}

struct Loss {
  double half_cost;
  double scaling;  // of the residuals and their derivatives
};

// Cauchy's loss of a squared residual, and the scaling that gives its slope (Triggs et al. 2000,
// Bundle adjustment: a modern synthesis).
Loss cauchy(double squared, double scale) {
  const double b = scale * scale;
  const double sum = 1.0 + squared / b;
  const double slope = std::max(std::numeric_limits<double>::min(), 1.0 / sum);
  return {0.5 * b * std::log(sum), std::sqrt(slope)};
}

// Scales rows by their losses and returns half of what they cost.
double apply_loss(const ResidualBlock& block, Eigen::Ref<Rows> rows) {
  const Eigen::Index last = rows.cols() - 1;
  if (!(block.cauchy_scale > 0.0)) {
    return 0.5 * rows.col(last).squaredNorm();
  }
  if (!block.each_by_itself) {
    const Loss loss = cauchy(rows.col(last).squaredNorm(), block.cauchy_scale);
    rows *= loss.scaling;
    return loss.half_cost;
  }
  double half_cost = 0.0;
  Eigen::ArrayXd scalings(rows.rows());
  for (Eigen::Index i = 0; i < rows.rows(); ++i) {
    const double residual = rows(i, last);
    const Loss loss = cauchy(residual * residual, block.cauchy_scale);
    scalings[i] = loss.scaling;
    half_cost += loss.half_cost;
  }
  rows.array().colwise() *= scalings;
  return half_cost;
}

// The whole problem as one cost of the solver's.
class ReducedCost final : public ceres::CostFunction {
 public:
  ReducedCost(std::shared_ptr<LeastSquaresProblem> problem, std::size_t n_parameters, int n_threads,
              SearchGuard& guard, PollRef poll)
      : problem_(std::move(problem)),
        blocks_(problem_->blocks()),
        n_parameters_(n_parameters),
        n_threads_(n_threads),
        guard_(guard),
        poll_(poll) {
    set_num_residuals(static_cast<int>(n_parameters) + 1);
    mutable_parameter_block_sizes()->push_back(static_cast<std::int32_t>(n_parameters));
    cut_into_chunks();
    if (!is_empty()) {
      require_room();
    }
  }

  bool is_empty() const { return chunks_.empty(); }
  std::size_t n_chunks() const { return chunks_.size(); }
  // Who evaluates from now on; null for the calling thread alone.
  void set_crew(Crew* crew) { crew_ = crew; }
  // At the point of the last evaluation; with a loss it is not half the sum of the squares.
  double half_cost() const { return half_cost_; }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    const std::span<const double> x(parameters[0], n_parameters_);
    if (jacobians == nullptr || jacobians[0] == nullptr) {
      return guard_.attempt([&] { return evaluate_cost(x, residuals); });
    }
    return guard_.attempt([&] {
      const Evaluation& evaluation = evaluate_fully(x);
      half_cost_ = evaluation.half_cost;
      std::copy(evaluation.residuals.begin(), evaluation.residuals.end(), residuals);
      std::copy(evaluation.jacobian.begin(), evaluation.jacobian.end(), jacobians[0]);
      return evaluation.is_usable;
    });
  }

 private:
  // The cut does not depend on the number of threads, and so neither do the last bits.
  void cut_into_chunks() {
    // Pieces enough for many threads, but no more: one thread puts all their triangles together.
    constexpr std::size_t at_least = 256;
    constexpr std::size_t at_most = 32;
    std::size_t all_rows = 0;
    for (const ResidualBlock& block : blocks_) {
      all_rows += block.n_residuals;
    }
    const std::size_t rows_wanted =
        std::max({at_least, 4 * (n_parameters_ + 1), all_rows / at_most});
    std::size_t first = 0;
    std::size_t n_rows = 0;
    for (std::size_t block = 0; block < blocks_.size(); ++block) {
      n_rows += blocks_[block].n_residuals;
      if (n_rows >= rows_wanted) {
        chunks_.push_back({first, block + 1 - first, n_rows});
        first = block + 1;
        n_rows = 0;
      }
    }
    if (n_rows > 0 && !chunks_.empty()) {
      // By itself a small rest would keep a worker waiting for one that has a whole chunk more.
      chunks_.back().n_blocks += blocks_.size() - first;
      chunks_.back().n_rows += n_rows;
    } else if (n_rows > 0) {
      chunks_.push_back({first, blocks_.size() - first, n_rows});
    }
  }

  void require_room() const {
    const auto n = static_cast<double>(n_parameters_);
    double largest = 0.0;
    for (const Chunk& chunk : chunks_) {
      largest = std::max(largest, static_cast<double>(chunk.n_rows));
    }
    // What the threads work on, what they hand over, and the solver's own copies.
    constexpr double copies = 8.0;
    const double n_rows = 2.0 * n_threads_ * largest +
                          static_cast<double>(chunks_.size()) * std::min(n, largest) + copies * n;
    require_memory("the fit", sizeof(double) * n_rows * (n + 1.0));
  }

  // Gives half of what the chunk costs; without derivatives the rows stay empty.
  double evaluate_chunk(const Chunk& chunk, std::span<const double> parameters, bool with_jacobian,
                        Rows& rows, PollRef poll) const {
    const auto n_rows = static_cast<Eigen::Index>(chunk.n_rows);
    const auto last = static_cast<Eigen::Index>(n_parameters_);
    Rows all(n_rows, with_jacobian ? last + 1 : 1);
    double half_cost = 0.0;
    Eigen::Index row = 0;
    for (std::size_t b = chunk.first_block; b < chunk.first_block + chunk.n_blocks; ++b) {
      poll();
      const ResidualBlock& block = blocks_[b];
      const auto n = static_cast<Eigen::Index>(block.n_residuals);
      double* const residuals = all.col(all.cols() - 1).data() + row;
      double* const jacobian = with_jacobian ? all.data() + row : nullptr;
      problem_->evaluate(b, parameters, {residuals, jacobian, chunk.n_rows});
      half_cost += apply_loss(block, all.middleRows(row, n));
      row += n;
    }
    if (with_jacobian) {
      reduce(all);
      rows = std::move(all);
    }
    return half_cost;
  }

  // Gives half of what all chunks cost.
  double evaluate_chunks(std::span<const double> parameters, bool with_jacobian,
                         std::vector<Rows>& reduced) const {
    poll_();
    problem_->prepare(parameters, with_jacobian);
    reduced.resize(chunks_.size());
    std::vector<double> half_costs(chunks_.size());
    const auto evaluate_one = [&](std::size_t c, PollRef poll) {
      half_costs[c] = evaluate_chunk(chunks_[c], parameters, with_jacobian, reduced[c], poll);
    };
    if (crew_ == nullptr) {
      for (std::size_t c = 0; c < chunks_.size(); ++c) {
        evaluate_one(c, poll_);
      }
    } else {
      crew_->share(chunks_.size(), evaluate_one, poll_);
    }
    return std::accumulate(half_costs.begin(), half_costs.end(), 0.0);
  }

  bool evaluate_cost(std::span<const double> parameters, double* residuals) const {
    std::vector<Rows> none;
    half_cost_ = evaluate_chunks(parameters, false, none);
    std::fill_n(residuals, n_parameters_ + 1, 0.0);
    residuals[0] = std::sqrt(2.0 * half_cost_);
    return std::isfinite(half_cost_);
  }

  // The triangle of all chunks at a point, its rows one after the other as the solver wants them.
  struct Evaluation {
    std::vector<double> parameters;
    double half_cost = 0.0;
    bool is_usable = false;
    std::vector<double> residuals;
    std::vector<double> jacobian;
  };

  // A search along a line starts where the step did and often ends where the next one starts: the
  // two latest evaluations are kept.
  const Evaluation& evaluate_fully(std::span<const double> parameters) const {
    for (const Evaluation& known : latest_) {
      if (std::equal(known.parameters.begin(), known.parameters.end(), parameters.begin(),
                     parameters.end())) {
        return known;
      }
    }
    std::swap(latest_[0], latest_[1]);
    Evaluation& evaluation = latest_[0];
    evaluation.parameters.clear();  // should this fail half-way
    std::vector<Rows> reduced;
    evaluation.half_cost = evaluate_chunks(parameters, true, reduced);
    stack(reduced, evaluation);
    evaluation.parameters.assign(parameters.begin(), parameters.end());
    return evaluation;
  }

  void stack(const std::vector<Rows>& reduced, Evaluation& evaluation) const {
    const auto last = static_cast<Eigen::Index>(n_parameters_);
    Eigen::Index n_rows = 0;
    for (const Rows& rows : reduced) {
      n_rows += rows.rows();
    }
    Rows all(n_rows, last + 1);
    Eigen::Index row = 0;
    for (const Rows& rows : reduced) {
      all.middleRows(row, rows.rows()) = rows;
      row += rows.rows();
    }
    reduce(all);
    evaluation.is_usable = std::isfinite(evaluation.half_cost) && all.allFinite();
    evaluation.residuals.assign(n_parameters_ + 1, 0.0);
    std::copy_n(all.col(last).data(), all.rows(), evaluation.residuals.begin());
    evaluation.jacobian.assign((n_parameters_ + 1) * n_parameters_, 0.0);
    using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    Eigen::Map<RowMajor>(evaluation.jacobian.data(), last + 1, last).topRows(all.rows()) =
        all.leftCols(last);
  }

  std::shared_ptr<LeastSquaresProblem> problem_;
  std::vector<ResidualBlock> blocks_;
  std::vector<Chunk> chunks_;
  std::size_t n_parameters_;
  int n_threads_;
  SearchGuard& guard_;
  PollRef poll_;
  Crew* crew_ = nullptr;
  mutable double half_cost_ = 0.0;
  mutable std::array<Evaluation, 2> latest_;
};

// Tells the solver what its one cost really costs, where losses make it other than half the sum of
// the squares. The losses' slopes are in the rows already.
class KnownCost final : public ceres::LossFunction {
 public:
  explicit KnownCost(const ReducedCost& cost) : cost_(cost) {}

  void Evaluate(double /*squared_norm*/, double rho[3]) const override {
    rho[0] = 2.0 * cost_.half_cost();
    rho[1] = 1.0;
    rho[2] = 0.0;
  }

 private:
  const ReducedCost& cost_;
};

class StopWhenFailed final : public ceres::IterationCallback {
 public:
  explicit StopWhenFailed(const SearchGuard& guard) : guard_(guard) {}
  ceres::CallbackReturnType operator()(const ceres::IterationSummary&) override {
    return guard_.has_failed() ? ceres::SOLVER_ABORT : ceres::SOLVER_CONTINUE;
  }

 private:
  const SearchGuard& guard_;
};

// A run of the solver, which owns all that it touches.
class Run {
 public:
  Run(std::shared_ptr<LeastSquaresProblem> problem, const std::vector<double>& parameters,
      const std::vector<ParameterBounds>& bounds, const LeastSquaresOptions& options, PollRef poll)
      : found_(parameters) {
    auto cost = std::make_unique<ReducedCost>(std::move(problem), parameters.size(),
                                              options.n_threads, guard_, poll);
    if (cost->is_empty()) {
      return;
    }
    auto loss = std::make_unique<KnownCost>(*cost);
    cost_ = cost.get();
    n_threads_ =
        static_cast<int>(std::min(static_cast<std::size_t>(options.n_threads), cost_->n_chunks()));
    problem_.AddResidualBlock(cost.release(), loss.release(), found_.data());
    for (std::size_t i = 0; i < bounds.size(); ++i) {
      problem_.SetParameterLowerBound(found_.data(), static_cast<int>(i), bounds[i].lower);
      problem_.SetParameterUpperBound(found_.data(), static_cast<int>(i), bounds[i].upper);
    }
    options_.linear_solver_type = ceres::DENSE_QR;
    options_.max_num_iterations = options.n_iterations;
    options_.minimizer_progress_to_stdout = options.debug;
    options_.logging_type = options.debug ? ceres::PER_MINIMIZER_ITERATION : ceres::SILENT;
    options_.callbacks.push_back(&stop_when_failed_);
  }

  bool is_empty() const { return problem_.NumResidualBlocks() == 0; }

  void solve() {
    const QuietLog quiet;
    Crew::with(n_threads_, [this](Crew& crew) {
      cost_->set_crew(n_threads_ > 1 ? &crew : nullptr);
      ceres::Solve(options_, &problem_, &summary_);
      cost_->set_crew(nullptr);
    });
  }

  // The summary; throws what evaluation threw.
  const ceres::Solver::Summary& summary() const {
    guard_.rethrow();
    return summary_;
  }
  const std::vector<double>& found() const { return found_; }

 private:
  std::vector<double> found_;
  SearchGuard guard_;
  StopWhenFailed stop_when_failed_{guard_};
  ReducedCost* cost_ = nullptr;  // the problem's
  int n_threads_ = 1;
  ceres::Problem problem_;
  ceres::Solver::Options options_;
  ceres::Solver::Summary summary_;
};

// Looks for nobody's wish but that of a search which nobody waits for any longer to end.
struct Abandonment {
  std::atomic<bool> abandoned{false};
  void poll() const {
    if (abandoned.load(std::memory_order_relaxed)) {
      throw std::runtime_error("nobody waits for the fit any longer");
    }
  }
};

struct WatchedRun {
  Abandonment abandonment;
  Run run;

  WatchedRun(std::shared_ptr<LeastSquaresProblem> problem, const std::vector<double>& parameters,
             const std::vector<ParameterBounds>& bounds, const LeastSquaresOptions& options)
      : run(std::move(problem), parameters, bounds, options, abandonment) {}
};

double conclude(const Run& run, const LeastSquaresOptions& options,
                std::vector<double>& parameters) {
  const ceres::Solver::Summary& summary = run.summary();
  if (options.debug) {
    (options.report == nullptr ? std::cout : *options.report) << summary.FullReport() << std::endl;
  }
  if (summary.IsSolutionUsable()) {
    parameters = run.found();
  }
  return summary.final_cost;
}

}  // namespace

double minimise(std::shared_ptr<LeastSquaresProblem> problem, std::vector<double>& parameters,
                const std::vector<ParameterBounds>& bounds, const LeastSquaresOptions& options,
                PollRef poll) {
  if (parameters.empty()) {
    return 0.0;
  }
  // From here on a single step of the solver's, which cannot be stopped, may take long.
  constexpr std::size_t many = 400;
  if (parameters.size() < many) {
    Run run(std::move(problem), parameters, bounds, options, poll);
    if (run.is_empty()) {
      return 0.0;
    }
    run.solve();
    return conclude(run, options, parameters);
  }
  const auto watched =
      std::make_shared<WatchedRun>(std::move(problem), parameters, bounds, options);
  if (watched->run.is_empty()) {
    return 0.0;
  }
  try {
    run_watched([watched] { watched->run.solve(); }, poll);
  } catch (...) {
    watched->abandonment.abandoned = true;
    throw;
  }
  return conclude(watched->run, options, parameters);
}

}  // namespace talvorix
