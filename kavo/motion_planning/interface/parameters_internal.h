#pragma once

#include <string>

#include "kavo/motion_planning/interface/parameters.h"

namespace kavo::planning::internal {

//! What came of an attempt to change a setting.
struct Change {
  //! What a planner has to build anew.
  enum class Effect { kRejected, kNone, kRrtConnect, kBiRrt, kAll };

  Effect effect = Effect::kAll;
  //! When rejected: why, and the report of that.
  std::string reason = {};
  std::string report = {};
};

struct ParameterRow {
  Parameter parameter;
  //! The line by which a value of another type is reported.
  int line;
  //! Takes a value of the parameter's type over. A rejected vector may have been taken over in part; an
  //! unknown frame is a fatal error.
  Change (*set)(const ParameterValue& value, const RobotDescription& robot, MotionPlannerConfig& config);
};

//! Null for an unknown name.
const ParameterRow* FindParameterRow(const std::string& name);

}  // namespace kavo::planning::internal
