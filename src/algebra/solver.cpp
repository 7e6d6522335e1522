#include "algebra/solver.h"

#include "algebra/program.h"
#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/parallel.h"

#include <ceres/ceres.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <exception>
#include <iostream>
#include <limits>
#include <mutex>
#include <span>
#include <stdexcept>
#include <thread>

namespace talvorix {

namespace {

// What the costs of one search share. The solver knows no exceptions: the first one is kept and
// everything fails from then on.
class Search {
 public:
  // Whether work() could be done.
  template <class Work>
  bool attempt(const Work& work) {
    if (has_failed_) {
      return false;
    }
    try {
      return work();
    } catch (...) {
      const std::lock_guard lock(error_mutex_);
      if (!error_) {
        error_ = std::current_exception();
      }
      has_failed_ = true;
      return false;
    }
  }

  // Only the calling thread may look for the user's wish to stop.
  void poll() {
    if (std::this_thread::get_id() == caller_) {
      poller_();
    }
  }

  // Guards the cells of graphs that are evaluated node by node.
  std::mutex& cells_mutex() { return cells_mutex_; }

  void rethrow() const {
    if (error_) {
      std::rethrow_exception(error_);
    }
  }

 private:
  std::thread::id caller_ = std::this_thread::get_id();
  InterruptPoller poller_;
  std::atomic<bool> has_failed_{false};
  std::mutex error_mutex_;
  std::exception_ptr error_;
  std::mutex cells_mutex_;
};

bool is_usable(double x) { return std::isfinite(x); }
bool is_usable(const Jet& x) { return std::isfinite(x.a) && x.v.allFinite(); }

void take(const Jet& value, Jet& residual) { residual = value; }
void take(const Jet& value, double& residual) { residual = value.a; }

// A function as a residual. Derived classes say how parameters are bound when the graph has to be
// evaluated node by node.
template <class Derived>
class AbstractCost {
 public:
  AbstractCost(std::shared_ptr<DualFunction> function, const ast::InputRows& rows, Search& search)
      : function_(std::move(function)), search_(&search) {
    const PollRef poll(search);
    program_ = ast::compile(*function_, rows, poll);
  }

  template <class U>
  bool operator()(U const* const* parameters, U* residual) const {
    return search_->attempt([&] {
      search_->poll();
      if (program_) {
        static thread_local std::vector<U> scratch;
        *residual = program_->run(own().inputs(parameters), scratch);
      } else {
        const std::lock_guard lock(search_->cells_mutex());
        take(own().evaluate(parameters), *residual);
      }
      // The solver would say the same, but at length on standard error.
      return is_usable(*residual);
    });
  }

 protected:
  DualFunction& function() const { return *function_; }
  Search& search() const { return *search_; }

 private:
  const Derived& own() const { return static_cast<const Derived&>(*this); }

  std::shared_ptr<DualFunction> function_;
  Search* search_;
  std::unique_ptr<ast::Program> program_;
};

// All variables are scalars in one block of parameters.
class AbstractScalarCost : public AbstractCost<AbstractScalarCost> {
 public:
  AbstractScalarCost(std::shared_ptr<DualFunction> function, std::size_t n_variables,
                     Search& search)
      : AbstractCost(std::move(function), {std::vector<std::size_t>(n_variables, 1), true}, search),
        n_variables_(n_variables) {}

  template <class U>
  std::span<const U> inputs(U const* const* parameters) const {
    return {parameters[0], n_variables_};
  }
  template <class U>
  Jet evaluate(U const* const* parameters) const {
    return function().scalar_function(
        JetList<Jet>(std::vector<Jet>(parameters[0], parameters[0] + n_variables_)), search());
  }

 private:
  std::size_t n_variables_;
};

// Each variable is a block of parameters.
class AbstractVectorCost : public AbstractCost<AbstractVectorCost> {
 public:
  AbstractVectorCost(std::shared_ptr<DualFunction> function, std::vector<std::size_t> lengths,
                     Search& search)
      : AbstractCost(std::move(function), {lengths, false}, search), lengths_(std::move(lengths)) {}

  template <class U>
  std::span<const U> inputs(U const* const* parameters) const {
    static thread_local std::vector<U> all;
    all.clear();
    for (std::size_t i = 0; i < lengths_.size(); ++i) {
      all.insert(all.end(), parameters[i], parameters[i] + lengths_[i]);
    }
    return all;
  }
  template <class U>
  Jet evaluate(U const* const* parameters) const {
    JetMatrix<Jet>::Rows rows;
    rows.reserve(lengths_.size());
    for (std::size_t i = 0; i < lengths_.size(); ++i) {
      rows.emplace_back(parameters[i], parameters[i] + lengths_[i]);
    }
    return function().kernel_function(JetMatrix<Jet>(std::move(rows)), search());
  }

 private:
  std::vector<std::size_t> lengths_;
};

template <class Value>
class Callback : public ceres::IterationCallback {
 public:
  Callback(const SolverCallback<Value>& function, const std::vector<Value>& values, Search& search)
      : function_(function), values_(values), search_(search) {}

  ceres::CallbackReturnType operator()(const ceres::IterationSummary&) override {
    const bool goes_on = search_.attempt([&] {
      search_.poll();
      return function_(values_);
    });
    return goes_on ? ceres::SOLVER_CONTINUE : ceres::SOLVER_ABORT;
  }

 private:
  const SolverCallback<Value>& function_;
  const std::vector<Value>& values_;
  Search& search_;
};

using ScalarCallback = Callback<double>;
using VectorCallback = Callback<std::vector<double>>;

void require_variables(const std::vector<std::shared_ptr<DualFunction>>& costs, std::size_t n) {
  if (n == 0) {
    throw std::invalid_argument("variables is empty; there must be something to vary");
  }
  for (std::size_t i = 0; i < costs.size(); ++i) {
    require_reach_of(("costs[" + std::to_string(i) + "]").c_str(), costs[i]->arguments().size(),
                     "variables", n);
  }
}

// Runs the search. add_residual(cost, loss) adds the residual of a function to the problem.
template <class AddResidual>
double run(ceres::Problem& problem, const std::vector<std::shared_ptr<DualFunction>>& costs,
           const SolverOptions& options, ceres::IterationCallback& callback, const Search& search,
           const AddResidual& add_residual) {
  const auto n_iterations = require_count("n_iterations", options.n_iterations);
  for (const auto& cost : costs) {
    constexpr double least_loss = 1e-10;
    add_residual(cost, options.cauchy_loss >= least_loss
                           ? new ceres::CauchyLoss(options.cauchy_loss)
                           : nullptr);
  }
  ceres::Solver::Options solver_options;
  solver_options.linear_solver_type = ceres::DENSE_QR;
  solver_options.update_state_every_iteration = true;
  solver_options.max_num_iterations = static_cast<int>(n_iterations);
  solver_options.num_threads = check_n_threads(options.n_threads);
  solver_options.minimizer_progress_to_stdout = options.debug;
  solver_options.logging_type = options.debug ? ceres::PER_MINIMIZER_ITERATION : ceres::SILENT;
  solver_options.callbacks.push_back(&callback);
  ceres::Solver::Summary summary;
  ceres::Solve(solver_options, &problem, &summary);
  search.rethrow();
  if (options.debug) {
    std::cout << summary.FullReport() << std::endl;
  }
  return summary.final_cost;
}

}  // namespace

Solution<double> solve(const std::vector<std::shared_ptr<DualFunction>>& costs,
                       const std::vector<std::shared_ptr<DualVariable>>& variables,
                       const Boundary<double>& boundary, const SolverOptions& options,
                       const SolverCallback<double>& callback) {
  require_variables(costs, variables.size());
  const auto n = static_cast<int>(variables.size());
  Search search;
  ceres::Problem problem;
  std::vector<double> x;
  x.reserve(variables.size());
  for (const auto& variable : variables) {
    variable->store(Jet(variable->scalar()));
    x.push_back(variable->scalar().a);
  }
  problem.AddParameterBlock(x.data(), n);
  for (int i = 0; i < n; ++i) {
    const auto bounds = boundary.find(variables[static_cast<std::size_t>(i)]->name());
    if (bounds != boundary.end()) {
      problem.SetParameterLowerBound(x.data(), i, bounds->second.first);
      problem.SetParameterUpperBound(x.data(), i, bounds->second.second);
    }
  }
  ScalarCallback after_iteration(callback, x, search);
  Solution<double> solution;
  solution.cost =
      run(problem, costs, options, after_iteration, search,
          [&](const std::shared_ptr<DualFunction>& function, ceres::LossFunction* loss) {
            using Cost = ceres::DynamicAutoDiffCostFunction<AbstractScalarCost, Jet::DIMENSION>;
            auto* cost = new Cost(new AbstractScalarCost(function, variables.size(), search));
            cost->AddParameterBlock(n);
            cost->SetNumResiduals(1);
            problem.AddResidualBlock(cost, loss, x.data());
          });
  for (std::size_t i = 0; i < variables.size(); ++i) {
    solution.values[variables[i]->name()] = x[i];
  }
  return solution;
}

Solution<std::vector<double>> solve(const std::vector<std::shared_ptr<DualFunction>>& costs,
                                    const std::vector<std::shared_ptr<DualVariable>>& variables,
                                    const Boundary<std::vector<double>>& boundary,
                                    const SolverOptions& options,
                                    const SolverCallback<std::vector<double>>& callback) {
  require_variables(costs, variables.size());
  Search search;
  ceres::Problem problem;
  std::vector<std::vector<double>> blocks;
  std::vector<std::size_t> lengths;
  blocks.reserve(variables.size());
  lengths.reserve(variables.size());
  for (const auto& variable : variables) {
    std::vector<double> block;
    if (variable->shape() == ast::Shape::scalar) {
      block.push_back(variable->scalar().a);
    } else {
      for (const Jet& value : variable->list()) {
        block.push_back(value.a);
      }
    }
    if (block.empty()) {
      throw std::invalid_argument("variable " + variable->name() + " is an empty list");
    }
    lengths.push_back(block.size());
    blocks.push_back(std::move(block));
  }
  std::vector<double*> parameters;
  parameters.reserve(blocks.size());
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    std::vector<double>& block = blocks[i];
    parameters.push_back(block.data());
    problem.AddParameterBlock(block.data(), static_cast<int>(block.size()));
    const auto bounds = boundary.find(variables[i]->name());
    if (bounds == boundary.end()) {
      continue;
    }
    const auto& [lower, upper] = bounds->second;
    if (std::min(lower.size(), upper.size()) < block.size()) {
      throw std::invalid_argument(
          "boundary of " + variables[i]->name() + " has " + std::to_string(lower.size()) +
          " lower and " + std::to_string(upper.size()) + " upper bounds; the variable has " +
          std::to_string(block.size()) + " values");
    }
    for (std::size_t k = 0; k < block.size(); ++k) {
      problem.SetParameterLowerBound(block.data(), static_cast<int>(k), lower[k]);
      problem.SetParameterUpperBound(block.data(), static_cast<int>(k), upper[k]);
    }
  }
  VectorCallback after_iteration(callback, blocks, search);
  Solution<std::vector<double>> solution;
  solution.cost =
      run(problem, costs, options, after_iteration, search,
          [&](const std::shared_ptr<DualFunction>& function, ceres::LossFunction* loss) {
            using Cost = ceres::DynamicAutoDiffCostFunction<AbstractVectorCost, Jet::DIMENSION>;
            auto* cost = new Cost(new AbstractVectorCost(function, lengths, search));
            for (const std::size_t length : lengths) {
              cost->AddParameterBlock(static_cast<int>(length));
            }
            cost->SetNumResiduals(1);
            problem.AddResidualBlock(cost, loss, parameters);
          });
  for (std::size_t i = 0; i < variables.size(); ++i) {
    solution.values[variables[i]->name()] = blocks[i];
  }
  return solution;
}

}  // namespace talvorix
