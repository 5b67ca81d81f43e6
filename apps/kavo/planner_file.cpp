#include "apps/kavo/planner_file.h"

#include <yaml-cpp/yaml.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/command.h"
#include "apps/kavo/text.h"
#include "kavo/motion_planning/interface/parameters.h"
#include "kavo/util/log_message.h"

namespace kavo::command {

namespace {

using planning::MotionPlannerConfig;
using planning::Parameter;
using Value = planning::ParameterValue;

// Said by the presence of the map below, in a file.
constexpr char kHasTree[] = "enable_tesk_tree";
constexpr char kTree[] = "tesk_tree_params";
constexpr char kPlanner[] = "planner";

// What yaml-cpp refused, where it says where: its own text names neither the key nor what stands there.
std::string TellFault(const std::string& file, const std::string& text, const YAML::Exception& error) {
  if (error.mark.is_null()) {
    return file + ": " + error.msg;
  }
  std::istringstream lines(text);
  std::string line;
  for (int i = 0; i <= error.mark.line; ++i) {
    std::getline(lines, line);
  }
  return file + ":" + std::to_string(error.mark.line + 1) + ": found '" + line +
         "', expected every setting of the planner here or below with a value of its type, as 'kavo info "
         "--params' lists them (" +
         error.msg + ")";
}

// The node of a setting by its name, in which a slash leads into a map; undefined without one.
YAML::Node Find(const YAML::Node& root, const std::string& name) {
  const std::size_t slash = name.find('/');
  if (slash == std::string::npos) {
    return root[name];
  }
  const YAML::Node map = root[name.substr(0, slash)];
  return map.IsDefined() && map.IsMap() ? map[name.substr(slash + 1)] : YAML::Node(YAML::NodeType::Undefined);
}

bool IsOfTree(const std::string& name) { return name.rfind(std::string(kTree) + "/", 0) == 0; }

// The names that a map of the file has; of the maps below it those with their own names before.
void CollectNames(const YAML::Node& map, const std::string& prefix,
                  std::vector<std::pair<std::string, int>>& names) {
  for (const auto& entry : map) {
    const std::string name = prefix + entry.first.as<std::string>();
    if (entry.second.IsMap() && prefix.empty()) {
      CollectNames(entry.second, name + "/", names);
    } else {
      names.emplace_back(name, entry.first.Mark().line + 1);
    }
  }
}

void RefuseUnknown(const YAML::Node& root, const std::string& file) {
  std::vector<std::string> known;
  for (const Parameter& parameter : planning::Parameters()) {
    known.emplace_back(parameter.name);
  }
  std::vector<std::pair<std::string, int>> names;
  CollectNames(root, "", names);
  std::set<std::string> seen;
  for (const auto& [name, line] : names) {
    if (!seen.insert(name).second) {
      throw UnusableInput(file + ":" + std::to_string(line) + ": found '" + name +
                          "' again, expected each setting once");
    }
    if (name == kHasTree || std::find(known.begin(), known.end(), name) == known.end()) {
      throw UnusableInput(file + ":" + std::to_string(line) + ": found '" + name +
                          "', which is no setting of a planner file" + Suggestion(name, known));
    }
  }
}

Value ReadValue(Parameter::Type type, const YAML::Node& node) {
  using Type = Parameter::Type;
  switch (type) {
    case Type::kInt:
      return node.as<std::int64_t>();
    case Type::kDouble:
      return node.as<double>();
    case Type::kVector3:
    case Type::kVector:
      return node.as<std::vector<double>>();
    case Type::kBool:
      return node.as<bool>();
    case Type::kString:
      return node.as<std::string>();
    case Type::kLimits:
      break;
  }
  std::vector<std::array<double, 2>> limits;
  for (const auto& range : node.as<std::vector<std::array<double, 2>>>()) {
    limits.push_back(range);
  }
  return limits;
}

MotionPlannerConfig ReadSome(const YAML::Node& root, const std::string& file, const RobotDescription& robot,
                             MotionPlannerConfig config) {
  const auto set = [&](const std::string& name, const Value& value) {
    if (const auto fault = planning::SetParameter(name, value, robot, config)) {
      throw UnusableInput(file + ": " + *fault);
    }
  };
  if (root[kTree].IsDefined()) {
    set(kHasTree, true);
  }
  for (const Parameter& parameter : planning::Parameters()) {
    if (const YAML::Node node = Find(root, parameter.name); node.IsDefined()) {
      set(parameter.name, ReadValue(parameter.type, node));
    }
  }
  return config;
}

// Read once, as a pipe can be, and no farther than a file of settings goes: it may have no end.
std::string ReadText(const std::string& file) {
  constexpr std::size_t kMaxSize = std::size_t{1} << 20;
  std::ifstream stream(file, std::ios::binary);
  std::string text(kMaxSize + 1, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(stream.gcount()));
  if (text.size() > kMaxSize) {
    throw UnusableInput(file + ": found more than 1 MiB, expected a smaller file");
  }
  // A directory can be opened, but not read.
  if (!stream.eof() || stream.bad()) {
    throw UnusableInput(file + ": cannot be read");
  }
  return text;
}

}  // namespace

PlannerFile ReadPlannerFile(const std::string& file, const RobotDescription& robot,
                            const MotionPlannerConfig& defaults) {
  const std::string text = ReadText(file);
  try {
    const std::vector<YAML::Node> documents = YAML::LoadAll(text);
    if (documents.size() > 1) {
      throw UnusableInput(file + ": found " + std::to_string(documents.size()) + " documents, expected one");
    }
    const YAML::Node root = documents.empty() ? YAML::Node() : documents.front();
    if (!root.IsMap()) {
      throw UnusableInput(file +
                          ": found no map, expected settings of the planner as 'kavo info --params' "
                          "lists them");
    }
    RefuseUnknown(root, file);
    const bool names_planner = root[kPlanner].IsDefined();
    std::vector<std::string> missing;
    for (const Parameter& parameter : planning::Parameters()) {
      const bool may_be_missing = parameter.is_optional || parameter.name == std::string(kHasTree) ||
                                  (IsOfTree(parameter.name) && !root[kTree].IsDefined());
      if (!may_be_missing && !Find(root, parameter.name).IsDefined()) {
        missing.emplace_back(parameter.name);
      }
    }
    if (!missing.empty()) {
      KAVO_LOG(LogLevel::kWarning) << file
                                   << ": not named, and so at their defaults: " << Join(missing, ", ");
      return {ReadSome(root, file, robot, defaults), names_planner};
    }
    MotionPlannerConfig config = MotionPlannerConfig::ReadUnchecked(root);
    if (const auto fault = planning::FindSettingFault(config, robot)) {
      throw UnusableInput(file + ": " + *fault);
    }
    return {std::move(config), names_planner};
  } catch (const YAML::Exception& error) {
    throw UnusableInput(TellFault(file, text, error));
  }
}

}  // namespace kavo::command
