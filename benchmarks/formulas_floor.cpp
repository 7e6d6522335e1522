// The least a fit of formulas could cost: the same functor written by hand and handed to the same
// solver, one residual a point. formulas.py compiles this file and calls it through ctypes.

#include <ceres/ceres.h>
#include <cstddef>
#include <cstdint>

namespace {

constexpr int n_parameters = 7;
constexpr std::size_t n_columns = 5;

class Cost {
 public:
  explicit Cost(const double* point) : point_(point) {}

  template <class U>
  bool operator()(U const* const* parameters, U* residual) const {
    const U* p = parameters[0];
    const U &nugget = p[0], &c1 = p[1], &c2 = p[2], &a1 = p[3], &a2 = p[4], &r = p[5], &s = p[6];
    const double x = point_[0], y = point_[1], z = point_[2];
    const U d1 = x + r * y + s * z;
    const U d2 = s * x + y + r * z;
    const U d3 = r * x + s * y + z;
    const U t1 = c1 * d1 / (a1 + d1);
    const U t2 = c2 * d2 / (a2 + d2);
    const U t3 = c1 * d3 / (a2 + d3);
    const U t4 = c2 * d1 * d2 / ((a1 + d1) * (a2 + d2));
    const U t5 = c1 * d2 * d3 / ((a1 + d2) * (a1 + d3));
    const U above = nugget + t1 + t2 + t3 + t4 + t5;
    const U below = (t1 * t2 + t2 * t3 + t3 * t1) / (nugget + c1 + c2) + 1.0;
    *residual = (above / below - point_[3]) * point_[4];
    return true;
  }

 private:
  const double* point_;
};

}  // namespace

// Symbols stay hidden but this one: the solver's library was compiled for another processor and
// must not take up this file's copies of what both have.
extern "C" __attribute__((visibility("default"))) void formulas_solve(
    const double* points, std::int64_t n, double* parameters, int n_iterations, int n_threads,
    double* figures) {
  using Function = ceres::DynamicAutoDiffCostFunction<Cost, n_parameters>;
  ceres::Problem problem;
  problem.AddParameterBlock(parameters, n_parameters);
  for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
    auto* function = new Function(new Cost(points + i * n_columns));
    function->AddParameterBlock(n_parameters);
    function->SetNumResiduals(1);
    problem.AddResidualBlock(function, nullptr, parameters);
  }
  ceres::Solver::Options options;
  options.linear_solver_type = ceres::DENSE_QR;
  options.update_state_every_iteration = true;
  options.max_num_iterations = n_iterations;
  options.num_threads = n_threads;
  options.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &problem, &summary);
  figures[0] = summary.final_cost;
  figures[1] = static_cast<double>(summary.iterations.size()) - 1.0;
  figures[2] = summary.num_unsuccessful_steps;
  figures[3] = summary.minimizer_time_in_seconds;
  figures[4] = summary.jacobian_evaluation_time_in_seconds;
  figures[5] = summary.num_jacobian_evaluations;
  figures[6] = summary.residual_evaluation_time_in_seconds;
  figures[7] = summary.linear_solver_time_in_seconds;
}
