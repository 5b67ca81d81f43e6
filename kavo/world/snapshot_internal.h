#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/solid_internal.h"
#include "kavo/world/solid_lanes_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::internal {

//! The enabled obstacles of a world at one time. Immutable: any number of threads may ask at once.
class Snapshot {
 public:
  //! An obstacle to be put in a snapshot.
  struct Item {
    ObstacleHandle handle;
    Solid solid;
    //! Null for an empty one.
    std::shared_ptr<const std::string> name;
  };

  explicit Snapshot(const std::vector<Item>& items);

  //! As in `WorldView`.
  bool inCollision(const Eigen::Vector3d& center, double radius) const;
  std::optional<WorldView::Nearest> nearestObstacle(const Eigen::Vector3d& point) const;
  std::string name(ObstacleHandle obstacle) const;

  //! The same solids for lanes, and whether single precision serves for all of them.
  const SolidLanes& lanes() const { return lanes_; }
  bool hasPlainLanes() const { return has_plain_lanes_; }
  //! The tree of bounds over `SolidLanes::solids`; null without any.
  const BoundsGroup* groups() const { return groups_.empty() ? nullptr : groups_.data(); }

 private:
  using TouchesFunction = bool (*)(const BoundsGroup* groups, const Solid* solids, const double* center,
                                   double radius);

  struct Bounds;

  void fill(std::size_t group, std::vector<Bounds>::iterator begin, std::vector<Bounds>::iterator end,
            const std::vector<Item>& items);
  void findNearest(const double* point, std::size_t group, std::optional<WorldView::Nearest>& nearest) const;
  bool inCollisionAtAnyScale(const double* center, double radius) const;

  // A tree in one array, the root first; empty when no obstacle is bounded.
  std::vector<BoundsGroup> groups_;
  // In the order of the leaves, so that a leaf's solids lie side by side; `handles_` runs parallel.
  std::vector<Solid> solids_;
  std::vector<ObstacleHandle> handles_;
  // No box encloses a half-space: these are asked one by one.
  std::vector<Solid> half_spaces_;
  std::vector<ObstacleHandle> half_space_handles_;
  // Of the obstacles that have one.
  std::vector<std::pair<ObstacleHandle, std::shared_ptr<const std::string>>> names_;
  SolidLanes lanes_;
  bool has_plain_lanes_ = true;
  // Queries of greater magnitude take the way on which nothing overflows.
  double largest_magnitude_;
  TouchesFunction touches_;
};

}  // namespace kavo::internal
