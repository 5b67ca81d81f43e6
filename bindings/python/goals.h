#pragma once

#include <vector>

#include "bindings/python/bindings.h"
#include "kavo/kinematics/interface/pose_target.h"
#include "kavo/motion_planning/interface/goal.h"
#include "kavo/motion_planning/interface/stage.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"

// What a caller asks for, from records of `kavo.records` or from what is short for one.

namespace kavo::python {

//! From a `PoseGoal`, or from a `Pose3` of the robot's tip.
PoseGoal ToPoseGoal(const py::handle& goal);
//! The same, or a `ConfigurationGoal`, or a configuration.
Goal ToGoal(const py::handle& goal);
//! The other way: a `PoseGoal`, a `ConfigurationGoal` or a configuration.
py::object ToRecord(const Goal& goal);
std::vector<Goal> ToGoals(const py::iterable& goals);
//! From `Stage`s.
std::vector<Stage> ToStages(const py::iterable& stages, const StopCondition& stop_condition);
//! From a `LineOptions`, or None for the defaults.
planning::LineOptions ToLineOptions(const py::handle& options, const StopCondition& stop_condition);
planning::MotionLimits ToMotionLimits(const py::handle& limits);

}  // namespace kavo::python
