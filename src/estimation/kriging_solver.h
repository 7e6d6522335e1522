#pragma once

#include "core/geometry.h"
#include "core/parallel.h"
#include "covariance/mapped_model.h"
#include "estimation/estimator.h"
#include "estimation/symmetric_solver.h"
#include "estimation/target_loop.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace talvorix {

using EquationColumn = Eigen::Map<Eigen::VectorXd>;

// What the two kinds of kriging add to the system of the data, and to the weighted sum.
struct SimpleSystem {
  static constexpr Eigen::Index extra_equations = 0;
  double mean;

  void complete_matrix(SymmetricSolver&, Eigen::Index) const {}
  void complete_right_side(double*, Eigen::Index) const {}
  double constant_term(const EquationColumn& weights, Eigen::Index n) const {
    return (1.0 - weights.head(n).sum()) * mean;
  }
};

struct OrdinarySystem {
  static constexpr Eigen::Index extra_equations = 1;

  void complete_matrix(SymmetricSolver& solver, Eigen::Index n) const {
    for (Eigen::Index j = 0; j < n; ++j) {
      solver.column(j)[n] = 1.0;
    }
    solver.column(n)[n] = 0.0;
  }
  void complete_right_side(double* b, Eigen::Index n) const { b[n] = 1.0; }
  // The multiplier enters the estimate on purpose, as if it were the weight of a datum of 1.
  double constant_term(const EquationColumn& weights, Eigen::Index n) const { return weights[n]; }
};

// Solves one target after the other. The factored system is kept: when the next target has the
// very same neighbours, only its right-hand side is new.
template <class System>
class KrigingSolver {
 public:
  KrigingSolver(const System& system, const MappedModel& model, const Locations& data_locs,
                const std::vector<double>& data, Worker& worker)
      : system_(system),
        model_(&model),
        data_locs_(data_locs),
        data_(data),
        worker_(worker),
        points_(model),
        poll_([&worker] { worker.poll(); }) {}

  // From now on solves with this model, which must be of the same data.
  void use(const MappedModel& model) {
    if (model_ != &model) {
      model_ = &model;
      points_.use(model);
      is_factored_ = false;
    }
  }

  // What makes the estimate of a target out of any data: a constant and a weight for each datum of
  // a list. Lasts until the next one.
  struct Weighting {
    const std::vector<std::size_t>& used;
    const double* weights;
    double constant;
    double variance;
  };

  Estimate solve(const std::vector<std::size_t>& neighbors, const Vector3& target) {
    const Weighting weighting = weigh(neighbors, target);
    double estimate = weighting.constant;
    for (std::size_t i = 0; i < weighting.used.size(); ++i) {
      estimate += weighting.weights[i] * data_[weighting.used[i]];
    }
    return {estimate, weighting.variance};
  }

  Weighting weigh(const std::vector<std::size_t>& neighbors, const Vector3& target) {
    if (!is_factored_ || neighbors != factored_) {
      is_factored_ = false;
      factor(neighbors);
      factored_ = neighbors;
      is_factored_ = true;
    }
    const auto n = static_cast<Eigen::Index>(points_.size());
    const Eigen::Index n_equations = n + System::extra_equations;
    if (right_side_.size() < n_equations) {
      right_side_.resize(2 * n_equations);
      weights_.resize(2 * n_equations);
    }
    // Both begin where their storage does, which is aligned: the order that sums are taken in
    // depends on alignment, and results must not.
    EquationColumn right_side(right_side_.data(), n_equations);
    EquationColumn weights(weights_.data(), n_equations);
    std::copy_n(points_.covariances_with(target), n, right_side.data());
    system_.complete_right_side(right_side.data(), n);
    weights = right_side;
    solver_.solve(weights);
    const double variance = model_->sill() - weights.dot(right_side);
    return {used_, weights_.data(), system_.constant_term(weights, n),
            variance <= 1e-10 ? 1e-10 : variance};
  }

 private:
  void factor(const std::vector<std::size_t>& neighbors) {
    used_ = neighbors;
    if (assemble()) {
      drop_coincident();
      if (used_.size() < neighbors.size()) {
        assemble();
      }
    }
    solver_.factor(poll_);
  }

  // Returns whether two of the data may stand at the same place.
  bool assemble() {
    points_.gather(used_);
    const auto n = static_cast<Eigen::Index>(used_.size());
    solver_.resize(n + System::extra_equations);
    const bool may_coincide = points_.pair_covariances(
        [&](std::size_t j, const double* column) {
          double* A = solver_.column(static_cast<Eigen::Index>(j)) + j;
          A[0] = model_->sill();
          std::copy_n(column, used_.size() - (j + 1), A + 1);
        },
        [&] { worker_.poll(); });
    system_.complete_matrix(solver_, n);
    return may_coincide;
  }

  // A datum at the place of a nearer one has the same equation: its pivot is 0 and so is its
  // weight. It is left out, because rounding would make the pivot a random small number instead.
  void drop_coincident() {
    std::vector<std::size_t> apart;
    for (const std::size_t i : used_) {
      worker_.poll();
      const bool is_new = std::none_of(apart.begin(), apart.end(), [&](std::size_t j) {
        return data_locs_[i] == data_locs_[j];
      });
      if (is_new) {
        apart.push_back(i);
      }
    }
    used_ = std::move(apart);
  }

  const System& system_;
  const MappedModel* model_;
  const Locations& data_locs_;
  const std::vector<double>& data_;
  Worker& worker_;
  GatheredPoints points_;
  SymmetricSolver solver_;
  std::function<void()> poll_;
  bool is_factored_ = false;
  std::vector<std::size_t> factored_;  // the neighbours of the factored system
  std::vector<std::size_t> used_;      // those of them that have an equation
  Eigen::VectorXd right_side_;
  Eigen::VectorXd weights_;
};

}  // namespace talvorix
