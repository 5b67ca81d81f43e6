#pragma once

#include <Eigen/Core>
#include <array>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/util/export.h"
#include "kavo/world/obstacle.h"

namespace kavo {

//! Where a frame of a robot is to end. Metres and radians.
struct PoseGoal {
  //! A solid, in which the tool's origin is to be. Its pose is relative to the robot's base.
  struct Region {
    //! In its own frame.
    std::variant<BoxObstacle, SphereObstacle, CylinderObstacle> shape;
    //! Of the shape, relative to the robot's base.
    Pose3 pose;
  };

  //! How far the tool may be turned from the goal, for each axis by itself.
  struct AxisTolerances {
    //! What the three angles are.
    enum class Parameterization {
      //! The turns about x, then y, then z of the tool as it is turned by then: R = Rx Ry Rz.
      kEulerAngles,
      //! The components of the axis times the angle.
      kRotationVector,
    };

    //! Largest amounts, not negative; pi or more leaves the turn about that axis free.
    Eigen::Vector3d angles = Eigen::Vector3d::Zero();
    //! How `angles` are counted.
    Parameterization parameterization = Parameterization::kEulerAngles;
  };

  //! Of the robot; empty: the task-space frame of the planner.
  std::string frame;
  //! Of the tool in that frame: identity is the frame itself.
  Pose3 tool;
  //! Where the tool is to be, relative to the robot's base.
  Pose3 pose;
  //! How far its origin may be from there, over the coordinates that count; positive. Without one the setting
  //! of the planner.
  std::optional<double> position_tolerance;
  //! The largest angle of the rotation that remains, about the axes that count; positive, pi or more leaves
  //! the orientation free. Without one the setting of the planner.
  std::optional<double> orientation_tolerance;
  //! Along which axes of `pose` the tool may be anywhere.
  std::array<bool, 3> free_translations = {false, false, false};
  //! About which axes of `pose` it may be turned as it likes.
  std::array<bool, 3> free_rotations = {false, false, false};
  //! Instead of the position: the origin is to be in one of these. Empty: as said above.
  std::vector<Region> regions;
  //! Instead of the orientation's tolerance.
  std::optional<AxisTolerances> axis_tolerances;
  //! What else is asked of a configuration; empty: nothing. It must not call the planner.
  std::function<bool(const Eigen::VectorXd&)> accepts;

  //! A frame's own position, in whatever orientation.
  static PoseGoal Position(const std::string& frame, const Eigen::Vector3d& position) {
    PoseGoal goal;
    goal.frame = frame;
    goal.pose = Pose3::FromTranslation(position);
    goal.free_rotations = {true, true, true};
    return goal;
  }
  //! Whether it asks for just that, as `MotionPlanner::planToTaskSpaceTarget` does.
  bool IsPosition() const {
    return free_rotations == std::array{true, true, true} &&
           free_translations == std::array{false, false, false} && regions.empty() && !axis_tolerances &&
           tool.translation().isZero(0.0) && !accepts;
  }
};

//! How far a pose of the tool is from what a goal asks for.
struct PoseError {
  //! Over the coordinates that count, or from the nearest region. Metres.
  double position = 0.0;
  //! Angle of the rotation that remains, about the axes that count; by axis tolerances, how far the worst
  //! turn is beyond its own. Radians.
  double orientation = 0.0;
};

//! The errors of a tool's pose relative to the robot's base. Tolerances that are not given do not matter
//! here.
KAVO_EXPORT PoseError ErrorOf(const PoseGoal& goal, const Pose3& tool);

//! A configuration, and how far each coordinate may be from it.
struct ConfigurationGoal {
  //! What is aimed at: the goal wherever it can be.
  Eigen::VectorXd configuration;
  //! How far below: not negative, one for each coordinate; radians or metres.
  Eigen::VectorXd below;
  //! How far above, likewise.
  Eigen::VectorXd above;
};

//! One of several goals: a configuration, the pose of a frame, or a configuration with tolerances.
using Goal = std::variant<Eigen::VectorXd, PoseGoal, ConfigurationGoal>;

}  // namespace kavo
