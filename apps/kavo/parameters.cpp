#include "apps/kavo/parameters.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <variant>

#include "apps/kavo/command.h"
#include "apps/kavo/planner_file.h"
#include "apps/kavo/text.h"
#include "kavo/util/log_message.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

std::optional<Setting> ParseLimits(const std::string& text) {
  std::vector<std::array<double, 2>> limits;
  for (const std::string& part : Split(text, ',')) {
    const std::vector<std::string> bounds = Split(part, ':');
    const auto lower = util::ParseNumber(bounds.front());
    const auto upper = util::ParseNumber(bounds.back());
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
      const auto value = util::ParseNumber(text);
      if (!value || std::floor(*value) != *value ||
          std::fabs(*value) > static_cast<double>(std::numeric_limits<int>::max())) {
        return std::nullopt;
      }
      return static_cast<std::int64_t>(*value);
    }
    case Type::kDouble: {
      const auto value = util::ParseNumber(text);
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
    throw UnusableInput("--set " + std::string(parameter.name) + "=" + text + ": expected " +
                        kExamples.at(parameter.type));
  }
  return *setting;
}

planning::MotionPlannerConfig CommandDefaults(const std::shared_ptr<RobotDescription>& robot) {
  planning::MotionPlannerConfig config(robot);
  config.planner = planning::CSpacePlanner::kBiRrt;
  return config;
}

planning::CSpacePlanner ParsePlanner(const std::string& option, const std::string& name) {
  std::vector<std::string> names;
  for (const auto planner : {planning::CSpacePlanner::kBiRrt, planning::CSpacePlanner::kRrtConnect}) {
    names.emplace_back(ToString(planner));
    if (name == names.back()) {
      return planner;
    }
  }
  throw UnusableInput(option + " " + name + ": expected one of " + JoinQuoted(names) +
                      Suggestion(name, names));
}

CLI::Option* PlannerSettings::AddOptions(CLI::App& app) {
  const std::string group = "Planner";
  app.add_option("--config", file_,
                 "Settings of the planner from a YAML file; those that it does not name keep their defaults")
      ->type_name("FILE")
      ->group(group);
  app.add_option("--set", texts_,
                 "One setting, after those of the file; may be repeated. 'kavo info --params' lists them")
      ->type_name("NAME=VALUE")
      ->group(group)
      ->allow_extra_args(false);
  app.add_option("--effort", effort_,
                 "Rounds in which paths of bi_rrt are shortened, 0 for none; goes before --set effort=")
      ->type_name("N")
      ->group(group)
      ->check(CLI::Range(0, std::numeric_limits<int>::max()));
  return app
      .add_option("--planner", planner_,
                  "What answers: bi_rrt proves every motion of its paths free; rrt_connect, to a "
                  "configuration, and jt_rrt, to a position, check points step_size apart. Poses, lines and "
                  "several goals are for bi_rrt. It is bi_rrt unless a file of settings is given, where it "
                  "is what that says, or rrt_connect, with which jt_rrt goes. Goes before --set planner=")
      ->type_name("NAME")
      ->group(group);
}

void PlannerSettings::SetDefault(const std::string& name, Setting setting) {
  defaults_.insert_or_assign(name, std::move(setting));
}

void PlannerSettings::Load(const std::shared_ptr<RobotDescription>& robot) {
  config_ = file_.empty() ? CommandDefaults(robot) : planning::MotionPlannerConfig(robot);
  const auto set = [&](const std::string& name, const Setting& setting) {
    if (const auto fault = planning::SetParameter(name, setting, *robot, *config_)) {
      throw UnusableInput("--set " + name + "=" + ToText(setting) + ": " + *fault);
    }
  };
  for (const auto& [name, setting] : defaults_) {
    set(name, setting);
  }
  if (!file_.empty()) {
    PlannerFile file = ReadPlannerFile(file_, *robot, *config_);
    config_ = std::move(file.config);
    const bool is_said = std::any_of(texts_.begin(), texts_.end(),
                                     [](const std::string& text) { return text.rfind("planner=", 0) == 0; });
    if (!file.names_planner && !is_said && planner_.empty()) {
      KAVO_LOG(LogLevel::kWarning) << file_ << ": names no planner, and so rrt_connect plans; --planner "
                                   << "bi_rrt proves its motions";
    }
  }
  for (const std::string& text : texts_) {
    const std::size_t sign = text.find('=');
    const std::string name = text.substr(0, sign);
    const auto& parameters = planning::Parameters();
    const auto parameter = std::find_if(parameters.begin(), parameters.end(),
                                        [&](const Parameter& known) { return known.name == name; });
    if (sign == std::string::npos || parameter == parameters.end()) {
      std::vector<std::string> names;
      names.reserve(parameters.size());
      for (const Parameter& known : parameters) {
        names.emplace_back(known.name);
      }
      throw UnusableInput("--set " + text +
                          ": expected NAME=VALUE with a name that 'kavo info --params' lists" +
                          Suggestion(name, names));
    }
    set(name, ParseSetting(*parameter, text.substr(sign + 1)));
  }
  if (IsForPositions()) {
    // That of points, which goes with it, is the one that leaves positions to it.
    config_->planner = planning::CSpacePlanner::kRrtConnect;
  } else if (!planner_.empty()) {
    config_->planner = ParsePlanner("--planner", planner_);
  }
  if (effort_) {
    config_->effort = *effort_;
  }
  // Said here once: what a planner says in a query is not shown.
  if (config_->planner == planning::CSpacePlanner::kRrtConnect) {
    planning::WarnOfIdleWeights(*config_);
  }
}

planning::MotionPlannerConfig PlannerSettings::With(int seed, double step_size) const {
  planning::MotionPlannerConfig config = *config_;
  config.seed = seed;
  config.step_size = step_size;
  return config;
}

}  // namespace kavo::command
