#pragma once

#include <Eigen/Core>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/joint_limits.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/pose3.h"
#include "kavo/math/sphere.h"
#include "kavo/util/export.h"

namespace kavo {

//! How a joint moves: not at all, about its axis, about it without end, along it.
enum class JointType { kFixed, kRevolute, kContinuous, kPrismatic };

//! A joint and the frame that it moves.
struct Joint {
  //! How a joint follows another one: its value is `multiplier` times the other's plus `offset` (radians, or
  //! metres for a prismatic joint).
  struct Mimic {
    //! Name of the joint that it follows, which must be a coordinate.
    std::string joint;
    //! Radians, or metres, for each of the other joint.
    double multiplier = 1.0;
    //! Radians, or metres for a prismatic joint.
    double offset = 0.0;
  };

  //! Name of the joint, and of the coordinate that it is.
  std::string name;
  //! How it moves.
  JointType type = JointType::kFixed;
  //! Frame that the joint is attached to.
  std::string parent_frame;
  //! Frame that the joint carries. It coincides with `origin` while the coordinate is zero.
  std::string child_frame;
  //! Pose of the joint in the parent frame.
  Pose3 origin;
  //! Direction of motion in the joint's own frame, of any length but zero: the joint turns about it (right
  //! hand) or slides along it. Ignored for fixed joints.
  Eigen::Vector3d axis = Eigen::Vector3d::UnitZ();
  //! Closed range of the coordinate: radians, or metres for a prismatic joint. Needed for revolute and
  //! prismatic joints; a continuous joint without limits turns as far as it likes (see
  //! `ExtractPeriodicCoordinates`). Ignored for fixed joints.
  std::optional<kinematics::JointLimits> limits = std::nullopt;
  //! Value of the coordinate in the default configuration; the middle of the limits when absent, zero
  //! without limits.
  std::optional<double> default_value = std::nullopt;
  //! With one, the joint is no coordinate. Its limits and its default value are ignored.
  std::optional<Mimic> mimic = std::nullopt;
  //! With one, the joint stays at this value and is no coordinate. Its limits and its default value are
  //! ignored.
  std::optional<double> held_value = std::nullopt;
};

//! Makes a robot description in code.
//!
//! Joints may be added in any order; coordinates are numbered in the order in which their joints were added.
//! `build` checks the whole robot and throws a fatal error whose message names the culprit for: an empty or
//! repeated joint or frame name, a frame that two joints carry, a cycle, a parent frame that nothing carries,
//! a number that is not finite, an axis of length zero, limits that are missing or whose minimum is above the
//! maximum, a default value outside the limits, a joint that follows one that is no coordinate, a sphere on
//! an unknown frame or with a radius that is not positive, a collision pair with an unknown frame or of a
//! frame with itself.
//!
//! @code
//! kavo::Joint shoulder;
//! shoulder.name = "shoulder";
//! shoulder.type = kavo::JointType::kRevolute;
//! shoulder.parent_frame = "base";
//! shoulder.child_frame = "arm";
//! shoulder.limits = kavo::kinematics::JointLimits{-2.0, 2.0};
//! const std::shared_ptr<kavo::RobotDescription> robot =
//!     kavo::RobotDescriptionBuilder("base")
//!         .addJoint(shoulder)
//!         .addFrame("tool", "arm", kavo::Pose3::FromTranslation({0.5, 0.0, 0.0}))
//!         .addCollisionSphere("tool", Eigen::Vector3d::Zero(), 0.05)
//!         .build();
//! assert(robot->cSpaceCoordName(0) == "shoulder");
//! @endcode
class KAVO_EXPORT RobotDescriptionBuilder {
 public:
  //! \param base_frame Name of the frame that everything is attached to.
  explicit RobotDescriptionBuilder(std::string base_frame);

  //! Nothing is checked here or below: `build` does so.
  RobotDescriptionBuilder& addJoint(Joint joint);
  //! A frame rigidly attached to another one: a fixed joint of the same name as the frame.
  RobotDescriptionBuilder& addFrame(const std::string& name, const std::string& parent_frame,
                                    const Pose3& pose);
  //! Attaches a collision sphere to a frame: contact of it with an obstacle is a collision.
  //! \param center In the frame's coordinates, metres, as is the radius.
  RobotDescriptionBuilder& addCollisionSphere(const std::string& frame_name, const Eigen::Vector3d& center,
                                              double radius);

  //! Makes contact between two frames of the robot a collision: a configuration in which a sphere of one
  //! touches a sphere of the other is not valid. A pair given twice, in either order, counts once. A robot
  //! without pairs never collides with itself.
  RobotDescriptionBuilder& addCollisionPair(const std::string& frame_a, const std::string& frame_b);

  //! The description. The builder may be used further.
  std::unique_ptr<RobotDescription> build() const;

 private:
  struct CollisionSphere {
    std::string frame_name;
    math::Sphere sphere;
  };

  std::string base_frame_;
  std::vector<Joint> joints_;
  std::vector<CollisionSphere> collision_spheres_;
  std::vector<std::pair<std::string, std::string>> collision_pairs_;
};

}  // namespace kavo
