#pragma once

#include <Eigen/Core>
#include <optional>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! How fast the coordinates of a robot may move, each by itself and in both directions alike.
struct MotionLimits {
  //! One for each coordinate: radians, or metres for one that slides, per second; of the others per second
  //! squared and cubed. From `kLeastMotionLimit` to `kGreatestMotionLimit`.
  Eigen::VectorXd velocity;
  //! As above, of accelerations.
  Eigen::VectorXd acceleration;
  //! As above, of jerks; none where nobody asks for it.
  std::optional<Eigen::VectorXd> jerk;
};

//! The least limit that is taken: what is slower would be no motion.
inline constexpr double kLeastMotionLimit = 1e-6;
//! The greatest limit that is taken: what is faster is as good as not limited.
inline constexpr double kGreatestMotionLimit = 1e9;

//! What is assumed of a joint of which nothing is known, slow enough for any arm, here and below: rad/s for
//! one that turns.
inline constexpr double kDefaultTurningVelocity = 1.0;
inline constexpr double kDefaultTurningAcceleration = 2.0;  //!< rad/s^2
inline constexpr double kDefaultTurningJerk = 20.0;         //!< rad/s^3
inline constexpr double kDefaultSlidingVelocity = 0.1;      //!< m/s
inline constexpr double kDefaultSlidingAcceleration = 0.5;  //!< m/s^2
inline constexpr double kDefaultSlidingJerk = 5.0;          //!< m/s^3

//! These, for each coordinate of a robot, with a jerk. Descriptions as for `ExtractJointLimits`.
KAVO_EXPORT MotionLimits DefaultMotionLimits(const RobotDescription& robot);

//! Known limits, infinite where nothing is known (a jerk may be missing as a whole), with those defaults in
//! place of infinity; those above `kGreatestMotionLimit` become that. Fatal for other numbers of limits than
//! the robot has coordinates.
KAVO_EXPORT MotionLimits WithDefaults(const MotionLimits& known, const RobotDescription& robot);

//! Those that the maker of the built-in Franka arm has published, with a jerk.
KAVO_EXPORT MotionLimits FrankaMotionLimits();

//! A fatal error unless there are as many limits of each kind as coordinates, all of them in the range above.
//! A jerk is only looked at if there is one.
KAVO_EXPORT void ValidateMotionLimits(const MotionLimits& limits, Eigen::Index num_coordinates);

}  // namespace kavo::planning
