#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

#include "kavo/math/pose3.h"
#include "kavo/world/bounds_tree_internal.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/shapes/compound_internal.h"

namespace kavo::internal {

//! A posed obstacle, ready for queries.
struct Solid {
  enum class Kind : std::uint8_t { kSphere, kBox, kCylinder, kCapsule, kHalfSpace, kCone, kCompound };

  //! Nothing in particular.
  Solid() = default;
  //! \param padding What it is grown by.
  Solid(const ObstacleShape& shape, const Pose3& pose, double padding);

  //! The same solid in a unit of length that is 1 / `factor` times as long.
  Solid scaled(double factor) const;

  Kind kind = Kind::kSphere;
  double radius = 0.0;
  double center[3] = {0.0, 0.0, 0.0};
  //! Rows are the axes of the obstacle's frame in world coordinates: local = rotation (point - center).
  double rotation[3][3] = {};
  //! Box: half of each side. Cylinder, capsule and cone: z holds half of the height.
  double half[3] = {0.0, 0.0, 0.0};
  double padding = 0.0;
  //! Whoever holds the shape keeps this.
  const Compound* compound = nullptr;
  Interior interior = Interior::kIfClosed;
  //! Of `Interior::kSolid`, null for nothing.
  const Compound* filling = nullptr;
  //! Sum of the absolute values of all lengths above, and the extent of a compound.
  double magnitude = 0.0;
};

//! What a shape shares with its instances; null for one that shares nothing.
std::shared_ptr<const Compound> CompoundOf(const ObstacleShape& shape);

//! The box along the world's axes around a bounded solid: cut to finite numbers, and larger by more than what
//! rounding does to a computed distance.
Bounds BoundsOf(const Solid& solid);

//! Signed distance from a box of a point that is so far beyond its faces, by axis: negative where it is on
//! the near side.
inline double DistanceFromBox(const double (&beyond)[3]) {
  const double nearest_face = std::max(std::max(beyond[0], beyond[1]), beyond[2]);
  if (nearest_face <= 0.0) {
    return nearest_face;
  }
  const double x = std::max(beyond[0], 0.0);
  const double y = std::max(beyond[1], 0.0);
  const double z = std::max(beyond[2], 0.0);
  return std::sqrt(x * x + y * y + z * z);
}

//! Signed distance from the point (world coordinates) to the surface of the solid, negative inside. Lengths
//! must be small enough that their squares do not overflow.
//!
//! This one function gives every answer about contact: a ball touches a solid when the distance of its centre
//! is at most its radius. Bounds and vectors only decide for which solids it is not asked.
double SignedDistance(const Solid& solid, const double* point);

//! Whether that distance is at most `radius`, which is not negative.
bool Touches(const Solid& solid, const double* point, double radius);

//! Signed distance where lengths may be of any finite size.
double SignedDistanceAtAnyScale(const Solid& solid, const double* point);

//! The squares of lengths up to this are far from overflow, also after sums.
inline constexpr double kLargestPlainMagnitude = 1.0e100;

}  // namespace kavo::internal
