#include "distributions/linear_algebra.h"

#include "core/arguments.h"
#include "core/memory_limit.h"
#include "core/watched_call.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace talvorix {

namespace {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// What v has beyond the columns that the decomposition needs completes them to a rotation.
enum class Columns { as_needed, square };

// A column of u and the one of v may both be negated. Rounding would decide, differently from one
// machine to the next, were it not for a rule that does not turn on which of two like entries is
// the larger.
void fix_signs(SvdDecomposition& svd) {
  for (Index j = 0; j < svd.v.cols(); ++j) {
    const double large = 0.5 * svd.v.col(j).cwiseAbs().maxCoeff();
    Index i = 0;
    while (std::abs(svd.v(i, j)) < large) {
      ++i;
    }
    if (svd.v(i, j) < 0.0) {
      svd.v.col(j) *= -1.0;
      if (j < svd.u.cols()) {
        svd.u.col(j) *= -1.0;
      }
    }
  }
}

SvdDecomposition decompose_finite(const MatrixXd& A, Columns columns_of_v) {
  const unsigned v = columns_of_v == Columns::square ? Eigen::ComputeFullV : Eigen::ComputeThinV;
  const Eigen::BDCSVD<MatrixXd> svd(A, Eigen::ComputeThinU | v);
  SvdDecomposition result{svd.matrixU(), svd.singularValues(), svd.matrixV()};
  fix_signs(result);
  return result;
}

SvdDecomposition decompose(MatrixXd A, bool is_surface, Columns columns_of_v, PollRef poll) {
  if (A.size() == 0) {
    throw std::invalid_argument("A has " + std::to_string(A.rows()) + " rows and " +
                                std::to_string(A.cols()) + " columns; it needs entries");
  }
  if (is_surface) {
    A.rowwise() -= A.colwise().mean().eval();
  }
  const Index shorter = std::min(A.rows(), A.cols());
  if (!A.allFinite()) {
    return {
        MatrixXd::Constant(A.rows(), shorter, nan), VectorXd::Constant(shorter, nan),
        MatrixXd::Constant(A.cols(), columns_of_v == Columns::square ? A.cols() : shorter, nan)};
  }
  constexpr double is_long = 1e7;
  if (static_cast<double>(A.size()) * static_cast<double>(shorter) < is_long) {
    return decompose_finite(A, columns_of_v);
  }
  const auto input = std::make_shared<const MatrixXd>(std::move(A));
  const auto result = std::make_shared<SvdDecomposition>();
  run_watched([input, result, columns_of_v] { *result = decompose_finite(*input, columns_of_v); },
              poll);
  return std::move(*result);
}

}  // namespace

SvdDecomposition compute_svd_decomposition(const MatrixXd& A, bool is_surface, PollRef poll) {
  return decompose(A, is_surface, Columns::as_needed, poll);
}

OptimumRotation compute_optimum_rotation(const MatrixXd& A, bool is_surface, PollRef poll) {
  SvdDecomposition svd = decompose(A, is_surface, Columns::square, poll);
  MatrixXd inverse = svd.v.transpose();
  return {std::move(svd.v), std::move(inverse), std::move(svd.u), std::move(svd.s)};
}

void require_range(double min_v, double max_v) {
  if (!std::isfinite(max_v - min_v) || min_v == max_v) {
    throw std::invalid_argument("min_v is " + to_text(min_v) + " and max_v is " + to_text(max_v) +
                                "; they must be finite and differ");
  }
}

MatrixXd create_random_orthogonal_matrix(long long N, double min_v, double max_v,
                                         RandomEngine& rng) {
  const auto n = static_cast<Index>(require_positive_count("N", N));
  require_range(min_v, max_v);
  constexpr double n_matrices = 3.0;
  require_memory("the matrix",
                 n_matrices * sizeof(double) * static_cast<double>(n) * static_cast<double>(n));
  MatrixXd filled(n, n);
  InterruptPoller poll_draws;
  for (Index i = 0; i < n; ++i) {
    for (Index j = 0; j < n; ++j) {
      poll_draws();
      filled(i, j) = min_v + uniform(rng) * (max_v - min_v);
    }
  }
  InterruptPoller poll;
  // Reflections, one for each column, lose no digits where columns are nearly dependent.
  VectorXd scales(n);
  VectorXd signs(n);
  VectorXd workspace(n);
  bool is_reflection = false;
  for (Index k = 0; k < n; ++k) {
    poll();
    double beta = 0.0;
    filled.col(k).tail(n - k).makeHouseholderInPlace(scales[k], beta);
    filled.bottomRightCorner(n - k, n - k - 1)
        .applyHouseholderOnTheLeft(filled.col(k).tail(n - k - 1), scales[k], workspace.data());
    signs[k] = std::copysign(1.0, beta);
    is_reflection = is_reflection != ((scales[k] != 0.0) != (signs[k] < 0.0));
  }
  MatrixXd orthogonal = MatrixXd::Identity(n, n);
  for (Index k = n - 1; k >= 0; --k) {
    poll();
    orthogonal.bottomRightCorner(n - k, n - k)
        .applyHouseholderOnTheLeft(filled.col(k).tail(n - k - 1), scales[k], workspace.data());
  }
  // Orthonormalised in turn, every column has a positive part along its old self.
  for (Index k = 0; k < n; ++k) {
    orthogonal.col(k) *= signs[k];
  }
  if (is_reflection) {
    orthogonal.col(n - 1) *= -1.0;
  }
  return orthogonal;
}

MatrixXd create_random_rotation(long long N, double min_v, double max_v, RandomEngine& rng) {
  const MatrixXd once = create_random_orthogonal_matrix(N, min_v, max_v, rng);
  MatrixXd twice(once.rows(), once.cols());
  InterruptPoller poll;
  for (Index j = 0; j < once.cols(); ++j) {
    poll();
    twice.col(j).noalias() = once * once.col(j);
  }
  return twice;
}

}  // namespace talvorix
