// kavo info: what the robot is, and what can be set.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "apps/kavo/command.h"
#include "apps/kavo/parameters.h"
#include "apps/kavo/reach.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/text.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"

namespace kavo::command {

namespace {

struct InfoOptions {
  RobotOptions robot;
  bool parameters = false;
};

void PrintJoints(const RobotDescription& robot) {
  const auto limits = ExtractJointLimits(&robot);
  const Eigen::VectorXd default_configuration = robot.defaultCSpaceConfiguration();
  std::vector<std::vector<std::string>> rows = {{"joint", "lower", "upper", "default"}};
  for (std::size_t i = 0; i < limits.size(); ++i) {
    const bool is_unlimited = limits[i].isUnlimited();
    rows.push_back({Printable(robot.cSpaceCoordName(i)), is_unlimited ? "none" : Number(limits[i].min),
                    is_unlimited ? "none" : Number(limits[i].max),
                    Number(default_configuration[static_cast<Eigen::Index>(i)])});
  }
  std::cout << Table(rows);
}

void PrintFrames(const RobotDescription& robot) {
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(robot);
  std::vector<std::vector<std::string>> rows = {{"frame", "spheres"}};
  std::size_t num_spheres = 0;
  const auto kinematics = robot.kinematics();
  for (const std::string& frame : kinematics->frameNames()) {
    const std::size_t count = description.collisionSpheres(frame).size();
    num_spheres += count;
    rows.push_back({Printable(frame), count == 0 ? "-" : std::to_string(count)});
  }
  std::cout << "\n" << Table(rows) << "collision spheres: " << num_spheres << "\n";
  const auto& pairs = description.collisionPairs();
  std::cout << "pairs of frames that must not touch each other: " << pairs.size() << "\n";
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

void PrintParameters(const std::shared_ptr<RobotDescription>& robot) {
  const planning::MotionPlannerConfig config(robot);
  for (const Parameter& parameter : planning::Parameters()) {
    std::cout << parameter.name << "\n  " << TypeName(parameter.type)
              << "; default: " << ToText(parameter.value(config)) << "\n  " << parameter.meaning << "\n";
  }
}

int Info(const InfoOptions& options) {
  const std::shared_ptr<const formats::LoadedRobot> made = options.robot.Load().Make({});
  const formats::LoadedRobot& robot = *made;
  if (options.parameters) {
    PrintParameters(robot.description);
    return kDone;
  }
  std::cout << "robot '" << Printable(robot.name) << "'\n\n";
  PrintJoints(*robot.description);
  PrintFrames(*robot.description);
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
  return kDone;
}

}  // namespace

void AddInfoCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* info =
      app.add_subcommand("info", "Show a robot: joints, frames, spheres, reach; or all settings");
  options->robot.AddOptions(*info);
  info->get_option("--robot")->required(false)->default_str("franka");
  info->add_flag("--params", options->parameters,
                 "Show the run-time parameters that --set takes, with type, default and meaning");
  info->footer(
      "Examples, with the files of the source tree:\n"
      "  kavo info --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf --group arm\n"
      "  kavo info --params");
  info->callback([options, &run] { run = [options] { return Info(*options); }; });
}

}  // namespace kavo::command
