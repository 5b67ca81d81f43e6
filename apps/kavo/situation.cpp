#include "apps/kavo/situation.h"

#include <cstddef>

#include "apps/kavo/text.h"

namespace kavo::command {

std::map<std::string, double> HeldJoints(const formats::LoadedRobot& robot) {
  std::map<std::string, double> held;
  for (const auto& [name, joint] : robot.other_joints) {
    if (joint.kind == formats::LoadedRobot::OtherJoint::Kind::kHeld && joint.offset != joint.rest) {
      held[name] = joint.offset;
    }
  }
  return held;
}

std::string HeldJointsText(const formats::LoadedRobot& robot) {
  std::vector<std::string> parts;
  for (const auto& [name, value] : HeldJoints(robot)) {
    parts.push_back("'" + Printable(name) + "' at " + Number(value));
  }
  return parts.empty() ? "" : "joints not planned for: " + Join(parts, ", ") + "\n";
}

std::vector<std::string> JointNames(const RobotDescription& robot) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < robot.numCSpaceCoords(); ++i) {
    names.push_back(robot.cSpaceCoordName(i));
  }
  return names;
}

double Length(const std::vector<Eigen::VectorXd>& path) {
  double length = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    length += (path[i] - path[i - 1]).norm();
  }
  return length;
}

}  // namespace kavo::command
