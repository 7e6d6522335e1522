#pragma once

#include "core/geometry.h"

namespace talvorix {

// The axis-aligned hull of a list of points, together with the points it was made from.
class BoundingBox {
 public:
  explicit BoundingBox(Locations corners);

  const Locations& corners() const { return corners_; }
  // Without a point the lower end is 1e30 and the upper one -1e30.
  const Vector3& lower() const { return lower_; }
  const Vector3& upper() const { return upper_; }
  Vector3 size() const { return upper_ - lower_; }

 private:
  Vector3 lower_ = Vector3::Constant(1e30);
  Vector3 upper_ = Vector3::Constant(-1e30);
  Locations corners_;
};

}  // namespace talvorix
