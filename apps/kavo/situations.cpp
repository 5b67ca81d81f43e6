#include "apps/kavo/situations.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <set>
#include <stdexcept>
#include <utility>

#include "apps/kavo/command.h"
#include "apps/kavo/text.h"
#include "kavo/formats/request_goal.h"
#include "kavo/formats/robot_in_scene.h"
#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/world/shapes/cut_out.h"

namespace kavo::command {

namespace {

using Other = formats::LoadedRobot::OtherJoint;

std::optional<std::size_t> CoordinateOf(const RobotDescription& robot, const std::string& joint) {
  for (std::size_t i = 0; i < robot.numCSpaceCoords(); ++i) {
    if (robot.cSpaceCoordName(i) == joint) {
      return i;
    }
  }
  return std::nullopt;
}

// Whether a joint that is not planned for stands where a file wants it, as far as files round.
bool IsThere(double wanted, double value) { return std::fabs(wanted - value) <= 1e-4; }

// What files its objects and those that it attaches came from, beside its own.
void AddMeshFiles(const std::vector<formats::SceneObject>& objects,
                  const std::vector<formats::AttachedObject>& attached, std::vector<std::string>& files) {
  const auto add = [&files](const formats::SceneObject& object) {
    files.insert(files.end(), object.mesh_files.begin(), object.mesh_files.end());
  };
  for (const formats::SceneObject& object : objects) {
    add(object);
  }
  for (const formats::AttachedObject& held : attached) {
    add(held.object);
  }
}

std::string Quoted(const std::string& name) { return "'" + Printable(name) + "'"; }

// The spheres of the robot, larger by its paddings and a margin, relative to its base.
std::vector<math::Sphere> SpheresAt(const RobotDescription& robot, const Eigen::VectorXd& q, double margin) {
  const CollisionModel& collision = dynamic_cast<const RobotDescriptionInternal&>(robot).collision();
  const std::unique_ptr<Kinematics> kinematics = robot.kinematics();
  std::vector<math::Sphere> all;
  for (const std::string& frame : collision.frames) {
    const Pose3 pose = kinematics->pose(q, kinematics->frame(frame));
    for (const math::Sphere& sphere : collision.spheresOf(frame)) {
      all.push_back({pose * sphere.center, sphere.radius + collision.paddingOf(frame) + margin});
    }
  }
  return all;
}

}  // namespace

void Situations::CheckNames(const std::string& file, const JointValues& joints) {
  const std::shared_ptr<const formats::LoadedRobot> robot = robot_.Make({});
  for (const auto& [name, value] : joints) {
    if (CoordinateOf(*robot->description, name)) {
      continue;
    }
    const auto other = robot->other_joints.find(name);
    if (other == robot->other_joints.end()) {
      throw UnusableInput(file + ": found a value for joint " + Quoted(name) +
                          ", which the robot does not have, expected joints of its URDF or SRDF");
    }
    if (other->second.kind == Other::Kind::kFixed || other->second.kind == Other::Kind::kVirtual) {
      notes_.Say("values of joint " + Quoted(name) + ", which is " +
                 (other->second.kind == Other::Kind::kFixed ? "fixed" : "virtual") + ", are passed over");
    }
  }
}

void Situations::CheckFollowers(const std::string& what, const JointValues& joints,
                                const formats::LoadedRobot& robot, const Eigen::VectorXd& q) {
  for (const auto& [name, value] : joints) {
    const auto other = robot.other_joints.find(name);
    if (other == robot.other_joints.end() || other->second.kind != Other::Kind::kFollower) {
      continue;
    }
    if (const double followed = other->second.value(q); !IsThere(value, followed)) {
      notes_.Say("joint " + Quoted(name) + " is at " + Number(value) + " by " + what +
                 ", but mimics another one and stands at " + Number(followed));
    }
  }
}

void Situations::CheckHeld(const std::string& file, const JointValues& joints,
                           const formats::LoadedRobot& robot) {
  for (const auto& [name, value] : joints) {
    const auto other = robot.other_joints.find(name);
    if (other != robot.other_joints.end() && other->second.kind == Other::Kind::kHeld &&
        !IsThere(value, other->second.offset)) {
      throw UnusableInput(file + ": found a goal with joint " + Quoted(name) + " at " + Number(value) +
                          ", which is not planned for and stands at " + Number(other->second.offset));
    }
  }
}

void Situations::CheckState(const JointValues& state, const formats::LoadedRobot& robot,
                            const Eigen::VectorXd& start) {
  CheckFollowers("the state", state, robot, start);
  for (const auto& [name, joint] : robot.other_joints) {
    const double beyond = std::max(joint.limits.min - joint.offset, joint.offset - joint.limits.max);
    if (joint.kind == Other::Kind::kHeld && beyond > rules_.LimitTolerance()) {
      notes_.Say("joint " + Quoted(name) + ", which is not planned for, stands at " + Number(joint.offset) +
                 ", outside its limits " + Number(joint.limits.min) + " and " + Number(joint.limits.max));
    }
  }
}

std::optional<Pose3> Situations::FindFrame(const std::string& frame, const std::string& what,
                                           const Situation& situation) {
  if (const auto& srdf = situation.robot->srdf) {
    const auto starts_here = [&](const auto& joint) { return joint.parent_frame == frame; };
    if (std::any_of(srdf->virtual_joints.begin(), srdf->virtual_joints.end(), starts_here)) {
      return situation.base_pose.inverse();
    }
  }
  const std::unique_ptr<Kinematics> kinematics = situation.robot->description->kinematics();
  const std::vector<std::string> names = kinematics->frameNames();
  if (std::find(names.begin(), names.end(), frame) == names.end()) {
    return std::nullopt;
  }
  // All descriptions come with this kind of model.
  const auto& model = dynamic_cast<const KinematicsInternal&>(*kinematics).model();
  if (!model.plan({model.frame(frame)}).steps.empty()) {
    notes_.Say(what + " is given in frame " + Quoted(frame) +
               ", which moves with the joints that are planned for: it is placed where that is at the start");
  }
  return kinematics->pose(situation.start, kinematics->frame(frame));
}

void Situations::CutOutRobot(double margin, const formats::FramePoses& frames, const Situation& situation,
                             formats::Scene& scene) {
  const std::vector<math::Sphere> spheres = SpheresAt(*situation.robot->description, situation.start, margin);
  for (formats::SceneObject& object : scene.objects) {
    const Pose3 base_from_object =
        object.frame.empty() ? situation.base_pose.inverse() : frames.at(object.frame);
    std::vector<formats::SceneObject::Part> left;
    for (formats::SceneObject::Part& part : object.parts) {
      std::vector<math::Sphere> of_part = spheres;
      const Pose3 part_from_base = (base_from_object * part.pose).inverse();
      for (math::Sphere& sphere : of_part) {
        sphere.center = part_from_base * sphere.center;
      }
      bool is_left = true;
      std::string cut;
      if (auto* obstacle = std::get_if<PointCloudObstacle>(&part.shape)) {
        RemainingPoints remaining = CutOut(obstacle->cloud, of_part);
        cut = std::to_string(remaining.num_cut) + " of " + std::to_string(obstacle->cloud->points().size()) +
              " points";
        is_left = remaining.cloud != nullptr;
        obstacle->cloud = std::move(remaining.cloud);
      } else if (auto* octomap = std::get_if<OctreeObstacle>(&part.shape)) {
        RemainingCells remaining = CutOut(octomap->octree, of_part);
        cut = std::to_string(remaining.num_cut) + " of the smallest cells";
        is_left = remaining.octree != nullptr;
        octomap->octree = std::move(remaining.octree);
      }
      if (!cut.empty()) {
        notes_.Say(cut + " of object " + Quoted(object.id) + " are where the robot is at the start, " +
                   Distance(margin) + " around it, and are cut out");
      }
      if (is_left) {
        left.push_back(std::move(part));
      }
    }
    object.parts = std::move(left);
  }
}

// What a request attaches goes before what scenes do, and is in none of them.
void Situations::TakeAttached(const formats::Request& request, std::vector<formats::Scene>& scenes) {
  std::vector<formats::AttachedObject> attached = request.attached;
  for (formats::Scene& scene : scenes) {
    formats::TakeAttached(scene, attached);
    const auto is_held = [&](const formats::AttachedObject& by_scene) {
      return std::any_of(attached.begin(), attached.end(), [&](const formats::AttachedObject& by_request) {
        return by_request.object.id == by_scene.object.id;
      });
    };
    scene.attached.erase(std::remove_if(scene.attached.begin(), scene.attached.end(), is_held),
                         scene.attached.end());
  }
  formats::Scene of_request;
  of_request.file = request.file;
  of_request.base_pose = scenes.back().base_pose;
  of_request.attached = std::move(attached);
  scenes.push_back(std::move(of_request));
}

// The robot holding what the scenes and the options attach, under the rules of the scenes.
std::shared_ptr<RobotDescription> Situations::Attach(const std::vector<formats::Scene>& scenes,
                                                     Situation& situation) {
  std::shared_ptr<RobotDescription> robot = situation.robot->description;
  std::set<std::string> names;
  for (const formats::Scene& scene : scenes) {
    for (const formats::SceneObject& object : scene.objects) {
      names.insert(object.id);
    }
  }
  for (const formats::Scene& scene : scenes) {
    for (const formats::AttachedObject& attached : scene.attached) {
      // A frame of the robot is known to whoever places the object, and of no interest after that.
      const std::string& frame = attached.object.frame;
      const std::vector<std::string> own = robot->kinematics()->frameNames();
      formats::FramePoses frames;
      if (!frame.empty() && std::find(own.begin(), own.end(), frame) == own.end()) {
        if (const auto pose = FindFrame(frame, "object " + Quoted(attached.object.id), situation)) {
          frames[frame] = *pose;
        }
      }
      if (!names.insert(attached.object.id).second) {
        throw UnusableInput(scene.file + ": found object " + Quoted(attached.object.id) +
                            " attached to link " + Quoted(attached.link) +
                            ", whose name something else has, expected another name");
      }
      situation.held.push_back(
          PlaceAttached(attached, *robot, situation.start, scene.file, situation.base_pose, frames));
      robot = WithAttached(*robot, CoverObject(situation.held.back()));
    }
  }
  robot = scene_.Contacts().Attach(robot, scene_.Shapes(), names, situation.held);
  for (const formats::Scene& scene : scenes) {
    robot = WithSceneRules(*situation.robot, *robot, scene);
  }
  return robot;
}

void Situations::PlaceObjects(std::vector<formats::Scene>& scenes, Situation& situation) {
  using Kind = formats::Unhonoured::Kind;
  std::vector<formats::Unhonoured> unhonoured;
  for (formats::Scene& scene : scenes) {
    formats::FramePoses frames;
    for (const formats::SceneObject& object : scene.objects) {
      if (object.frame.empty() || object.parts.empty() || frames.count(object.frame) != 0) {
        continue;
      }
      const std::string what = "object " + Quoted(object.id);
      if (const std::optional<Pose3> pose = FindFrame(object.frame, what, situation)) {
        frames[object.frame] = *pose;
      } else {
        unhonoured.push_back({Kind::kUnknownFrames, what + " in an unknown frame " + Quoted(object.frame),
                              scene.file, object.line});
        frames[object.frame] = situation.base_pose.inverse();
      }
    }
    unhonoured.insert(unhonoured.end(), scene.unhonoured.begin(), scene.unhonoured.end());
    rules_.Admit(unhonoured, situation.scope);
    if (scene_.CutMargin()) {
      CutOutRobot(*scene_.CutMargin(), frames, situation, scene);
    }
    AddToWorld(scene, situation.world, frames);
  }
}

Situation Situations::Read(const std::vector<std::string>& scene_files, const formats::Request* request,
                           const std::optional<Eigen::VectorXd>& start) {
  Situation situation;
  JointValues state;
  if (request != nullptr) {
    CheckNames(request->file, request->start);
    if (const std::string& group = robot_.Group();
        !group.empty() && !request->group_name.empty() && request->group_name != group) {
      notes_.Say("the request is for group " + Quoted(request->group_name) + ", planned is group " +
                 Quoted(group));
    }
    state = request->start;
    AddMeshFiles({}, request->attached, situation.mesh_files);
    rules_.Admit(request->unhonoured, situation.scope);
  }
  std::vector<formats::Scene> scenes;
  std::set<std::string> names;
  for (const std::string& file : scene_files) {
    scenes.push_back(formats::ReadScene(file, scene_.FileOptions(robot_.Packages())));
    formats::Scene& scene = scenes.back();
    AddMeshFiles(scene.objects, scene.attached, situation.mesh_files);
    CheckNames(file, scene.joint_state);
    state.insert(scene.joint_state.begin(), scene.joint_state.end());
    situation.base_pose = scene.base_pose;
    for (const formats::SceneObject& object : scene.objects) {
      names.insert(object.id);
    }
  }
  scenes.push_back(scene_.Obstacles(std::move(names)));
  scenes.back().base_pose = situation.base_pose;
  if (request != nullptr && request->base_pose) {
    situation.base_pose = *request->base_pose;
    for (formats::Scene& scene : scenes) {
      scene.base_pose = *request->base_pose;
    }
  }
  situation.robot = robot_.Make(state);
  const RobotDescription& description = *situation.robot->description;
  situation.start =
      start ? *start
            : formats::ConfigurationFromJoints(description, state, description.defaultCSpaceConfiguration());
  rules_.PutOnLimits(description, "the start", situation.start, notes_);
  CheckState(state, *situation.robot, situation.start);
  if (request != nullptr) {
    TakeAttached(*request, scenes);
  }
  auto robot = std::make_shared<formats::LoadedRobot>(*situation.robot);
  robot->description = Attach(scenes, situation);
  situation.robot = robot;
  PlaceObjects(scenes, situation);
  robot->description = scene_.Contacts().Apply(robot->description, situation.world);
  rules_.Admit(*robot, situation.scope);
  return situation;
}

template <typename Target>
Pose3 Situations::FrameOf(const Target& target, const char* kind, const std::string& file,
                          Situation& situation) {
  if (target.frame.empty()) {
    return situation.base_pose.inverse();
  }
  const std::string what = std::string("the ") + kind + " for link " + Quoted(target.link);
  if (const std::optional<Pose3> pose = FindFrame(target.frame, what, situation)) {
    return *pose;
  }
  rules_.Admit({{formats::Unhonoured::Kind::kUnknownFrames,
                 what + " in an unknown frame " + Quoted(target.frame), file, target.line}},
               situation.scope);
  return situation.base_pose.inverse();
}

Goal Situations::GoalOf(const formats::Request& request, const formats::Request::Goal& goal,
                        Situation& situation) {
  const formats::LoadedRobot& robot = *situation.robot;
  formats::FramePoses frames;
  for (const formats::Request::PositionTarget& target : goal.positions) {
    frames[target.frame] = FrameOf(target, "position", request.file, situation);
  }
  for (const formats::Request::OrientationTarget& target : goal.orientations) {
    frames[target.frame] = FrameOf(target, "orientation", request.file, situation);
  }
  const bool has_joints_alone = goal.positions.empty() && goal.orientations.empty();
  if (has_joints_alone) {
    CheckNames(request.file, goal.joints);
    CheckHeld(request.file, goal.joints, robot);
  }
  Goal result = [&] {
    try {
      return formats::GoalOf(goal, *robot.description, situation.start, frames);
    } catch (const std::invalid_argument& fault) {
      throw UnusableInput(request.file + ": " + fault.what());
    }
  }();
  if (has_joints_alone) {
    auto* const range = std::get_if<ConfigurationGoal>(&result);
    Eigen::VectorXd& target = range != nullptr ? range->configuration : std::get<Eigen::VectorXd>(result);
    rules_.PutOnLimits(*robot.description, "the goal", target, notes_);
    CheckFollowers("the goal", goal.joints, robot, target);
  }
  return result;
}

std::vector<Goal> Situations::GoalsOf(const formats::Request& request, Situation& situation) {
  std::vector<Goal> goals;
  for (const formats::Request::Goal& goal : request.goals) {
    goals.push_back(GoalOf(request, goal, situation));
  }
  if (goals.empty()) {
    throw UnusableInput(request.file + ": found no goal, expected at least one");
  }
  return goals;
}

}  // namespace kavo::command
