#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <array>
#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "bindings/python/records.h"
#include "kavo/kinematics/interface/inverse_kinematics.h"

namespace kavo::python {

namespace {

// The solver and the guard of its scratch memory.
struct Solver {
  Solver(const Robot& robot, const std::string& frame)
      : dimension(robot.NumCoordinates()), solver(*robot.description, frame) {}

  Eigen::Index dimension;
  InverseKinematics solver;
  std::atomic<bool> is_in_use = false;
};

using Axes = std::array<bool, 3>;

PoseTarget MakeTarget(const Pose3& pose, const Pose3& tool, double position_tolerance,
                      double orientation_tolerance, const Axes& position_counts,
                      const Axes& rotation_counts) {
  return {pose, tool, position_tolerance, orientation_tolerance, position_counts, rotation_counts};
}

py::object Solve(Solver& self, const Pose3& pose, const Pose3& tool, double position_tolerance,
                 double orientation_tolerance, const Axes& position_counts, const Axes& rotation_counts,
                 std::size_t max_solutions, std::uint64_t first_restart, std::uint64_t max_restarts,
                 std::uint32_t seed, const std::optional<Numbers>& seeds,
                 const std::optional<Eigen::VectorXd>& reference,
                 std::function<bool(const Eigen::VectorXd&)> accepts) {
  const Turn turn(self.is_in_use);
  const PoseTarget target =
      MakeTarget(pose, tool, position_tolerance, orientation_tolerance, position_counts, rotation_counts);
  InverseKinematicsOptions options;
  options.max_solutions = max_solutions;
  options.first_restart = first_restart;
  options.max_restarts = max_restarts;
  options.seed = seed;
  if (seeds) {
    options.seeds = ToConfigurations(*seeds);
  }
  options.reference = reference;
  options.filter = std::move(accepts);
  InverseKinematicsResult result;
  {
    const py::gil_scoped_release released;
    result = self.solver.solve(target, options);
  }
  return ToRecord(result, self.dimension);
}

}  // namespace

void DefineKinematics(py::module_& module) {
  constexpr Axes kAll{true, true, true};
  const PoseTarget defaults;
  const InverseKinematicsOptions options;
  py::class_<Solver>(module, "InverseKinematics",
                     R"(Finds configurations in which a frame of a robot has a pose.

Equal questions have equal answers, whatever was asked before. One thread at a time.)")
      .def(py::init<const Robot&, const std::string&>(), py::arg("robot"), py::arg("frame"))
      .def("solve", &Solve, py::arg("pose"), py::kw_only(), py::arg("tool") = Pose3(),
           py::arg("position_tolerance") = defaults.position_tolerance,
           py::arg("orientation_tolerance") = defaults.orientation_tolerance,
           py::arg("position_counts") = kAll, py::arg("rotation_counts") = kAll,
           py::arg("max_solutions") = options.max_solutions, py::arg("first_restart") = options.first_restart,
           py::arg("max_restarts") = options.max_restarts, py::arg("seed") = options.seed,
           py::arg("seeds") = py::none(), py::arg("reference") = py::none(), py::arg("accepts") = py::none(),
           R"(Searches from seeds and from random restarts.

Args:
    pose: Of the tool, relative to the robot's base.
    tool: In the frame; the frame itself unless given.
    position_tolerance, orientation_tolerance: Metres and radians; positive.
    position_counts, rotation_counts: Along and about which axes of `pose` it counts.
    max_solutions: The search ends with so many.
    first_restart, max_restarts: Which random restarts are used; each depends on `seed` and its number alone.
    seeds: Configurations to begin at (N, dof).
    reference: Solutions are sorted by the distance from it (dof,).
    accepts: What else a solution has to be: a function of a configuration (dof,).

Returns:
    An `InverseKinematicsResult`.)")
      .def(
          "follow",
          [](Solver& self, const Eigen::VectorXd& q, const Pose3& pose, const Pose3& tool,
             double position_tolerance, double orientation_tolerance, const Axes& position_counts,
             const Axes& rotation_counts) {
            const Turn turn(self.is_in_use);
            return self.solver.follow(q, MakeTarget(pose, tool, position_tolerance, orientation_tolerance,
                                                    position_counts, rotation_counts));
          },
          py::arg("q"), py::arg("pose"), py::kw_only(), py::arg("tool") = Pose3(),
          py::arg("position_tolerance") = defaults.position_tolerance,
          py::arg("orientation_tolerance") = defaults.orientation_tolerance,
          py::arg("position_counts") = kAll, py::arg("rotation_counts") = kAll,
          "The solution downhill from a configuration, (dof,) or None: for a small step of the pose it is "
          "near.");
}

}  // namespace kavo::python
