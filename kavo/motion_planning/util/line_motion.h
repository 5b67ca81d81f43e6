#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/inverse_kinematics.h"
#include "kavo/kinematics/interface/pose_target.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/pose3.h"
#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! How closely `FollowLine` keeps to its line. All positive.
struct LineOptions {
  //! The farthest that the tool goes from one waypoint to the next, metres.
  double step = 0.005;
  //! The most that it turns from one waypoint to the next, radians.
  double angle_step = 0.05;
  //! At waypoints the tool is within this of the line, metres, and within the next of its orientation there.
  double position_tolerance = 1e-5;
  //! Radians.
  double orientation_tolerance = 1e-4;
  //! Between waypoints the tool stays within this of the line, by proof, metres, and within the next of its
  //! orientation.
  double max_deviation = 1e-3;
  //! Radians.
  double max_angle = 1e-2;
  //! The farthest that a coordinate goes between two waypoints, radians or metres: beyond that it jumps.
  double max_joint_step = 0.2;
  //! Asked before every waypoint.
  StopCondition stop_condition = {};
};

//! A path along a line, as far as it goes.
struct LineMotion {
  //! What ended it.
  enum class End {
    //! At the end of the line.
    kComplete,
    //! The start is not valid, see `fault`, or too close to a contact to prove a motion from it.
    kInvalidStart,
    //! The tool cannot get on: see `nearest`.
    kUnreachable,
    //! It could only with a jump of a coordinate, see `jumping`.
    kJump,
    //! Something is in the way: see `fault`; without one, too near to prove a motion past it.
    kContact,
    //! Between two waypoints it may stray too far from the line, however near they are; `jumping` is the
    //! coordinate that goes farthest there.
    kAstray,
    //! By the stop condition.
    kStopped,
  };

  //! Where, or why, it ended.
  End end = End::kStopped;
  //! Start first; every motion from one to the next is proven free.
  std::vector<Eigen::VectorXd> path;
  //! How much of the line the path covers, in [0, 1].
  double fraction = 0.0;
  //! Nowhere on the path is the tool farther off than this, between waypoints too: from the part of the line
  //! that belongs to a motion, and from the orientation there. Metres, radians.
  double deviation = 0.0;
  //! The same of the orientation, radians.
  double angle = 0.0;
  //! Where the path ends early: why.
  std::optional<ConfigurationFault> fault;
  //! With `kContact`: the configuration that would have come next.
  std::optional<Eigen::VectorXd> blocked;
  //! With `kUnreachable`: the nearest that the tool gets.
  std::optional<NearestPose> nearest;
  //! With `kJump` and `kAstray`: the coordinate.
  std::optional<std::size_t> jumping;

  //! Whether the line was followed to its end.
  bool IsComplete() const { return end == End::kComplete; }
};

//! "complete", "invalid start", "unreachable", "jump", "contact", "astray", "stopped".
KAVO_EXPORT const char* ToString(LineMotion::End end);

//! Goes straight with a tool from where it is to a pose, turning evenly about one axis meanwhile (the short
//! way). Waypoints are found one after another, each by inverse kinematics from the one before; steps are
//! halved where the tool would stray, a joint jump, or something touch. A robot with more joints than it
//! needs tries again with its spare motion drawn to the middle of its ranges where it gets stuck.
//!
//! Between two waypoints the coordinates go straight: the tool then leaves the chord of its own positions by
//! A / 8 at most, and the even turn by little more than B / 4, where A and B bound its acceleration and the
//! change of its angular velocity; docs/motions.md derives both.
//! \param robot Of the environment.
//! \param solver Of the frame that carries the tool.
//! \param tool In that frame.
//! \param pose Where the tool is to go, relative to the robot's base; finite.
//! \param options Values that are not positive are a fatal error.
KAVO_EXPORT LineMotion FollowLine(const RobotDescription& robot, const RobotEnvironment& environment,
                                  InverseKinematics& solver, const std::string& frame, const Pose3& tool,
                                  const Eigen::VectorXd& q_start, const Pose3& pose,
                                  const LineOptions& options = {});

}  // namespace kavo::planning
