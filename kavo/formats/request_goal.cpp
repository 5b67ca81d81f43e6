#include "kavo/formats/request_goal.h"

#include <cstddef>
#include <stdexcept>
#include <string>

namespace kavo::formats {

namespace {

// Of a turn that a request tolerates: none at all is beyond reach. Radians.
constexpr double kLeastTolerance = 1e-4;
// Of a joint, below and above together: a smaller one gains nothing.
constexpr double kWideTolerance = 0.01;

const Pose3& FrameIn(const FramePoses& frames, const std::string& name) {
  const auto found = frames.find(name);
  if (found == frames.end()) {
    throw std::invalid_argument("found a goal in an unknown frame '" + name + "', expected one of the robot");
  }
  return found->second;
}

PoseGoal PoseGoalOf(const Request::Goal& goal, const FramePoses& frames) {
  PoseGoal result;
  Eigen::Vector3d position = Eigen::Vector3d::Zero();
  Eigen::Quaterniond rotation = Eigen::Quaterniond::Identity();
  result.free_translations = {true, true, true};
  result.free_rotations = {true, true, true};
  for (const Request::PositionTarget& target : goal.positions) {
    const Pose3& frame = FrameIn(frames, target.frame);
    result.frame = target.link;
    result.tool = Pose3::FromTranslation(target.offset);
    result.free_translations = {false, false, false};
    position = frame * target.position;
    for (const PoseGoal::Region& region : target.regions) {
      result.regions.push_back({region.shape, frame * region.pose});
    }
  }
  for (const Request::OrientationTarget& target : goal.orientations) {
    const Pose3& frame = FrameIn(frames, target.frame);
    result.frame = target.link;
    result.free_rotations = {false, false, false};
    rotation = (frame * Pose3::FromRotation(target.orientation)).rotation();
    result.axis_tolerances = target.tolerances;
    result.axis_tolerances->angles = target.tolerances.angles.cwiseMax(kLeastTolerance);
  }
  result.pose = Pose3(rotation, position);
  return result;
}

}  // namespace

kavo::Goal GoalOf(const Request::Goal& goal, const RobotDescription& robot, const Eigen::VectorXd& start,
                  const FramePoses& frames) {
  const bool has_pose = !goal.positions.empty() || !goal.orientations.empty();
  if (goal.positions.size() > 1 || goal.orientations.size() > 1 || (has_pose && !goal.joints.empty()) ||
      (!goal.positions.empty() && !goal.orientations.empty() &&
       goal.positions.front().link != goal.orientations.front().link)) {
    throw std::invalid_argument(
        "found a goal of several positions or orientations, of several links, or of joint values and such; "
        "expected "
        "joint values, or a position, an orientation or both of one link");
  }
  if (has_pose) {
    return PoseGoalOf(goal, frames);
  }
  const Eigen::VectorXd target = ConfigurationFromJoints(robot, goal.joints, start);
  const Eigen::VectorXd zero = Eigen::VectorXd::Zero(target.size());
  ConfigurationGoal with_tolerances{target, zero, zero};
  bool names_any = false;
  bool is_wide = false;
  std::string names;
  for (std::size_t i = 0; i < robot.numCSpaceCoords(); ++i) {
    const std::string name = robot.cSpaceCoordName(i);
    names += (i == 0 ? "" : ",") + name;
    names_any = names_any || goal.joints.count(name) != 0;
    if (const auto found = goal.joint_tolerances.find(name); found != goal.joint_tolerances.end()) {
      const auto& [below, above] = found->second;
      with_tolerances.below[static_cast<Eigen::Index>(i)] = below;
      with_tolerances.above[static_cast<Eigen::Index>(i)] = above;
      is_wide = is_wide || below + above > kWideTolerance;
    }
  }
  if (!names_any) {
    throw std::invalid_argument("found a goal that names none of the robot's joints, expected some of " +
                                names);
  }
  return is_wide ? kavo::Goal(with_tolerances) : kavo::Goal(target);
}

}  // namespace kavo::formats
