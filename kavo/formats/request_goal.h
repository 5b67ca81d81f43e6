#pragma once

#include <Eigen/Core>

#include "kavo/formats/request.h"
#include "kavo/formats/scene.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/goal.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! A goal of a request as planners take it: joint values, with their tolerances where these are wide enough
//! to gain something, or the pose of a link. Nothing is said about limits.
//!
//! `std::invalid_argument` says what is wrong with a goal that names no coordinate of the robot, with one
//! that is more than joint values, or a position and an orientation of one link, and with a frame that is not
//! given.
//! \param start Where joints stay that the goal does not name; one value for each coordinate.
//! \param frames Where each frame that the goal names is, relative to the robot's base; an empty name is the
//!     world.
//!
//! @code
//! const auto robot = kavo::formats::LoadRobot("examples/own_robot/arm.urdf");
//! const auto request = kavo::formats::ReadRequest("examples/own_robot/request.yaml");
//! const kavo::Goal goal =
//!     kavo::formats::GoalOf(request.goals.front(), *robot.description,
//!                           robot.description->defaultCSpaceConfiguration(), {{"", kavo::Pose3()}});
//! @endcode
KAVO_EXPORT kavo::Goal GoalOf(const Request::Goal& goal, const RobotDescription& robot,
                              const Eigen::VectorXd& start, const FramePoses& frames);

}  // namespace kavo::formats
