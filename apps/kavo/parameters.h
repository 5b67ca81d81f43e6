#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/parameters.h"
#include "kavo/world/world_view.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kavo::command {

using planning::Parameter;
using Setting = planning::ParameterValue;

//! "int", "vector of 3 doubles" and so on.
std::string TypeName(Parameter::Type type);

//! The value as `--set` takes it.
std::string ToText(const Setting& setting);

//! The value that a text stands for; throws `UnusableInput` if it is none of the parameter's type.
Setting ParseSetting(const Parameter& parameter, const std::string& text);

//! The settings of the command before anything is asked for: those of the library, but that whole motions are
//! planned.
planning::MotionPlannerConfig CommandDefaults(const std::shared_ptr<RobotDescription>& robot);

//! The planner of this name; throws `UnusableInput`, which begins with the name of the option, if it is none.
planning::CSpacePlanner ParsePlanner(const std::string& option, const std::string& name);

//! The settings that a command line asks for: of a file or the defaults, then one by one.
class PlannerSettings {
 public:
  //! The options `--config`, `--set`, `--planner` and `--effort`. This object must outlive the parsing.
  //! \return That of `--planner`.
  CLI::Option* AddOptions(CLI::App& app);

  //! The file; empty without one.
  const std::string& File() const { return file_; }

  //! Sets a parameter unless the command line does.
  void SetDefault(const std::string& name, Setting setting);

  //! Reads the file and the texts; throws `UnusableInput` if one cannot be used. To be called before the
  //! operations below.
  void Load(const std::shared_ptr<RobotDescription>& robot);

  //! Whether the planner of one position is asked for by its own name, which plans to nothing else.
  bool IsForPositions() const { return planner_ == "jt_rrt"; }

  //! These settings with another seed and step size.
  planning::MotionPlannerConfig With(int seed, double step_size) const;

  const planning::MotionPlannerConfig& Config() const { return *config_; }
  double StepSize() const { return config_->step_size; }
  int Seed() const { return config_->seed; }
  std::string TaskSpaceFrame() const { return config_->task_space_frame_name; }

 private:
  std::string file_;
  std::vector<std::string> texts_;
  std::string planner_;
  std::optional<int> effort_;
  std::map<std::string, Setting> defaults_;
  std::optional<planning::MotionPlannerConfig> config_;
};

}  // namespace kavo::command
