#include "kavo/formats/joint_limits_file.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "kavo/formats/scaling_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"

namespace kavo::formats {

namespace {

bool IsSwitchedOff(const YamlValue& joint, const std::string& kind) {
  const std::optional<YamlValue> flag = joint.find("has_" + kind + "_limits");
  return flag && !flag->flag();
}

std::optional<double> ReadLimit(const YamlValue& joint, const std::string& kind) {
  if (IsSwitchedOff(joint, kind)) {
    return {};
  }
  const std::string key = "max_" + kind;
  const std::optional<YamlValue> limit =
      joint.find("has_" + kind + "_limits") ? joint.get(key) : joint.find(key);
  if (!limit) {
    return {};
  }
  const double value = limit->number();
  if (!(value >= planning::kLeastMotionLimit && value <= planning::kGreatestMotionLimit)) {
    limit->fail("a limit from " + NumberText(planning::kLeastMotionLimit) + " to " +
                NumberText(planning::kGreatestMotionLimit));
  }
  return value;
}

}  // namespace

JointLimitsFile ReadJointLimits(const std::string& file) {
  return ParseJointLimits(ReadTextFile(file, kMaxYamlSize), file);
}

JointLimitsFile ParseJointLimits(const std::string& text, const std::string& file) {
  const YamlValue whole(text, file);
  const YamlValue root = whole.find("robot_description_planning").value_or(whole);
  JointLimitsFile limits;
  std::set<std::string> said;
  root.warnOfOtherKeys({"joint_limits", "default_velocity_scaling_factor",
                        "default_acceleration_scaling_factor", "cartesian_limits"},
                       "a file of joint limits", said);
  limits.velocity_scaling = ReadScaling(root, "default_velocity_scaling_factor");
  limits.acceleration_scaling = ReadScaling(root, "default_acceleration_scaling_factor");
  for (const auto& [name, joint] : root.get("joint_limits").entries()) {
    joint.warnOfOtherKeys(
        {"has_position_limits", "min_position", "max_position", "has_velocity_limits", "max_velocity",
         "has_acceleration_limits", "max_acceleration", "has_deceleration_limits", "max_deceleration",
         "has_jerk_limits", "max_jerk", "has_effort_limits", "max_effort", "angle_wraparound",
         "has_soft_limits", "soft_lower_limit", "soft_upper_limit", "k_position", "k_velocity"},
        "the limits of a joint", said);
    JointLimitsFile::Joint& read = limits.joints[name];
    read.velocity = ReadLimit(joint, "velocity");
    read.acceleration = ReadLimit(joint, "acceleration");
    if (const std::optional<double> deceleration = ReadLimit(joint, "deceleration")) {
      read.acceleration = std::min(read.acceleration.value_or(*deceleration), *deceleration);
    }
    read.jerk = ReadLimit(joint, "jerk");
    if ((joint.find("min_position") || joint.find("max_position")) && !IsSwitchedOff(joint, "position")) {
      limits.unhonoured.push_back(joint.unhonoured(Unhonoured::Kind::kPositionLimits,
                                                   "limits of the position of joint " + Quoted(name)));
    }
  }
  return limits;
}

void TakeJointLimits(const JointLimitsFile& file, const RobotDescription& robot,
                     planning::MotionLimits& limits) {
  for (std::size_t i = 0; i < robot.numCSpaceCoords(); ++i) {
    const auto joint = file.joints.find(robot.cSpaceCoordName(i));
    if (joint == file.joints.end()) {
      continue;
    }
    const auto index = static_cast<Eigen::Index>(i);
    limits.velocity[index] = joint->second.velocity.value_or(limits.velocity[index]);
    limits.acceleration[index] = joint->second.acceleration.value_or(limits.acceleration[index]);
    if (limits.jerk) {
      (*limits.jerk)[index] = joint->second.jerk.value_or((*limits.jerk)[index]);
    }
  }
}

}  // namespace kavo::formats
