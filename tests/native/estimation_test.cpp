#include "estimation/ensemble_ellipsoid.h"
#include "estimation/ensemble_estimation.h"
#include "estimation/symmetric_solver.h"

#include <gtest/gtest.h>
#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>

namespace talvorix {
namespace {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

// Sizes on both sides of the solver's borders, in an order that makes it change storage.
constexpr std::initializer_list<Index> sizes{65, 1, 700, 64, 2, 641, 640, 31, 3, 700};

// Covariances of random points, with sills that differ, and the row of ordinary kriging.
MatrixXd kriging_matrix(Index n) {
  std::mt19937 rng(static_cast<unsigned>(n));
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  const MatrixXd points = MatrixXd::NullaryExpr(3, n, [&] { return uniform(rng); });
  MatrixXd A = MatrixXd::Zero(n, n);
  for (Index j = 0; j + 1 < n; ++j) {
    A(j, j) = 1.0 + uniform(rng);
    for (Index i = j + 1; i < n; ++i) {
      const double covariance = std::exp(-3.0 * (points.col(i) - points.col(j)).norm());
      A(i, j) = A(j, i) = i + 1 < n ? covariance : 1.0;
    }
  }
  return A;
}

// Blocks whose elimination is exact and ends in pivots of exactly 0, rows of zeros, and zero
// diagonals beside entries that are not, all shuffled.
MatrixXd singular_matrix(Index n) {
  MatrixXd A = MatrixXd::Zero(n, n);
  for (Index i = 0; i + 1 < n; i += 2) {
    const double s = std::exp2(i % 7);
    if (i % 8 == 0) A.block<2, 2>(i, i) << s, -s, -s, s;
    if (i % 8 == 2) A.block<2, 2>(i, i) << s, 2.0 * s, 2.0 * s, -s;
    if (i % 8 == 4) A.block<2, 2>(i, i) << 0.0, s, s, 0.0;
  }
  Eigen::PermutationMatrix<Eigen::Dynamic> order(n);
  order.setIdentity();
  std::shuffle(order.indices().begin(), order.indices().end(), std::mt19937(1));
  return order * A * order.transpose();
}

VectorXd right_hand_side(Index n) {
  return VectorXd::NullaryExpr(n, [](Index i) { return std::sin(1.0 + 0.7 * i); });
}

// Only the lower triangle is the solver's to read.
void fill(SymmetricSolver& solver, const MatrixXd& A) {
  solver.resize(A.rows());
  for (Index j = 0; j < A.cols(); ++j) {
    for (Index i = 0; i < A.rows(); ++i) {
      solver.column(j)[i] = i < j ? std::numeric_limits<double>::quiet_NaN() : A(i, j);
    }
  }
}

VectorXd solution(SymmetricSolver& solver, const MatrixXd& A, const VectorXd& b) {
  fill(solver, A);
  solver.factor([] {});
  VectorXd x = b;
  solver.solve(x);
  return x;
}

TEST(SymmetricSolver, AnswersAsTheLibrarysFactorisationAtAnySizeInAnyOrder) {
  SymmetricSolver solver;
  for (const Index n : sizes) {
    const VectorXd b = right_hand_side(n);
    const MatrixXd A = kriging_matrix(n);
    const VectorXd x = solution(solver, A, b);
    EXPECT_LE((x - A.ldlt().solve(b)).norm(), 1e-11 * x.norm()) << n << " equations";
    if (n > 1) {
      EXPECT_LT((A * x - b).norm(), 1e-11 * b.norm()) << n << " equations";
      VectorXd y = A.col(n / 2);
      solver.solve(y);
      EXPECT_LT((y - VectorXd::Unit(n, n / 2)).norm(), 1e-10) << "by the same factors";
    }
    const MatrixXd singular = singular_matrix(n);
    const VectorXd expected = singular.ldlt().solve(b);
    const VectorXd finite = solution(solver, singular, b);
    ASSERT_TRUE(finite.allFinite()) << n << " equations";
    EXPECT_LE((finite - expected).norm(), 1e-13 * expected.norm()) << n << " equations";
    MatrixXd no_diagonal = A;
    no_diagonal.diagonal().setZero();
    EXPECT_EQ(solution(solver, no_diagonal, b), VectorXd::Zero(n)) << n << " equations";
  }
}

TEST(SymmetricSolver, CanBeStoppedBetweenColumnsAndUsedAgain) {
  SymmetricSolver solver;
  for (const int last_call : {1, 350, 690}) {
    fill(solver, kriging_matrix(700));
    int calls = 0;
    const auto stop = [&] {
      if (++calls == last_call) throw std::domain_error("stopped");
    };
    EXPECT_THROW(solver.factor(stop), std::domain_error);
    const Index n = last_call == 350 ? 40 : 701;
    const MatrixXd next = kriging_matrix(n);
    const VectorXd b = right_hand_side(n);
    EXPECT_LT((next * solution(solver, next, b) - b).norm(), 1e-11 * b.norm());
  }
}

Locations random_locations(std::size_t n, double side, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> uniform(0.0, side);
  Locations locations(n);
  for (Vector3& location : locations) {
    location = Vector3::NullaryExpr([&] { return uniform(rng); });
  }
  return locations;
}

TEST(Ensembles, AreTheSameOnAnyNumberOfThreads) {
  const Locations data_locs = random_locations(300, 10.0, 1);
  const Locations targets = random_locations(2000, 10.0, 2);
  const Locations centers = random_locations(15, 10.0, 3);
  std::vector<double> data;
  for (const Vector3& x : data_locs) {
    data.push_back(std::sin(x.x()) + std::cos(x.y() + x.z()));
  }
  std::vector<Ellipsoid> ellipsoids;
  std::vector<CovarianceModel> models;
  for (const Vector3& x : centers) {
    ellipsoids.emplace_back(4.0 + x.x(), 3.0 + x.y(), 2.0, 10.0 * x.z(), x.y(), x.z());
    models.push_back({Covariance::of_type(Covariance::Type::exponential, 1.0, ellipsoids.back())});
  }
  const std::vector<double> ones(centers.size(), 1.0);
  const LocalCovariances local(centers, models, ones);
  const Neighborhood neighborhood(data_locs);
  const auto run = [&](int n_threads) {
    std::vector<double> result = ensemble_estimation({targets, neighborhood, data_locs, data},
                                                     local, {Ellipsoid(), 4}, {12}, n_threads);
    for (const Ellipsoid& blend :
         ensemble_local_ellipsoids(targets, {centers, ellipsoids, ones}, {6}, 0.01, n_threads)) {
      result.insert(result.end(), blend.matrix().data(), blend.matrix().data() + 9);
    }
    return result;
  };
  const std::vector<double> one = run(1);
  EXPECT_TRUE(std::all_of(one.begin(), one.end(), [](double e) { return std::isfinite(e); }));
  for (const int n_threads : {2, 3, 4}) {
    EXPECT_EQ(run(n_threads), one) << n_threads << " threads";
  }
}

}  // namespace
}  // namespace talvorix
