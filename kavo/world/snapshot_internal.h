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
#include "kavo/world/obstacle_tree_internal.h"
#include "kavo/world/solid_internal.h"
#include "kavo/world/solid_lanes_internal.h"
#include "kavo/world/world_view.h"

namespace kavo::internal {

//! The enabled obstacles of a world at one time. Any number of threads may ask at once; who edits a snapshot
//! must be the only one to hold it.
class KAVO_EXPORT Snapshot {
 public:
  //! An obstacle of the world.
  struct Item {
    ObstacleHandle handle;
    //! Empty for one that touches nothing.
    std::optional<Solid> solid;
    //! Null for an empty one.
    std::shared_ptr<const std::string> name;
    //! What the solid's shape shares with others; null without.
    std::shared_ptr<const Compound> compound;
  };

  //! \param items Handles ascending.
  explicit Snapshot(const std::vector<Item>& items);

  //! Puts an obstacle in, another solid in the place of its solid, or takes it out. Answers are then those of
  //! a snapshot that was made with it. False, and the snapshot of no use any more, where one should be made:
  //! its tree of bounds would be a poor one.
  bool set(const Item& item);

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
  const BoundsGroup* groups() const { return tree_.groups().empty() ? nullptr : tree_.groups().data(); }

 private:
  using TouchesFunction = bool (*)(const BoundsGroup* groups, const Solid* solids, const ObstacleSet* except,
                                   const double* center, double radius);

  // What a solid is of.
  struct Tag {
    // Zero where there is none.
    ObstacleHandle handle = ObstacleHandle(0);
    std::shared_ptr<const std::string> name;
    // Kept for the solid.
    std::shared_ptr<const Compound> compound;

    bool isFree() const { return handle.id() == 0; }
  };

  // Where an obstacle's solid stands among the bounded ones or among the half-spaces; `kNone` for none.
  struct Place {
    ObstacleHandle handle = ObstacleHandle(0);
    std::uint32_t index = ObstacleTree::kNone;
    bool is_half_space = false;
  };

  const Place* find(ObstacleHandle obstacle) const;
  void note(const Solid& solid);
  void addRoom();
  void put(std::uint32_t index, const Item& item);
  void addHalfSpace(const Item& item, Place& place);
  void removeHalfSpace(Place& place);
  bool insert(const Item& item, Place& place);
  bool inCollisionAtAnyScale(const double* center, double radius, const ObstacleSet* except) const;

  ObstacleTree tree_;
  // By place in the tree.
  std::vector<Solid> solids_;
  std::vector<Tag> tags_;
  // No box encloses a half-space: these are asked one by one.
  std::vector<Solid> half_spaces_;
  std::vector<Tag> half_space_tags_;
  // In the order of the handles, also of obstacles that were taken out.
  std::vector<Place> places_;
  std::size_t most_places_;
  SolidLanes lanes_;
  bool has_plain_lanes_ = true;
  // Queries of greater magnitude take the way on which nothing overflows.
  double largest_magnitude_;
  TouchesFunction touches_;
};

}  // namespace kavo::internal
