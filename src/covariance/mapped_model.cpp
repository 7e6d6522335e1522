#include "covariance/mapped_model.h"

#include "core/parallel.h"

#include <Eigen/LU>

#include <algorithm>
#include <cmath>
#include <limits>

namespace talvorix {

MappedModel::MappedModel(const CovarianceComputer& computer) : sill_(computer(Vector3::Zero())) {
  for (const auto& structure : computer.structures()) {
    const auto known = std::find(spaces_.begin(), spaces_.end(), structure.matrix);
    const auto space = static_cast<std::size_t>(known - spaces_.begin());
    if (known == spaces_.end()) {
      spaces_.push_back(structure.matrix);
    }
    terms_.push_back({structure.kernel, structure.sill, space});
  }
  // Nuggets go last, where other terms have measured distances already. Their sum is the same:
  // between different places they are 0.
  const auto nuggets = std::stable_partition(terms_.begin(), terms_.end(), [](const Term& term) {
    return term.kernel.form() != Kernel::Form::nugget;
  });
  if (nuggets != terms_.begin()) {
    std::for_each(nuggets, terms_.end(), [this](Term& term) { find_witness(term); });
  }
}

MappedModel::MappedModel(const CovarianceComputer& computer, const Locations& points, int n_threads)
    : MappedModel(computer) {
  if (!points.empty() && points.front().allFinite()) {
    centre_ = points.front();
  }
  records_.resize(record_size() * points.size());
  parallel_for(points.size(), n_threads, [&](Worker&, std::size_t i) {
    map(points[i] - centre_, records_.data() + i * record_size());
  });
}

MappedModel MappedModel::borrowing(const CovarianceComputer& computer, const Locations& points) {
  MappedModel model(computer);
  model.borrowed_ = &points;
  return model;
}

void MappedModel::find_witness(Term& nugget) const {
  // A nugget reaches to 1e-8 in its own space, which is at most so much in the witness's. One of
  // a sill that is not finite is never 0.
  const std::size_t witness = terms_.front().space;
  const double stretch = (spaces_[witness] * spaces_[nugget.space].inverse()).norm();
  const double reach = 1e-8 * stretch * (1.0 + 1e-6);
  if (std::isfinite(reach) && std::isfinite(nugget.sill)) {
    nugget.squared_reach = reach * reach;
    nugget.witness = witness;
  }
}

void MappedModel::map(const Vector3& offset, double* record) const {
  for (const Matrix3& space : spaces_) {
    for (Eigen::Index axis = 0; axis < 3; ++axis) {
      *record++ = mapped(space, axis, offset.x(), offset.y(), offset.z());
    }
  }
}

void GatheredPoints::use(const MappedModel& model) {
  model_ = &model;
  size_ = 0;
  centre_ = model.centre_;
  smallest_.assign(model.spaces_.size(), 0.0);
  target_.assign(model.record_size(), 0.0);
  if (coordinates_.size() < model.record_size() * capacity_) {
    coordinates_.assign(model.record_size() * capacity_, 0.0);
  }
}

void GatheredPoints::reserve(std::size_t n_points) {
  // Lanes are read and written past the last point.
  const std::size_t needed = n_points + Kernel::padding;
  if (needed > capacity_) {
    capacity_ = 2 * needed;
    offsets_.assign(3 * capacity_, 0.0);
    coordinates_.assign(model_->record_size() * capacity_, 0.0);
    // A piece of pairs is full once it holds a few hundred, but never cuts a column.
    const std::size_t longest_piece = capacity_ + 1024;
    lags_.assign(longest_piece, 0.0);
    sums_.assign(longest_piece, 0.0);
  }
}

void GatheredPoints::map_offsets() {
  const double* x = offsets_.data();
  const double* y = x + capacity_;
  const double* z = y + capacity_;
  for (std::size_t space = 0; space < model_->spaces_.size(); ++space) {
    const Matrix3& matrix = model_->spaces_[space];
    for (std::size_t axis = 0; axis < 3; ++axis) {
      double* out = column(space, axis);
      for (std::size_t k = 0; k < size_; ++k) {
        out[k] = MappedModel::mapped(matrix, static_cast<Eigen::Index>(axis), x[k], y[k], z[k]);
      }
    }
  }
}

double GatheredPoints::squared_distances(std::size_t space, const double* from, std::size_t first,
                                         double* out) const {
  using Lanes = Eigen::Array<double, static_cast<int>(Kernel::padding), 1>;
  using Coordinates = Eigen::Map<const Lanes>;
  const double* x = column(space, 0) + first;
  const double* y = column(space, 1) + first;
  const double* z = column(space, 2) + first;
  const std::size_t count = size_ - first;
  Lanes smallest = Lanes::Constant(std::numeric_limits<double>::infinity());
  for (std::size_t i = 0; i < count; i += Kernel::padding) {
    const Lanes d2 = (Coordinates(x + i) - from[0]).square() +
                     (Coordinates(y + i) - from[1]).square() +
                     (Coordinates(z + i) - from[2]).square();
    Eigen::Map<Lanes>(out + i) = d2;
    smallest = (d2 < smallest).select(d2, smallest);
  }
  return smallest.minCoeff();
}

const double* GatheredPoints::covariances_with(const Vector3& location) {
  model_->map(location - centre_, target_.data());
  return covariances_with_record(target_.data());
}

const double* GatheredPoints::covariances_with_point(std::size_t point) {
  if (model_->borrowed_ != nullptr) {
    return covariances_with((*model_->borrowed_)[point]);
  }
  return covariances_with_record(model_->records_.data() + point * model_->record_size());
}

const double* GatheredPoints::covariances_with_record(const double* record) {
  sum_terms(size_, [&](std::size_t space) {
    return squared_distances(space, record + 3 * space, 0, lags_.data());
  });
  return sums_.data();
}

}  // namespace talvorix
