#include "bindings/python/goals.h"

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <array>
#include <string>
#include <utility>

#include "bindings/python/records.h"

namespace kavo::python {

namespace {

bool IsRecord(const py::handle& object, const char* name) {
  return py::isinstance(object, RecordClass(name));
}

template <typename Field>
void Take(const py::handle& record, const char* name, Field& field) {
  field = CastTo<Field>(name, record.attr(name));
}

PoseGoal::AxisTolerances ToAxisTolerances(const py::handle& record) {
  PoseGoal::AxisTolerances tolerances;
  Take(record, "angles", tolerances.angles);
  std::string parameterization;
  Take(record, "parameterization", parameterization);
  if (parameterization == "rotation_vector") {
    tolerances.parameterization = PoseGoal::AxisTolerances::Parameterization::kRotationVector;
  } else if (parameterization != "euler_angles") {
    throw py::value_error("unknown parameterization '" + parameterization +
                          "': it is 'euler_angles' or 'rotation_vector'");
  }
  return tolerances;
}

}  // namespace

PoseGoal ToPoseGoal(const py::handle& goal) {
  PoseGoal result;
  if (py::isinstance<Pose3>(goal)) {
    result.pose = py::cast<Pose3>(goal);
    return result;
  }
  if (!IsRecord(goal, "PoseGoal")) {
    throw py::type_error("expected a PoseGoal or a Pose3");
  }
  Take(goal, "pose", result.pose);
  Take(goal, "frame", result.frame);
  Take(goal, "tool", result.tool);
  Take(goal, "position_tolerance", result.position_tolerance);
  Take(goal, "orientation_tolerance", result.orientation_tolerance);
  Take(goal, "free_translations", result.free_translations);
  Take(goal, "free_rotations", result.free_rotations);
  std::vector<std::pair<std::variant<BoxObstacle, SphereObstacle, CylinderObstacle>, Pose3>> regions;
  Take(goal, "regions", regions);
  for (const auto& [shape, pose] : regions) {
    result.regions.push_back({shape, pose});
  }
  if (const py::object tolerances = goal.attr("axis_tolerances"); !tolerances.is_none()) {
    result.axis_tolerances = ToAxisTolerances(tolerances);
  }
  if (const py::object accepts = goal.attr("accepts"); !accepts.is_none()) {
    Take(goal, "accepts", result.accepts);
  }
  return result;
}

Goal ToGoal(const py::handle& goal) {
  if (py::isinstance<Pose3>(goal) || IsRecord(goal, "PoseGoal")) {
    return ToPoseGoal(goal);
  }
  if (IsRecord(goal, "ConfigurationGoal")) {
    ConfigurationGoal result;
    Take(goal, "configuration", result.configuration);
    Take(goal, "below", result.below);
    Take(goal, "above", result.above);
    return result;
  }
  return CastTo<Eigen::VectorXd>("goals", goal);
}

py::object ToRecord(const Goal& goal) {
  if (const auto* const q = std::get_if<Eigen::VectorXd>(&goal)) {
    return py::cast(*q);
  }
  if (const auto* const range = std::get_if<ConfigurationGoal>(&goal)) {
    return MakeRecord("ConfigurationGoal", range->configuration, range->below, range->above);
  }
  const auto& pose = std::get<PoseGoal>(goal);
  py::list regions;
  for (const PoseGoal::Region& region : pose.regions) {
    regions.append(py::make_tuple(region.shape, region.pose));
  }
  py::object tolerances = py::none();
  if (pose.axis_tolerances) {
    using Parameterization = PoseGoal::AxisTolerances::Parameterization;
    const bool is_vector = pose.axis_tolerances->parameterization == Parameterization::kRotationVector;
    tolerances = MakeRecord("AxisTolerances", pose.axis_tolerances->angles,
                            is_vector ? "rotation_vector" : "euler_angles");
  }
  return MakeRecord("PoseGoal", pose.pose, pose.frame, pose.tool, pose.position_tolerance,
                    pose.orientation_tolerance, py::tuple(py::cast(pose.free_translations)),
                    py::tuple(py::cast(pose.free_rotations)), regions, tolerances,
                    pose.accepts ? py::cast(pose.accepts) : py::none());
}

std::vector<Goal> ToGoals(const py::iterable& goals) {
  std::vector<Goal> result;
  for (const py::handle goal : goals) {
    result.push_back(ToGoal(goal));
  }
  return result;
}

std::vector<Stage> ToStages(const py::iterable& stages, const StopCondition& stop_condition) {
  std::vector<Stage> result;
  for (const py::handle record : stages) {
    if (!IsRecord(record, "Stage")) {
      throw py::type_error("expected Stages");
    }
    Stage stage;
    stage.goals = ToGoals(record.attr("goals"));
    if (const py::object line = record.attr("line"); !line.is_none()) {
      stage.line = ToLineOptions(line, stop_condition);
    }
    result.push_back(std::move(stage));
  }
  return result;
}

planning::LineOptions ToLineOptions(const py::handle& options, const StopCondition& stop_condition) {
  planning::LineOptions result;
  result.stop_condition = stop_condition;
  if (!options.is_none()) {
    Take(options, "step", result.step);
    Take(options, "angle_step", result.angle_step);
    Take(options, "position_tolerance", result.position_tolerance);
    Take(options, "orientation_tolerance", result.orientation_tolerance);
    Take(options, "max_deviation", result.max_deviation);
    Take(options, "max_angle", result.max_angle);
    Take(options, "max_joint_step", result.max_joint_step);
  }
  return result;
}

planning::MotionLimits ToMotionLimits(const py::handle& limits) {
  planning::MotionLimits result;
  Take(limits, "velocity", result.velocity);
  Take(limits, "acceleration", result.acceleration);
  Take(limits, "jerk", result.jerk);
  return result;
}

}  // namespace kavo::python
