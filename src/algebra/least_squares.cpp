#include "algebra/least_squares.h"

#include "algebra/search_guard.h"
#include "core/parallel.h"

#include <ceres/ceres.h>
#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <limits>
#include <memory>
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
  for (Eigen::Index i = 0; i < rows.rows(); ++i) {
    const double residual = rows(i, last);
    const Loss loss = cauchy(residual * residual, block.cauchy_scale);
    rows.row(i) *= loss.scaling;
    half_cost += loss.half_cost;
  }
  return half_cost;
}

// The whole problem as one cost of the solver's.
class ReducedCost final : public ceres::CostFunction {
 public:
  ReducedCost(LeastSquaresProblem& problem, std::size_t n_parameters, int n_threads,
              SearchGuard& guard, PollRef poll)
      : problem_(problem),
        blocks_(problem.blocks()),
        n_parameters_(n_parameters),
        n_threads_(n_threads),
        guard_(guard),
        poll_(poll) {
    set_num_residuals(static_cast<int>(n_parameters) + 1);
    mutable_parameter_block_sizes()->push_back(static_cast<std::int32_t>(n_parameters));
    cut_into_chunks();
  }

  bool is_empty() const { return chunks_.empty(); }
  // At the point of the last evaluation; with a loss it is not half the sum of the squares.
  double half_cost() const { return half_cost_; }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    double* const jacobian = jacobians == nullptr ? nullptr : jacobians[0];
    return guard_.attempt([&] {
      return evaluate({parameters[0], n_parameters_}, residuals, jacobian);
    });
  }

 private:
  // The cut does not depend on the number of threads, and so neither do the last bits.
  void cut_into_chunks() {
    constexpr std::size_t at_least = 512;
    const std::size_t rows_wanted = std::max(at_least, 4 * (n_parameters_ + 1));
    std::size_t first = 0;
    std::size_t n_rows = 0;
    for (std::size_t block = 0; block < blocks_.size(); ++block) {
      n_rows += blocks_[block].n_residuals;
      if (n_rows >= rows_wanted || (block + 1 == blocks_.size() && n_rows > 0)) {
        chunks_.push_back({first, block + 1 - first, n_rows});
        first = block + 1;
        n_rows = 0;
      }
    }
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
      problem_.evaluate(b, parameters, {residuals, jacobian, chunk.n_rows});
      half_cost += apply_loss(block, all.middleRows(row, n));
      row += n;
    }
    if (with_jacobian) {
      reduce(all);
      rows = std::move(all);
    }
    return half_cost;
  }

  bool evaluate(std::span<const double> parameters, double* residuals, double* jacobian) const {
    poll_();
    const bool with_jacobian = jacobian != nullptr;
    problem_.prepare(parameters, with_jacobian);
    std::vector<Rows> reduced(chunks_.size());
    std::vector<double> half_costs(chunks_.size());
    if (n_threads_ == 1) {
      for (std::size_t c = 0; c < chunks_.size(); ++c) {
        half_costs[c] = evaluate_chunk(chunks_[c], parameters, with_jacobian, reduced[c], poll_);
      }
    } else {
      parallel_for(chunks_.size(), n_threads_, [&](Worker& worker, std::size_t c) {
        half_costs[c] = evaluate_chunk(chunks_[c], parameters, with_jacobian, reduced[c], worker);
      });
    }
    half_cost_ = 0.0;
    for (const double half_cost : half_costs) {
      half_cost_ += half_cost;
    }
    const std::size_t n_residuals = n_parameters_ + 1;
    std::fill_n(residuals, n_residuals, 0.0);
    residuals[0] = std::sqrt(2.0 * half_cost_);
    return with_jacobian ? hand_over(reduced, residuals, jacobian) : std::isfinite(half_cost_);
  }

  // Writes the triangle of all chunks; the solver wants its rows one after the other.
  bool hand_over(const std::vector<Rows>& reduced, double* residuals, double* jacobian) const {
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
    using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    Eigen::Map<RowMajor> whole(jacobian, last + 1, last);
    whole.setZero();
    whole.topRows(all.rows()) = all.leftCols(last);
    std::fill_n(residuals, n_parameters_ + 1, 0.0);
    std::copy_n(all.col(last).data(), all.rows(), residuals);
    return std::isfinite(half_cost_) && all.allFinite();
  }

  LeastSquaresProblem& problem_;
  std::vector<ResidualBlock> blocks_;
  std::vector<Chunk> chunks_;
  std::size_t n_parameters_;
  int n_threads_;
  SearchGuard& guard_;
  PollRef poll_;
  mutable double half_cost_ = 0.0;
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

}  // namespace

double minimise(LeastSquaresProblem& problem, std::vector<double>& parameters,
                const std::vector<ParameterBounds>& bounds, const LeastSquaresOptions& options,
                PollRef poll) {
  SearchGuard guard;
  auto owned =
      std::make_unique<ReducedCost>(problem, parameters.size(), options.n_threads, guard, poll);
  if (parameters.empty() || owned->is_empty()) {
    return 0.0;
  }
  std::vector<double> found = parameters;
  ceres::Problem solver_problem;
  const ReducedCost& cost = *owned;
  solver_problem.AddResidualBlock(owned.release(), new KnownCost(cost), found.data());
  for (std::size_t i = 0; i < bounds.size(); ++i) {
    solver_problem.SetParameterLowerBound(found.data(), static_cast<int>(i), bounds[i].lower);
    solver_problem.SetParameterUpperBound(found.data(), static_cast<int>(i), bounds[i].upper);
  }
  ceres::Solver::Options solver_options;
  solver_options.linear_solver_type = ceres::DENSE_QR;
  solver_options.max_num_iterations = options.n_iterations;
  solver_options.minimizer_progress_to_stdout = options.debug;
  solver_options.logging_type = options.debug ? ceres::PER_MINIMIZER_ITERATION : ceres::SILENT;
  StopWhenFailed stop_when_failed(guard);
  solver_options.callbacks.push_back(&stop_when_failed);
  ceres::Solver::Summary summary;
  {
    const QuietLog quiet;
    ceres::Solve(solver_options, &solver_problem, &summary);
  }
  guard.rethrow();
  if (options.debug) {
    (options.report == nullptr ? std::cout : *options.report) << summary.FullReport() << std::endl;
  }
  if (summary.IsSolutionUsable()) {
    parameters = std::move(found);
  }
  return summary.final_cost;
}

}  // namespace talvorix
