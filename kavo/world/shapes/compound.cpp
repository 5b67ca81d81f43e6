#include "kavo/world/shapes/compound_internal.h"

#include <cmath>

namespace kavo::internal {

Compound::Compound(Parts parts, BoundsTree tree) : parts_(parts), tree_(std::move(tree)) {
  const GroupBounds all(tree_.groups.front());
  for (int axis = 0; axis < 3; ++axis) {
    extent_ += static_cast<double>(std::max(std::fabs(all.low[axis]), std::fabs(all.high[axis])));
  }
  extent_ *= 1.0 + 0x1p-20;
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
