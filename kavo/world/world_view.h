#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "kavo/util/export.h"

namespace kavo {

namespace internal {
struct ViewAccess;
class WorldState;
struct ViewState;
}  // namespace internal

//! Names one obstacle of one world. Never used again for another obstacle.
class ObstacleHandle {
 public:
  //! For worlds, which hand them out; a number of their own makes a handle of no obstacle.
  explicit ObstacleHandle(std::uint64_t id) : id_(id) {}

  //! A number of its own for each obstacle of one world.
  std::uint64_t id() const { return id_; }

  //! Whether both name the same obstacle, of handles of one world.
  friend bool operator==(ObstacleHandle a, ObstacleHandle b) { return a.id_ == b.id_; }
  //! Whether they name different ones.
  friend bool operator!=(ObstacleHandle a, ObstacleHandle b) { return a.id_ != b.id_; }

 private:
  std::uint64_t id_;
};

//! The enabled obstacles of a `World` as they were at the last `update()`.
//!
//! A cheap handle: copies share one snapshot, so an update of one copy updates them all. Views made
//! separately by `World::view()` are independent; use one for each planning thread. A view and its copies
//! belong to one thread at a time; the world behind them may be edited by any.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::SphereObstacle{0.2}, kavo::Pose3::FromTranslation({1.0, 0.0, 0.0}), "ball");
//! kavo::WorldView view = world.view();
//! assert(view.inCollision({0.7, 0.0, 0.0}, 0.15));
//! const auto nearest = view.nearestObstacle({0.0, 0.0, 0.0});
//! assert(view.name(nearest->obstacle) == "ball" && nearest->distance == 0.8);
//! world.remove(nearest->obstacle);
//! view.update();
//! assert(!view.nearestObstacle({0.0, 0.0, 0.0}));
//! @endcode
class KAVO_EXPORT WorldView {
 public:
  //! The obstacle nearest to a point.
  struct Nearest {
    //! Which one it is.
    ObstacleHandle obstacle;
    //! Distance from the point to the obstacle's surface, negative inside. Metres.
    double distance;
  };

  //! Takes the world as it is now.
  void update();

  //! True when a ball touches an enabled obstacle; touching counts. Exact for every kind of obstacle, and
  //! free of allocation and locks. A centre or radius that is not finite counts as collision: what cannot be
  //! placed cannot be called free.
  //! \param center World coordinates, metres.
  //! \param radius Metres. Zero asks about a point; a negative radius touches nothing.
  bool inCollision(const Eigen::Vector3d& center, double radius) const;

  //! The obstacle with the smallest signed distance to the point (world coordinates, metres), the one added
  //! first among equals; empty if there is none or the point is not finite.
  std::optional<Nearest> nearestObstacle(const Eigen::Vector3d& point) const;

  //! The name of an obstacle that the view shows, also once it was removed from the world; empty for another.
  //! Takes longer the more obstacles there are.
  std::string name(ObstacleHandle obstacle) const;

 private:
  friend class World;
  friend struct internal::ViewAccess;
  explicit WorldView(std::shared_ptr<internal::ViewState> state);

  std::shared_ptr<internal::ViewState> state_;
};

}  // namespace kavo
