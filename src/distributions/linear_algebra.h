#pragma once

#include "core/interrupt.h"
#include "core/random.h"

#include <Eigen/Core>

namespace talvorix {

// A = u diag(s) v^T, with as many columns in u and v as the shorter side of A has entries.
struct SvdDecomposition {
  Eigen::MatrixXd u;
  Eigen::VectorXd s;  // descending
  Eigen::MatrixXd v;
};

// For what is not finite everything is NaN. A surface has the means of its columns taken off first.
// Throws std::invalid_argument for a matrix without entries.
SvdDecomposition compute_svd_decomposition(const Eigen::MatrixXd& A, bool is_surface, PollRef poll);

// The rotation to the principal axes of the rows of A, whose first is that of the largest spread.
struct OptimumRotation {
  Eigen::MatrixXd rotation;  // square
  Eigen::MatrixXd inverse;
  Eigen::MatrixXd u;
  Eigen::VectorXd s;
};

OptimumRotation compute_optimum_rotation(const Eigen::MatrixXd& A, bool is_surface, PollRef poll);

// Throws std::invalid_argument when the ends of the numbers that random matrices are filled with
// are not finite or the same.
void require_range(double min_v, double max_v);

// A matrix filled row by row with uniform numbers from min_v to max_v, its columns made orthonormal
// in turn, and the last one negated if the determinant is -1. Throws std::invalid_argument when N
// is not positive or the ends are not finite or the same.
Eigen::MatrixXd create_random_orthogonal_matrix(long long N, double min_v, double max_v,
                                                RandomEngine& rng);

// Such a matrix times itself.
Eigen::MatrixXd create_random_rotation(long long N, double min_v, double max_v, RandomEngine& rng);

}  // namespace talvorix
