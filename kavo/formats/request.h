#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/scene_file_options.h"
#include "kavo/formats/scene_object.h"
#include "kavo/formats/unhonoured.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/pose3.h"
#include "kavo/motion_planning/interface/goal.h"
#include "kavo/util/export.h"

namespace kavo::formats {

//! What is to be planned, as a request file gives it. Metres and radians.
struct Request {
  //! A position that a point of a link is to reach.
  struct PositionTarget {
    //! Name of the link.
    std::string link;
    //! The frame that the position is in; empty for the world.
    std::string frame;
    //! Line of the file.
    int line = 0;
    //! The centre of the first solid of the constraint's region.
    Eigen::Vector3d position = Eigen::Vector3d::Zero();
    //! The point, in the coordinates of the link.
    Eigen::Vector3d offset = Eigen::Vector3d::Zero();
    //! It is to be in one of these, the poses of which are in the same frame as the position. Empty where the
    //! file gives poses without shapes: then at `position`.
    std::vector<PoseGoal::Region> regions;
  };

  //! An orientation that a link is to have.
  struct OrientationTarget {
    //! Name of the link.
    std::string link;
    //! The frame that the orientation is in; empty for the world.
    std::string frame;
    //! Line of the file.
    int line = 0;
    //! Of the link in that frame.
    Eigen::Quaterniond orientation = Eigen::Quaterniond::Identity();
    //! How far the link may be turned from there; of zero, too.
    PoseGoal::AxisTolerances tolerances;
  };

  //! One alternative goal: all that it holds has to be so together. At least one of the three is not empty.
  struct Goal {
    //! Joint values by name, radians or metres.
    std::map<std::string, double> joints;
    //! How far a joint may be below and above its value, where it may be: radians or metres, not negative.
    std::map<std::string, std::pair<double, double>> joint_tolerances;
    //! Positions of points of links.
    std::vector<PositionTarget> positions;
    //! Orientations of links.
    std::vector<OrientationTarget> orientations;
  };

  //! The name of the joint group that is to move; may be empty.
  std::string group_name;
  //! Joint values at the start by name.
  std::map<std::string, double> start;
  //! What the robot holds at the start. Those without a shape are objects of a scene, by their ids.
  std::vector<AttachedObject> attached;
  //! In the order of the file; may be empty.
  std::vector<Goal> goals;
  //! Pose of the robot base in the world, if the start state tells it.
  std::optional<Pose3> base_pose;
  //! Seconds that a query may take.
  std::optional<double> allowed_planning_time;
  //! Above 0, at most 1: how much of the limits of velocity a trajectory may use.
  std::optional<double> velocity_scaling;
  //! As above, of the limits of acceleration.
  std::optional<double> acceleration_scaling;
  //! How often to try, at least 1.
  int num_planning_attempts = 1;
  //! Name of the file, for messages.
  std::string file;
  //! What the file asks for and is not done, in its order.
  std::vector<Unhonoured> unhonoured;
};

//! Reads a motion-plan request in YAML: `group_name`, `start_state.joint_state`, and `goal_constraints[]`
//! with `joint_constraints[]`, `position_constraints[]` or `orientation_constraints[]`;
//! `allowed_planning_time` (zero for none) and `num_planning_attempts`; `max_velocity_scaling_factor` and
//! `max_acceleration_scaling_factor` (zero for none). All weights are ignored, as is the choice of
//! a planner. Constraints on visibility, the path or the trajectory are listed as not
//! honoured.
//!
//! Throws `FileError` for a file that cannot be read or does not have this form.
//!
//! @code
//! const auto request = kavo::formats::ReadRequest("examples/own_robot/request.yaml");
//! kavo::formats::RobotFileOptions options;
//! options.srdf_file = "examples/own_robot/arm.srdf";
//! options.group = request.group_name;
//! const auto robot = kavo::formats::LoadRobot("examples/own_robot/arm.urdf", options);
//! const Eigen::VectorXd goal =
//!     kavo::formats::ConfigurationFromJoints(*robot.description, request.goals.front().joints);
//! assert(goal[0] == 0.7);
//! @endcode
KAVO_EXPORT Request ReadRequest(const std::string& file, const SceneFileOptions& options = {});

//! The same from the text of a file, with a name for its errors.
KAVO_EXPORT Request ParseRequest(const std::string& text, const std::string& file,
                                 const SceneFileOptions& options = {});

//! The configuration of a robot that joint values by name describe, in the order of its c-space coordinates.
//! Joints that are no coordinate of the robot are ignored: they belong to other groups. Nothing is said about
//! limits.
//! \param fallback Values of the joints that are not named, one for each coordinate (another length is a
//!     fatal error); without it, `std::invalid_argument` names the joints that are missing.
KAVO_EXPORT Eigen::VectorXd ConfigurationFromJoints(const RobotDescription& robot_description,
                                                    const std::map<std::string, double>& joints,
                                                    const std::optional<Eigen::VectorXd>& fallback = {});

}  // namespace kavo::formats
