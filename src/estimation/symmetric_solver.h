#pragma once

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include <functional>

namespace talvorix {

// Solves the symmetric systems of kriging by Eigen's LDLT: diagonal pivots, and a solution of 0
// where a pivot is 0, so that a singular system still has a finite answer. One for each worker.
//
// Systems of usual size live in fixed storage and cost no allocation. Very large ones, whose
// factorisation takes seconds, go through the same algorithm one column at a time, so that the
// user can stop it.
class SymmetricSolver {
 public:
  // Makes room for a system of n equations, whose lower triangle is then to be written to
  // column(j)[j] to column(j)[n - 1].
  void resize(Eigen::Index n);
  Eigen::Index size() const { return size_; }
  double* column(Eigen::Index j) {
    return (is_small() ? small_.data() : large_.data()) + j * size_;
  }

  // between_columns is called while a very large system is factored.
  void factor(const std::function<void()>& between_columns);

  // Solves for the right-hand side in x, in place.
  void solve(Eigen::Ref<Eigen::VectorXd> x);

  static constexpr Eigen::Index largest_small = 64;
  static constexpr Eigen::Index largest_at_once = 640;

 private:
  bool is_small() const { return size_ <= largest_small; }
  void factor_by_columns(const std::function<void()>& between_columns);
  void solve_by_columns(Eigen::Ref<Eigen::VectorXd> x) const;

  using SmallMatrix =
      Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::ColMajor,
                    static_cast<int>(largest_small), static_cast<int>(largest_small)>;

  Eigen::Index size_ = 0;
  SmallMatrix small_;
  Eigen::LDLT<SmallMatrix> small_factor_;
  Eigen::MatrixXd large_;
  Eigen::LDLT<Eigen::MatrixXd> large_factor_;
  Eigen::Transpositions<Eigen::Dynamic> transpositions_;
};

}  // namespace talvorix
