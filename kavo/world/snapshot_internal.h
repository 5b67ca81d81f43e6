#pragma once

#include <Eigen/Core>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/world_view.h"

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

//! The enabled obstacles of a world at one time. Immutable: any number of threads may ask at once.
class Snapshot {
 public:
  //! An obstacle to be put in a snapshot.
  struct Item {
    ObstacleHandle handle;
    Solid solid;
  };

  explicit Snapshot(const std::vector<Item>& items);

  //! As in `WorldView`.
  bool inCollision(const Eigen::Vector3d& center, double radius) const;
  std::optional<WorldView::Nearest> nearestObstacle(const Eigen::Vector3d& point) const;

 private:
  using TouchesFunction = bool (*)(const BoundsGroup* groups, const Solid* solids, const double* center,
                                   double radius);

  struct Bounds;

  void fill(std::size_t group, std::vector<Bounds>::iterator begin, std::vector<Bounds>::iterator end,
            const std::vector<Item>& items);
  bool inCollisionAtAnyScale(const double* center, double radius) const;

  // A tree in one array, the root first; empty when no obstacle is bounded.
  std::vector<BoundsGroup> groups_;
  // In the order of the leaves, so that a leaf's solids lie side by side; `handles_` runs parallel.
  std::vector<Solid> solids_;
  std::vector<ObstacleHandle> handles_;
  // No box encloses a half-space: these are asked one by one.
  std::vector<Solid> half_spaces_;
  std::vector<ObstacleHandle> half_space_handles_;
  // Queries of greater magnitude take the way on which nothing overflows.
  double largest_magnitude_;
  TouchesFunction touches_;
};

}  // namespace kavo::internal
