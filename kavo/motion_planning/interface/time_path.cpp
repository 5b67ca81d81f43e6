#include "kavo/motion_planning/interface/time_path.h"

#include <memory>
#include <utility>

#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/trajectory/jerk_limited.h"
#include "kavo/motion_planning/trajectory/time_optimal.h"

namespace kavo {

TimedPath TimePath(const std::vector<Eigen::VectorXd>& path, const RobotDescription& robot,
                   const WorldView& world_view, const planning::MotionLimits& limits,
                   const TimePathOptions& options) {
  // Of what it is made with, only robot and world matter to motions.
  const planning::RobotEnvironmentConfig config(
      &robot, world_view, Eigen::VectorXd::Ones(static_cast<Eigen::Index>(robot.numCSpaceCoords())), 1, 1, 1);
  return TimePath(path, *planning::CreateRobotEnvironment(config), limits, options);
}

TimedPath TimePath(const std::vector<Eigen::VectorXd>& path, const planning::Environment& environment,
                   const planning::MotionLimits& limits, const TimePathOptions& options) {
  planning::ValidateMotionLimits(limits, environment.CSpaceDimension());
  planning::BlendOptions blend;
  blend.deviation = options.deviation;
  blend.stops = options.stops;
  blend.is_smooth = options.limits_jerk;
  blend.top_speeds = limits.velocity;
  const auto make = [&] {
    planning::BlendedPath blended = planning::BlendPath(path, environment, blend);
    planning::Trajectory trajectory = options.limits_jerk ? planning::JerkLimitedTrajectory(blended, limits)
                                                          : planning::TimeOptimalTrajectory(blended, limits);
    return TimedPath{std::move(blended), std::move(trajectory)};
  };
  TimedPath timed = make();
  const auto try_another = [&] {
    TimedPath other = make();
    if (other.trajectory.Duration() < timed.trajectory.Duration()) {
      timed = std::move(other);
    }
  };
  if (timed.path.NumBlends() > 0) {
    if (options.limits_jerk) {
      // Speed only changes between blends.
      blend.largest_share = 0.25;
      try_another();
    }
    blend.deviation = 0.0;
    try_another();
  }
  return timed;
}

}  // namespace kavo
