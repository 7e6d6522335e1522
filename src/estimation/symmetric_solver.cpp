#include "estimation/symmetric_solver.h"

#include <limits>

namespace talvorix {

void SymmetricSolver::resize(Eigen::Index n) {
  size_ = n;
  if (is_small()) {
    small_.resize(n, n);
  } else {
    large_.resize(n, n);
  }
}

void SymmetricSolver::factor(const std::function<void()>& between_columns) {
  if (is_small()) {
    small_factor_.compute(small_);
  } else if (size_ <= largest_at_once) {
    large_factor_.compute(large_);
  } else {
    factor_by_columns(between_columns);
  }
}

void SymmetricSolver::solve(Eigen::Ref<Eigen::VectorXd> x) {
  if (is_small()) {
    x = small_factor_.solve(x);
  } else if (size_ <= largest_at_once) {
    x = large_factor_.solve(x);
  } else {
    solve_by_columns(x);
  }
}

// The left-looking algorithm and the pivot rule of Eigen::LDLT, in place on the lower triangle:
// the largest remaining diagonal entry comes next, and a column below a pivot of 0 is left as it
// is.
void SymmetricSolver::factor_by_columns(const std::function<void()>& between_columns) {
  const Eigen::Index n = size_;
  auto& A = large_;
  transpositions_.resize(n);
  Eigen::VectorXd scaled(n);
  for (Eigen::Index k = 0; k < n; ++k) {
    between_columns();
    Eigen::Index pivot = 0;
    A.diagonal().tail(n - k).cwiseAbs().maxCoeff(&pivot);
    pivot += k;
    transpositions_.coeffRef(k) = static_cast<int>(pivot);
    if (pivot != k) {
      const Eigen::Index after = n - pivot - 1;
      A.row(k).head(k).swap(A.row(pivot).head(k));
      A.col(k).tail(after).swap(A.col(pivot).tail(after));
      std::swap(A(k, k), A(pivot, pivot));
      for (Eigen::Index i = k + 1; i < pivot; ++i) {
        std::swap(A(i, k), A(pivot, i));
      }
    }
    const Eigen::Index rest = n - k - 1;
    auto below = A.col(k).tail(rest);
    if (k > 0) {
      scaled.head(k) = A.diagonal().head(k).cwiseProduct(A.row(k).head(k).transpose());
      A(k, k) -= A.row(k).head(k).dot(scaled.head(k));
      if (rest > 0) {
        below.noalias() -= A.bottomLeftCorner(rest, k) * scaled.head(k);
      }
    }
    const double d = A(k, k);
    if (k == 0 && !(std::abs(d) > 0.0)) {
      // The whole diagonal is zero. So is the solution, whatever stands below it.
      for (Eigen::Index j = 0; j < n; ++j) {
        transpositions_.coeffRef(j) = static_cast<int>(j);
        A.col(j).tail(n - j - 1).setZero();
      }
      return;
    }
    if (std::abs(d) > 0.0) {
      below /= d;
    }
  }
}

void SymmetricSolver::solve_by_columns(Eigen::Ref<Eigen::VectorXd> x) const {
  const auto L = large_.triangularView<Eigen::UnitLower>();
  x = transpositions_ * x;
  L.solveInPlace(x);
  for (Eigen::Index i = 0; i < size_; ++i) {
    const double d = large_(i, i);
    x[i] = std::abs(d) > std::numeric_limits<double>::min() ? x[i] / d : 0.0;
  }
  L.transpose().solveInPlace(x);
  x = transpositions_.transpose() * x;
}

}  // namespace talvorix
