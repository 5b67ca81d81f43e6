#include "apps/kavo/queries.h"

#include <cstddef>
#include <map>
#include <string>

#include "apps/kavo/command.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/text.h"

namespace kavo::command {

namespace {

bool NamesAny(const std::map<std::string, double>& joints, const RobotDescription& robot) {
  for (std::size_t i = 0; i < robot.numCSpaceCoords(); ++i) {
    if (joints.count(robot.cSpaceCoordName(i)) != 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::vector<Query> QueriesOf(const formats::Request& request, const std::string& file,
                             const formats::LoadedRobot& robot, const LoadedScene& scene) {
  const RobotDescription& description = *robot.description;
  const Eigen::VectorXd at_rest = formats::ConfigurationFromJoints(description, scene.joint_state,
                                                                   description.defaultCSpaceConfiguration());
  Query query;
  query.start = formats::ConfigurationFromJoints(description, request.start, at_rest);
  std::vector<Query> queries;
  for (const formats::Request::Goal& goal : request.goals) {
    // All constraints of one goal hold together.
    if (goal.positions.size() + (goal.joints.empty() ? 0 : 1) > 1) {
      throw UnusableInput(file + ": found a goal of several positions, or of joint values and positions; " +
                          "expected joint values or one position");
    }
    if (goal.joints.empty()) {
      const formats::Request::PositionTarget& target = goal.positions.front();
      query.target =
          formats::PlanRecord::PositionTarget{target.link, scene.base_pose.inverse() * target.position};
    } else {
      if (!NamesAny(goal.joints, description)) {
        throw UnusableInput(file + ": found a goal that names none of the robot's joints, expected some of " +
                            Join(JointNames(description), ","));
      }
      query.target = formats::ConfigurationFromJoints(description, goal.joints, query.start);
    }
    queries.push_back(query);
  }
  if (queries.empty()) {
    throw UnusableInput(file + ": found no goal, expected at least one");
  }
  return queries;
}

double Length(const std::vector<Eigen::VectorXd>& path) {
  double length = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    length += (path[i] - path[i - 1]).norm();
  }
  return length;
}

}  // namespace kavo::command
