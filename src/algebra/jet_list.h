#pragma once

#include "core/arguments.h"

#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <ostream>
#include <utility>
#include <vector>

namespace talvorix {

// A list of scalars with element-wise arithmetic. Operations walk the left operand; the right one
// may be longer. Where it is shorter they throw std::out_of_range.
template <class T>
class JetList {
 public:
  JetList() = default;
  explicit JetList(std::size_t size) : values_(size, T(0.0)) {}
  explicit JetList(std::vector<T> values) : values_(std::move(values)) {}
  JetList(std::initializer_list<T> values) : values_(values) {}

  std::size_t size() const { return values_.size(); }
  T& operator[](std::size_t i) { return values_[i]; }
  const T& operator[](std::size_t i) const { return values_[i]; }
  const std::vector<T>& values() const { return values_; }
  auto begin() const { return values_.begin(); }
  auto end() const { return values_.end(); }

  T norm() const {
    using std::sqrt;
    return sqrt(sum_of_squares());
  }
  // The argument is not read: deliberate.
  T dot(const JetList&) const { return sum_of_squares(); }
  T sum_of_squares() const {
    T sum(0.0);
    for (const T& value : values_) {
      sum += value * value;
    }
    return sum;
  }

  JetList& operator+=(const JetList& other) {
    require_reach(other);
    for (std::size_t i = 0; i < size(); ++i) {
      values_[i] += other[i];
    }
    return *this;
  }
  JetList& operator-=(const JetList& other) {
    require_reach(other);
    for (std::size_t i = 0; i < size(); ++i) {
      values_[i] -= other[i];
    }
    return *this;
  }
  JetList& operator*=(const T& factor) {
    for (T& value : values_) {
      value *= factor;
    }
    return *this;
  }
  JetList& operator/=(const T& divisor) {
    for (T& value : values_) {
      value /= divisor;
    }
    return *this;
  }

  friend JetList operator+(JetList left, const JetList& right) { return left += right; }
  friend JetList operator-(JetList left, const JetList& right) { return left -= right; }
  friend JetList operator*(JetList list, const T& factor) { return list *= factor; }
  friend JetList operator/(JetList list, const T& divisor) { return list /= divisor; }
  friend T operator*(const JetList& left, const JetList& right) {
    left.require_reach(right);
    T sum(0.0);
    for (std::size_t i = 0; i < left.size(); ++i) {
      sum += left[i] * right[i];
    }
    return sum;
  }

  // Elements stand side by side without anything between them: deliberate.
  friend std::ostream& operator<<(std::ostream& stream, const JetList& list) {
    stream << '[';
    for (const T& value : list) {
      stream << value;
    }
    return stream << ']';
  }

 private:
  void require_reach(const JetList& right) const {
    require_reach_of("the right list", right.size(), "the left one", size());
  }

  std::vector<T> values_;
};

}  // namespace talvorix
