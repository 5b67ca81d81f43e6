#include "apps/kavo/robot_options.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "apps/kavo/builtin_robots.h"
#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/situation.h"
#include "apps/kavo/text.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

constexpr char kDefaultConfiguration[] = "default";

}  // namespace

void RobotOptions::AddOptions(CLI::App& app) {
  const std::string group = "Robot";
  app.add_option("-r,--robot", robot_, "The built-in 'franka' or 'three_link', or a URDF file")
      ->type_name("ROBOT")
      ->group(group)
      ->required();
  app.add_option("--srdf", srdf_, "SRDF file of the robot: groups, named configurations, collision pairs")
      ->type_name("FILE")
      ->group(group);
  auto* joint_group =
      app.add_option("--group", group_, "Plan for the joints of this SRDF group; the others stay put")
          ->type_name("GROUP")
          ->group(group);
  app.add_option("--coordinates", coordinates_, "Plan for these joints, in this order; the others stay put")
      ->type_name("JOINT,...")
      ->delimiter(',')
      ->group(group)
      ->excludes(joint_group);
  app.add_option(
         "--joint", joint_values_,
         "Where a joint that is not planned for stands; unless given, where the request or the scene puts "
         "it, else at zero; may be repeated")
      ->type_name("JOINT=VALUE")
      ->allow_extra_args(false)
      ->group(group);
  link_shapes_.AddOptions(app);
  app.add_flag_function(
         "--self-collision,!--no-self-collision", [this](std::int64_t count) { self_collision_ = count > 0; },
         "Whether the robot must not touch itself either: all pairs of links but those that the SRDF "
         "disables. "
         "On for the built-in robots and with an SRDF that disables pairs, unless said; 'kavo pairs' works "
         "them out")
      ->group(group);
}

RobotModel::RobotModel(formats::LoadedRobot robot, formats::PackageFolders packages)
    : packages_(std::move(packages)) {
  made_[{}] = std::make_shared<const formats::LoadedRobot>(std::move(robot));
}

RobotModel::RobotModel(formats::RobotFiles files, std::string group, formats::PackageFolders packages)
    : files_(std::move(files)), group_(std::move(group)), packages_(std::move(packages)) {
  made_[{}] = std::make_shared<const formats::LoadedRobot>(files_->make());
}

std::shared_ptr<const formats::LoadedRobot> RobotModel::Make(const std::map<std::string, double>& state) {
  const auto& others = made_.at({})->other_joints;
  std::map<std::string, double> held;
  for (const auto& [name, value] : state) {
    const auto other = others.find(name);
    if (other != others.end() && other->second.kind == formats::LoadedRobot::OtherJoint::Kind::kHeld) {
      held.emplace(name, value);
    }
  }
  std::shared_ptr<const formats::LoadedRobot>& robot = made_[held];
  if (!robot) {
    robot = std::make_shared<const formats::LoadedRobot>(files_->make(held));
  }
  return robot;
}

std::vector<std::pair<std::string, std::string>> RobotOptions::Files() const {
  if (IsBuiltin(robot_)) {
    return {};
  }
  std::vector<std::pair<std::string, std::string>> files = {{"robot", robot_}, {"srdf", srdf_}};
  for (const auto& file : link_shapes_.Files()) {
    files.push_back(file);
  }
  return files;
}

RobotModel RobotOptions::Load(bool allows_uncovered) const {
  if (IsBuiltin(robot_)) {
    if (!srdf_.empty() || !group_.empty() || !coordinates_.empty() || link_shapes_.AreGiven() ||
        !joint_values_.empty()) {
      throw UnusableInput(
          "the built-in robot '" + robot_ +
          "' takes no further robot options but --no-self-collision; they go with a URDF file");
    }
    return RobotModel(LoadBuiltin(robot_, self_collision_.value_or(true)), Packages());
  }
  const std::string suggestion = Suggestion(robot_, {"franka", "three_link"});
  if (std::error_code unused; !suggestion.empty() && !std::filesystem::exists(robot_, unused)) {
    throw UnusableInput("--robot " + robot_ + ": there is no such file or built-in robot" + suggestion);
  }
  formats::RobotFileOptions options;
  options.srdf_file = srdf_;
  options.group = group_;
  options.joints = coordinates_;
  link_shapes_.Apply(options);
  options.allow_unreadable_meshes = allows_uncovered;
  options.self_collision = self_collision_.value_or(false);
  options.self_collision_if_listed = !self_collision_;
  for (const std::string& text : joint_values_) {
    const std::size_t sign = text.find('=');
    const auto value = sign == std::string::npos ? std::nullopt : util::ParseNumber(text.substr(sign + 1));
    if (!value) {
      throw UnusableInput("--joint " + text + ": expected JOINT=VALUE with a number");
    }
    options.joint_values[text.substr(0, sign)] = *value;
  }
  return RobotModel(formats::RobotFiles::Read(robot_, options), group_, Packages());
}

Eigen::VectorXd ParseConfiguration(const std::string& option, const std::string& text,
                                   const formats::LoadedRobot& robot) {
  if (const auto named = robot.named_configurations.find(text); named != robot.named_configurations.end()) {
    return named->second;
  }
  if (text == kDefaultConfiguration) {
    return robot.description->defaultCSpaceConfiguration();
  }
  const auto values = ParseNumbers(text);
  if (values && values->size() == robot.description->numCSpaceCoords()) {
    return Eigen::Map<const Eigen::VectorXd>(values->data(), static_cast<Eigen::Index>(values->size()));
  }
  const std::vector<std::string> joints = JointNames(*robot.description);
  std::string message = option + " " + text + ": expected " + std::to_string(joints.size()) + " numbers (" +
                        Join(joints, ",") + ") or one of the names '" + kDefaultConfiguration + "'";
  for (const auto& [name, unused] : robot.named_configurations) {
    message += ", '" + name + "'";
  }
  throw UnusableInput(message + (values ? "; found " + std::to_string(values->size()) + " numbers" : ""));
}

}  // namespace kavo::command
