#include <cstddef>
#include <exception>
#include <utility>

#include "bindings/python/bindings.h"
#include "kavo/formats/file_error.h"
#include "kavo/util/fatal_error.h"

namespace kavo::python {

namespace {

void CheckRows(const Numbers& rows, py::ssize_t columns) {
  if (rows.ndim() != 2 || (columns >= 0 && rows.shape(1) != columns)) {
    throw py::value_error(columns < 0 ? "expected an array with one configuration to a row"
                                      : "expected an array of shape (N, 3)");
  }
}

}  // namespace

py::array_t<double> ToArray(const Configurations& configurations, Eigen::Index dimension) {
  py::array_t<double> array(
      {static_cast<py::ssize_t>(configurations.size()), static_cast<py::ssize_t>(dimension)});
  double* out = array.mutable_data();
  for (const Eigen::VectorXd& configuration : configurations) {
    Eigen::Map<Eigen::VectorXd>(out, dimension) = configuration;
    out += dimension;
  }
  return array;
}

Configurations ToConfigurations(const Numbers& rows) {
  CheckRows(rows, -1);
  const auto numbers = rows.unchecked<2>();
  Configurations configurations(static_cast<std::size_t>(rows.shape(0)), Eigen::VectorXd(rows.shape(1)));
  for (py::ssize_t i = 0; i < rows.shape(0); ++i) {
    for (py::ssize_t j = 0; j < rows.shape(1); ++j) {
      configurations[static_cast<std::size_t>(i)][j] = numbers(i, j);
    }
  }
  return configurations;
}

std::vector<Eigen::Vector3d> ToPoints(const Numbers& rows) {
  CheckRows(rows, 3);
  const auto numbers = rows.unchecked<2>();
  std::vector<Eigen::Vector3d> points;
  points.reserve(static_cast<std::size_t>(rows.shape(0)));
  for (py::ssize_t i = 0; i < rows.shape(0); ++i) {
    points.emplace_back(numbers(i, 0), numbers(i, 1), numbers(i, 2));
  }
  return points;
}

void DefineErrors(py::module_& /*module*/) {
  py::register_local_exception_translator([](std::exception_ptr thrown) {
    const auto raise = [](const char* name, const auto&... fields) {
      const py::object type = py::module_::import("kavo.errors").attr(name);
      PyErr_SetObject(type.ptr(), type(fields...).ptr());
    };
    try {
      std::rethrow_exception(std::move(thrown));
    } catch (const util::FatalError& error) {
      raise("FatalError", error.condition(), error.file(), error.line(), error.message());
    } catch (const formats::FileError& error) {
      raise("FileError", error.file(), error.line(), error.message());
    }
  });
}

}  // namespace kavo::python

PYBIND11_MODULE(_kavo, module) {
  using namespace kavo::python;  // NOLINT(google-build-using-namespace)
  module.doc() = "What the package kavo is made of.";
  // Types come before the signatures and defaults that name them.
  DefineErrors(module);
  DefineLog(module);
  DefineWorld(module);
  DefineRobot(module);
  DefineKinematics(module);
  DefinePlanPage(module);
  DefinePlanner(module);
  DefineTrajectory(module);
  DefineFormats(module);
  DefineEnvironments(module);
  DefineSearches(module);
  DefineTrees(module);
}
