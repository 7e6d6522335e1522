#include "spatial/bounding_box.h"

#include "core/interrupt.h"

#include <utility>

namespace talvorix {

BoundingBox::BoundingBox(Locations corners) : corners_(std::move(corners)) {
  InterruptPoller poll;
  for (const Vector3& corner : corners_) {
    poll();
    for (int axis = 0; axis < 3; ++axis) {
      if (corner[axis] < lower_[axis]) {
        lower_[axis] = corner[axis];
      }
      if (corner[axis] > upper_[axis]) {
        upper_[axis] = corner[axis];
      }
    }
  }
}

}  // namespace talvorix
