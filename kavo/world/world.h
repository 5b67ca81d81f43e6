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
//! which holds a snapshot that no edit touches. Copies of a `World` object are handles of the same world; see
//! `copy()` for another one.
//!
//! @code
//! kavo::World world;
//! const kavo::ObstacleHandle table =
//!     world.add(kavo::BoxObstacle{{1.0, 0.6, 0.04}}, kavo::Pose3::FromTranslation({0.5, 0.0, 0.4}),
//!     "table");
//! world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3(), "floor");
//! const kavo::WorldView view = world.view();
//! world.move(table, kavo::Pose3::FromTranslation({0.5, 0.0, 0.6}));
//! assert(view.inCollision({0.5, 0.0, 0.4}, 0.0));  // until the view is updated
//! @endcode
class KAVO_EXPORT World {
 public:
  //! An empty world.
  World();

  //! Adds an obstacle, enabled. A size that is not positive and finite (a capsule may have height zero), a
  //! mesh, cloud or octree that is null, or a pose that is not finite is a fatal error that names the value;
  //! the world is unchanged then.
  //! \param pose Maps the obstacle's frame (see obstacle.h) to the world.
  //! \param name For reports; need not be unique.
  ObstacleHandle add(const ObstacleShape& shape, const Pose3& pose, std::string name = {});

  //! Places an obstacle anew. Fatal, here and below, for a handle that was removed or belongs to another
  //! world, and for a pose that is not finite.
  void move(ObstacleHandle obstacle, const Pose3& pose);

  //! A disabled obstacle stays in the world but touches nothing. Either is allowed at any time.
  void enable(ObstacleHandle obstacle);
  //! See `enable`.
  void disable(ObstacleHandle obstacle);
  //! Whether it is enabled, as it is at first.
  bool isEnabled(ObstacleHandle obstacle) const;

  //! An obstacle is grown by so much in every answer: what comes as near touches, and distances are less by
  //! it. Zero unless it is set. Metres; fatal if negative or not finite.
  void setPadding(ObstacleHandle obstacle, double padding);
  //! What was set, metres; zero at first.
  double padding(ObstacleHandle obstacle) const;

  //! Takes the obstacle out for good. Views keep it until they are updated.
  void remove(ObstacleHandle obstacle);

  //! The shape that was added.
  ObstacleShape shape(ObstacleHandle obstacle) const;
  //! Where it stands now: maps the obstacle's frame to the world.
  Pose3 pose(ObstacleHandle obstacle) const;
  //! The name that was given; may be empty.
  std::string name(ObstacleHandle obstacle) const;

  //! Whether the obstacle is in this world, and was not removed.
  bool contains(ObstacleHandle obstacle) const;

  //! All obstacles in the order of adding, disabled ones included.
  std::vector<ObstacleHandle> obstacles() const;

  //! All that is known of an obstacle, see the operations above.
  struct Obstacle {
    ObstacleHandle handle;   //!< Names it.
    ObstacleShape shape;     //!< As it was added.
    Pose3 pose;              //!< Maps its frame to the world.
    std::string name;        //!< May be empty.
    bool is_enabled = true;  //!< Whether it touches anything.
    double padding = 0.0;    //!< By how much it is grown; metres.
  };

  //! All obstacles as they are at one moment, whoever edits them meanwhile, in the order of adding.
  std::vector<Obstacle> describe() const;

  //! Number of obstacles, disabled ones included.
  std::size_t numObstacles() const;

  //! Another world with the same obstacles as they are now, by the same handles; edits of the one are not
  //! seen in the other. A copy of thousands of obstacles takes microseconds, for the two share what neither
  //! has edited.
  World copy() const;

  //! A view of the world as it is now, independent of every view made before. It keeps the world alive.
  WorldView view() const;

 private:
  explicit World(std::shared_ptr<internal::WorldState> state);

  std::shared_ptr<internal::WorldState> state_;
};

}  // namespace kavo
