#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "bindings/python/control.h"
#include "bindings/python/environments.h"
#include "bindings/python/records.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/rrt/basic_rrt.h"
#include "kavo/motion_planning/rrt/bi_rrt.h"
#include "kavo/motion_planning/rrt/find_path.h"
#include "kavo/motion_planning/rrt/jt_rrt.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/util/motion_shortening.h"
#include "kavo/motion_planning/util/smoothing.h"

namespace kavo::python {

namespace {

// \param environment That of `self`, of its own type.
template <typename Environment, typename Config, typename Target>
py::object Find(PythonEnvironment& self, const std::shared_ptr<Environment>& environment,
                const Config& config, const Eigen::VectorXd& start, const Target& target,
                planning::FindPathOptions options, const std::optional<double>& timeout,
                const py::object& stop) {
  const Turn turn(self.is_in_use);
  Control control;
  options.stop_condition = control.Condition();
  const planning::FoundPath found = Run(control, timeout, stop, [&] {
    return planning::FindPath(environment, config, start, target, options);
  });
  return MakeRecord("FoundPath", planning::ToString(found.status), ToArray(found.path, self.Dimension()),
                    found.was_shortening_stopped, found.num_raw_waypoints, found.num_iterations,
                    found.num_nodes);
}

planning::FindPathOptions ShortCuts(bool shorten, int number, unsigned int seed) {
  planning::FindPathOptions options;
  options.shorten = shorten;
  options.num_short_cuts = number;
  options.short_cut_seed = seed;
  return options;
}

py::object FindByRrtConnect(PythonEnvironment& self, const Eigen::VectorXd& start,
                            const Eigen::VectorXd& target, double step_size, unsigned long max_iterations,
                            double exploration_fraction, std::uint64_t max_nodes, bool shorten,
                            int num_short_cuts, unsigned int short_cut_seed,
                            const std::optional<double>& timeout, const py::object& stop) {
  planning::RRTConnectConfig config(step_size, max_iterations, exploration_fraction);
  config.max_nodes = max_nodes;
  return Find(self, self.environment, config, start, target,
              ShortCuts(shorten, num_short_cuts, short_cut_seed), timeout, stop);
}

py::object FindByBasicRrt(PythonEnvironment& self, const Eigen::VectorXd& start,
                          const Eigen::VectorXd& target, double step_size, double tolerance,
                          unsigned long max_iterations, std::uint64_t max_nodes, bool shorten,
                          int num_short_cuts, unsigned int short_cut_seed,
                          const std::optional<double>& timeout, const py::object& stop) {
  planning::BasicRRTConfig config(Eigen::VectorXd::Constant(self.Dimension(), tolerance), step_size,
                                  max_iterations, false);
  config.max_nodes = max_nodes;
  return Find(self, self.environment, config, start, target,
              ShortCuts(shorten, num_short_cuts, short_cut_seed), timeout, stop);
}

py::object FindByJtRrt(RobotPythonEnvironment& self, const Eigen::VectorXd& start,
                       const Eigen::Vector3d& position, double step_size, const Eigen::Vector3d& zone,
                       double tolerance, double exploitation_fraction, double exploration_fraction,
                       std::size_t max_iterations, std::uint64_t max_nodes, int seed, bool shorten,
                       int num_short_cuts, unsigned int short_cut_seed, const std::optional<double>& timeout,
                       const py::object& stop) {
  planning::JtRRTConfig config(step_size, zone, tolerance, exploitation_fraction, exploration_fraction,
                               max_iterations, false, seed);
  config.max_nodes = max_nodes;
  return Find(self, std::static_pointer_cast<planning::RobotEnvironment>(self.environment), config, start,
              position, ShortCuts(shorten, num_short_cuts, short_cut_seed), timeout, stop);
}

py::object FindByBiRrt(PythonEnvironment& self, const Eigen::VectorXd& start, const Eigen::VectorXd& target,
                       double range, double balance, double domain, const std::string& samples,
                       double resolution, std::uint64_t max_iterations, std::uint64_t max_nodes,
                       std::uint32_t seed, bool shorten, int effort, const std::optional<double>& timeout,
                       const py::object& stop) {
  using Samples = planning::BiRRTConfig::Samples;
  planning::BiRRTConfig config;
  config.range = range;
  config.balance = balance;
  config.domain = domain;
  if (samples == planning::ToString(Samples::kEnvironment)) {
    config.samples = Samples::kEnvironment;
  } else if (samples != planning::ToString(Samples::kLowDiscrepancy)) {
    throw py::value_error("unknown samples '" + samples + "': they are 'low_discrepancy' or 'environment'");
  }
  config.resolution = resolution;
  config.max_iterations = max_iterations;
  config.max_nodes = max_nodes;
  config.seed = seed;
  planning::FindPathOptions options;
  options.shorten = shorten;
  options.effort = effort;
  return Find(self, self.environment, config, start, target, options, timeout, stop);
}

py::array_t<double> ShortCircuit(PythonEnvironment& self, const Numbers& path, double step_size,
                                 int max_iterations, unsigned int seed, const std::optional<double>& timeout,
                                 const py::object& stop) {
  const Configurations configurations = ToConfigurations(path);
  if (path.shape(1) != self.Dimension()) {
    throw py::value_error("expected configurations of " + std::to_string(self.Dimension()) + " coordinates");
  }
  const Turn turn(self.is_in_use);
  Control control;
  return ToArray(Run(control, timeout, stop,
                     [&] {
                       return planning::ShortCircuitPathUntil(control.Condition(), configurations,
                                                              self.environment, step_size, max_iterations,
                                                              seed);
                     })
                     .path,
                 self.Dimension());
}

py::array_t<double> Shorten(PythonEnvironment& self, const Numbers& path, int effort, double resolution,
                            const std::optional<double>& timeout, const py::object& stop) {
  const Configurations configurations = ToConfigurations(path);
  const Turn turn(self.is_in_use);
  Control control;
  return ToArray(Run(control, timeout, stop,
                     [&] {
                       return planning::ShortenByMotions(configurations, *self.environment,
                                                         {effort, resolution, control.Condition()});
                     })
                     .path,
                 self.Dimension());
}

}  // namespace

void DefineSearches(py::module_& module) {
  const planning::FindPathOptions options;
  const planning::BiRRTConfig bi_rrt;
  module.def("find_by_rrt_connect", &FindByRrtConnect, py::arg("environment"), py::arg("start"),
             py::arg("target"), py::kw_only(), py::arg("step_size") = 0.1, py::arg("max_iterations") = 10000,
             py::arg("exploration_fraction") = 0.5, py::arg("max_nodes") = planning::kDefaultMaxNodes,
             py::arg("shorten") = options.shorten, py::arg("num_short_cuts") = options.num_short_cuts,
             py::arg("short_cut_seed") = options.short_cut_seed, py::arg("timeout") = py::none(),
             py::arg("stop") = py::none(),
             R"(A path in any environment, in steps of an equal length. Returns a `FoundPath`.

One query after another goes on in the environment's random sequence. `timeout` and `stop` as for `Planner`.)");
  const planning::MotionPlannerConfig of_planner(LoadThreeLinkArmRobotDescription());
  module.def("find_by_basic_rrt", &FindByBasicRrt, py::arg("environment"), py::arg("start"),
             py::arg("target"), py::kw_only(), py::arg("step_size") = 0.1, py::arg("tolerance") = 0.1,
             py::arg("max_iterations") = 10000, py::arg("max_nodes") = planning::kDefaultMaxNodes,
             py::arg("shorten") = options.shorten, py::arg("num_short_cuts") = options.num_short_cuts,
             py::arg("short_cut_seed") = options.short_cut_seed, py::arg("timeout") = py::none(),
             py::arg("stop") = py::none(),
             R"(A path in an environment of three dimensions, by one tree. Returns a `FoundPath`.

`tolerance` is how far, by coordinate, from the target a node may be for the last edge, which is not checked. All else as
for `find_by_rrt_connect`.)");
  module.def(
      "find_by_jt_rrt", &FindByJtRrt, py::arg("environment"), py::arg("start"), py::arg("position"),
      py::kw_only(), py::arg("step_size") = of_planner.step_size,
      py::arg("zone") = of_planner.x_target_zone_tolerance,
      py::arg("tolerance") = of_planner.x_target_final_tolerance,
      py::arg("exploitation_fraction") = of_planner.task_space_exploitation_fraction,
      py::arg("exploration_fraction") = of_planner.task_space_exploration_fraction,
      py::arg("max_iterations") = 10000, py::arg("max_nodes") = planning::kDefaultMaxNodes,
      py::arg("seed") = 1, py::arg("shorten") = options.shorten,
      py::arg("num_short_cuts") = options.num_short_cuts, py::arg("short_cut_seed") = options.short_cut_seed,
      py::arg("timeout") = py::none(), py::arg("stop") = py::none(),
      R"(A path of a robot to a position of a frame, along the transposed Jacobian. Returns a `FoundPath`.

Args:
    environment: A `RobotEnvironment` with `task_space_limits`.
    start: (dof,).
    position: (3,), metres, relative to the base.
    step_size: Of one extension, in c-space.
    zone: Half-widths of the box around the position in which the last stretch begins (3,); that is not checked.
    tolerance: How near that has to get. Metres.
    exploitation_fraction: Share of the extensions towards the position.
    exploration_fraction: Share of those towards random positions; the rest go towards random configurations.

All else as for `find_by_rrt_connect`.)");
  module.def("find_by_bi_rrt", &FindByBiRrt, py::arg("environment"), py::arg("start"), py::arg("target"),
             py::kw_only(), py::arg("range") = bi_rrt.range, py::arg("balance") = bi_rrt.balance,
             py::arg("domain") = bi_rrt.domain, py::arg("samples") = planning::ToString(bi_rrt.samples),
             py::arg("resolution") = bi_rrt.resolution, py::arg("max_iterations") = bi_rrt.max_iterations,
             py::arg("max_nodes") = bi_rrt.max_nodes, py::arg("seed") = bi_rrt.seed,
             py::arg("shorten") = options.shorten, py::arg("effort") = options.effort,
             py::arg("timeout") = py::none(), py::arg("stop") = py::none(),
             "A path in any environment, by whole motions. Returns a `FoundPath`.");
  module.def(
      "short_circuit_path", &ShortCircuit, py::arg("environment"), py::arg("path"), py::arg("step_size"),
      py::arg("max_iterations") = options.num_short_cuts, py::arg("seed") = options.short_cut_seed,
      py::kw_only(), py::arg("timeout") = py::none(), py::arg("stop") = py::none(),
      "A path (N, dimension) shortened by straight short cuts between its waypoints; as short as it is "
      "by then where `timeout` or `stop` end it.");
  module.def("shorten_by_motions", &Shorten, py::arg("environment"), py::arg("path"),
             py::arg("effort") = options.effort, py::arg("resolution") = 0.0, py::kw_only(),
             py::arg("timeout") = py::none(), py::arg("stop") = py::none(),
             "A path (N, dimension) shortened by whole motions; its start stays, and it never gets longer. "
             "`timeout` and `stop` as above.");
}

}  // namespace kavo::python
