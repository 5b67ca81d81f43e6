#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "kavo/formats/result_file.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/world/world_view.h"

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

using Setting = formats::PlanRecord::Setting;

//! A parameter of the planner that can be set by name.
struct Parameter {
  enum class Type { kInt, kDouble, kVector3, kVector, kBool, kString, kLimits };

  std::string name;
  Type type;
  //! What it does and what it accepts.
  std::string meaning;
  //! Its value among all settings.
  Setting (*value)(const planning::MotionPlannerConfig&);
};

//! All of them, in the order of the reference of `MotionPlanner::setParam`.
const std::vector<Parameter>& Parameters();

//! "int", "vector of 3 doubles" and so on.
std::string TypeName(Parameter::Type type);

//! The value as `--set` takes it.
std::string ToText(const Setting& setting);

//! The value that a text stands for; throws `UnusableInput` if it is none of the parameter's type.
Setting ParseSetting(const Parameter& parameter, const std::string& text);

//! Sets a parameter; false, with a report, if the planner does not accept the value. The setting must be of
//! the parameter's type.
bool ApplySetting(MotionPlanner& planner, const Parameter& parameter, const Setting& setting);

//! The settings that a command line asks for: of a file or the defaults, then one by one.
class PlannerSettings {
 public:
  //! The options `--config` and `--set`. This object must outlive the parsing.
  void AddOptions(CLI::App& app);

  //! Sets a parameter unless the command line does.
  void SetDefault(const std::string& name, Setting setting);

  //! Reads the file and the texts; throws `UnusableInput` if one cannot be used. To be called before the
  //! operations below.
  void Load(const std::shared_ptr<RobotDescription>& robot);

  //! A new planner with these settings, of another seed if one is given (zero: none).
  std::unique_ptr<MotionPlanner> MakePlanner(const std::shared_ptr<RobotDescription>& robot,
                                             const WorldView& world_view, int seed = 0) const;

  //! All settings, in the order of `Parameters()`.
  std::vector<std::pair<std::string, Setting>> All() const;
  double StepSize() const { return std::get<double>(values_.at("step_size")); }
  int Seed() const { return static_cast<int>(std::get<std::int64_t>(values_.at("seed"))); }
  std::string TaskSpaceFrame() const { return std::get<std::string>(values_.at("task_space_frame_name")); }

 private:
  std::string file_;
  std::vector<std::string> texts_;
  std::map<std::string, Setting> defaults_;
  // Those given one by one, in that order.
  std::vector<std::pair<const Parameter*, Setting>> changes_;
  std::map<std::string, Setting> values_;
};

}  // namespace kavo::command
