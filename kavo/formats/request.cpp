#include "kavo/formats/request.h"

#include <cstddef>
#include <stdexcept>
#include <utility>

#include "kavo/formats/robot_state_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

Request::PositionTarget ReadPositionTarget(const YamlValue& constraint) {
  Request::PositionTarget target;
  target.link = constraint.get("link_name").text();
  if (const std::optional<YamlValue> offset = constraint.find("target_point_offset");
      offset && !offset->vector().isZero(0.0)) {
    offset->fail("a `target_point_offset` of link " + Quoted(target.link),
                 "none: the target is for the link's origin");
  }
  const YamlValue region = constraint.get("constraint_region");
  const std::vector<YamlValue> poses = region.elements("primitive_poses");
  if (poses.empty()) {
    region.fail("no `primitive_poses`", "the pose of the region for link " + Quoted(target.link));
  }
  target.position = poses.front().pose("position", "orientation").translation();
  return target;
}

// What a request asks for beyond what is considered.
struct Ignored {
  bool has_orientation = false;
  // A frame other than the world.
  std::string frame;
};

Request::Goal ReadGoal(const YamlValue& constraints, Ignored* ignored) {
  Request::Goal goal;
  for (const YamlValue& constraint : constraints.elements("joint_constraints")) {
    const YamlValue name = constraint.get("joint_name");
    if (!goal.joints.emplace(name.text(), constraint.get("position").number()).second) {
      name.fail("joint " + Quoted(name.text()) + " again", "one position for each joint");
    }
  }
  for (const YamlValue& constraint : constraints.elements("position_constraints")) {
    goal.positions.push_back(ReadPositionTarget(constraint));
    if (const std::string frame = ReadFrameName(constraint); frame != "world" && !frame.empty()) {
      ignored->frame = frame;
    }
  }
  if (goal.joints.empty() && goal.positions.empty()) {
    constraints.fail("a goal without them", "`joint_constraints` or `position_constraints`");
  }
  if (!constraints.elements("orientation_constraints").empty()) {
    ignored->has_orientation = true;
  }
  return goal;
}

}  // namespace

Request ReadRequest(const std::string& file) { return ParseRequest(ReadTextFile(file), file); }

Request ParseRequest(const std::string& text, const std::string& file) {
  const YamlValue root(text, file);
  Request request;
  if (const std::optional<YamlValue> group = root.find("group_name")) {
    request.group_name = group->text();
  }
  const std::optional<YamlValue> start = root.find("start_state");
  if (start) {
    request.start = ReadJointState(*start);
    request.base_pose = ReadBasePose(*start);
  }
  const std::optional<YamlValue> goals = root.find("goal_constraints");
  if (!start && !goals) {
    root.fail("neither of them", "`start_state` or `goal_constraints`");
  }
  Ignored ignored;
  for (const YamlValue& constraints : root.elements("goal_constraints")) {
    request.goals.push_back(ReadGoal(constraints, &ignored));
  }
  if (ignored.has_orientation) {
    KAVO_LOG(LogLevel::kWarning) << file << ": Orientation constraints are not considered.";
  }
  if (!ignored.frame.empty()) {
    KAVO_LOG(LogLevel::kWarning) << file << ": Frame " << Quoted(ignored.frame)
                                 << " of a position constraint is taken for the world.";
  }
  return request;
}

Eigen::VectorXd ConfigurationFromJoints(const RobotDescription& robot_description,
                                        const std::map<std::string, double>& joints,
                                        const std::optional<Eigen::VectorXd>& fallback) {
  const std::size_t num_coords = robot_description.numCSpaceCoords();
  KAVO_CHECK(!fallback || static_cast<std::size_t>(fallback->size()) == num_coords, "formats/request", 81)
      << "The fallback must have one value for each c-space coordinate: expected " << num_coords << ", got "
      << fallback->size() << ".";
  Eigen::VectorXd q = fallback.value_or(Eigen::VectorXd::Zero(static_cast<Eigen::Index>(num_coords)));
  std::string missing;
  for (std::size_t i = 0; i < num_coords; ++i) {
    const std::string name = robot_description.cSpaceCoordName(i);
    if (const auto joint = joints.find(name); joint != joints.end()) {
      q[static_cast<Eigen::Index>(i)] = joint->second;
    } else if (!fallback) {
      missing += (missing.empty() ? "" : ", ") + name;
    }
  }
  if (!missing.empty()) {
    throw std::invalid_argument("No value for joint " + missing);
  }
  return q;
}

}  // namespace kavo::formats
