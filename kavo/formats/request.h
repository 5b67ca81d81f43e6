#pragma once

#include <Eigen/Core>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/pose3.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! What is to be planned, as a request file gives it. Metres and radians.
struct Request {
  //! A position that a link is to reach.
  struct PositionTarget {
    std::string link;
    //! In the world: the centre of the first solid of the constraint's region.
    Eigen::Vector3d position = Eigen::Vector3d::Zero();
  };

  //! One alternative goal. At least one of the two is not empty.
  struct Goal {
    //! Joint values by name.
    std::map<std::string, double> joints;
    std::vector<PositionTarget> positions;
  };

  //! The name of the joint group that is to move; may be empty.
  std::string group_name;
  //! Joint values at the start by name.
  std::map<std::string, double> start;
  //! In the order of the file; may be empty.
  std::vector<Goal> goals;
  //! Pose of the robot base in the world, if the start state tells it.
  std::optional<Pose3> base_pose;
};

//! Reads a motion-plan request in YAML: `group_name`, `start_state.joint_state`, and `goal_constraints[]`
//! with `joint_constraints[]` or `position_constraints[]`. Tolerances are ignored, as is the choice of a
//! planner. There is a warning for orientation constraints, which are not considered, and for positions in a
//! frame other than "world", which is taken for the world.
//!
//! Throws `FileError` for a file that cannot be read or does not have this form, and for a position
//! constraint with an offset from the origin of its link.
KAVO_EXPORT Request ReadRequest(const std::string& file);

//! The same from the text of a file, with a name for its errors.
KAVO_EXPORT Request ParseRequest(const std::string& text, const std::string& file);

//! The configuration of a robot that joint values by name describe, in the order of its c-space coordinates.
//! Joints that are no coordinate of the robot are ignored: they belong to other groups. Nothing is said about
//! limits.
//! \param fallback Values of the joints that are not named, one for each coordinate (another length is a
//!     fatal error); without it, `std::invalid_argument` names the joints that are missing.
KAVO_EXPORT Eigen::VectorXd ConfigurationFromJoints(const RobotDescription& robot_description,
                                                    const std::map<std::string, double>& joints,
                                                    const std::optional<Eigen::VectorXd>& fallback = {});

}  // namespace kavo::formats
