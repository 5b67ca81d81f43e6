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
#include "apps/kavo/situations.h"
#include "apps/kavo/text.h"
#include "kavo/formats/joint_limits_file.h"
#include "kavo/formats/result_file.h"
#include "kavo/formats/trajectory_file.h"

namespace kavo::command {

namespace {

struct CheckOptions {
  RobotOptions robot;
  SceneOptions scene;
  InputRules rules;
  std::string path_file;
  std::string trajectory_file;
  std::string limits_file;
  std::optional<std::size_t> run;
  double step_size = 0.01;
  bool proves = false;
};

// The columns in which a file has the coordinates of a robot.
// \param names Empty where the file does not name them.
std::vector<Eigen::Index> ColumnsFor(const RobotDescription& robot, const std::vector<std::string>& names,
                                     std::size_t num_columns, const std::string& what) {
  const std::vector<std::string> joints = JointNames(robot);
  if (num_columns != joints.size() ||
      (!names.empty() && !std::is_permutation(names.begin(), names.end(), joints.begin(), joints.end()))) {
    throw UnusableInput(
        what + " is for " +
        (names.empty() ? std::to_string(num_columns) + " joints" : "the joints " + Join(names, ",")) +
        ", the robot has " + Join(joints, ","));
  }
  std::vector<Eigen::Index> columns;
  for (std::size_t i = 0; i < joints.size(); ++i) {
    columns.push_back(names.empty() ? static_cast<Eigen::Index>(i)
                                    : std::find(names.begin(), names.end(), joints[i]) - names.begin());
  }
  return columns;
}

std::string ReadFrom(const std::string& file) { return file == "-" ? "/dev/stdin" : file; }

// The samples for a robot: those whose times do not ascend end it, with what is wrong.
std::vector<planning::Trajectory::State> StatesOf(const formats::TrajectorySamples& samples,
                                                  const RobotDescription& robot) {
  const std::vector<Eigen::Index> columns =
      ColumnsFor(robot, samples.joint_names, samples.joint_names.size(), "the trajectory");
  std::vector<planning::Trajectory::State> states;
  for (std::size_t i = 0; i < samples.times.size(); ++i) {
    planning::Trajectory::State& state = states.emplace_back();
    state.time = samples.times[i];
    state.position = samples.positions[i](columns);
    if (!samples.velocities.empty()) {
      state.velocity = samples.velocities[i](columns);
    }
    if (!samples.accelerations.empty()) {
      state.acceleration = samples.accelerations[i](columns);
    }
  }
  return states;
}

int CheckTrajectory(const CheckOptions& options) {
  Situations situations(options.robot.Load(options.rules.AllowsUncovered()), options.rules, options.scene);
  const formats::TrajectorySamples samples = formats::ReadTrajectory(ReadFrom(options.trajectory_file));
  std::vector<planning::Trajectory::State> states = StatesOf(samples, *situations.Robot().description);
  Situation situation = situations.Read(options.scene.SceneFiles(), nullptr, states.front().position);
  const RobotDescription& robot = *situation.robot->description;
  planning::MotionLimits limits = situation.robot->motion_limits;
  if (!options.limits_file.empty()) {
    const formats::JointLimitsFile file = formats::ReadJointLimits(options.limits_file);
    options.rules.Admit(file.unhonoured, situation.scope);
    formats::TakeJointLimits(file, robot, limits);
  }
  const auto interpolation = samples.velocities.empty()      ? planning::SampleInterpolation::kLinear
                             : samples.accelerations.empty() ? planning::SampleInterpolation::kCubic
                                                             : planning::SampleInterpolation::kQuintic;
  std::cout << HeldJointsText(*situation.robot) << states.size() << " samples, "
            << Time(states.back().time - states.front().time) << ", " << ToString(interpolation)
            << " between them: ";
  for (std::size_t i = 0; i < states.size(); ++i) {
    if (states[i].time < 0.0 || (i > 0 && !(states[i - 1].time < states[i].time))) {
      std::cout << "NOT in order: sample " << i + 1 << " is at " << Number(states[i].time, 9) << " s"
                << (i > 0 ? ", the one before at " + Number(states[i - 1].time, 9) + " s" : "")
                << "; nothing else was looked at\n";
      return kNoPath;
    }
    options.rules.PutOnLimits(robot, "a sample", states[i].position, situations.GetNotes());
  }
  const Stoppable stoppable;
  Progress progress(false);
  const CheckedPath checked =
      CheckSamples(states, interpolation, limits, situation, progress.Watch("checking"));
  std::cout << checked.text;
  return checked.record.passed ? kDone : kNoPath;
}

int Check(const CheckOptions& options) {
  if (options.path_file.empty() == options.trajectory_file.empty()) {
    throw UnusableInput("expected one of --path and --trajectory");
  }
  if (!options.trajectory_file.empty()) {
    return CheckTrajectory(options);
  }
  const std::string file = ReadFrom(options.path_file);
  Situations situations(options.robot.Load(options.rules.AllowsUncovered()), options.rules, options.scene);
  const formats::PathFile path_file = formats::ReadPath(file, options.run);
  const std::vector<Eigen::Index> columns =
      ColumnsFor(*situations.Robot().description, path_file.joint_names,
                 static_cast<std::size_t>(path_file.configurations.front().size()), "the path");
  std::vector<Eigen::VectorXd> path;
  for (const Eigen::VectorXd& q : path_file.configurations) {
    path.push_back(q(columns));
  }
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
      CheckAlong(path, situation, options.proves ? std::nullopt : std::optional(options.step_size),
                 progress.Watch("checking"));
  std::cout << HeldJointsText(*situation.robot) << path.size() << " waypoints, length " << Number(length, 4)
            << ": " << checked.text;
  return checked.record.passed ? kDone : kNoPath;
}

}  // namespace

void AddCheckCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* check =
      app.add_subcommand("check", "Check a path or a trajectory: limits, collisions, clearance");
  options->robot.AddOptions(*check);
  options->scene.AddOptions(*check);
  options->rules.AddOptions(*check);
  CLI::Option* path =
      check
          ->add_option(
              "-p,--path", options->path_file,
              "The path: JSON or CSV as 'kavo plan' writes them; - is standard input. Joints may come in "
              "any order if they are named")
          ->type_name("FILE")
          ->group("Check");
  CLI::Option* trajectory =
      check
          ->add_option("--trajectory", options->trajectory_file,
                       "A trajectory instead: CSV, JSON or the YAML of a joint-trajectory message; - is "
                       "standard input. Its times, velocities and accelerations are looked at, and what a "
                       "controller runs between samples is proven")
          ->type_name("FILE")
          ->group("Check")
          ->excludes(path);
  check
      ->add_option("--joint-limits", options->limits_file,
                   "Limits of velocity and acceleration: 'joint_limits' in YAML, before those of the robot")
      ->type_name("FILE")
      ->group("Check")
      ->needs(trajectory);
  check
      ->add_option("--run", options->run,
                   "Of a file that 'kavo bench --json' wrote: the path of this run, counted from 0")
      ->type_name("N")
      ->group("Check")
      ->excludes(trajectory);
  CLI::Option* step = check
                          ->add_option("--step", options->step_size,
                                       "Distance in c-space of the configurations that are looked at")
                          ->type_name("STEP")
                          ->group("Check")
                          ->check(CheckPositive)
                          ->excludes(trajectory)
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
      "given in the frame of a link stand where that is at the first waypoint.\n\n"
      "Of a trajectory, samples have to ascend in time and to keep the limits of velocity and acceleration,\n"
      "as far as they are known. What a controller runs between two of them is proven as by --prove: a\n"
      "cubic where there are velocities, a quintic where there are accelerations too, else straight on. It\n"
      "may exceed limits by what the interpolation alone makes of a motion within them: up to 5/3 of the\n"
      "acceleration for a cubic, 2.08 for a quintic.\n\n"
      "The exit status is 0 for a path that is valid or proven, 1 for one that is not, 2 for input that\n"
      "cannot be used.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo plan --robot franka --scene examples/scene.yaml --start default \\\n"
      "            --goal 0,0.05,0,-1.815,0,3.436,0.7854 --csv path.csv\n"
      "  kavo check --robot franka --scene examples/scene.yaml --path path.csv --prove\n"
      "  kavo plan --robot three_link --start -0.4,0.1,0.2 --goal 1.7,-0.2,-0.3 --quiet |\n"
      "    kavo check --robot three_link --path - --step 0.002");
  check->callback([options, &run] { run = [options] { return Check(*options); }; });
}

}  // namespace kavo::command
