#include "kavo/kinematics/interface/robot_description.h"

#include <algorithm>
#include <numeric>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/util/log_message.h"

namespace kavo {

RobotDescription::~RobotDescription() = default;

namespace {

const RobotDescriptionInternal& Internal(const RobotDescription* robot_description) {
  KAVO_CHECK(robot_description != nullptr, "kinematics/interface/robot_description", 11)
      << "No robot description was given.";
  const auto* description = dynamic_cast<const RobotDescriptionInternal*>(robot_description);
  KAVO_CHECK(description != nullptr, "kinematics/interface/robot_description", 14)
      << "The robot description was not made by this library's RobotDescriptionBuilder or loaders.";
  return *description;
}

}  // namespace

std::vector<kinematics::JointLimits> ExtractJointLimits(const RobotDescription* robot_description) {
  return Internal(robot_description).jointLimits();
}

std::vector<Eigen::Index> ExtractPeriodicCoordinates(const RobotDescription* robot_description) {
  return Internal(robot_description).periodicCoordinates();
}

std::vector<Eigen::Index> ExtractSlidingCoordinates(const RobotDescription* robot_description) {
  const kinematics::Kinematics& model = Internal(robot_description).model();
  std::vector<int> frames(model.frameNames().size());
  std::iota(frames.begin(), frames.end(), 0);
  std::vector<Eigen::Index> coordinates;
  for (const kinematics::Kinematics::Step& step : model.plan(frames).steps) {
    if (!step.ratio && step.motion == kinematics::Kinematics::Motion::kPrismatic) {
      coordinates.push_back(step.coordinate);
    }
  }
  std::sort(coordinates.begin(), coordinates.end());
  return coordinates;
}

}  // namespace kavo
