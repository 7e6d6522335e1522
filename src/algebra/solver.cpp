#include "algebra/solver.h"

#include "algebra/program.h"
#include "algebra/program_batch.h"
#include "algebra/search_guard.h"
#include "core/arguments.h"
#include "core/interrupt.h"
#include "core/parallel.h"
#include "core/watched_call.h"

#include <ceres/ceres.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <mutex>
#include <span>
#include <stdexcept>
#include <thread>
#include <unordered_map>

namespace talvorix {

namespace {

// What the costs of one search share.
class Search : public SearchGuard {
 public:
  // Whether formulas could be evaluated.
  template <class Work>
  bool evaluate(const Work& work) {
    ++n_evaluations_;
    const bool is_done = attempt([&] {
      poll();
      return work();
    });
    --n_evaluations_;
    return is_done;
  }

  // Ends the search; its formulas, which are the caller's, are left alone from then on.
  void abandon() {
    attempt([]() -> bool { throw std::runtime_error("nobody waits for the search any longer"); });
    while (n_evaluations_ > 0) {
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }

  // Only the calling thread may look for the user's wish to stop; others hear of it here.
  void poll() {
    if (std::this_thread::get_id() == caller_) {
      poller_();
    }
    if (has_failed()) {
      throw std::runtime_error("another evaluation has failed");
    }
  }

  // Guards the cells of graphs that are evaluated node by node. Whoever holds the lock polls, and
  // so has everyone who waits for it.
  std::unique_lock<std::mutex> lock_cells() {
    std::unique_lock lock(cells_mutex_, std::try_to_lock);
    while (!lock.owns_lock()) {
      poll();
      std::this_thread::sleep_for(std::chrono::microseconds(20));
      (void)lock.try_lock();
    }
    return lock;
  }

 private:
  std::thread::id caller_ = std::this_thread::get_id();
  InterruptPoller poller_;
  std::mutex cells_mutex_;
  std::atomic<int> n_evaluations_{0};
};

bool is_usable(double x) { return std::isfinite(x); }
bool is_usable(const Jet& x) { return std::isfinite(x.a) && x.v.allFinite(); }

void take(const Jet& value, Jet& residual) { residual = value; }
void take(const Jet& value, double& residual) { residual = value.a; }

// Writes the parameters of all blocks one after the other.
template <class U>
std::span<const U> joined(U const* const* parameters, const std::vector<std::size_t>& lengths) {
  if (lengths.size() == 1) {
    return {parameters[0], lengths.front()};
  }
  static thread_local std::vector<U> all;
  all.clear();
  for (std::size_t i = 0; i < lengths.size(); ++i) {
    all.insert(all.end(), parameters[i], parameters[i] + lengths[i]);
  }
  return all;
}

// Many functions of one structure as so many residuals.
class BatchCost final : public ceres::CostFunction {
 public:
  BatchCost(const std::vector<const ast::Program*>& programs,
            const std::vector<std::size_t>& lengths, Search& search)
      : batch_(programs), lengths_(lengths), search_(search) {
    set_num_residuals(static_cast<int>(batch_.size()));
    mutable_parameter_block_sizes()->assign(lengths.begin(), lengths.end());
  }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    return search_.evaluate([&] {
      static thread_local std::vector<double> scratch;
      static thread_local std::vector<double> derivatives;
      derivatives.resize(jacobians == nullptr ? 0 : batch_.size() * batch_.n_inputs());
      batch_.run(joined(parameters, lengths_), residuals,
                 jacobians == nullptr ? nullptr : derivatives.data(), scratch);
      if (jacobians != nullptr) {
        scatter(derivatives, jacobians);
      }
      return are_usable(residuals, batch_.size()) &&
             are_usable(derivatives.data(), derivatives.size());
    });
  }

 private:
  // Deals the columns out to the blocks.
  void scatter(const std::vector<double>& derivatives, double** jacobians) const {
    std::size_t first = 0;
    for (std::size_t block = 0; block < lengths_.size(); ++block) {
      const std::size_t length = lengths_[block];
      if (jacobians[block] != nullptr) {
        for (std::size_t row = 0; row < batch_.size(); ++row) {
          std::copy_n(&derivatives[row * batch_.n_inputs() + first], length,
                      jacobians[block] + row * length);
        }
      }
      first += length;
    }
  }

  ast::ProgramBatch batch_;
  std::vector<std::size_t> lengths_;
  Search& search_;
};

// A function as one residual. How says how its arguments are bound when the graph has to be
// evaluated node by node.
template <class How>
class AbstractCost {
 public:
  AbstractCost(std::shared_ptr<DualFunction> function, std::shared_ptr<const ast::Program> program,
               const std::vector<std::size_t>& lengths, Search& search)
      : function_(std::move(function)),
        program_(std::move(program)),
        lengths_(lengths),
        search_(search) {}

  template <class U>
  bool operator()(U const* const* parameters, U* residual) const {
    return search_.evaluate([&] {
      if (program_) {
        static thread_local std::vector<U> scratch;
        *residual = program_->run(joined(parameters, lengths_), scratch);
      } else {
        const auto lock = search_.lock_cells();
        take(How::evaluate(*function_, parameters, lengths_, search_), *residual);
      }
      return is_usable(*residual);
    });
  }

 private:
  std::shared_ptr<DualFunction> function_;
  std::shared_ptr<const ast::Program> program_;
  std::vector<std::size_t> lengths_;
  Search& search_;
};

// All variables are scalars in one block of parameters.
struct Scalars {
  static ast::InputRows rows(const std::vector<std::size_t>& lengths) {
    return {std::vector<std::size_t>(lengths.front(), 1), true};
  }
  template <class U>
  static Jet evaluate(const DualFunction& function, U const* const* parameters,
                      const std::vector<std::size_t>& lengths, PollRef poll) {
    const std::vector<Jet> values(parameters[0], parameters[0] + lengths.front());
    return function.scalar_function(JetList<Jet>(values), poll);
  }
};

// Each variable is a block of parameters.
struct Vectors {
  static ast::InputRows rows(const std::vector<std::size_t>& lengths) { return {lengths, false}; }
  template <class U>
  static Jet evaluate(const DualFunction& function, U const* const* parameters,
                      const std::vector<std::size_t>& lengths, PollRef poll) {
    JetMatrix<Jet>::Rows rows;
    rows.reserve(lengths.size());
    for (std::size_t i = 0; i < lengths.size(); ++i) {
      rows.emplace_back(parameters[i], parameters[i] + lengths[i]);
    }
    return function.kernel_function(JetMatrix<Jet>(std::move(rows)), poll);
  }
};

using AbstractScalarCost = AbstractCost<Scalars>;
using AbstractVectorCost = AbstractCost<Vectors>;

using ProgramHandle = std::shared_ptr<const ast::Program>;

// Puts programs of one structure together, in the order in which each structure first came.
std::vector<std::vector<const ast::Program*>> by_structure(
    const std::vector<ProgramHandle>& programs) {
  std::vector<std::vector<const ast::Program*>> groups;
  std::unordered_map<std::size_t, std::vector<std::size_t>> of_hash;
  for (const auto& program : programs) {
    std::vector<std::size_t>& candidates = of_hash[program->structure_hash()];
    const auto same = std::find_if(candidates.begin(), candidates.end(), [&](std::size_t group) {
      return groups[group].front()->has_structure_of(*program);
    });
    if (same != candidates.end()) {
      groups[*same].push_back(program.get());
    } else {
      candidates.push_back(groups.size());
      groups.push_back({program.get()});
    }
  }
  return groups;
}

// The programs of functions, null for what has to be evaluated node by node: all of them when one
// reads what another leaves behind.
template <class How>
std::vector<ProgramHandle> compile_all(const std::vector<std::shared_ptr<DualFunction>>& costs,
                                       const std::vector<std::size_t>& lengths, Search& search) {
  std::vector<ProgramHandle> programs;
  programs.reserve(costs.size());
  ast::Footprint<Jet> footprint;
  const ast::InputRows rows = How::rows(lengths);
  const bool are_scalars = std::all_of(rows.lengths.begin(), rows.lengths.end(),
                                       [](std::size_t length) { return length == 1; });
  for (const auto& function : costs) {
    search.poll();
    ProgramHandle program = are_scalars ? function->lasting_program() : nullptr;
    if (program && program->n_inputs() == rows.lengths.size()) {
      for (const auto& argument : function->arguments()) {
        footprint.changed.insert(argument.get());
      }
    } else {
      program = ast::compile(*function, rows, PollRef(search), footprint);
    }
    programs.push_back(std::move(program));
  }
  const bool are_apart =
      std::none_of(footprint.read.begin(), footprint.read.end(),
                   [&](const auto* variable) { return footprint.changed.contains(variable); });
  if (!are_apart) {
    std::for_each(programs.begin(), programs.end(), [](auto& program) { program.reset(); });
  }
  return programs;
}

// Adds a residual for every function, of parameters in blocks of these lengths.
template <class How>
void add_residuals(ceres::Problem& problem, const std::vector<std::shared_ptr<DualFunction>>& costs,
                   const std::vector<double*>& parameters, const std::vector<std::size_t>& lengths,
                   double cauchy_loss, Search& search) {
  constexpr double least_loss = 1e-10;
  const bool has_loss = cauchy_loss >= least_loss;
  auto programs = compile_all<How>(costs, lengths, search);
  for (std::size_t i = 0; i < costs.size(); ++i) {
    // A loss counts each residual by itself.
    if (programs[i] && !has_loss) {
      continue;
    }
    using Cost = ceres::DynamicAutoDiffCostFunction<AbstractCost<How>, Jet::DIMENSION>;
    auto cost = std::make_unique<Cost>(
        new AbstractCost<How>(costs[i], std::move(programs[i]), lengths, search));
    for (const std::size_t length : lengths) {
      cost->AddParameterBlock(static_cast<int>(length));
    }
    cost->SetNumResiduals(1);
    problem.AddResidualBlock(cost.release(),
                             has_loss ? new ceres::CauchyLoss(cauchy_loss) : nullptr, parameters);
  }
  std::erase(programs, nullptr);
  for (const auto& group : by_structure(programs)) {
    // Small enough for all threads to have some.
    constexpr std::size_t most = 512;
    for (std::size_t begin = 0; begin < group.size(); begin += most) {
      const auto first = group.begin() + static_cast<std::ptrdiff_t>(begin);
      const auto n = static_cast<std::ptrdiff_t>(std::min(most, group.size() - begin));
      problem.AddResidualBlock(
          new BatchCost(std::vector<const ast::Program*>(first, first + n), lengths, search),
          nullptr, parameters);
    }
  }
}

// Tells the caller the values after each iteration, always on the thread that it called from.
template <class Value>
class Callback : public ceres::IterationCallback {
 public:
  Callback(const std::vector<Value>& values, Search& search) : values_(values), search_(search) {}

  // The function must live until the search ends or is abandoned.
  void set_function(const SolverCallback<Value>* function) { function_ = function; }

  ceres::CallbackReturnType operator()(const ceres::IterationSummary&) override {
    const bool goes_on = search_.attempt([&] {
      search_.poll();
      return function_ == nullptr ||
             (std::this_thread::get_id() == caller_ ? (*function_)(values_) : ask());
    });
    return goes_on ? ceres::SOLVER_CONTINUE : ceres::SOLVER_ABORT;
  }

  // Answers the search on another thread, if it asks.
  void serve() {
    if (asks_) {
      answer_ = (*function_)(values_);
      asks_ = false;
    }
  }

 private:
  bool ask() {
    asks_ = true;
    while (asks_) {
      search_.poll();
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return answer_;
  }

  const SolverCallback<Value>* function_ = nullptr;
  const std::vector<Value>& values_;
  Search& search_;
  std::thread::id caller_ = std::this_thread::get_id();
  std::atomic<bool> asks_{false};
  bool answer_ = true;
};

using ScalarCallback = Callback<double>;
using VectorCallback = Callback<std::vector<double>>;

// A search and all that it touches, so that it can be left to itself.
template <class Value>
struct Task {
  Search search;
  std::vector<Value> values;
  Callback<Value> callback{values, search};
  ceres::Solver::Summary summary;
  ceres::Problem problem;  // refers to the others
};

// Sets the bounds of one parameter. The solver would refuse such as leave no room, with no word
// why.
void set_bounds(ceres::Problem& problem, const std::string& name, double* block, std::size_t i,
                double lower, double upper) {
  if (lower >= upper) {
    throw std::invalid_argument("boundary of " + name + " has " + to_text(lower) +
                                " for a lower and " + to_text(upper) +
                                " for an upper bound; the lower one must be less");
  }
  problem.SetParameterLowerBound(block, static_cast<int>(i), lower);
  problem.SetParameterUpperBound(block, static_cast<int>(i), upper);
}

void require_variables(const std::vector<std::shared_ptr<DualFunction>>& costs, std::size_t n) {
  if (n == 0) {
    throw std::invalid_argument("variables is empty; there must be something to vary");
  }
  for (std::size_t i = 0; i < costs.size(); ++i) {
    require_reach_of(("costs[" + std::to_string(i) + "]").c_str(), costs[i]->arguments().size(),
                     "variables", n);
  }
}

// Whether a single step of the solver's, which cannot be stopped, may take long.
bool has_long_steps(const ceres::Problem& problem) {
  constexpr double most_operations = 2e8;
  // Each parameter brings a row of its own into the factorisation.
  const double n = problem.NumParameters();
  return n * n * (n + problem.NumResiduals()) > most_operations;
}

template <class Value>
double run(const std::shared_ptr<Task<Value>>& task, const SolverOptions& options,
           const SolverCallback<Value>& callback) {
  const auto n_iterations = require_count("n_iterations", options.n_iterations);
  ceres::Solver::Options solver_options;
  solver_options.linear_solver_type = ceres::DENSE_QR;
  solver_options.update_state_every_iteration = true;
  solver_options.max_num_iterations = static_cast<int>(n_iterations);
  solver_options.num_threads = check_n_threads(options.n_threads);
  solver_options.minimizer_progress_to_stdout = options.debug;
  solver_options.logging_type = options.debug ? ceres::PER_MINIMIZER_ITERATION : ceres::SILENT;
  solver_options.callbacks.push_back(&task->callback);
  task->callback.set_function(callback ? &callback : nullptr);
  const auto search = [task, solver_options] {
    const QuietLog quiet;
    ceres::Solve(solver_options, &task->problem, &task->summary);
  };
  if (has_long_steps(task->problem)) {
    auto look = [&task] {
      task->search.poll();
      task->callback.serve();
    };
    try {
      run_watched(search, PollRef(look));
    } catch (...) {
      task->search.abandon();
      throw;
    }
  } else {
    search();
  }
  task->search.rethrow();
  if (options.debug) {
    std::cout << task->summary.FullReport() << std::endl;
  }
  return task->summary.final_cost;
}

}  // namespace

Solution<double> solve(const std::vector<std::shared_ptr<DualFunction>>& costs,
                       const std::vector<std::shared_ptr<DualVariable>>& variables,
                       const Boundary<double>& boundary, const SolverOptions& options,
                       const SolverCallback<double>& callback) {
  require_variables(costs, variables.size());
  const auto n = static_cast<int>(variables.size());
  const auto task = std::make_shared<Task<double>>();
  std::vector<double>& x = task->values;
  x.reserve(variables.size());
  for (const auto& variable : variables) {
    variable->store(Jet(variable->scalar()));
    x.push_back(variable->scalar().a);
  }
  task->problem.AddParameterBlock(x.data(), n);
  for (std::size_t i = 0; i < x.size(); ++i) {
    const std::string& name = variables[i]->name();
    const auto bounds = boundary.find(name);
    if (bounds != boundary.end()) {
      set_bounds(task->problem, name, x.data(), i, bounds->second.first, bounds->second.second);
    }
  }
  Solution<double> solution;
  add_residuals<Scalars>(task->problem, costs, {x.data()}, {variables.size()}, options.cauchy_loss,
                         task->search);
  solution.cost = run(task, options, callback);
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
  const auto task = std::make_shared<Task<std::vector<double>>>();
  std::vector<std::vector<double>>& blocks = task->values;
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
    task->problem.AddParameterBlock(block.data(), static_cast<int>(block.size()));
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
      set_bounds(task->problem, variables[i]->name(), block.data(), k, lower[k], upper[k]);
    }
  }
  Solution<std::vector<double>> solution;
  add_residuals<Vectors>(task->problem, costs, parameters, lengths, options.cauchy_loss,
                         task->search);
  solution.cost = run(task, options, callback);
  for (std::size_t i = 0; i < variables.size(); ++i) {
    solution.values[variables[i]->name()] = blocks[i];
  }
  return solution;
}

}  // namespace talvorix
