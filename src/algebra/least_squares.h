#pragma once

#include "core/interrupt.h"

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <span>
#include <vector>

namespace talvorix {

// Where the residuals of a block go, and their derivatives: column p of the Jacobian, at
// jacobian + p * stride, belongs to parameter p. The Jacobian is null when none is asked for; all
// of it is written.
struct ResidualRows {
  double* residuals;
  double* jacobian;
  std::size_t stride;

  double* column(std::size_t parameter) const { return jacobian + parameter * stride; }
};

// Residuals that are evaluated together. A scale above 0 is that of Cauchy's loss, which makes
// large residuals count less: of the block as a whole or of each residual by itself.
struct ResidualBlock {
  std::size_t n_residuals;
  double cauchy_scale = 0.0;
  bool each_by_itself = false;
};

// A sum of squares as a function of a list of parameters, in blocks.
class LeastSquaresProblem {
 public:
  virtual ~LeastSquaresProblem() = default;

  // All of them; asked for once.
  virtual std::vector<ResidualBlock> blocks() const = 0;

  // Called on one thread before the blocks are evaluated at a point.
  virtual void prepare(std::span<const double> /*parameters*/, bool /*with_jacobian*/) {}

  // Writes one block, on any thread.
  virtual void evaluate(std::size_t block, std::span<const double> parameters,
                        const ResidualRows& rows) const = 0;
};

struct ParameterBounds {
  double lower;
  double upper;
};

struct LeastSquaresOptions {
  int n_iterations = 1000;
  // An effective count. The result does not depend on it.
  int n_threads = 1;
  // Progress on standard output and the solver's own report there.
  bool debug = false;
  std::ostream* report = nullptr;  // where the report goes instead
};

// Moves the parameters, which may be bounded, to where the sum is least nearby, by Levenberg and
// Marquardt's method, and returns half the sum there. From where a residual or a derivative is not
// finite, and with bounds that leave no room, it does not move.
//
// The blocks are evaluated by all threads and reduced to a triangle there, by orthogonal
// transformations that change neither the sum nor its derivatives; the solver sees the triangle.
//
// The poll is that of the calling thread. Throws NotEnoughMemory for what is too large.
double minimise(std::shared_ptr<LeastSquaresProblem> problem, std::vector<double>& parameters,
                const std::vector<ParameterBounds>& bounds, const LeastSquaresOptions& options,
                PollRef poll);

}  // namespace talvorix
