#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"

namespace kavo::internal {

//! A posed obstacle, ready for queries.
struct Solid {
  enum class Kind : std::uint8_t { kSphere, kBox, kCylinder, kCapsule, kHalfSpace };

  Solid(const ObstacleShape& shape, const Pose3& pose);

  //! The same solid in a unit of length that is 1 / `factor` times as long.
  Solid scaled(double factor) const;

  Kind kind = Kind::kSphere;
  double radius = 0.0;
  double center[3] = {0.0, 0.0, 0.0};
  //! Rows are the axes of the obstacle's frame in world coordinates: local = rotation (point - center).
  double rotation[3][3] = {};
  //! Box: half of each side. Cylinder and capsule: z holds half of the height.
  double half[3] = {0.0, 0.0, 0.0};
  //! Sum of the absolute values of all lengths above.
  double magnitude = 0.0;
};

//! Signed distance from the point (world coordinates) to the surface of the solid, negative inside. Lengths
//! must be small enough that their squares do not overflow.
//!
//! This one function gives every answer about contact: a ball touches a solid when the distance of its centre
//! is at most its radius. Bounds and vectors only decide for which solids it is not asked.
double SignedDistance(const Solid& solid, const double* point);

//! A bound in single precision, cut to its range. Rounding keeps order (a <= b gives Rounded(a) <=
//! Rounded(b)), so boxes that overlap still overlap when both are rounded, whatever the direction.
inline float Rounded(double bound) { return static_cast<float>(std::min(std::max(bound, -1.0e38), 1.0e38)); }

//! Eight boxes along the world's axes that enclose eight parts of the scene.
//!
//! Single precision halves the memory that a query reads.
struct alignas(64) BoundsGroup {
  static constexpr std::size_t kSize = 8;

  //! Every lane empty: touched by nothing.
  BoundsGroup();

  //! Puts a box into a lane.
  void enclose(std::size_t lane, const double* lowest, const double* highest);

  float low[3][kSize];
  float high[3][kSize];
  //! Lane i encloses solid `first` + i of the snapshot in a leaf, and group `first` + i elsewhere.
  std::uint32_t first = 0;
  bool leaf = true;
};

}  // namespace kavo::internal
