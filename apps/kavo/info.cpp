// kavo info: what the robot is, and what can be set.

#include <CLI/CLI.hpp>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/command.h"
#include "apps/kavo/parameters.h"
#include "apps/kavo/reach.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/scene_options.h"
#include "apps/kavo/situations.h"
#include "apps/kavo/text.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"

namespace kavo::command {

namespace {

struct InfoOptions {
  RobotOptions robot;
  SceneOptions scene;
  std::string at;
  bool parameters = false;
};

// Of each coordinate, by how its joint moves.
std::vector<std::string> JointTypes(const RobotDescriptionInternal& robot) {
  const auto& model = robot.model();
  std::vector<int> frames(model.frameNames().size());
  std::iota(frames.begin(), frames.end(), 0);
  std::vector<std::string> types(robot.numCSpaceCoords());
  for (const auto& step : model.plan(frames).steps) {
    const auto coordinate = static_cast<std::size_t>(step.coordinate);
    if (!step.ratio) {
      types[coordinate] = step.motion == kinematics::Kinematics::Motion::kPrismatic ? "prismatic"
                          : robot.jointLimits()[coordinate].isUnlimited()           ? "continuous"
                                                                                    : "revolute";
    }
  }
  return types;
}

void PrintJoints(const RobotDescriptionInternal& robot) {
  const std::vector<kinematics::JointLimits>& limits = robot.jointLimits();
  const std::vector<std::string> types = JointTypes(robot);
  const Eigen::VectorXd default_configuration = robot.defaultCSpaceConfiguration();
  std::vector<std::vector<std::string>> rows = {{"joint", "type", "lower", "upper", "default"}};
  for (std::size_t i = 0; i < limits.size(); ++i) {
    const bool is_unlimited = limits[i].isUnlimited();
    rows.push_back({Printable(robot.cSpaceCoordName(i)), types[i],
                    is_unlimited ? "none" : Number(limits[i].min),
                    is_unlimited ? "none" : Number(limits[i].max),
                    Number(default_configuration[static_cast<Eigen::Index>(i)])});
  }
  std::cout << Table(rows);
}

// The spheres of a frame in its own coordinates: how many, and the radii of the smallest and the largest.
std::vector<std::string> SphereCells(const std::vector<math::Sphere>& spheres) {
  if (spheres.empty()) {
    return {"-", "-", "-"};
  }
  const auto [smallest, largest] = std::minmax_element(
      spheres.begin(), spheres.end(), [](const auto& a, const auto& b) { return a.radius < b.radius; });
  return {std::to_string(spheres.size()), Number(smallest->radius, 3), Number(largest->radius, 3)};
}

void PrintFrames(const RobotDescriptionInternal& robot, const std::optional<Eigen::VectorXd>& at) {
  std::vector<std::vector<std::string>> rows = {{"frame", "spheres", "radius from", "to"}};
  if (at) {
    rows[0].insert(rows[0].end(), {"x", "y", "z", "qx", "qy", "qz", "qw"});
  }
  std::size_t num_spheres = 0;
  Eigen::AlignedBox3d bounds;
  const auto kinematics = robot.kinematics();
  const Eigen::VectorXd q = at.value_or(robot.defaultCSpaceConfiguration());
  for (const std::string& frame : kinematics->frameNames()) {
    const std::vector<math::Sphere> spheres = robot.collision().spheresOf(frame);
    const Pose3 pose = kinematics->pose(q, kinematics->frame(frame));
    num_spheres += spheres.size();
    for (const math::Sphere& sphere : spheres) {
      const Eigen::Vector3d center = pose * sphere.center;
      bounds.extend(center - Eigen::Vector3d::Constant(sphere.radius));
      bounds.extend(center + Eigen::Vector3d::Constant(sphere.radius));
    }
    std::vector<std::string> row = {Printable(frame)};
    const std::vector<std::string> cells = SphereCells(spheres);
    row.insert(row.end(), cells.begin(), cells.end());
    if (at) {
      const Eigen::Quaterniond rotation = pose.rotation();
      for (const double number : {pose.translation().x(), pose.translation().y(), pose.translation().z(),
                                  rotation.x(), rotation.y(), rotation.z(), rotation.w()}) {
        row.push_back(Number(std::fabs(number) < 1e-12 ? 0.0 : number, 5));
      }
    }
    rows.push_back(row);
  }
  std::cout << "\n" << Table(rows) << "collision spheres: " << num_spheres;
  if (num_spheres > 0) {
    const Eigen::Vector3d size = bounds.sizes();
    std::cout << ", together " << Number(size.x(), 4) << " x " << Number(size.y(), 4) << " x "
              << Number(size.z(), 4) << " m at " << (at ? "that configuration" : "the default configuration");
  }
  const auto& pairs = robot.collision().pairs;
  std::cout << "\npairs of frames that must not touch each other: " << pairs.size() << "\n";
  for (const auto& [frame_a, frame_b] : pairs) {
    std::cout << "  " << Printable(frame_a) << " " << Printable(frame_b) << "\n";
  }
}

void PrintReach(const RobotDescription& robot, const std::string& frame) {
  const Reach reach = FindReach(robot, frame);
  std::cout << "reach of frame '" << Printable(frame) << "', from the first joint at "
            << Configuration(reach.center) << ": no more than " << Number(reach.distance, 4)
            << " m; farthest of many random configurations "
            << Number(SampleReach(robot, frame, reach.center), 4) << " m\n";
}

std::vector<std::string> PartCells(const std::string& name, const std::string& frame,
                                   const formats::SceneObject::Part& part) {
  const Eigen::Vector3d& at = part.pose.translation();
  return {Printable(name),   KindOf(part.shape), SizeText(part.shape), Printable(frame),
          Number(at.x(), 5), Number(at.y(), 5),  Number(at.z(), 5)};
}

void PrintScene(const formats::Scene& scene) {
  std::cout << "\n" << scene.file << ":\n";
  std::vector<std::vector<std::string>> rows = {{"object", "shape", "size", "frame", "x", "y", "z"}};
  for (const formats::SceneObject& object : scene.objects) {
    for (const formats::SceneObject::Part& part : object.parts) {
      rows.push_back(PartCells(object.id, object.frame.empty() ? "world" : object.frame, part));
    }
  }
  for (const formats::AttachedObject& attached : scene.attached) {
    for (const formats::SceneObject::Part& part : attached.object.parts) {
      rows.push_back(PartCells(attached.object.id,
                               attached.object.frame.empty() ? "world" : attached.object.frame, part));
    }
  }
  std::cout << Table(rows);
  for (const formats::Unhonoured& unhonoured : scene.unhonoured) {
    std::cout << "not honoured: " << Printable(ToText(unhonoured)) << "\n";
  }
}

// What the robot holds, what it may touch and how far it has to stay away, as the scenes and options say.
void PrintRules(const RobotDescription& robot) {
  const auto& collision = dynamic_cast<const RobotDescriptionInternal&>(robot).collision();
  for (const AttachedBody& body : AttachedBodies(robot)) {
    std::cout << "'" << Printable(body.name) << "' is held by '" << Printable(body.frame) << "', as "
              << collision.spheresOf(body.name).size() << " spheres\n";
  }
  const std::vector<std::string> frames = robot.kinematics()->frameNames();
  for (const std::string& frame : frames) {
    if (const std::vector<std::string> names = collision.allowedObstaclesOf(frame); !names.empty()) {
      std::cout << "'" << Printable(frame) << "' may touch " << JoinQuoted(names) << "\n";
    }
  }
  for (const std::string& frame : frames) {
    if (const double padding = collision.paddingOf(frame); padding > 0.0) {
      std::cout << "'" << Printable(frame) << "' stays " << Distance(padding) << " away from obstacles\n";
    }
  }
  std::cout << "pairs of frames that must not touch each other among these: " << collision.pairs.size()
            << "\n";
}

void PrintSituation(const RobotModel& robot, const SceneOptions& scene) {
  const InputRules rules;
  try {
    const Situation situation = Situations(robot, rules, scene).Read(scene.SceneFiles(), nullptr);
    PrintRules(*situation.robot->description);
    for (const ObstacleHandle obstacle : situation.world.obstacles()) {
      if (const double padding = situation.world.padding(obstacle); padding > 0.0) {
        std::cout << "obstacle '" << Printable(situation.world.name(obstacle)) << "' is " << Distance(padding)
                  << " larger all around\n";
      }
    }
  } catch (const UnusableInput& unusable) {
    std::cout << "cannot be planned for as it stands: " << unusable.what() << "\n";
  }
}

void PrintScenes(const SceneOptions& options, const formats::PackageFolders& packages) {
  std::set<std::string> names;
  for (const std::string& file : options.SceneFiles()) {
    const formats::Scene scene = formats::ReadScene(file, options.FileOptions(packages));
    for (const formats::SceneObject& object : scene.objects) {
      names.insert(object.id);
    }
    PrintScene(scene);
  }
  if (const formats::Scene obstacles = options.Obstacles(std::move(names)); !obstacles.objects.empty()) {
    PrintScene(obstacles);
  }
}

void PrintParameters(const std::shared_ptr<RobotDescription>& robot) {
  const planning::MotionPlannerConfig config = CommandDefaults(robot);
  for (const Parameter& parameter : planning::Parameters()) {
    std::cout << parameter.name << "\n  " << TypeName(parameter.type)
              << "; default: " << ToText(parameter.value(config)) << "\n  " << parameter.meaning << "\n";
  }
}

int Info(const InfoOptions& options) {
  RobotModel model = options.robot.Load(true);
  const std::shared_ptr<const formats::LoadedRobot> made = model.Make({});
  const formats::LoadedRobot& robot = *made;
  if (options.parameters) {
    PrintParameters(robot.description);
    return kDone;
  }
  std::cout << "robot '" << Printable(robot.name) << "'\n\n";
  std::optional<Eigen::VectorXd> at;
  if (!options.at.empty()) {
    at = ParseConfiguration("--at", options.at, robot);
  }
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(*robot.description);
  PrintJoints(description);
  PrintFrames(description, at);
  if (const std::string table = LinkShapeTable(robot, false); !table.empty()) {
    std::cout << "\n" << table;
  }
  PrintReach(*robot.description, robot.tip_frame);
  for (const auto& [name, q] : robot.named_configurations) {
    std::cout << "configuration '" << Printable(name) << "': " << Configuration(q) << "\n";
  }
  for (const auto& end_effector : robot.end_effectors) {
    std::cout << "end effector '" << Printable(end_effector.name) << "' on link '"
              << Printable(end_effector.parent_link) << "'\n";
  }
  for (const auto& link : robot.uncovered_links) {
    std::cout << "not covered by spheres: link '" << Printable(link.name) << "' (" << link.kind << ")\n";
  }
  PrintScenes(options.scene, options.robot.Packages());
  if (!options.scene.IsEmpty()) {
    std::cout << "\nrobot '" << Printable(robot.name) << "' among these:\n";
    PrintSituation(model, options.scene);
  }
  return kDone;
}

}  // namespace

void AddInfoCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* info = app.add_subcommand(
      "info", "Show a robot: joints, frames, spheres, reach; what stands around it; or all settings");
  options->robot.AddOptions(*info);
  info->get_option("--robot")->required(false)->default_str("franka");
  options->scene.AddOptions(*info);
  info->add_option("--at", options->at,
                   "Show where the frames are at this configuration, relative to the robot's base: metres, "
                   "quaternions")
      ->type_name("Q|NAME");
  info->add_flag("--params", options->parameters,
                 "Show the run-time parameters that --set takes, with type, default and meaning");
  info->footer(
      "Examples, with the files of the source tree:\n"
      "  kavo info --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf --group arm\n"
      "  kavo info --robot franka --at default\n"
      "  kavo info --scene examples/scene.yaml --obstacle cone:0.1,0.3@0.4,0.4,0.15\n"
      "  kavo info --params");
  info->callback([options, &run] { run = [options] { return Info(*options); }; });
}

}  // namespace kavo::command
