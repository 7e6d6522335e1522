#pragma once

#include "core/geometry.h"
#include "core/multiply_add.h"
#include "covariance/covariance_computer.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <vector>

namespace talvorix {

// A model together with a list of points, each mapped once to the space of every structure, so
// that a covariance of two points costs a subtraction and a kernel, and no matrix product.
// Structures that share a matrix share a space.
class MappedModel {
 public:
  MappedModel(const CovarianceComputer& computer, const Locations& points, int n_threads);
  // The points are borrowed, and mapped only when they are gathered. For many models of the same
  // points, which would not fit into memory once for each: to map a few anew costs a few hundredths
  // of making a system of them, and no more than to fetch them from far apart.
  static MappedModel borrowing(const CovarianceComputer& computer, const Locations& points);

  // The covariance at lag zero.
  double sill() const { return sill_; }

 private:
  friend class GatheredPoints;

  struct Term {
    Kernel kernel;
    double sill;
    std::size_t space;
    // The term is 0 for pairs further apart than this in the witness, a space in which distances
    // are measured before the term's turn comes. Spares a nugget the measuring in its own.
    double squared_reach = std::numeric_limits<double>::infinity();
    std::size_t witness = 0;
  };

  explicit MappedModel(const CovarianceComputer& computer);
  void find_witness(Term& nugget) const;

  std::size_t record_size() const { return 3 * spaces_.size(); }
  // One coordinate of an offset in a space. Spelt out so that points at the same place come to be
  // at the same place, whichever loop maps them.
  static double mapped(const Matrix3& space, Eigen::Index axis, double x, double y, double z) {
    return multiply_add(space(axis, 2), z, multiply_add(space(axis, 1), y, space(axis, 0) * x));
  }
  void map(const Vector3& offset, double* record) const;

  std::vector<Matrix3> spaces_;
  std::vector<Term> terms_;
  // Mapped coordinates are differences from here, which keeps the digits of points that are far
  // from the origin and close to each other.
  Vector3 centre_ = Vector3::Zero();
  std::vector<double> records_;          // for each point x, y, z in each space
  const Locations* borrowed_ = nullptr;  // the points instead, when they are not mapped beforehand
  double sill_;
};

// A few of a model's points drawn together into contiguous columns, and their covariances. One for
// each worker; nothing is allocated once it has grown to the largest number of points.
class GatheredPoints {
 public:
  explicit GatheredPoints(const MappedModel& model) { use(model); }

  // From now on gathers the points of this model; those gathered before are gone.
  void use(const MappedModel& model);

  // Takes any list of positions among the model's points.
  template <class Positions>
  void gather(const Positions& points);
  std::size_t size() const { return size_; }

  // Covariances between every gathered point and a location, in order; valid until the next call.
  const double* covariances_with(const Vector3& location);
  // The same with one of the model's points.
  const double* covariances_with_point(std::size_t point);

  // Calls store(j, column) for every gathered point j from the first, where column holds its
  // covariances with the points j + 1 to size() - 1. between() is called between pieces of work of
  // about a thousand pairs. Returns whether two of the points may stand at the same place: false
  // only when all pairs are apart, or the model has no structure to tell by.
  template <class Store, class Between>
  bool pair_covariances(Store&& store, Between&& between);

 private:
  // The coordinates of the gathered points in one space.
  double* column(std::size_t space, std::size_t axis) {
    return coordinates_.data() + (3 * space + axis) * capacity_;
  }
  const double* column(std::size_t space, std::size_t axis) const {
    return coordinates_.data() + (3 * space + axis) * capacity_;
  }
  void reserve(std::size_t n_points);
  void map_offsets();
  const double* covariances_with_record(const double* record);
  // Squared distances from a point of a space to the gathered points first to size() - 1. Whole
  // lanes are written, into the padding of out. Returns the smallest one.
  double squared_distances(std::size_t space, const double* from, std::size_t first,
                           double* out) const;
  // Sums the terms over count pairs whose squared distances fill_lags(space) puts into lags_; it
  // returns the smallest.
  template <class FillLags>
  double sum_terms(std::size_t count, FillLags&& fill_lags);

  const MappedModel* model_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  Vector3 centre_ = Vector3::Zero();  // that the coordinates are differences from
  std::vector<double> offsets_;       // of borrowed points from the centre: x, y, z
  std::vector<double> coordinates_;
  std::vector<double> target_;
  std::vector<double> lags_;
  std::vector<double> sums_;
  std::vector<double> smallest_;  // of the squared distances last measured in each space
};

template <class Positions>
void GatheredPoints::gather(const Positions& points) {
  reserve(points.size());
  size_ = points.size();
  const std::size_t record_size = model_->record_size();
  if (model_->borrowed_ != nullptr) {
    if (size_ > 0) {
      // Not the target, so that the same points always get the same coordinates.
      centre_ = (*model_->borrowed_)[points[0]];
    }
    for (std::size_t k = 0; k < size_; ++k) {
      const Vector3& point = (*model_->borrowed_)[points[k]];
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto i = static_cast<Eigen::Index>(axis);
        offsets_[axis * capacity_ + k] = point[i] - centre_[i];
      }
    }
    map_offsets();
  } else {
    for (std::size_t k = 0; k < size_; ++k) {
      const double* record = model_->records_.data() + points[k] * record_size;
      for (std::size_t c = 0; c < record_size; ++c) {
        coordinates_[c * capacity_ + k] = record[c];
      }
    }
  }
  // What stands in the padding is computed with, but is no point: it must not look like one.
  for (std::size_t c = 0; c < record_size; ++c) {
    std::fill_n(coordinates_.data() + c * capacity_ + size_, Kernel::padding,
                std::numeric_limits<double>::quiet_NaN());
  }
}

template <class FillLags>
double GatheredPoints::sum_terms(std::size_t count, FillLags&& fill_lags) {
  std::fill_n(sums_.data(), count + Kernel::padding, 0.0);
  constexpr auto none = static_cast<std::size_t>(-1);
  std::size_t filled = none;
  double smallest = std::numeric_limits<double>::infinity();
  for (const MappedModel::Term& term : model_->terms_) {
    if (smallest_[term.witness] > term.squared_reach && filled != none) {
      continue;
    }
    if (term.space != filled) {
      smallest_[term.space] = fill_lags(term.space);
      smallest = std::min(smallest, smallest_[term.space]);
      filled = term.space;
    }
    term.kernel.accumulate(lags_.data(), count, term.sill, sums_.data());
  }
  return smallest;
}

template <class Store, class Between>
bool GatheredPoints::pair_covariances(Store&& store, Between&& between) {
  double smallest = std::numeric_limits<double>::infinity();
  // Several short columns go through the kernels as one run.
  constexpr std::size_t piece = 512;
  for (std::size_t first = 0; first < size_;) {
    std::size_t last = first;
    std::size_t count = 0;
    while (last < size_ && count < piece) {
      count += size_ - ++last;
    }
    const double smallest_of_piece = sum_terms(count, [&](std::size_t space) {
      double* out = lags_.data();
      double nearest = std::numeric_limits<double>::infinity();
      for (std::size_t j = first; j < last; ++j) {
        const double from[3] = {column(space, 0)[j], column(space, 1)[j], column(space, 2)[j]};
        nearest = std::min(nearest, squared_distances(space, from, j + 1, out));
        out += size_ - (j + 1);
      }
      return nearest;
    });
    smallest = std::min(smallest, smallest_of_piece);
    const double* sums = sums_.data();
    for (; first < last; ++first) {
      store(first, sums);
      sums += size_ - (first + 1);
    }
    between();
  }
  return smallest == 0.0;
}

}  // namespace talvorix
