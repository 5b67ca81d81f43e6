#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/formats/unhonoured.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! How fast joints may move, as a file of limits gives it. Radians or metres, seconds.
struct JointLimitsFile {
  //! Of one joint; empty where the file says nothing.
  struct Joint {
    //! Radians or metres per second.
    std::optional<double> velocity;
    //! Radians or metres per second squared; the smaller one where a deceleration is given beside an
    //! acceleration.
    std::optional<double> acceleration;
    //! Radians or metres per second cubed.
    std::optional<double> jerk;
  };

  //! By name.
  std::map<std::string, Joint> joints;
  //! Above 0, at most 1: how much of the limits of velocity is used unless somebody says otherwise.
  std::optional<double> velocity_scaling;
  //! As for velocities, of the limits of acceleration.
  std::optional<double> acceleration_scaling;
  //! What the file asks for and is not done, in its order.
  std::vector<Unhonoured> unhonoured;
};

//! Reads limits in YAML: `joint_limits`, at the top or under `robot_description_planning`, with
//! `has_velocity_limits`, `max_velocity`, and likewise `acceleration`, `deceleration` and `jerk`, for each
//! joint, and beside it `default_velocity_scaling_factor` and `default_acceleration_scaling_factor` (zero for
//! none). A limit whose flag is false is not there; one without a flag is. Limits of position that are
//! switched on are listed as not honoured: those of the robot hold.
//!
//! Throws `FileError` for a file that cannot be read or does not have this form, and for limits out of the
//! range of `planning::MotionLimits`.
//!
//! @code
//! const kavo::formats::JointLimitsFile file = kavo::formats::ParseJointLimits(
//!     "joint_limits: {joint2: {has_velocity_limits: true, max_velocity: 0.5}}", "limits.yaml");
//! const auto robot = kavo::LoadFrankaRobotDescription();
//! kavo::planning::MotionLimits limits = kavo::planning::FrankaMotionLimits();
//! kavo::formats::TakeJointLimits(file, *robot, limits);
//! assert(limits.velocity[1] == 0.5 && limits.velocity[0] == 2.175);
//! @endcode
KAVO_EXPORT JointLimitsFile ReadJointLimits(const std::string& file);

//! The same from the text of a file, with a name for its errors.
KAVO_EXPORT JointLimitsFile ParseJointLimits(const std::string& text, const std::string& file);

//! Puts what a file says in place of the limits of a robot. Joints that are no coordinates of the robot are
//! passed over: they belong to other groups. Scaling factors are left to the caller.
//! \param limits With all coordinates; a jerk that the file gives is only taken if there are jerks.
KAVO_EXPORT void TakeJointLimits(const JointLimitsFile& file, const RobotDescription& robot,
                                 planning::MotionLimits& limits);

}  // namespace kavo::formats
