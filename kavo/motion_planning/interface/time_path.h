#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/trajectory/blended_path.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/trajectory/trajectory.h"
#include "kavo/util/export.h"
#include "kavo/world/world_view.h"

namespace kavo {

//! How `TimePath` makes a trajectory.
struct TimePathOptions {
  //! How far from the path a corner may be rounded, the largest over the coordinates (radians or metres);
  //! zero stops at each.
  double deviation = 0.05;
  //! Waypoints, by index, to stop at whatever the deviation: where something is gripped, say.
  std::vector<std::size_t> stops;
  //! Whether the jerk is limited too. That takes longer, and the limits have to have one.
  bool limits_jerk = false;
};

//! What `TimePath` made.
struct TimedPath {
  //! The way that the robot goes, without time.
  planning::BlendedPath path;
  //! How that way is gone in time.
  planning::Trajectory trajectory;
};

//! Makes a trajectory of a path, such as `MotionPlanner::Results::path`: corners are rounded where that is
//! proven free (`planning::BlendPath`), and the way is gone as fast as limits allow, from rest to rest
//! (`planning::TimeOptimalTrajectory`, `planning::JerkLimitedTrajectory`). Where it would take longer than
//! stopping at each corner, the robot stops at each.
//! \param path Valid motions; the conditions of `planning::BlendPath`.
//! \param robot As this library's builder or loaders made it; fatal otherwise.
//! \param world_view The obstacles, in the frame of the robot's base.
//! \param limits See `planning::ValidateMotionLimits`.
//!
//! @code
//! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
//! kavo::World world;
//! world.add(kavo::BoxObstacle{{0.1, 0.1, 1.0}}, kavo::Pose3::FromTranslation({0.5, 0.0, 0.5}), "post");
//! const auto planner = kavo::CreateMotionPlanner(robot, world.view());
//! Eigen::VectorXd start = robot->defaultCSpaceConfiguration();
//! Eigen::VectorXd target = start;
//! start[0] -= 1.0;
//! target[0] += 1.0;
//! const kavo::MotionPlanner::Results results = planner->planToCSpaceTarget(start, target, false);
//! assert(results.path_found);
//! const kavo::TimedPath timed =
//!     kavo::TimePath(results.path, *robot, world.view(), kavo::planning::FrankaMotionLimits());
//! for (const auto& sample : timed.trajectory.Samples(0.001)) {
//!   assert(sample.velocity.cwiseAbs().maxCoeff() <= 2.61);
//! }
//! @endcode
KAVO_EXPORT TimedPath TimePath(const std::vector<Eigen::VectorXd>& path, const RobotDescription& robot,
                               const WorldView& world_view, const planning::MotionLimits& limits,
                               const TimePathOptions& options = {});

//! The same in any environment.
KAVO_EXPORT TimedPath TimePath(const std::vector<Eigen::VectorXd>& path,
                               const planning::Environment& environment, const planning::MotionLimits& limits,
                               const TimePathOptions& options = {});

}  // namespace kavo
