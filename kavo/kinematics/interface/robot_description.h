#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/util/export.h"

namespace kavo {

//! What a planner needs to know about a robot. Made by `RobotDescriptionBuilder` or one of the built-in
//! loaders below. Immutable.
//!
//! @code
//! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
//! const std::vector<kavo::kinematics::JointLimits> limits = kavo::ExtractJointLimits(robot.get());
//! const Eigen::VectorXd q = robot->defaultCSpaceConfiguration();
//! for (std::size_t i = 0; i < robot->numCSpaceCoords(); ++i) {
//!   const double value = q[static_cast<Eigen::Index>(i)];
//!   assert(limits[i].min <= value && value <= limits[i].max);
//! }
//! @endcode
class KAVO_EXPORT RobotDescription {
 public:
  virtual ~RobotDescription();

  //! Number of c-space coordinates, one for each joint that moves.
  virtual std::size_t numCSpaceCoords() const = 0;

  //! Name of a coordinate. An index at or above `numCSpaceCoords()` is a fatal error.
  virtual std::string cSpaceCoordName(std::size_t coord_index) const = 0;

  //! A configuration to start from, one entry for each coordinate, within the limits; radians, or metres for
  //! a prismatic joint. It may touch obstacles.
  virtual Eigen::VectorXd defaultCSpaceConfiguration() const = 0;

  //! A new kinematic model of this robot, which may outlive the description.
  virtual std::unique_ptr<Kinematics> kinematics() const = 0;

 protected:
  RobotDescription() = default;
  RobotDescription(const RobotDescription&) = default;             //!< For derived classes.
  RobotDescription& operator=(const RobotDescription&) = default;  //!< For derived classes.
};

//! The limits of the joints, in coordinate order. The description must have come from this library's builder
//! or loaders; otherwise a fatal error.
KAVO_EXPORT std::vector<kinematics::JointLimits> ExtractJointLimits(
    const RobotDescription* robot_description);

//! The coordinates, ascending, in which a whole turn (2 pi) brings the robot back to where it was: those of
//! continuous joints without limits that nothing follows, or only joints that turn a whole number of times as
//! far. Descriptions as for `ExtractJointLimits`.
KAVO_EXPORT std::vector<Eigen::Index> ExtractPeriodicCoordinates(const RobotDescription* robot_description);

//! The coordinates, ascending, of joints that slide; metres, where the others are radians. Descriptions as
//! for `ExtractJointLimits`.
KAVO_EXPORT std::vector<Eigen::Index> ExtractSlidingCoordinates(const RobotDescription* robot_description);

//! The Franka Emika arm with its hand: seven revolute joints, fingers open and fixed. Kinematic parameters
//! and limits as published by the maker. The last frame, "tool", lies between the finger tips.
KAVO_EXPORT std::unique_ptr<RobotDescription> LoadFrankaRobotDescription();

//! A planar arm in the x-y plane: three revolute joints about z. The last frame, "tool", is the tip.
KAVO_EXPORT std::unique_ptr<RobotDescription> LoadThreeLinkArmRobotDescription();

}  // namespace kavo
