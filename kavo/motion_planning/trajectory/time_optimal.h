#pragma once

#include <Eigen/Core>
#include <optional>

#include "kavo/motion_planning/trajectory/blended_path.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/trajectory/trajectory.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! How fast the robot goes along its path at the start and at the end: the Euclidean length of its velocity.
//! Not negative, finite; otherwise a fatal error.
struct EndSpeeds {
  double start = 0.0;  //!< Radians or metres per second.
  double end = 0.0;    //!< Radians or metres per second.
};

//! The fastest trajectory along a path that exceeds no limit of velocity and acceleration anywhere, from rest
//! to rest.
//!
//! In the plane of s and the square of its rate (Bobrow, Dubowsky and Gibson, 1985; Shin and McKay, 1985): on
//! lines in closed form, on blends by parts of constant acceleration along the path, chosen by one pass from
//! the end, which finds from which rates the rest can be done, and a greedy one from the start (Pham and
//! Pham, "A new approach to time-optimal path parameterization based on reachability analysis", 2018). On
//! such a part of a parabola the acceleration of each coordinate is linear in s: that the limits hold at both
//! ends of it makes them hold on all of it. docs/trajectories.md derives this, and what the parts cost.
//! \param path Not a smooth one, or a fatal error.
//! \param limits One for each coordinate (see `ValidateMotionLimits`). A jerk is not looked at.
//!
//! @code
//! kavo::World world;
//! const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, 0.0, 0.0),
//!                                                  Eigen::Vector3d(2.0, 2.0, 2.0));
//! const auto environment = kavo::planning::CreateBasic3dEnvironment({world.view(), room, 100, 1});
//! const kavo::planning::BlendedPath path =
//!     kavo::planning::BlendPath({Eigen::Vector3d(0.0, 0.0, 0.0), Eigen::Vector3d(2.0, 0.0, 0.0)},
//!     *environment);
//! const kavo::planning::MotionLimits limits{Eigen::Vector3d(1.0, 1.0, 1.0), Eigen::Vector3d(2.0, 2.0, 2.0),
//! {}}; const kavo::planning::Trajectory trajectory = kavo::planning::TimeOptimalTrajectory(path, limits);
//! assert(std::abs(trajectory.Duration() - 2.5) < 1e-6);
//! assert(std::abs(trajectory.At(1.25).velocity[0] - 1.0) < 1e-6);
//! @endcode
KAVO_EXPORT Trajectory TimeOptimalTrajectory(const BlendedPath& path, const MotionLimits& limits);

//! The same with other speeds at the ends than zero. None where limits or the path do not allow them, or
//! where a path without length has any.
KAVO_EXPORT std::optional<Trajectory> TimeOptimalTrajectory(const BlendedPath& path,
                                                            const MotionLimits& limits,
                                                            const EndSpeeds& speeds);

}  // namespace kavo::planning
