#pragma once

#include <pybind11/eigen.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <Eigen/Core>
#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/robot_file.h"
#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/math/sphere.h"
#include "kavo/motion_planning/interface/attached_object.h"

// What the sources of the module share. Every one of them defines the Python names of one subject.

namespace kavo::python {

namespace py = pybind11;

using Configurations = std::vector<Eigen::VectorXd>;

//! Numbers from Python: any array of doubles is read where it lies, whatever its strides; anything else that
//! is like an array becomes one first.
using Numbers = py::array_t<double, py::array::forcecast>;

//! What a caller gave for something of that name. A value of another type is a `TypeError`.
template <typename Type>
Type CastTo(const char* name, const py::handle& value) {
  try {
    return py::cast<Type>(value);
  } catch (const py::cast_error&) {
    throw py::type_error(std::string("'") + name + "' takes no " + Py_TYPE(value.ptr())->tp_name);
  }
}

//! Configurations as the rows of a new array (N, dimension).
py::array_t<double> ToArray(const Configurations& configurations, Eigen::Index dimension);
//! The rows of an array (N, n). Another number of axes is a `ValueError`.
Configurations ToConfigurations(const Numbers& rows);
//! Spheres as the rows of a new array (N, 4): x, y, z and radius.
py::array_t<double> ToArray(const std::vector<math::Sphere>& spheres);
//! Points (N, 3).
std::vector<Eigen::Vector3d> ToPoints(const Numbers& rows);

//! A robot as Python has it.
struct Robot {
  //! \param recipe_in The state that it is pickled by, from which the same one is made.
  Robot(std::shared_ptr<RobotDescription> description_in, py::tuple recipe_in);

  std::shared_ptr<RobotDescription> description;
  std::shared_ptr<Kinematics> kinematics;
  py::tuple recipe;
  //! Of a robot from files.
  std::shared_ptr<const formats::LoadedRobot> files;
  //! The shapes of what it holds, as far as they are known.
  std::vector<AttachedObject> held;

  Eigen::Index NumCoordinates() const { return static_cast<Eigen::Index>(description->numCSpaceCoords()); }
};

//! Those of some objects that a robot holds, in the order attached.
std::vector<AttachedObject> StillHeld(const RobotDescription& robot,
                                      const std::vector<AttachedObject>& objects);

//! Another form of a robot.
//! \param method, arguments The method of `Robot` in Python that makes it.
Robot MakeVariant(const Robot& robot, std::shared_ptr<RobotDescription> description, const char* method,
                  const py::tuple& arguments);

//! The form that also holds what another description holds beyond it.
Robot MakeAttached(const Robot& robot, const RobotDescription& other);

//! Keeps an object that belongs to one thread at a time from a second one, also from a callback of its own:
//! with the GIL released another thread may come along, which is a `RuntimeError` for that one.
class Turn {
 public:
  explicit Turn(std::atomic<bool>& is_taken) : is_taken_(is_taken) {
    if (is_taken_.exchange(true)) {
      throw std::runtime_error(
          "this object is in use: by another thread, or by the call that calls back here");
    }
  }
  ~Turn() { is_taken_ = false; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  std::atomic<bool>& is_taken_;
};

void DefineEnvironments(py::module_& module);
void DefineErrors(py::module_& module);
void DefineFormats(py::module_& module);
void DefineKinematics(py::module_& module);
void DefineLog(py::module_& module);
void DefinePlanPage(py::module_& module);
void DefinePlanner(py::module_& module);
void DefineRobot(py::module_& module);
void DefineSearches(py::module_& module);
void DefineTrajectory(py::module_& module);
void DefineTrees(py::module_& module);
void DefineWorld(py::module_& module);

}  // namespace kavo::python
