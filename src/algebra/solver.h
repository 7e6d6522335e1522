#pragma once

#include "algebra/expression.h"
#include "algebra/jet.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace talvorix {

using DualFunction = ast::Function<Jet>;
using DualVariable = ast::Variable<Jet>;

struct SolverOptions {
  int n_iterations = 1000;
  // From 1e-10 on, the scale of the loss that makes large residuals count less.
  double cauchy_loss = 0.0;
  int n_threads = 0;
  bool debug = false;
};

// The values of the variables by name, and half the sum of the squared residuals, each by its loss.
template <class Value>
struct Solution {
  std::map<std::string, Value> values;
  double cost = 0.0;
};

// Lower and upper bounds by the name of a variable; names of no variable are ignored.
template <class Value>
using Boundary = std::map<std::string, std::pair<Value, Value>>;

// Told the values of the variables after each iteration; false stops.
template <class Value>
using SolverCallback = std::function<bool(const std::vector<Value>& values)>;

// Minimise the sum of squares of functions of scalars or of lists, with exact derivatives. Every
// function takes the variables by position, whatever its arguments are called. What evaluation or
// the callback throws ends the search and is thrown on. The cells of the variables keep their
// values, except where a function can only be evaluated node by node.
//
// Throw std::invalid_argument for bounds that are not as long as their variable and for no
// variables at all, and std::out_of_range for a function that has fewer arguments.
Solution<double> solve(const std::vector<std::shared_ptr<DualFunction>>& costs,
                       const std::vector<std::shared_ptr<DualVariable>>& variables,
                       const Boundary<double>& boundary, const SolverOptions& options,
                       const SolverCallback<double>& callback);
Solution<std::vector<double>> solve(const std::vector<std::shared_ptr<DualFunction>>& costs,
                                    const std::vector<std::shared_ptr<DualVariable>>& variables,
                                    const Boundary<std::vector<double>>& boundary,
                                    const SolverOptions& options,
                                    const SolverCallback<std::vector<double>>& callback);

}  // namespace talvorix
