#pragma once

#include "core/geometry.h"
#include "core/interrupt.h"
#include "core/made.h"

#include <cstddef>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

namespace talvorix {

// A function of a location or a lag. Most can do more locations at once for less, and some draw
// from an engine of the worker that asks: 0 outside a parallel region.
class SpatialField {
 public:
  SpatialField() = default;
  virtual ~SpatialField() = default;
  SpatialField(const SpatialField&) = delete;
  SpatialField& operator=(const SpatialField&) = delete;

  virtual double value(const Vector3& location, int worker) const = 0;
  // Writes the value at each location. Polls when that may take long.
  virtual void values(std::span<const Vector3> locations, double* values, int worker,
                      PollRef poll) const;
};

// A field that any callable makes.
template <class Function>
class CallableField final : public SpatialField {
 public:
  explicit CallableField(Function function) : function_(std::move(function)) {}

  double value(const Vector3& location, int) const override { return function_(location); }
  void values(std::span<const Vector3> locations, double* values, int,
              PollRef poll) const override {
    for (const Vector3& location : locations) {
      poll();
      *values++ = function_(location);
    }
  }

 private:
  Function function_;
};

// A shared handle of a field, carried as a value. Never empty.
class SpatialFunction : public Made {
 public:
  explicit SpatialFunction(std::shared_ptr<const SpatialField> field) : field_(std::move(field)) {}
  template <class Function>
  requires std::is_invocable_r_v<double, const Function&, const Vector3&> SpatialFunction(
      Function function)
      : field_(std::make_shared<CallableField<Function>>(std::move(function))) {}

  double operator()(const Vector3& location) const { return field_->value(location, 0); }
  const SpatialField& field() const { return *field_; }

 private:
  std::shared_ptr<const SpatialField> field_;
};

// The function at every location.
std::vector<double> evaluate(const SpatialFunction& function, const Locations& locs, int n_threads);

}  // namespace talvorix
