#include "kavo/world/shapes/compound_internal.h"

#include <cmath>

namespace kavo::internal {

Compound::Compound(Parts parts, const std::vector<Bounds>& bounds) : parts_(parts), tree_(bounds) {
  for (int axis = 0; axis < 3; ++axis) {
    double largest = 0.0;
    for (const Bounds& part : bounds) {
      largest = std::max(largest, std::max(std::fabs(part.low[axis]), std::fabs(part.high[axis])));
    }
    extent_ += largest;
  }
}

bool Compound::contains(const double*) const { return false; }

const Compound* Compound::filling() const { return nullptr; }

Bounds Compound::boundsAround(const double* point, double radius) const {
  Bounds bounds{};
  for (int axis = 0; axis < 3; ++axis) {
    const double reach = radius + (radius + std::fabs(point[axis]) + extent_) * 0x1p-44;
    bounds.low[axis] = point[axis] - reach;
    bounds.high[axis] = point[axis] + reach;
  }
  return bounds;
}

}  // namespace kavo::internal
