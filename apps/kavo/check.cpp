// kavo check: looks at a path that is already there.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/input_rules.h"
#include "apps/kavo/interrupt.h"
#include "apps/kavo/path_checking.h"
#include "apps/kavo/progress.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/scene_options.h"
#include "apps/kavo/situation.h"
#include "apps/kavo/text.h"
#include "kavo/formats/result_file.h"

namespace kavo::command {

namespace {

struct CheckOptions {
  RobotOptions robot;
  SceneOptions scene;
  InputRules rules;
  std::string path_file;
  std::optional<std::size_t> run;
  double step_size = 0.01;
  bool proves = false;
};

// The configurations with their coordinates in the order of the robot's.
std::vector<Eigen::VectorXd> ForRobot(const formats::PathFile& file, const RobotDescription& robot) {
  const std::vector<std::string> joints = JointNames(robot);
  const std::vector<std::string>& names = file.joint_names;
  const auto num_coordinates = static_cast<std::size_t>(file.configurations.front().size());
  if (num_coordinates != joints.size() ||
      (!names.empty() && !std::is_permutation(names.begin(), names.end(), joints.begin(), joints.end()))) {
    throw UnusableInput(
        "the path is for " +
        (names.empty() ? std::to_string(num_coordinates) + " joints" : "the joints " + Join(names, ",")) +
        ", the robot has " + Join(joints, ","));
  }
  if (names.empty()) {
    return file.configurations;
  }
  std::vector<Eigen::VectorXd> path;
  for (const Eigen::VectorXd& from : file.configurations) {
    Eigen::VectorXd q(from.size());
    for (std::size_t i = 0; i < joints.size(); ++i) {
      const auto column = std::find(names.begin(), names.end(), joints[i]) - names.begin();
      q[static_cast<Eigen::Index>(i)] = from[column];
    }
    path.push_back(q);
  }
  return path;
}

int Check(const CheckOptions& options) {
  const std::string file = options.path_file == "-" ? "/dev/stdin" : options.path_file;
  Situations situations(options.robot.Load(options.rules.AllowsUncovered()), options.rules, options.scene);
  const formats::PathFile path_file = formats::ReadPath(file, options.run);
  std::vector<Eigen::VectorXd> path = ForRobot(path_file, *situations.Robot().description);
  // A plan says where the joints stood that it does not move.
  formats::Request stood;
  stood.file = file;
  stood.start = path_file.held_joints;
  const Situation situation = situations.Read(options.scene.SceneFiles(), &stood, path.front());
  const RobotDescription& robot = *situation.robot->description;
  for (Eigen::VectorXd& q : path) {
    options.rules.PutOnLimits(robot, "a waypoint", q, situations.GetNotes());
  }
  constexpr double kMostConfigurations = 1e8;
  const double length = Length(path);
  if (!options.proves && length > kMostConfigurations * options.step_size) {
    throw UnusableInput("--step " + Number(options.step_size) + ": a path of length " + Number(length, 4) +
                        " would be looked at at more than " + Number(kMostConfigurations) +
                        " configurations, expected a larger step");
  }
  const Stoppable stoppable;
  Progress progress(false);
  const CheckedPath checked =
      CheckAlong(path, situation, options.proves ? std::nullopt : std::optional(options.step_size), progress);
  std::cout << HeldJointsText(*situation.robot) << path.size() << " waypoints, length " << Number(length, 4)
            << ": " << checked.text;
  return checked.record.passed ? kDone : kNoPath;
}

}  // namespace

void AddCheckCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* check = app.add_subcommand("check", "Check a path: limits, collisions, clearance");
  options->robot.AddOptions(*check);
  options->scene.AddOptions(*check);
  options->rules.AddOptions(*check);
  check
      ->add_option(
          "-p,--path", options->path_file,
          "The path: JSON or CSV as 'kavo plan' writes them; - is standard input. Joints may come in "
          "any order if they are named")
      ->type_name("FILE")
      ->group("Check")
      ->required();
  check
      ->add_option("--run", options->run,
                   "Of a file that 'kavo bench --json' wrote: the path of this run, counted from 0")
      ->type_name("N")
      ->group("Check");
  CLI::Option* step = check
                          ->add_option("--step", options->step_size,
                                       "Distance in c-space of the configurations that are looked at")
                          ->type_name("STEP")
                          ->group("Check")
                          ->check(CheckPositive)
                          ->capture_default_str();
  check
      ->add_flag("--prove", options->proves,
                 "Prove that nothing is touched anywhere on the path, not only at configurations some step "
                 "apart")
      ->group("Check")
      ->excludes(step);
  check->footer(
      "Looks at configurations along the path, no farther apart than the step, without anything that\n"
      "planned it: joint by joint against the limits, sphere by sphere against the obstacles. Between\n"
      "two of them an edge may still be grazed: the finer the step, the less deep. --prove leaves nothing\n"
      "between: a part of the path is free if its middle is farther from everything than the spheres can\n"
      "move within it; gaps below 0.001 mm count as contact. From one waypoint to the next every joint\n"
      "moves straight: a continuous one from 3.1 to -3.1 takes the long way. Joints that the path does\n"
      "not have stand where a plan's JSON says, else where the scene's robot state puts them, and objects\n"
      "given in the frame of a link stand where that is at the first waypoint. The exit status is 0 for a\n"
      "path that is valid or proven, 1 for one that is not, 2 for input that cannot be used.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo plan --robot franka --scene examples/scene.yaml --start default \\\n"
      "            --goal 0,0.05,0,-1.815,0,3.436,0.7854 --csv path.csv\n"
      "  kavo check --robot franka --scene examples/scene.yaml --path path.csv --prove\n"
      "  kavo plan --robot three_link --start -0.4,0.1,0.2 --goal 1.7,-0.2,-0.3 --quiet |\n"
      "    kavo check --robot three_link --path - --step 0.002");
  check->callback([options, &run] { run = [options] { return Check(*options); }; });
}

}  // namespace kavo::command
