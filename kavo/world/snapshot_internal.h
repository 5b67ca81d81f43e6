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
#include "kavo/util/export.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/obstacle_set_internal.h"
#include "kavo/world/solid_internal.h"
#include "kavo/world/solid_lanes_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::internal {

//! The enabled obstacles of a world at one time. Any number of threads may ask at once; who moves an obstacle
//! must be the only one to hold the snapshot.
class KAVO_EXPORT Snapshot {
 public:
  //! An obstacle to be put in a snapshot.
  struct Item {
    ObstacleHandle handle;
    Solid solid;
    //! Null for an empty one.
    std::shared_ptr<const std::string> name;
    //! What the solid's shape shares with others; null without.
    std::shared_ptr<const Compound> compound;
  };

  //! \param items Handles ascending.
  explicit Snapshot(const std::vector<Item>& items);

  //! Puts another solid in the place of an obstacle's: the same one, elsewhere. Answers are then those of a
  //! snapshot that was made with it. False, and the snapshot of no use any more, where one should be made:
  //! its tree of bounds would be a poor one.
  bool move(ObstacleHandle obstacle, const Solid& solid);

  //! As in `WorldView`, but for some obstacles that are of no account; null for none.
  bool inCollision(const Eigen::Vector3d& center, double radius, const ObstacleSet* except = nullptr) const;
  std::optional<WorldView::Nearest> nearestObstacle(const Eigen::Vector3d& point,
                                                    const ObstacleSet* except = nullptr) const;
  std::string name(ObstacleHandle obstacle) const;

  //! All obstacles with one of these names.
  ObstacleSet named(const std::vector<std::string>& names) const;

  //! The same solids for lanes, and whether single precision serves for all of them.
  const SolidLanes& lanes() const { return lanes_; }
  bool hasPlainLanes() const { return has_plain_lanes_; }
  //! The tree of bounds over `SolidLanes::solids`; null without any.
  const BoundsGroup* groups() const { return groups_.empty() ? nullptr : groups_.data(); }

 private:
  using TouchesFunction = bool (*)(const BoundsGroup* groups, const Solid* solids, const ObstacleSet* except,
                                   const double* center, double radius);

  // What stays as it is while obstacles move; copies share it.
  struct Layout {
    // Of the bounded solids and of the half-spaces.
    std::vector<ObstacleHandle> handles;
    std::vector<ObstacleHandle> half_space_handles;
    // Where each solid stands, in the order of the handles.
    std::vector<std::pair<ObstacleHandle, std::uint32_t>> places;
    // The leaf of each solid, and the group above each group.
    std::vector<std::uint32_t> leaves;
    std::vector<std::uint32_t> parents;
    // When the tree was made.
    double leaf_extent = 0.0;
    // Of the obstacles that have one.
    std::vector<std::pair<ObstacleHandle, std::shared_ptr<const std::string>>> names;
    // What the solids refer to.
    std::vector<std::shared_ptr<const Compound>> compounds;
  };

  void linkGroups(Layout& layout);
  bool inCollisionAtAnyScale(const double* center, double radius, const ObstacleSet* except) const;

  // A tree in one array, the root first; empty when no obstacle is bounded.
  std::vector<BoundsGroup> groups_;
  // Sum of the sizes of all leaves, which tells how good the tree is.
  double leaf_extent_ = 0.0;
  // In the order of the leaves, so that a leaf's solids lie side by side.
  std::vector<Solid> solids_;
  // No box encloses a half-space: these are asked one by one.
  std::vector<Solid> half_spaces_;
  std::shared_ptr<const Layout> layout_;
  SolidLanes lanes_;
  bool has_plain_lanes_ = true;
  // Queries of greater magnitude take the way on which nothing overflows.
  double largest_magnitude_;
  TouchesFunction touches_;
};

}  // namespace kavo::internal
