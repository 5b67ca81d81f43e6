#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "bindings/python/control.h"
#include "bindings/python/records.h"
#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/motion_planning/environment/basic_3d_environment.h"
#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/environment/robot_environment_config.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/rrt/basic_rrt.h"
#include "kavo/motion_planning/rrt/bi_rrt.h"
#include "kavo/motion_planning/rrt/find_path.h"
#include "kavo/motion_planning/rrt/jt_rrt.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/spatial_data_structures/box_index.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "kavo/motion_planning/tree/fast_tree.h"
#include "kavo/motion_planning/tree/tree.h"
#include "kavo/motion_planning/util/motion_shortening.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"
#include "kavo/world/world.h"

namespace kavo::python {

namespace {

using kinematics::ConfigurationLimits;
using planning::DistanceMetric;

// "euclidean", "squared", the weights of the squared distance, or a function of two configurations.
using MetricChoice =
    std::variant<std::string, Eigen::VectorXd, std::function<double(Eigen::VectorXd, Eigen::VectorXd)>>;

DistanceMetric ToMetric(const MetricChoice& choice, Eigen::Index dimension) {
  if (const auto* name = std::get_if<std::string>(&choice)) {
    if (*name == "euclidean") {
      return planning::L2Norm;
    }
    if (*name == "squared") {
      return planning::SquaredL2Norm;
    }
    throw py::value_error("unknown metric '" + *name +
                          "': it is 'euclidean', 'squared', weights or a function");
  }
  if (const auto* weights = std::get_if<Eigen::VectorXd>(&choice)) {
    if (weights->size() != dimension) {
      throw py::value_error("expected a weight for each of the " + std::to_string(dimension) +
                            " coordinates");
    }
    return planning::WeightedSquaredL2Norm(*weights);
  }
  return std::get<2>(choice);
}

// An environment whose rule is a function in Python. Asked without the GIL.
class CustomEnvironment final : public planning::Environment {
 public:
  CustomEnvironment(const Eigen::VectorXd& lower, const Eigen::VectorXd& upper, py::function is_valid,
                    int num_at_once, DistanceMetric metric, int max_sampling, std::uint32_t seed)
      : Environment(num_at_once),
        limits_(lower, upper),
        metric_(std::move(metric)),
        max_sampling_(max_sampling),
        is_valid_(std::move(is_valid)) {
    if (!lower.allFinite() || !upper.allFinite()) {
      throw py::value_error("expected finite limits, between which to draw configurations");
    }
    for (Eigen::Index i = 0; i < lower.size(); ++i) {
      samplers_.emplace_back(seed + static_cast<std::uint32_t>(i));
      samplers_.back().SetRange(lower[i], upper[i]);
    }
  }

  int CSpaceDimension() const override { return static_cast<int>(limits_.Dimension()); }
  const ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const DistanceMetric& CSpaceDistanceMetric() const override { return metric_; }

  bool IsValidConfiguration(const Eigen::VectorXd& q) const override { return CountValid(q) == 1; }

  // The function is asked about nothing beyond the limits, here and below.
  int CountValid(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const override {
    CheckRows(configurations);
    Eigen::Index count = 0;
    while (count < configurations.cols() && IsWithinLimits(configurations.col(count))) {
      ++count;
    }
    const std::vector<bool> valid = Ask(configurations.leftCols(count));
    return static_cast<int>(std::find(valid.begin(), valid.end(), false) - valid.begin());
  }

  // Of each whether it is valid, by one question.
  std::vector<bool> AreValid(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const {
    CheckRows(configurations);
    std::vector<bool> valid(static_cast<std::size_t>(configurations.cols()));
    Eigen::MatrixXd within(configurations.rows(), configurations.cols());
    Eigen::Index count = 0;
    for (Eigen::Index i = 0; i < configurations.cols(); ++i) {
      if (IsWithinLimits(configurations.col(i))) {
        valid[static_cast<std::size_t>(i)] = true;
        within.col(count++) = configurations.col(i);
      }
    }
    const std::vector<bool> answers = Ask(within.leftCols(count));
    auto answer = answers.begin();
    for (std::size_t i = 0; i < valid.size(); ++i) {
      valid[i] = valid[i] && *answer++;
    }
    return valid;
  }

  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    for (int attempt = 0; attempt < max_sampling_; ++attempt) {
      if (drawn_.empty()) {
        Draw();
      }
      const auto [q, is_valid] = std::move(drawn_.front());
      drawn_.pop_front();
      if (is_valid) {
        return q;
      }
    }
    KAVO_LOG(LogLevel::kWarning) << "Unable to find a valid configuration.";
    return std::nullopt;
  }

 private:
  void CheckRows(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const {
    KAVO_CHECK(configurations.rows() == CSpaceDimension(), "bindings/python/research", 1)
        << "A configuration has [" << configurations.rows() << "] coordinates, the environment ["
        << CSpaceDimension() << "].";
  }

  bool IsWithinLimits(const Eigen::Ref<const Eigen::VectorXd>& q) const {
    return (q.array() >= limits_.Min().array()).all() && (q.array() <= limits_.Max().array()).all();
  }

  // As many as are checked at once, in the order in which one by one would draw them.
  void Draw() const {
    Eigen::MatrixXd q(CSpaceDimension(), NumAtOnce());
    for (Eigen::Index column = 0; column < q.cols(); ++column) {
      for (Eigen::Index i = 0; i < q.rows(); ++i) {
        q(i, column) = samplers_[static_cast<std::size_t>(i)].Sample();
      }
    }
    const std::vector<bool> valid = Ask(q);
    for (Eigen::Index column = 0; column < q.cols(); ++column) {
      drawn_.emplace_back(q.col(column), valid[static_cast<std::size_t>(column)]);
    }
  }

  std::vector<bool> Ask(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const {
    const auto count = static_cast<std::size_t>(configurations.cols());
    if (count == 0) {
      return {};
    }
    const py::gil_scoped_acquire acquired;
    // A copy: nobody knows for how long the function keeps it.
    py::array_t<double> rows(
        {static_cast<py::ssize_t>(count), static_cast<py::ssize_t>(configurations.rows())});
    Eigen::Map<Eigen::MatrixXd>(rows.mutable_data(), configurations.rows(), configurations.cols()) =
        configurations;
    const auto answers = py::array_t<bool, py::array::forcecast>::ensure(is_valid_(rows));
    if (!answers || answers.ndim() != 1 || static_cast<std::size_t>(answers.shape(0)) != count) {
      PyErr_Clear();
      throw py::value_error("is_valid was given " + std::to_string(count) +
                            " configurations: expected as many bools, an array of shape (N,)");
    }
    const auto each = answers.unchecked<1>();
    std::vector<bool> valid(count);
    for (std::size_t i = 0; i < count; ++i) {
      valid[i] = each(static_cast<py::ssize_t>(i));
    }
    return valid;
  }

  ConfigurationLimits limits_;
  DistanceMetric metric_;
  int max_sampling_;
  py::function is_valid_;
  mutable std::vector<util::RandomGenerator<double>> samplers_;
  mutable std::deque<std::pair<Eigen::VectorXd, bool>> drawn_;
};

// What Python has of an environment: a guard of its scratch memory beside it.
struct PythonEnvironment {
  explicit PythonEnvironment(std::shared_ptr<planning::Environment> environment_in)
      : environment(std::move(environment_in)) {}

  std::shared_ptr<planning::Environment> environment;
  std::atomic<bool> is_in_use = false;

  Eigen::Index Dimension() const { return environment->CSpaceDimension(); }
};

struct RobotPythonEnvironment : PythonEnvironment {
  using PythonEnvironment::PythonEnvironment;

  planning::RobotEnvironment& Get() const { return static_cast<planning::RobotEnvironment&>(*environment); }
};

py::array_t<bool> AreValid(PythonEnvironment& self,
                           const py::array_t<double, py::array::c_style | py::array::forcecast>& q) {
  if (q.ndim() != 2) {
    throw py::value_error("expected an array with one configuration to a row");
  }
  const Turn turn(self.is_in_use);
  py::array_t<bool> valid(q.shape(0));
  bool* out = valid.mutable_data();
  // Rows here are columns there.
  const Eigen::Map<const Eigen::MatrixXd> columns(q.data(), q.shape(1), q.shape(0));
  const py::gil_scoped_release released;
  if (const auto* const custom = dynamic_cast<const CustomEnvironment*>(self.environment.get())) {
    const std::vector<bool> all = custom->AreValid(columns);
    std::copy(all.begin(), all.end(), out);
    return valid;
  }
  Eigen::Index done = 0;
  while (done < columns.cols()) {
    const Eigen::Index count = self.environment->CountValid(columns.rightCols(columns.cols() - done));
    std::fill_n(out + done, count, true);
    done += count;
    if (done < columns.cols()) {
      out[done++] = false;
    }
  }
  return valid;
}

void DefineEnvironments(py::module_& module) {
  py::class_<PythonEnvironment>(
      module, "Environment",
      R"(A space to plan in: `CustomEnvironment`, `RobotEnvironment`, `PointEnvironment`.

One thread at a time: a second one gets a `RuntimeError`.)")
      .def_property_readonly("dimension", &PythonEnvironment::Dimension, "Number of coordinates.")
      .def_property_readonly(
          "lower", [](const PythonEnvironment& self) { return self.environment->CSpaceCoordLimits().Min(); },
          "Lower limits (dimension,).")
      .def_property_readonly(
          "upper", [](const PythonEnvironment& self) { return self.environment->CSpaceCoordLimits().Max(); },
          "Upper limits (dimension,).")
      .def("are_valid", &AreValid, py::arg("configurations"), "Of configurations (N, dimension): bools (N,).")
      .def(
          "is_valid_motion",
          [](PythonEnvironment& self, const Eigen::VectorXd& start, const Eigen::VectorXd& end,
             double resolution) {
            const Turn turn(self.is_in_use);
            const py::gil_scoped_release released;
            return self.environment->IsValidMotion(start, end, resolution);
          },
          py::arg("start"), py::arg("end"), py::arg("resolution") = 0.01,
          "Of the straight motion between two configurations; what proves it does not look at the "
          "resolution.")
      .def(
          "sample",
          [](PythonEnvironment& self) {
            const Turn turn(self.is_in_use);
            const py::gil_scoped_release released;
            return self.environment->SampleConfiguration();
          },
          "A random valid configuration (dimension,), or None if none was found.");
  struct Custom : PythonEnvironment {
    using PythonEnvironment::PythonEnvironment;
  };
  py::class_<Custom, PythonEnvironment>(module, "CustomEnvironment",
                                        R"(A space of your own, by a function in Python.

Args:
    lower, upper: The closed range of each coordinate (dimension,).
    is_valid: Is given configurations (N, dimension) within the limits and says which are valid (N,). What it raises
        leaves the query.
    at_once: How many a planner gives it at a time, about; 1 asks about nothing that it does not need.
    metric: "euclidean", "squared", the weights of the squared distance, or a function of two configurations.
    max_sampling: Random configurations tried for a valid one.
    seed: Coordinate i is drawn with `seed` + i.)")
      .def(py::init([](const Eigen::VectorXd& lower, const Eigen::VectorXd& upper,
                       const py::function& is_valid, int at_once, const MetricChoice& metric,
                       int max_sampling, std::uint32_t seed) {
             return std::make_unique<Custom>(std::make_shared<CustomEnvironment>(
                 lower, upper, is_valid, at_once, ToMetric(metric, lower.size()), max_sampling, seed));
           }),
           py::arg("lower"), py::arg("upper"), py::arg("is_valid"), py::kw_only(), py::arg("at_once") = 32,
           py::arg("metric") = "euclidean", py::arg("max_sampling") = 10000, py::arg("seed") = 1);
  struct Point : PythonEnvironment {
    using PythonEnvironment::PythonEnvironment;
  };
  py::class_<Point, PythonEnvironment>(
      module, "PointEnvironment", "A point that moves in a box (3,) among the obstacles of a world. Metres.")
      .def(py::init([](const World& world, const Eigen::Vector3d& lower, const Eigen::Vector3d& upper,
                       std::uint64_t max_sampling, std::uint32_t seed) {
             return std::make_unique<Point>(
                 planning::CreateBasic3dEnvironment({world.view(), {lower, upper}, max_sampling, seed}));
           }),
           py::arg("world"), py::arg("lower"), py::arg("upper"), py::kw_only(),
           py::arg("max_sampling") = 10000, py::arg("seed") = 1);
  py::class_<RobotPythonEnvironment, PythonEnvironment>(module, "RobotEnvironment",
                                                        R"(A robot among the obstacles of a world.

Args:
    weights: Of the squared distance (dof,); ones unless given.
    max_sampling: Random configurations tried for a valid one.
    seed: Coordinate i is drawn with `seed` + i.
    frame: Whose position `find_by_jt_rrt` plans to; the last one unless given.
    task_space_limits: The box in which positions are drawn for that (3, 2): lower and upper, metres.)")
      .def(py::init([](const Robot& robot, const World& world, const std::optional<Eigen::VectorXd>& weights,
                       int max_sampling, int seed, const std::string& frame,
                       const std::optional<Eigen::Matrix<double, 3, 2>>& task_space_limits) {
             planning::RobotEnvironmentConfig config(
                 robot.description.get(), world.view(),
                 weights.value_or(Eigen::VectorXd::Ones(robot.NumCoordinates())), max_sampling, seed, seed);
             if (!frame.empty() && !config.SetTaskSpaceFrame(frame)) {
               throw py::value_error("the robot has no frame '" + frame + "'");
             }
             if (task_space_limits) {
               config.SetTaskSpaceLimits({task_space_limits->col(0), task_space_limits->col(1)});
             }
             return std::make_unique<RobotPythonEnvironment>(planning::CreateRobotEnvironment(config));
           }),
           py::arg("robot"), py::arg("world"), py::kw_only(), py::arg("weights") = py::none(),
           py::arg("max_sampling") = 10000, py::arg("seed") = 1, py::arg("frame") = "",
           py::arg("task_space_limits") = py::none())
      .def(
          "fault",
          [](RobotPythonEnvironment& self, const Eigen::VectorXd& q) {
            const Turn turn(self.is_in_use);
            return self.Get().FindFault(q);
          },
          py::arg("q"), "Why a configuration (dof,) is not valid: a `Fault`, or None if it is.")
      .def(
          "update_world",
          [](RobotPythonEnvironment& self) {
            const Turn turn(self.is_in_use);
            self.Get().UpdateWorldView();
          },
          "Takes the world as it is now.");
}

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

// A tree whose nodes Python knows by their numbers, in the order in which they came.
class NumberedTree {
 public:
  explicit NumberedTree(std::unique_ptr<planning::Tree> tree) : tree_(std::move(tree)) {}

  std::uint64_t Size() const { return tree_->NumNodes(); }

  // Adds configurations, each with the number of its parent; the first of all is the root.
  void Add(const Numbers& rows, const py::array_t<std::int64_t, py::array::forcecast>& parents) {
    const Configurations configurations = ToConfigurations(rows);
    if (parents.ndim() != 1 || parents.shape(0) != rows.shape(0)) {
      throw py::value_error("expected a parent for each configuration, an array of shape (N,)");
    }
    if (rows.shape(0) > 0 && rows.shape(1) != tree_->CSpaceDimension()) {
      throw py::value_error("expected configurations of " + std::to_string(tree_->CSpaceDimension()) +
                            " coordinates");
    }
    const auto each = parents.unchecked<1>();
    const auto known = static_cast<std::int64_t>(Size());
    for (std::int64_t i = 0; i < rows.shape(0); ++i) {
      const bool is_root = known + i == 0;
      if (is_root ? each(i) != -1 : each(i) < 0 || each(i) >= known + i) {
        throw py::value_error("node " + std::to_string(known + i) + " has parent " + std::to_string(each(i)) +
                              ": expected -1 for the root, and the number of an earlier node for others");
      }
    }
    const Turn turn(is_in_use_);
    for (std::size_t i = 0; i < configurations.size(); ++i) {
      const std::int64_t number = known + static_cast<std::int64_t>(i);
      const std::shared_ptr<planning::Node> node =
          number == 0 ? tree_->ClearAndSetRoot(planning::Node(configurations[i]))
                      : tree_->Insert(planning::Node(
                            configurations[i],
                            tree_->Nodes()[static_cast<std::size_t>(each(static_cast<py::ssize_t>(i)))]));
      numbers_.emplace(node.get(), number);
    }
  }

  py::tuple Closest(const Numbers& queries, bool is_approximate) const {
    if (Size() == 0) {
      throw py::value_error("the tree is empty");
    }
    const Configurations configurations = ToConfigurations(queries);
    if (queries.shape(0) > 0 && queries.shape(1) != tree_->CSpaceDimension()) {
      throw py::value_error("expected queries of " + std::to_string(tree_->CSpaceDimension()) +
                            " coordinates");
    }
    const auto count = static_cast<py::ssize_t>(configurations.size());
    py::array_t<std::int64_t> nodes(count);
    py::array_t<double> distances(count);
    std::int64_t* node = nodes.mutable_data();
    double* distance = distances.mutable_data();
    const Turn turn(is_in_use_);
    for (const Eigen::VectorXd& q : configurations) {
      const planning::ClosestNode closest =
          is_approximate ? tree_->GetApproxClosest(q) : tree_->GetClosest(q);
      *node++ = numbers_.at(closest.node.get());
      *distance++ = closest.distance;
    }
    return py::make_tuple(nodes, distances);
  }

  std::vector<std::int64_t> Backtrace(std::uint64_t number) const {
    if (number >= Size()) {
      throw py::index_error("no such node");
    }
    std::vector<std::int64_t> chain;
    for (const std::shared_ptr<planning::Node>& node : tree_->Backtrace(tree_->Nodes()[number])) {
      chain.push_back(numbers_.at(node.get()));
    }
    return chain;
  }

  py::array_t<double> Nodes() const {
    Configurations configurations;
    for (const std::shared_ptr<planning::Node>& node : tree_->Nodes()) {
      configurations.push_back(node->Configuration());
    }
    return ToArray(configurations, tree_->CSpaceDimension());
  }

 private:
  std::unique_ptr<planning::Tree> tree_;
  std::unordered_map<const planning::Node*, std::int64_t> numbers_;
  // A metric in Python may call back, and lets other threads run.
  mutable std::atomic<bool> is_in_use_ = false;
};

planning::RStarTreeConfig IndexConfig(
    int dimension, int min_entries, int max_entries, int num_entries_to_prune = 0,
    planning::EntrySplitterType splitter = planning::EntrySplitterType::kStar) {
  using planning::SelectionMetric;
  return {dimension,
          min_entries,
          max_entries,
          num_entries_to_prune,
          /*max_approx_cost_evals_for_selection_in=*/8,
          splitter,
          /*internal_node_selection_metric_in=*/SelectionMetric::kMinimumCentroidDistance,
          /*leaf_parent_selection_metric_in=*/SelectionMetric::kMinimumVolumeIncrease,
          /*reinsertion_selection_metric_in=*/SelectionMetric::kMinimumCentroidDistance,
          /*approx_nearest_neighbor_selection_metric_in=*/SelectionMetric::kMinimumCentroidDistance};
}

// Boxes that Python knows by their numbers, in the order in which they came.
class NumberedBoxes {
 public:
  explicit NumberedBoxes(const planning::RStarTreeConfig& config)
      : dimension_(config.dimension), index_(config) {}

  std::size_t Size() const { return index_.Size(); }

  void Add(const Numbers& lower, const std::optional<Numbers>& upper) {
    const Configurations lowest = ToRows(lower);
    const Configurations highest = upper ? ToRows(*upper) : lowest;
    if (lowest.size() != highest.size()) {
      throw py::value_error("expected as many upper corners as lower ones");
    }
    for (std::size_t i = 0; i < lowest.size(); ++i) {
      if (!lowest[i].allFinite() || !highest[i].allFinite() ||
          (lowest[i].array() > highest[i].array()).any()) {
        throw py::value_error("box " + std::to_string(i) +
                              " is not finite, or has a lower corner above its upper one");
      }
    }
    for (std::size_t i = 0; i < lowest.size(); ++i) {
      index_.Add(lowest[i], highest[i]);
    }
  }

  py::tuple Nearest(const Numbers& points, bool is_approximate) const {
    if (Size() == 0) {
      throw py::value_error("the tree is empty");
    }
    const Configurations rows = ToRows(points);
    const auto count = static_cast<py::ssize_t>(rows.size());
    py::array_t<std::int64_t> boxes(count);
    py::array_t<double> distances(count);
    std::int64_t* box = boxes.mutable_data();
    double* distance = distances.mutable_data();
    for (const Eigen::VectorXd& point : rows) {
      const std::size_t nearest = is_approximate ? index_.ApproxNearest(point) : index_.Nearest(point);
      *box++ = static_cast<std::int64_t>(nearest);
      *distance++ = index_.Distance(nearest, point);
    }
    return py::make_tuple(boxes, distances);
  }

 private:
  Configurations ToRows(const Numbers& rows) const {
    Configurations all = ToConfigurations(rows);
    if (rows.shape(0) > 0 && rows.shape(1) != dimension_) {
      throw py::value_error("expected rows of " + std::to_string(dimension_) + " coordinates");
    }
    return all;
  }

  int dimension_;
  planning::BoxIndex index_;
};

void DefineBoxes(py::module_& module) {
  using planning::EntrySplitterType;
  py::class_<NumberedBoxes>(
      module, "RStarTree",
      R"(An index of boxes and points that answers which of them is nearest to a point. It only grows.

Boxes are known by their numbers, in the order in which they came. What is no such tree is a `FatalError`.

Args:
    dimension: Of the boxes.
    min_entries_per_node, max_entries_per_node: At least 2, and twice the former.
    num_reinserted: How many entries leave a node that is too full, before it is split, and are added anew.
    split: "star" (by margins and overlaps: the better tree) or "basic" (by two seeds: faster).)")
      .def(py::init([](int dimension, int min_entries, int max_entries, int num_reinserted,
                       const std::string& split) {
             if (split != "star" && split != "basic") {
               throw py::value_error("unknown split '" + split + "': it is 'star' or 'basic'");
             }
             return NumberedBoxes(
                 IndexConfig(dimension, min_entries, max_entries, num_reinserted,
                             split == "star" ? EntrySplitterType::kStar : EntrySplitterType::kBasic));
           }),
           py::arg("dimension"), py::kw_only(), py::arg("min_entries_per_node") = 64,
           py::arg("max_entries_per_node") = 128, py::arg("num_reinserted") = 0, py::arg("split") = "star")
      .def("__len__", &NumberedBoxes::Size)
      .def("add", &NumberedBoxes::Add, py::arg("lower"), py::arg("upper") = py::none(),
           "Adds boxes by their corners (N, dimension), or points by these alone.")
      .def("nearest", &NumberedBoxes::Nearest, py::arg("points"), py::arg("approximate") = false,
           R"(The nearest boxes.

Args:
    points: (N, dimension).
    approximate: Whether the nearest one of a leaf near the point will do.

Returns:
    Their numbers (N,) and distances (N,), zero inside.)");
}

void DefineTrees(py::module_& module) {
  py::class_<NumberedTree> tree(module, "Tree",
                                R"(A growing tree of configurations that answers which of them is nearest.

Nodes are known by their numbers, in the order in which they came. See `basic_tree` and `fast_tree`.)");
  tree.def("__len__", &NumberedTree::Size)
      .def_property_readonly("nodes", &NumberedTree::Nodes, "All configurations (N, dimension).")
      .def("add", &NumberedTree::Add, py::arg("configurations"), py::arg("parents"),
           "Adds configurations (N, dimension) with the numbers of their parents (N,); -1 for the first, the "
           "root.")
      .def("closest", &NumberedTree::Closest, py::arg("queries"), py::arg("approximate") = false,
           R"(The nearest nodes.

Args:
    queries: (N, dimension).
    approximate: Whether a near one will do, where a tree knows how to find it faster.

Returns:
    Their numbers (N,) and distances (N,).)")
      .def("backtrace", &NumberedTree::Backtrace, py::arg("node"),
           "The numbers from a node (first) to the root (last).");
  module.def(
      "basic_tree",
      [](int dimension, const MetricChoice& metric) {
        if (dimension < 1) {
          throw py::value_error("the dimension must be positive");
        }
        return std::make_unique<NumberedTree>(planning::CreateBasicTree(static_cast<unsigned long>(dimension),
                                                                        ToMetric(metric, dimension), false));
      },
      py::arg("dimension"), py::arg("metric") = "euclidean",
      "A tree that scans all nodes, under any metric (see `CustomEnvironment`).");
  module.def(
      "fast_tree",
      [](int dimension, int min_entries, int max_entries) {
        return std::make_unique<NumberedTree>(planning::CreateFastTree(
            planning::FastTreeConfig(IndexConfig(dimension, min_entries, max_entries))));
      },
      py::arg("dimension"), py::kw_only(), py::arg("min_entries_per_node") = 64,
      py::arg("max_entries_per_node") = 128,
      "A tree with an R*-tree as its index, under the Euclidean distance.");
  module.def(
      "distance",
      [](const Eigen::VectorXd& a, const Eigen::VectorXd& b, const MetricChoice& metric) {
        if (a.size() != b.size()) {
          throw py::value_error("expected two configurations of one length");
        }
        return ToMetric(metric, a.size())(a, b);
      },
      py::arg("a"), py::arg("b"), py::arg("metric") = "euclidean",
      "Of two configurations, under a metric (see `CustomEnvironment`).");
}

}  // namespace

void DefineResearch(py::module_& module) {
  DefineEnvironments(module);
  DefineSearches(module);
  DefineTrees(module);
  DefineBoxes(module);
}

}  // namespace kavo::python
