#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! The value of a run-time parameter; limits are pairs of lower and upper.
using ParameterValue = std::variant<bool, std::int64_t, double, std::string, std::vector<double>,
                                    std::vector<std::array<double, 2>>>;

//! A setting that `MotionPlanner::setParam` knows by name.
struct Parameter {
  //! What its value is.
  enum class Type { kInt, kDouble, kVector3, kVector, kBool, kString, kLimits };

  //! By which `MotionPlanner::setParam` knows it.
  const char* name;
  //! Of its value.
  Type type;
  //! What it does and what it accepts.
  const char* meaning;
  //! Its value among all settings.
  ParameterValue (*value)(const MotionPlannerConfig& config);
  //! Whether a file of settings may leave it out without a word.
  bool is_optional = false;
};

//! All of them, in the order of the reference of `MotionPlanner::setParam`.
KAVO_EXPORT const std::vector<Parameter>& Parameters();

//! Changes a setting by the rules of `MotionPlanner::setParam`, without a planner and without a report.
//! \return What is wrong: an unknown name or frame, a value of another type or out of range. Empty when the
//!     value was taken over.
//!
//! @code
//! const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
//! kavo::planning::MotionPlannerConfig config(robot);
//! assert(!kavo::planning::SetParameter("step_size", 0.05, *robot, config));
//! assert(kavo::planning::SetParameter("step_size", -1.0, *robot, config));
//! assert(!kavo::planning::FindSettingFault(config, *robot) && config.step_size == 0.05);
//! @endcode
KAVO_EXPORT std::optional<std::string> SetParameter(const std::string& name, const ParameterValue& value,
                                                    const RobotDescription& robot,
                                                    MotionPlannerConfig& config);

//! The first setting that the rules of `MotionPlanner::setParam` forbid for a robot, as a text that names it;
//! empty if all are fine. A planner is made from such settings without a fatal error.
KAVO_EXPORT std::optional<std::string> FindSettingFault(const MotionPlannerConfig& config,
                                                        const RobotDescription& robot);

}  // namespace kavo::planning
