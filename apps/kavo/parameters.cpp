#include "apps/kavo/parameters.h"

#include <yaml-cpp/yaml.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <variant>

#include "apps/kavo/command.h"
#include "apps/kavo/text.h"
#include "kavo/util/fatal_error.h"
#include "kavo/util/log.h"
#include "kavo/world/world.h"

namespace kavo::command {

namespace {

using planning::MotionPlannerConfig;

// The settings of the accelerator tree, also while it is off.
planning::TeskTreeConfig TeskTree(const MotionPlannerConfig& config) {
  return config.tesk_tree_config.value_or(
      planning::DefaultTeskTreeConfig(static_cast<int>(config.distance_metric_weights.size())));
}

std::vector<double> ToVector(const Eigen::VectorXd& vector) { return {vector.begin(), vector.end()}; }

Setting Count(std::size_t count) { return static_cast<std::int64_t>(count); }

std::optional<Setting> ParseLimits(const std::string& text) {
  std::vector<std::array<double, 2>> limits;
  for (const std::string& part : Split(text, ',')) {
    const std::vector<std::string> bounds = Split(part, ':');
    const auto lower = ParseNumber(bounds.front());
    const auto upper = ParseNumber(bounds.back());
    if (bounds.size() != 2 || !lower || !upper) {
      return std::nullopt;
    }
    limits.push_back({*lower, *upper});
  }
  return limits;
}

std::optional<Setting> Parse(Parameter::Type type, const std::string& text) {
  using Type = Parameter::Type;
  switch (type) {
    case Type::kInt: {
      const auto value = ParseNumber(text);
      if (!value || std::floor(*value) != *value ||
          std::fabs(*value) > static_cast<double>(std::numeric_limits<int>::max())) {
        return std::nullopt;
      }
      return static_cast<std::int64_t>(*value);
    }
    case Type::kDouble: {
      const auto value = ParseNumber(text);
      return value ? std::optional<Setting>(*value) : std::nullopt;
    }
    case Type::kVector3:
    case Type::kVector: {
      const auto values = ParseNumbers(text);
      return values && (type == Type::kVector || values->size() == 3) ? std::optional<Setting>(*values)
                                                                      : std::nullopt;
    }
    case Type::kBool:
      return text == "true" || text == "false" ? std::optional<Setting>(text == "true") : std::nullopt;
    case Type::kString:
      return text;
    case Type::kLimits:
      return ParseLimits(text);
  }
  return std::nullopt;
}

}  // namespace

const std::vector<Parameter>& Parameters() {
  using Type = Parameter::Type;
  using Config = MotionPlannerConfig;
  static const std::vector<Parameter> kParameters = {
      {"seed", Type::kInt, "Seeds all random choices; at least 1. Equal seeds give equal paths.",
       [](const Config& c) -> Setting { return std::int64_t{c.seed}; }},
      {"step_size", Type::kDouble,
       "Length of a step in c-space, in growing a tree and in checking and resampling a path; radians, or "
       "metres for prismatic joints. Smaller is safer and slower.",
       [](const Config& c) -> Setting { return c.step_size; }},
      {"max_iterations", Type::kInt, "Extensions that one query may make before it gives up; at least 1.",
       [](const Config& c) { return Count(c.max_iterations); }},
      {"max_sampling", Type::kInt, "Random configurations that are tried for one that is valid; at least 1.",
       [](const Config& c) { return Count(c.max_sampling); }},
      {"distance_metric_weights", Type::kVector,
       "Weights of the squared distance between configurations, one for each coordinate, positive.",
       [](const Config& c) -> Setting { return ToVector(c.distance_metric_weights); }},
      {"task_space_frame_name", Type::kString, "The frame that is taken to a target position.",
       [](const Config& c) -> Setting { return c.task_space_frame_name; }},
      {"task_space_limits", Type::kLimits,
       "The box of random positions when planning to a position: lower:upper for x, y and z, metres in the "
       "robot's base frame.",
       [](const Config& c) -> Setting {
         std::vector<std::array<double, 2>> limits;
         for (const MotionPlanner::Limit& limit : c.task_space_limits) {
           limits.push_back({limit.lower, limit.upper});
         }
         return limits;
       }},
      {"enable_tesk_tree", Type::kBool,
       "Asks for accelerator trees. This build has none and takes plain trees, which then measure the plain "
       "distance instead of the weighted squared one.",
       [](const Config& c) -> Setting { return c.tesk_tree_config.has_value(); }},
      {"tesk_tree_params/max_num_nodes", Type::kInt, "Capacity of an accelerator tree; above the crossover.",
       [](const Config& c) -> Setting { return std::int64_t{TeskTree(c).max_num_nodes}; }},
      {"tesk_tree_params/max_buffer_size", Type::kInt, "Size of its staging buffer; at least 1.",
       [](const Config& c) -> Setting { return std::int64_t{TeskTree(c).max_buffer_size}; }},
      {"tesk_tree_params/num_nodes_cpu_gpu_crossover", Type::kInt,
       "Number of nodes below which it would search on the CPU; at least 1, below max_num_nodes.",
       [](const Config& c) -> Setting { return std::int64_t{TeskTree(c).num_nodes_cpu_gpu_crossover}; }},
      {"c_space_planning_params/exploration_fraction", Type::kDouble,
       "Share of the extensions towards random configurations when planning to a configuration, in [0, 1]; "
       "the others head for the other tree.",
       [](const Config& c) -> Setting { return c.c_space_exploration_fraction; }},
      {"task_space_planning_params/x_target_zone_tolerance", Type::kVector3,
       "Half-widths of the zone around a target position from which the refinement, which is not checked for "
       "collisions, takes over: x, y, z, metres, positive. 0.03 is found far sooner than the default.",
       [](const Config& c) -> Setting { return ToVector(c.x_target_zone_tolerance); }},
      {"task_space_planning_params/x_target_final_tolerance", Type::kDouble,
       "Distance to the target position at which the refinement ends, metres, positive.",
       [](const Config& c) -> Setting { return c.x_target_final_tolerance; }},
      {"task_space_planning_params/task_space_exploration_fraction", Type::kDouble,
       "Share of the extensions towards random positions when planning to a position, in [0, 1].",
       [](const Config& c) -> Setting { return c.task_space_exploration_fraction; }},
      {"task_space_planning_params/task_space_exploitation_fraction", Type::kDouble,
       "Share of the extensions that pull towards the target position, in [0, 1]; not more than 1 together "
       "with the share above.",
       [](const Config& c) -> Setting { return c.task_space_exploitation_fraction; }},
      {"max_nodes", Type::kInt,
       "Nodes that the trees of one query may hold before it gives up; at least 1. It bounds the memory.",
       [](const Config& c) { return Count(c.max_nodes); }},
  };
  return kParameters;
}

std::string TypeName(Parameter::Type type) {
  using Type = Parameter::Type;
  switch (type) {
    case Type::kInt:
      return "integer";
    case Type::kDouble:
      return "number";
    case Type::kVector3:
      return "3 numbers";
    case Type::kVector:
      return "numbers";
    case Type::kBool:
      return "true or false";
    case Type::kString:
      return "name";
    case Type::kLimits:
      return "3 ranges";
  }
  return {};
}

std::string ToText(const Setting& setting) {
  if (const auto* text = std::get_if<std::string>(&setting)) {
    return *text;
  }
  if (const auto* flag = std::get_if<bool>(&setting)) {
    return *flag ? "true" : "false";
  }
  if (const auto* number = std::get_if<double>(&setting)) {
    return Number(*number, 15);
  }
  if (const auto* count = std::get_if<std::int64_t>(&setting)) {
    return std::to_string(*count);
  }
  std::vector<std::string> parts;
  if (const auto* numbers = std::get_if<std::vector<double>>(&setting)) {
    for (const double number : *numbers) {
      parts.push_back(Number(number, 15));
    }
  } else {
    for (const auto& [lower, upper] : std::get<std::vector<std::array<double, 2>>>(setting)) {
      parts.push_back(Number(lower, 15) + ":" + Number(upper, 15));
    }
  }
  return Join(parts, ",");
}

Setting ParseSetting(const Parameter& parameter, const std::string& text) {
  static const std::map<Parameter::Type, const char*> kExamples = {
      {Parameter::Type::kInt, "an integer"},
      {Parameter::Type::kDouble, "a number"},
      {Parameter::Type::kVector3, "three numbers such as 0.01,0.01,0.01"},
      {Parameter::Type::kVector, "numbers such as 1,1,0.5"},
      {Parameter::Type::kBool, "true or false"},
      {Parameter::Type::kLimits, "ranges such as -1:1,-1:1,0:1"},
  };
  const std::optional<Setting> setting = Parse(parameter.type, text);
  if (!setting) {
    throw UnusableInput("--set " + parameter.name + "=" + text + ": expected " +
                        kExamples.at(parameter.type));
  }
  return *setting;
}

bool ApplySetting(MotionPlanner& planner, const Parameter& parameter, const Setting& setting) {
  const std::string& name = parameter.name;
  if (const auto* text = std::get_if<std::string>(&setting)) {
    return planner.setParam(name, *text);
  }
  if (const auto* flag = std::get_if<bool>(&setting)) {
    return planner.setParam(name, *flag);
  }
  if (const auto* number = std::get_if<double>(&setting)) {
    return planner.setParam(name, *number);
  }
  if (const auto* count = std::get_if<std::int64_t>(&setting)) {
    return planner.setParam(name, static_cast<int>(*count));
  }
  if (const auto* numbers = std::get_if<std::vector<double>>(&setting)) {
    if (parameter.type == Parameter::Type::kVector3) {
      return planner.setParam(name, Eigen::Vector3d((*numbers)[0], (*numbers)[1], (*numbers)[2]));
    }
    return planner.setParam(name, *numbers);
  }
  std::vector<MotionPlanner::Limit> limits;
  for (const auto& [lower, upper] : std::get<std::vector<std::array<double, 2>>>(setting)) {
    limits.push_back({lower, upper});
  }
  return planner.setParam(name, limits);
}

namespace {

// What yaml-cpp refused, where it says where: its own text names neither the key nor what stands there.
std::string TellFault(const std::string& file, const YAML::Exception& error) {
  if (error.mark.is_null()) {
    return file + ": " + error.msg;
  }
  std::ifstream lines(file);
  std::string line;
  for (int i = 0; i <= error.mark.line; ++i) {
    std::getline(lines, line);
  }
  return file + ":" + std::to_string(error.mark.line + 1) + ": found '" + line +
         "', expected every setting of the planner here or below with a value of its type, as 'kavo info "
         "--params' lists them (" +
         error.msg + ")";
}

}  // namespace

void PlannerSettings::AddOptions(CLI::App& app) {
  const std::string group = "Planner";
  app.add_option("--config", file_, "Settings of the planner from a YAML file")
      ->type_name("FILE")
      ->group(group);
  app.add_option("--set", texts_,
                 "One setting, after those of the file; may be repeated. 'kavo info --params' lists them")
      ->type_name("NAME=VALUE")
      ->group(group)
      ->allow_extra_args(false);
}

void PlannerSettings::SetDefault(const std::string& name, Setting setting) {
  defaults_.insert_or_assign(name, std::move(setting));
}

void PlannerSettings::Load(const std::shared_ptr<RobotDescription>& robot) {
  MotionPlannerConfig config(robot);
  if (!file_.empty()) {
    try {
      CreateMotionPlanner(file_, robot, World().view());
      config = MotionPlannerConfig(YAML::LoadFile(file_));
    } catch (const util::FatalError& error) {
      throw UnusableInput(file_ + ": " + error.message());
    } catch (const YAML::Exception& error) {
      throw UnusableInput(TellFault(file_, error));
    }
    defaults_.clear();
  }
  for (const Parameter& parameter : Parameters()) {
    values_.insert_or_assign(parameter.name, parameter.value(config));
    if (const auto found = defaults_.find(parameter.name); found != defaults_.end()) {
      changes_.emplace_back(&parameter, found->second);
    }
  }
  for (const std::string& text : texts_) {
    const std::size_t sign = text.find('=');
    const std::string name = text.substr(0, sign);
    const auto parameter = std::find_if(Parameters().begin(), Parameters().end(),
                                        [&](const Parameter& p) { return p.name == name; });
    if (sign == std::string::npos || parameter == Parameters().end()) {
      throw UnusableInput("--set " + text +
                          ": expected NAME=VALUE with a name that 'kavo info --params' lists");
    }
    changes_.emplace_back(&*parameter, ParseSetting(*parameter, text.substr(sign + 1)));
  }
  // What the planner does not accept has to come up before any work is done.
  MakePlanner(robot, World().view());
  for (const auto& [parameter, setting] : changes_) {
    values_[parameter->name] = setting;
  }
}

std::unique_ptr<MotionPlanner> PlannerSettings::MakePlanner(const std::shared_ptr<RobotDescription>& robot,
                                                            const WorldView& world_view, int seed) const {
  auto planner =
      file_.empty() ? CreateMotionPlanner(robot, world_view) : CreateMotionPlanner(file_, robot, world_view);
  for (const auto& [parameter, setting] : changes_) {
    if (!ApplySetting(*planner, *parameter, setting)) {
      throw UnusableInput("--set " + parameter->name + "=" + ToText(setting) +
                          ": the planner does not accept this value");
    }
  }
  if (seed != 0) {
    planner->setParam("seed", seed);
  }
  return planner;
}

std::vector<std::pair<std::string, Setting>> PlannerSettings::All() const {
  std::vector<std::pair<std::string, Setting>> settings;
  for (const Parameter& parameter : Parameters()) {
    settings.emplace_back(parameter.name, values_.at(parameter.name));
  }
  return settings;
}

}  // namespace kavo::command
