#include "kavo/motion_planning/trajectory/trajectory.h"

#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/trajectory_samples.h"
#include "bindings/python/goals.h"
#include "bindings/python/records.h"
#include "kavo/formats/trajectory_file.h"
#include "kavo/motion_planning/interface/time_path.h"
#include "kavo/world/world.h"

namespace kavo::python {

namespace {

using planning::Trajectory;
using States = std::vector<Trajectory::State>;

py::object ToRecord(const Trajectory::State& state) {
  return MakeRecord("State", state.time, state.position, state.velocity, state.acceleration);
}

py::object ToRecord(const States& states, Eigen::Index dimension) {
  const auto rows = [&](Eigen::VectorXd Trajectory::State::*field) {
    Configurations configurations;
    for (const Trajectory::State& state : states) {
      configurations.push_back(state.*field);
    }
    return ToArray(configurations, dimension);
  };
  Eigen::VectorXd times(static_cast<Eigen::Index>(states.size()));
  for (std::size_t i = 0; i < states.size(); ++i) {
    times[static_cast<Eigen::Index>(i)] = states[i].time;
  }
  return MakeRecord("State", times, rows(&Trajectory::State::position), rows(&Trajectory::State::velocity),
                    rows(&Trajectory::State::acceleration));
}

py::object At(const Trajectory& trajectory, const Numbers& times) {
  if (times.ndim() == 0) {
    return ToRecord(trajectory.At(*times.data()));
  }
  if (times.ndim() != 1) {
    throw py::value_error("expected one time, or an array of shape (N,)");
  }
  const auto each = times.unchecked<1>();
  States states;
  for (py::ssize_t i = 0; i < times.shape(0); ++i) {
    states.push_back(trajectory.At(each(i)));
  }
  return ToRecord(states, trajectory.Dimension());
}

std::string ToText(const Trajectory& trajectory, const std::vector<std::string>& names, double period,
                   const std::string& form) {
  const std::optional<formats::TrajectoryForm> known = formats::TrajectoryFormOf("samples." + form);
  if (!known) {
    throw py::value_error("unknown form '" + form + "': it is 'csv', 'json' or 'yaml'");
  }
  return formats::ToText(command::SamplesOf(trajectory.Samples(period), names), *known);
}

Trajectory MakeTrajectory(const Numbers& path, const Robot& robot, const World& world,
                          const py::object& limits, double deviation, const std::vector<std::size_t>& stops,
                          bool limit_jerk) {
  const Configurations configurations = ToConfigurations(path);
  const planning::MotionLimits motion_limits =
      ToMotionLimits(limits.is_none() ? py::cast(robot).attr("motion_limits") : limits);
  const py::gil_scoped_release released;
  return TimePath(configurations, *robot.description, world.view(), motion_limits,
                  {deviation, stops, limit_jerk})
      .trajectory;
}

}  // namespace

void DefineTrajectory(py::module_& module) {
  py::class_<Trajectory>(module, "Trajectory",
                         R"(A motion in time, from 0 to `duration`, made by `time_path`. Immutable.

Each coordinate is a polynomial in time, piece by piece. Seconds; radians, or metres for a joint that slides.)")
      .def_property_readonly("duration", &Trajectory::Duration, "Seconds.")
      .def_property_readonly("dof", &Trajectory::Dimension, "Number of coordinates.")
      .def_property_readonly("waypoint_times", &Trajectory::WaypointTimes,
                             "When each waypoint of the path is passed, seconds.")
      .def("at", &At, py::arg("time"),
           "The `State` at a time, or at times (N,). Before 0 and after the end, as it is then.")
      .def(
          "samples",
          [](const Trajectory& trajectory, double period) {
            return ToRecord(trajectory.Samples(period), trajectory.Dimension());
          },
          py::arg("period"),
          "The `State` at all multiples of a period (seconds), and at the end: (N,) and (N, dof).")
      .def("to_text", &ToText, py::arg("names"), py::arg("period") = 0.01, py::arg("form") = "csv",
           R"(The samples as `kavo plan --trajectory` writes them.

Args:
    names: Of the coordinates, such as `Robot.coordinate_names`.
    period: Seconds between samples.
    form: "csv", "json" or "yaml", a joint-trajectory message.)")
      .def(
          "limit_use",
          [](const Trajectory& trajectory, const py::object& limits) {
            const Trajectory::LimitUse use = trajectory.UseOf(ToMotionLimits(limits));
            return std::vector<double>{use.velocity, use.acceleration, use.jerk};
          },
          py::arg("limits"),
          "How much of limits of velocity, acceleration and jerk is used at most: 1 is all of it.");

  const TimePathOptions options;
  module.def("time_path", &MakeTrajectory, py::arg("path"), py::arg("robot"), py::arg("world"),
             py::arg("limits") = py::none(), py::kw_only(), py::arg("deviation") = options.deviation,
             py::arg("stops") = options.stops, py::arg("limit_jerk") = options.limits_jerk,
             R"(Makes a `Trajectory` of a path, from rest to rest and as fast as limits allow.

Corners are rounded where that is proven free.

Args:
    path: Valid motions (N, dof), such as the path of a `Plan`.
    limits: `MotionLimits`; those of the robot unless given.
    deviation: How far from the path a corner may be rounded, the largest over the coordinates; 0 stops at each.
    stops: Waypoints, by index, to stop at in any case.
    limit_jerk: Whether the jerk is limited, too; the limits have to have one.)");
  module.def("franka_motion_limits", &planning::FrankaMotionLimits,
             "Those of the built-in arm: `MotionLimits`.");
}

}  // namespace kavo::python
