#include "bindings/python/environments.h"

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "bindings/python/records.h"
#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/motion_planning/environment/basic_3d_environment.h"
#include "kavo/motion_planning/environment/robot_environment_config.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"
#include "kavo/world/world.h"

namespace kavo::python {

using kinematics::ConfigurationLimits;
using planning::DistanceMetric;

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

namespace {

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

}  // namespace

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
               if (!task_space_limits->allFinite() ||
                   (task_space_limits->col(0).array() > task_space_limits->col(1).array()).any()) {
                 throw py::value_error("expected finite task-space limits, the lower ones first");
               }
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

}  // namespace kavo::python
