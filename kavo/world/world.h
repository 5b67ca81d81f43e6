#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/util/export.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/world_view.h"

namespace kavo {

//! The obstacles around a robot, in world coordinates (metres).
//!
//! A world may be edited from any thread, also while other threads plan: planners look at a `WorldView`,
//! which holds a snapshot that no edit touches. Copies of a `World` are handles of the same world.
class KAVO_EXPORT World {
 public:
  //! An empty world.
  World();

  //! Adds an obstacle, enabled. A size that is not positive and finite (a capsule may have height zero) or a
  //! pose that is not finite is a fatal error that names the value; the world is unchanged then.
  //! \param name For reports; need not be unique.
  ObstacleHandle add(const ObstacleShape& shape, const Pose3& pose, std::string name = {});

  //! Places an obstacle anew. Fatal, here and below, for a handle that was removed or belongs to another
  //! world, and for a pose that is not finite.
  void move(ObstacleHandle obstacle, const Pose3& pose);

  //! A disabled obstacle stays in the world but touches nothing.
  void enable(ObstacleHandle obstacle);
  void disable(ObstacleHandle obstacle);
  bool isEnabled(ObstacleHandle obstacle) const;

  void remove(ObstacleHandle obstacle);

  //! What was added.
  ObstacleShape shape(ObstacleHandle obstacle) const;
  Pose3 pose(ObstacleHandle obstacle) const;
  std::string name(ObstacleHandle obstacle) const;

  //! Whether the obstacle is in this world, and was not removed.
  bool contains(ObstacleHandle obstacle) const;

  //! All obstacles in the order of adding, disabled ones included.
  std::vector<ObstacleHandle> obstacles() const;

  //! Number of obstacles, disabled ones included.
  std::size_t numObstacles() const;

  //! A view of the world as it is now, independent of every view made before. It keeps the world alive.
  WorldView view() const;

 private:
  std::shared_ptr<internal::WorldState> state_;
};

}  // namespace kavo
