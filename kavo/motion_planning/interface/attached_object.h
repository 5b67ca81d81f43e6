#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/math/pose3.h"
#include "kavo/util/export.h"
#include "kavo/world/shapes/sphere_cover.h"
#include "kavo/world/world.h"
#include "kavo/world/world_view.h"

namespace kavo {

class MotionPlanner;

//! Something that a robot holds, by its shape. See `MotionPlanner::attach`.
struct AttachedObject {
  //! Of no frame of the robot, and of no obstacle.
  std::string name;
  //! The frame of the robot that it is fixed to.
  std::string frame;
  //! Where its own frame is in that frame.
  Pose3 pose;
  //! Any shapes but half-spaces, in the frame of the object; at least one.
  std::vector<CoverPart> parts;
  //! Frames of the robot that may touch it, beside those that it does not move against.
  std::vector<std::string> touch_frames;
  //! The names of obstacles that it may touch, such as what it stands on.
  std::vector<std::string> allowed_obstacles;
  //! How far the spheres that it is covered by may reach beyond it, see `CoverOptions`; without one, as
  //! `DefaultCoverTolerance` says.
  std::optional<double> cover_tolerance;
};

//! The object covered by spheres, as it is part of a robot (see `WithAttached`). An object without parts and
//! what `CoverBySpheres` refuses is a fatal error.
KAVO_EXPORT AttachedBody CoverObject(const AttachedObject& object);

//! Takes the enabled obstacles of a name out of the world and attaches them to the robot of a planner, where
//! they are in one of its frames. Their paddings are lost. Fatal, without a change, if there is none, and for
//! what `MotionPlanner::attach` refuses.
//! \param world That the planner plans in, in the frame of the robot's base. The planner takes it as it is
//!     then.
//! \param q The configuration that the robot is in.
//! \return What was attached.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.1}), "floor");
//! world.add(kavo::BoxObstacle{{0.04, 0.04, 0.1}}, kavo::Pose3::FromTranslation({0.55, 0.0, 0.48}), "box");
//! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
//! const auto planner = kavo::CreateMotionPlanner(robot, world.view());
//! const Eigen::VectorXd q = robot->defaultCSpaceConfiguration();
//! kavo::AttachFromWorld(*planner, world, "box", "tool", q, {"hand", "left_finger", "right_finger"});
//! assert(world.numObstacles() == 1);
//! Eigen::VectorXd there = q;
//! there[0] += 0.5;
//! assert(planner->planToCSpaceTarget(q, there, false).path_found);
//! kavo::DetachIntoWorld(*planner, world, "box", there);
//! assert(world.numObstacles() == 2);
//! @endcode
KAVO_EXPORT AttachedObject AttachFromWorld(MotionPlanner& planner, World& world, const std::string& obstacle,
                                           const std::string& frame, const Eigen::VectorXd& q,
                                           const std::vector<std::string>& touch_frames = {},
                                           const std::vector<std::string>& allowed_obstacles = {});

//! Puts what the robot of a planner holds into the world, where it is when the robot is in a configuration.
//! Parameters as above; the planner takes the world as it is then. Fatal for what is not attached.
//! \return An obstacle for each part of the object.
KAVO_EXPORT std::vector<ObstacleHandle> DetachIntoWorld(MotionPlanner& planner, World& world,
                                                        const std::string& name, const Eigen::VectorXd& q);

}  // namespace kavo
