#include "kavo/formats/request.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <set>
#include <stdexcept>
#include <utility>

#include "kavo/formats/robot_state_internal.h"
#include "kavo/formats/scaling_internal.h"
#include "kavo/formats/scene_object_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

// The link and the frame of a constraint.
template <typename Target>
Target ReadTarget(const YamlValue& constraint) {
  Target target;
  const YamlValue link = constraint.get("link_name");
  target.link = link.text();
  target.line = link.line();
  if (const std::string frame = ReadFrameName(constraint); frame != "world") {
    target.frame = frame;
  }
  return target;
}

PoseGoal::Region ReadRegion(const YamlValue& primitive, const Pose3& pose, const std::string& link) {
  PoseGoal::Region region;
  region.pose = pose;
  const ObstacleShape shape = ReadPrimitive(primitive, "the region for link " + Quoted(link));
  if (const auto* box = std::get_if<BoxObstacle>(&shape)) {
    region.shape = *box;
  } else if (const auto* sphere = std::get_if<SphereObstacle>(&shape)) {
    region.shape = *sphere;
  } else if (const auto* cylinder = std::get_if<CylinderObstacle>(&shape)) {
    region.shape = *cylinder;
  } else {
    primitive.get("type").fail("a box, a sphere or a cylinder");
  }
  return region;
}

Request::PositionTarget ReadPositionTarget(const YamlValue& constraint) {
  auto target = ReadTarget<Request::PositionTarget>(constraint);
  if (const std::optional<YamlValue> offset = constraint.find("target_point_offset")) {
    target.offset = offset->vector();
  }
  const YamlValue region = constraint.get("constraint_region");
  const std::vector<YamlValue> poses = region.elements("primitive_poses");
  const std::vector<YamlValue> primitives = region.elements("primitives");
  if (poses.empty() || poses.size() < primitives.size()) {
    region.fail(poses.empty() ? "no `primitive_poses`" : "fewer `primitive_poses` than `primitives`",
                "the pose of the region for link " + Quoted(target.link));
  }
  if (const auto meshes = region.elements("meshes"); !meshes.empty()) {
    meshes.front().fail("a mesh",
                        "a box, a sphere or a cylinder as the region for link " + Quoted(target.link));
  }
  target.position = poses.front().pose("position", "orientation").translation();
  for (std::size_t i = 0; i < primitives.size(); ++i) {
    target.regions.push_back(
        ReadRegion(primitives[i], poses[i].pose("position", "orientation"), target.link));
  }
  return target;
}

Request::OrientationTarget ReadOrientationTarget(const YamlValue& constraint) {
  using Parameterization = PoseGoal::AxisTolerances::Parameterization;
  auto target = ReadTarget<Request::OrientationTarget>(constraint);
  constraint.get("orientation");
  target.orientation = constraint.pose("", "orientation").rotation();
  const std::array<const char*, 3> axes = {"x", "y", "z"};
  for (std::size_t i = 0; i < 3; ++i) {
    const std::string key = std::string("absolute_") + axes[i] + "_axis_tolerance";
    if (const std::optional<YamlValue> tolerance = constraint.find(key)) {
      const double angle = tolerance->number();
      if (angle < 0.0) {
        tolerance->fail("a tolerance that is not negative");
      }
      target.tolerances.angles[static_cast<Eigen::Index>(i)] = angle;
    }
  }
  if (const std::optional<YamlValue> parameterization = constraint.find("parameterization")) {
    const double number = parameterization->number();
    if (number != 0.0 && number != 1.0) {
      parameterization->fail("0 for Euler angles or 1 for a rotation vector");
    }
    target.tolerances.parameterization =
        number == 0.0 ? Parameterization::kEulerAngles : Parameterization::kRotationVector;
  }
  return target;
}

using Kind = Unhonoured::Kind;

Request::Goal ReadGoal(const YamlValue& constraints, std::vector<Unhonoured>& unhonoured) {
  Request::Goal goal;
  for (const YamlValue& constraint : constraints.elements("joint_constraints")) {
    const YamlValue name = constraint.get("joint_name");
    if (!goal.joints.emplace(name.text(), constraint.get("position").number()).second) {
      name.fail("joint " + Quoted(name.text()) + " again", "one position for each joint");
    }
    const auto tolerance = [&](const char* key) {
      const std::optional<YamlValue> value = constraint.find(key);
      if (value && value->number() < 0.0) {
        value->fail("a tolerance that is not negative");
      }
      return value ? value->number() : 0.0;
    };
    const std::pair tolerances(tolerance("tolerance_below"), tolerance("tolerance_above"));
    if (tolerances.first > 0.0 || tolerances.second > 0.0) {
      goal.joint_tolerances.emplace(name.text(), tolerances);
    }
  }
  for (const YamlValue& constraint : constraints.elements("position_constraints")) {
    goal.positions.push_back(ReadPositionTarget(constraint));
  }
  for (const YamlValue& constraint : constraints.elements("orientation_constraints")) {
    goal.orientations.push_back(ReadOrientationTarget(constraint));
  }
  if (const auto found = constraints.elements("visibility_constraints"); !found.empty()) {
    unhonoured.push_back(
        found.front().unhonoured(Kind::kVisibilityConstraints, "a visibility constraint of a goal"));
  }
  if (goal.joints.empty() && goal.positions.empty() && goal.orientations.empty()) {
    constraints.fail("a goal without them",
                     "`joint_constraints`, `position_constraints` or `orientation_constraints`");
  }
  return goal;
}

// Whether a message of constraints constrains anything.
bool IsConstraining(const YamlValue& constraints) {
  const std::array<const char*, 4> kinds = {"joint_constraints", "position_constraints",
                                            "orientation_constraints", "visibility_constraints"};
  return std::any_of(kinds.begin(), kinds.end(),
                     [&](const char* kind) { return !constraints.elements(kind).empty(); });
}

void FindPathConstraints(const YamlValue& root, std::vector<Unhonoured>& unhonoured) {
  if (const auto constraints = root.find("path_constraints"); constraints && IsConstraining(*constraints)) {
    unhonoured.push_back(constraints->unhonoured(Kind::kPathConstraints, "constraints on the path"));
  }
  const std::optional<YamlValue> trajectory = root.find("trajectory_constraints");
  for (const YamlValue& constraints :
       trajectory ? trajectory->elements("constraints") : std::vector<YamlValue>()) {
    if (IsConstraining(constraints)) {
      unhonoured.push_back(
          constraints.unhonoured(Kind::kTrajectoryConstraints, "constraints on the trajectory"));
    }
  }
}

void ReadEffort(const YamlValue& root, Request& request) {
  // Zero stands for a value that was not set.
  if (const std::optional<YamlValue> time = root.find("allowed_planning_time")) {
    if (const double seconds = time->number(); seconds < 0.0) {
      time->fail("seconds");
    } else if (seconds > 0.0) {
      request.allowed_planning_time = seconds;
    }
  }
  request.velocity_scaling = ReadScaling(root, "max_velocity_scaling_factor");
  request.acceleration_scaling = ReadScaling(root, "max_acceleration_scaling_factor");
  if (const std::optional<YamlValue> attempts = root.find("num_planning_attempts")) {
    const double number = attempts->number();
    if (number != std::floor(number) || number < 0.0 || number > 1e6) {
      attempts->fail("a number of attempts from 0 to 1000000");
    }
    request.num_planning_attempts = std::max(static_cast<int>(number), 1);
  }
}

}  // namespace

Request ReadRequest(const std::string& file, const SceneFileOptions& options) {
  return ParseRequest(ReadTextFile(file, kMaxYamlSize), file, options);
}

Request ParseRequest(const std::string& text, const std::string& file, const SceneFileOptions& options) {
  const YamlValue root(text, file);
  Request request;
  request.file = file;
  std::set<std::string> said;
  root.warnOfOtherKeys(
      {"group_name", "start_state", "goal_constraints", "path_constraints", "trajectory_constraints",
       "reference_trajectories", "workspace_parameters", "pipeline_id", "planner_id", "num_planning_attempts",
       "allowed_planning_time", "max_velocity_scaling_factor", "max_acceleration_scaling_factor",
       "cartesian_speed_end_effector_link", "cartesian_speed_limited_link", "max_cartesian_speed"},
      "a request", said);
  if (const std::optional<YamlValue> group = root.find("group_name")) {
    request.group_name = group->text();
  }
  const std::optional<YamlValue> start = root.find("start_state");
  if (start) {
    request.start = ReadJointState(*start);
    request.base_pose = ReadBasePose(*start);
    request.attached =
        SceneObjectReader({}, request.base_pose.value_or(Pose3()), options).readAttached(*start);
  }
  const std::optional<YamlValue> goals = root.find("goal_constraints");
  if (!start && !goals) {
    root.fail("neither of them", "`start_state` or `goal_constraints`");
  }
  for (const YamlValue& constraints : root.elements("goal_constraints")) {
    request.goals.push_back(ReadGoal(constraints, request.unhonoured));
  }
  FindPathConstraints(root, request.unhonoured);
  ReadEffort(root, request);
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
