#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "bindings/python/records.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"

namespace kavo::python {

namespace {

using kinematics::JointLimits;
using Names = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;
using FrameSpheres = std::map<std::string, Numbers>;

constexpr const char* kJointTypes[] = {"fixed", "revolute", "continuous", "prismatic"};

std::vector<math::Sphere> ToSpheres(const Numbers& rows) {
  if (rows.ndim() != 2 || rows.shape(1) != 4) {
    throw py::value_error("expected spheres as an array of shape (N, 4): x, y, z and radius");
  }
  const auto numbers = rows.unchecked<2>();
  std::vector<math::Sphere> spheres;
  for (py::ssize_t i = 0; i < rows.shape(0); ++i) {
    spheres.push_back({{numbers(i, 0), numbers(i, 1), numbers(i, 2)}, numbers(i, 3)});
  }
  return spheres;
}

JointType ToJointType(const std::string& name) {
  for (const JointType type :
       {JointType::kFixed, JointType::kRevolute, JointType::kContinuous, JointType::kPrismatic}) {
    if (name == kJointTypes[static_cast<int>(type)]) {
      return type;
    }
  }
  throw py::value_error("unknown type of joint '" + name +
                        "': it is 'fixed', 'revolute', 'continuous' or 'prismatic'");
}

// From a `kavo.records.Joint`.
Joint ToJoint(const py::handle& record) {
  const auto take = [&record](const char* name, auto& field) {
    field = CastTo<std::decay_t<decltype(field)>>(name, record.attr(name));
  };
  Joint joint;
  std::string type;
  std::optional<std::pair<double, double>> limits;
  std::optional<std::tuple<std::string, double, double>> mimic;
  take("name", joint.name);
  take("type", type);
  take("parent", joint.parent_frame);
  take("child", joint.child_frame);
  take("origin", joint.origin);
  take("axis", joint.axis);
  take("limits", limits);
  take("default", joint.default_value);
  take("mimic", mimic);
  take("held", joint.held_value);
  joint.type = ToJointType(type);
  if (limits) {
    joint.limits = JointLimits{limits->first, limits->second};
  }
  if (mimic) {
    const auto& [other, multiplier, offset] = *mimic;
    joint.mimic = Joint::Mimic{other, multiplier, offset};
  }
  return joint;
}

std::shared_ptr<RobotDescription> Describe(const std::string& base_frame, const py::iterable& joints,
                                           const FrameSpheres& spheres, const Pairs& pairs) {
  RobotDescriptionBuilder builder(base_frame);
  for (const py::handle joint : joints) {
    builder.addJoint(ToJoint(joint));
  }
  for (const auto& [frame, rows] : spheres) {
    for (const math::Sphere& sphere : ToSpheres(rows)) {
      builder.addCollisionSphere(frame, sphere.center, sphere.radius);
    }
  }
  for (const auto& [a, b] : pairs) {
    builder.addCollisionPair(a, b);
  }
  return builder.build();
}

formats::RobotFileOptions ToOptions(const py::dict& dictionary) {
  formats::RobotFileOptions options;
  for (const auto& [key, value] : dictionary) {
    const std::string name = py::cast<std::string>(key);
    const auto take = [&name](const py::handle& given, auto& option) {
      option = CastTo<std::decay_t<decltype(option)>>(name.c_str(), given);
    };
    if (name == "group") {
      take(value, options.group);
    } else if (name == "joints") {
      take(value, options.joints);
    } else if (name == "joint_values") {
      take(value, options.joint_values);
    } else if (name == "cover") {
      take(value, options.cover);
    } else if (name == "cover_tolerance") {
      take(value, options.cover_tolerance);
    } else if (name == "max_cover_spheres") {
      take(value, options.max_cover_spheres);
    } else if (name == "cover_cache") {
      take(value, options.cover_cache);
    } else if (name == "packages") {
      take(value, options.packages);
    } else if (name == "allow_unreadable_meshes") {
      take(value, options.allow_unreadable_meshes);
    } else if (name == "self_collision") {
      take(value, options.self_collision);
    } else if (name == "self_collision_if_listed") {
      take(value, options.self_collision_if_listed);
    } else {
      throw py::type_error("unknown option '" + name + "' of a robot from files");
    }
  }
  return options;
}

std::optional<formats::FileText> ToFileText(const py::handle& file) {
  if (file.is_none()) {
    return std::nullopt;
  }
  const auto [name, text] = py::cast<std::pair<std::string, std::string>>(file);
  return formats::FileText{name, text};
}

// Files are (name, text), or None.
Robot Parse(const py::object& urdf, const py::object& srdf, const py::object& spheres,
            const py::dict& options) {
  const std::optional<formats::FileText> urdf_text = ToFileText(urdf);
  const std::optional<formats::FileText> srdf_text = ToFileText(srdf);
  const std::optional<formats::FileText> spheres_text = ToFileText(spheres);
  const formats::RobotFileOptions robot_options = ToOptions(options);
  std::shared_ptr<const formats::LoadedRobot> files;
  {
    const py::gil_scoped_release released;
    files = std::make_shared<const formats::LoadedRobot>(
        formats::ParseRobot(urdf_text.value(), srdf_text, spheres_text, robot_options));
  }
  Robot robot(files->description, py::make_tuple("files", urdf, srdf, spheres, options));
  robot.files = files;
  return robot;
}

Robot MakeRobot(const py::tuple& recipe) {
  const std::string kind = py::cast<std::string>(recipe[0]);
  if (kind == "franka") {
    return {LoadFrankaRobotDescription(), recipe};
  }
  if (kind == "three_link_arm") {
    return {LoadThreeLinkArmRobotDescription(), recipe};
  }
  if (kind == "files") {
    return Parse(recipe[1], recipe[2], recipe[3], recipe[4]);
  }
  if (kind == "described") {
    return {Describe(py::cast<std::string>(recipe[1]), recipe[2], py::cast<FrameSpheres>(recipe[3]),
                     py::cast<Pairs>(recipe[4])),
            recipe};
  }
  if (kind == "variant") {
    return py::cast<Robot>(recipe[1].attr(recipe[2])(*py::tuple(recipe[3])));
  }
  throw py::value_error("not the state of a robot: " + kind);
}

Names CoordinateNames(const Robot& robot) {
  Names names;
  for (std::size_t i = 0; i < robot.description->numCSpaceCoords(); ++i) {
    names.push_back(robot.description->cSpaceCoordName(i));
  }
  return names;
}

Eigen::VectorXd Bounds(const Robot& robot, double JointLimits::*bound) {
  const std::vector<JointLimits> limits = ExtractJointLimits(robot.description.get());
  Eigen::VectorXd bounds(robot.NumCoordinates());
  for (std::size_t i = 0; i < limits.size(); ++i) {
    bounds[static_cast<Eigen::Index>(i)] = limits[i].*bound;
  }
  return bounds;
}

std::string LastFrame(const Robot& robot) {
  return robot.files ? robot.files->tip_frame : LastOwnFrame(*robot.description);
}

Kinematics::FrameHandle FrameOf(const Robot& robot, const std::string& name) {
  return robot.kinematics->frame(name.empty() ? LastFrame(robot) : name);
}

Robot WithBody(const Robot& robot, const AttachedBody& body) {
  return MakeVariant(robot, WithAttached(*robot.description, body), "with_attached",
                     py::make_tuple(body.name, body.frame, ToArray(body.spheres), body.pose,
                                    body.touch_frames, body.allowed_obstacles));
}

void DefineForms(py::class_<Robot>& robot) {
  robot
      .def(
          "with_attached",
          [](const Robot& self, const std::string& name, const std::string& frame, const Numbers& spheres,
             const Pose3& pose, const Names& touch_frames, const Names& allowed_obstacles) {
            return WithBody(self, {name, frame, pose, ToSpheres(spheres), touch_frames, allowed_obstacles});
          },
          py::arg("name"), py::arg("frame"), py::arg("spheres"), py::arg("pose") = Pose3(),
          py::arg("touch_frames") = Names(), py::arg("allowed_obstacles") = Names(),
          R"(The robot holding something, which is one of its frames from then on.

Args:
    name: Of no other frame.
    frame: That it is fixed to.
    spheres: (N, 4), x, y, z and radius in its own frame, metres.
    pose: Of it in that frame.
    touch_frames: Frames of the robot that it may touch.
    allowed_obstacles: Names of obstacles that it may touch.)")
      .def(
          "without_attached",
          [](const Robot& self, const std::string& name) {
            return MakeVariant(self, WithoutAttached(*self.description, name), "without_attached",
                               py::make_tuple(name));
          },
          py::arg("name"), "The robot without something that it holds.")
      .def(
          "with_contact_rules",
          [](const Robot& self, const std::map<std::string, double>& paddings,
             const std::map<std::string, Names>& allowed_obstacles) {
            return MakeVariant(self, WithContactRules(*self.description, {paddings, allowed_obstacles}),
                               "with_contact_rules", py::make_tuple(paddings, allowed_obstacles));
          },
          py::arg("paddings") = std::map<std::string, double>(),
          py::arg("allowed_obstacles") = std::map<std::string, Names>(),
          "The robot under other rules: metres by frame to keep from obstacles, and names of obstacles by "
          "frame that it may touch.")
      .def(
          "with_collision_pairs",
          [](const Robot& self, const Pairs& pairs) {
            return MakeVariant(self, WithCollisionPairs(*self.description, pairs), "with_collision_pairs",
                               py::make_tuple(pairs));
          },
          py::arg("pairs"),
          "The robot with these pairs of frames that must not touch each other, instead of its own.")
      .def_property_readonly(
          "attached",
          [](const Robot& self) {
            Names names;
            for (const AttachedBody& body : AttachedBodies(*self.description)) {
              names.push_back(body.name);
            }
            return names;
          },
          "The names of what it holds, in the order attached.");
}

void DefineFileProperties(py::class_<Robot>& robot) {
  robot
      .def_property_readonly(
          "named_configurations",
          [](const Robot& self) {
            return self.files ? self.files->named_configurations : std::map<std::string, Eigen::VectorXd>();
          },
          "Those of an SRDF, by name.")
      .def_property_readonly(
          "uncovered_links",
          [](const Robot& self) {
            std::map<std::string, std::string> links;
            if (self.files) {
              for (const auto& link : self.files->uncovered_links) {
                links.emplace(link.name, link.kind);
              }
            }
            return links;
          },
          "Links with a collision solid that no sphere stands for, and the kind of the first such solid.")
      .def_property_readonly(
          "motion_limits",
          [](const Robot& self) {
            return self.files ? planning::WithDefaults(self.files->motion_limits, *self.description)
                              : planning::DefaultMotionLimits(*self.description);
          },
          "What its files say of how fast it may move, and cautious values where they say nothing: "
          "`MotionLimits`.");
}

}  // namespace

Robot::Robot(std::shared_ptr<RobotDescription> description_in, py::tuple recipe_in)
    : description(std::move(description_in)),
      kinematics(description->kinematics()),
      recipe(std::move(recipe_in)) {}

py::array_t<double> ToArray(const std::vector<math::Sphere>& spheres) {
  Configurations rows;
  for (const math::Sphere& sphere : spheres) {
    rows.emplace_back(Eigen::Vector4d(sphere.center[0], sphere.center[1], sphere.center[2], sphere.radius));
  }
  return ToArray(rows, 4);
}

std::vector<AttachedObject> StillHeld(const RobotDescription& robot,
                                      const std::vector<AttachedObject>& objects) {
  std::vector<AttachedObject> held;
  for (const AttachedBody& body : AttachedBodies(robot)) {
    const auto object = std::find_if(objects.begin(), objects.end(),
                                     [&](const AttachedObject& one) { return one.name == body.name; });
    if (object != objects.end()) {
      held.push_back(*object);
    }
  }
  return held;
}

Robot MakeVariant(const Robot& robot, std::shared_ptr<RobotDescription> description, const char* method,
                  const py::tuple& arguments) {
  Robot variant(std::move(description), py::make_tuple("variant", robot, method, arguments));
  variant.files = robot.files;
  variant.held = StillHeld(*variant.description, robot.held);
  return variant;
}

Robot MakeAttached(const Robot& robot, const RobotDescription& other) {
  Robot result = robot;
  std::vector<AttachedBody> bodies = AttachedBodies(other);
  for (std::size_t i = AttachedBodies(*robot.description).size(); i < bodies.size(); ++i) {
    // What it may touch may have been put down since.
    const Names frames = result.kinematics->frameNames();
    Names& touched = bodies[i].touch_frames;
    touched.erase(std::remove_if(touched.begin(), touched.end(),
                                 [&](const std::string& frame) {
                                   return std::find(frames.begin(), frames.end(), frame) == frames.end();
                                 }),
                  touched.end());
    result = WithBody(result, bodies[i]);
  }
  return result;
}

void DefineRobot(py::module_& module) {
  py::class_<Robot> robot(module, "Robot", R"(What a planner needs to know about a robot. Immutable.

Configurations have one value for each coordinate, (dof,): radians, or metres for a joint that slides. Poses are relative
to the robot's base. See also `load_robot`.)");
  robot
      .def_static(
          "franka", [] { return MakeRobot(py::make_tuple("franka")); },
          "The Franka Emika arm with its hand: seven joints; the last frame, \"tool\", is between the finger "
          "tips.")
      .def_static(
          "three_link_arm", [] { return MakeRobot(py::make_tuple("three_link_arm")); },
          "A planar arm in the x-y plane: three joints about z; the last frame, \"tool\", is the tip.")
      .def_static(
          "describe",
          [](const std::string& base_frame, const py::iterable& joints, const FrameSpheres& spheres,
             const Pairs& pairs) {
            // Arrays and lists are the caller's, who may change them later.
            return MakeRobot(py::module_::import("copy").attr("deepcopy")(
                py::make_tuple("described", base_frame, py::tuple(joints), spheres, pairs)));
          },
          py::arg("base_frame"), py::arg("joints"), py::arg("collision_spheres") = FrameSpheres(),
          py::arg("collision_pairs") = Pairs(),
          R"(A robot described in code. What does not make one is a `FatalError`.

Args:
    base_frame: That everything is attached to.
    joints: `Joint`s; coordinates are in their order.
    collision_spheres: By frame (N, 4): x, y, z and radius, metres, in the frame's coordinates.
    collision_pairs: Frames that must not touch each other.)")
      .def_static("_parse", &Parse, py::arg("urdf"), py::arg("srdf"), py::arg("spheres"), py::arg("options"))
      .def_property_readonly("dof", &Robot::NumCoordinates, "Number of coordinates.")
      .def_property_readonly("coordinate_names", &CoordinateNames, "In the order of the coordinates.")
      .def_property_readonly(
          "frame_names", [](const Robot& self) { return self.kinematics->frameNames(); },
          "All frames, each after the one it is attached to.")
      .def_property_readonly(
          "collision_spheres",
          [](const Robot& self) {
            const auto* internal = dynamic_cast<const RobotDescriptionInternal*>(self.description.get());
            py::dict spheres;
            if (internal != nullptr) {
              for (const std::string& frame : internal->collision().frames) {
                spheres[frame.c_str()] = ToArray(internal->collision().spheresOf(frame));
              }
            }
            return spheres;
          },
          "By frame (N, 4): x, y, z and radius, metres, in the frame's coordinates.")
      .def_property_readonly("tip_frame", &LastFrame, "The frame that positions are most likely asked for.")
      .def_property_readonly(
          "default_configuration",
          [](const Robot& self) { return self.description->defaultCSpaceConfiguration(); },
          "A configuration to start from, within the limits (dof,).")
      .def_property_readonly(
          "lower", [](const Robot& self) { return Bounds(self, &JointLimits::min); },
          "Lower limits (dof,); minus infinity for a joint without.")
      .def_property_readonly(
          "upper", [](const Robot& self) { return Bounds(self, &JointLimits::max); }, "Upper limits (dof,).")
      .def_property_readonly(
          "periodic_coordinates",
          [](const Robot& self) { return ExtractPeriodicCoordinates(self.description.get()); },
          "Indices of coordinates in which a whole turn changes nothing.")
      .def(
          "pose",
          [](const Robot& self, const Eigen::VectorXd& q, const std::string& frame) {
            return self.kinematics->pose(q, FrameOf(self, frame));
          },
          py::arg("q"), py::arg("frame") = "",
          "Where a frame (the tip, unless named) is: maps its coordinates to the base.")
      .def(
          "positions",
          [](const Robot& self, const Numbers& configurations, const std::string& frame) {
            const Kinematics::FrameHandle handle = FrameOf(self, frame);
            Configurations positions;
            for (const Eigen::VectorXd& q : ToConfigurations(configurations)) {
              positions.emplace_back(self.kinematics->position(q, handle));
            }
            return ToArray(positions, 3);
          },
          py::arg("configurations"), py::arg("frame") = "",
          "Of a frame's origin, in configurations (N, dof): metres (N, 3).")
      .def(
          "position_jacobian",
          [](const Robot& self, const Eigen::VectorXd& q, const std::string& frame) {
            return self.kinematics->positionJacobian(q, FrameOf(self, frame));
          },
          py::arg("q"), py::arg("frame") = "", "Derivative of the position by the coordinates (3, dof).")
      .def(py::pickle([](const Robot& self) { return self.recipe; }, &MakeRobot));
  DefineForms(robot);
  DefineFileProperties(robot);
}

}  // namespace kavo::python
