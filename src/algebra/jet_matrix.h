#pragma once

#include "algebra/jet_list.h"

#include <Eigen/Dense>

#include <cstddef>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace talvorix {

// Rows of scalars. The first one tells the number of columns; others are not checked before they
// are computed with. Then std::invalid_argument is thrown for rows that are shorter and for shapes
// that do not fit, and std::out_of_range for a matrix without rows and for a right operand of an
// element-wise operation that ends before the left one.
template <class T>
class JetMatrix {
 public:
  using Rows = std::vector<std::vector<T>>;

  JetMatrix() = default;
  explicit JetMatrix(Rows rows) : rows_(std::move(rows)) {}

  std::size_t size() const { return rows_.size(); }
  const std::vector<T>& operator[](std::size_t i) const { return rows_[i]; }
  const Rows& rows() const { return rows_; }

  T norm() const {
    using std::sqrt;
    return sqrt(dense().squaredNorm());
  }
  JetMatrix inverse() const { return JetMatrix(inverted()); }

  friend JetMatrix operator+(const JetMatrix& left, const JetMatrix& right) {
    const Dense a = left.dense();
    return JetMatrix(a + right.dense_reaching(a));
  }
  friend JetMatrix operator-(const JetMatrix& left, const JetMatrix& right) {
    const Dense a = left.dense();
    return JetMatrix(a - right.dense_reaching(a));
  }
  friend JetMatrix operator*(const JetMatrix& matrix, const T& factor) {
    return JetMatrix(matrix.dense() * factor);
  }
  friend JetMatrix operator/(const JetMatrix& matrix, const T& divisor) {
    return JetMatrix(matrix.dense() / divisor);
  }
  friend JetMatrix operator*(const JetMatrix& left, const JetMatrix& right) {
    return product(left.dense(), right.dense());
  }
  friend JetMatrix operator/(const JetMatrix& left, const JetMatrix& right) {
    return product(left.dense(), right.inverted());
  }
  // Always of three elements, the last ones 0 where there are fewer rows: deliberate.
  friend JetList<T> operator*(const JetMatrix& matrix, const JetList<T>& list) {
    const Dense a = matrix.dense();
    JetList<T> result(3);
    if (static_cast<std::size_t>(a.rows()) > result.size()) {
      throw std::invalid_argument("a matrix times a vector may have 3 rows at most, but it has " +
                                  std::to_string(a.rows()));
    }
    const Dense b = product_of(a, column(list));
    for (Eigen::Index i = 0; i < b.rows(); ++i) {
      result[static_cast<std::size_t>(i)] = b(i, 0);
    }
    return result;
  }
  // What the inverse makes of the vector, as a matrix of one column.
  friend JetMatrix operator/(const JetMatrix& matrix, const JetList<T>& list) {
    return product(matrix.inverted(), column(list));
  }

  friend std::ostream& operator<<(std::ostream& stream, const JetMatrix& matrix) {
    stream << '[';
    for (const std::vector<T>& row : matrix.rows_) {
      stream << '[';
      for (const T& value : row) {
        stream << value << ',';
      }
      stream << "],";
    }
    return stream << ']';
  }

 private:
  using Dense = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic>;

  explicit JetMatrix(const Dense& dense) : rows_(static_cast<std::size_t>(dense.rows())) {
    for (std::size_t i = 0; i < size(); ++i) {
      rows_[i].reserve(static_cast<std::size_t>(dense.cols()));
      for (Eigen::Index j = 0; j < dense.cols(); ++j) {
        rows_[i].push_back(dense(static_cast<Eigen::Index>(i), j));
      }
    }
  }

  Dense dense() const {
    if (rows_.empty()) {
      throw std::out_of_range("invalid vector subscript");
    }
    Dense dense(static_cast<Eigen::Index>(size()), static_cast<Eigen::Index>(rows_[0].size()));
    for (std::size_t i = 0; i < size(); ++i) {
      if (rows_[i].size() < rows_[0].size()) {
        throw std::invalid_argument(
            "row " + std::to_string(i) + " of the matrix has " + std::to_string(rows_[i].size()) +
            " entries, but the first one has " + std::to_string(rows_[0].size()));
      }
      for (std::size_t j = 0; j < rows_[0].size(); ++j) {
        dense(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) = rows_[i][j];
      }
    }
    return dense;
  }

  // The part of this matrix that an element-wise operation reads.
  Dense dense_reaching(const Dense& left) const {
    const Dense right = dense();
    require_reach_of("the rows of the right matrix", static_cast<std::size_t>(right.rows()),
                     "those of the left one", static_cast<std::size_t>(left.rows()));
    require_reach_of("the columns of the right matrix", static_cast<std::size_t>(right.cols()),
                     "those of the left one", static_cast<std::size_t>(left.cols()));
    return right.topLeftCorner(left.rows(), left.cols());
  }

  Dense inverted() const {
    const Dense a = dense();
    if (a.rows() != a.cols()) {
      throw std::invalid_argument("a matrix to be inverted must be square, but has " +
                                  std::to_string(a.rows()) + " rows and " +
                                  std::to_string(a.cols()) + " columns");
    }
    return a.inverse();
  }

  static Dense column(const JetList<T>& list) {
    Dense column(static_cast<Eigen::Index>(list.size()), 1);
    for (std::size_t i = 0; i < list.size(); ++i) {
      column(static_cast<Eigen::Index>(i), 0) = list[i];
    }
    return column;
  }

  static Dense product_of(const Dense& left, const Dense& right) {
    if (left.cols() != right.rows()) {
      throw std::invalid_argument("the left operand of a product has " +
                                  std::to_string(left.cols()) + " columns, but the right one has " +
                                  std::to_string(right.rows()) + " rows; they must be as many");
    }
    return left * right;
  }
  static JetMatrix product(const Dense& left, const Dense& right) {
    return JetMatrix(product_of(left, right));
  }

  Rows rows_;
};

}  // namespace talvorix
