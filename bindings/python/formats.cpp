#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bindings/python/goals.h"
#include "kavo/formats/mesh_file.h"
#include "kavo/formats/octree_file.h"
#include "kavo/formats/point_cloud_file.h"
#include "kavo/formats/request_goal.h"
#include "kavo/formats/robot_in_scene.h"
#include "kavo/formats/scene.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/world/world.h"

namespace kavo::python {

namespace {

using Packages = std::map<std::string, std::string>;

// With the text that it is read from, by which it pickles.
template <typename File>
struct FromText : File {
  std::string text;
  Packages packages;
};

using Scene = FromText<formats::Scene>;
using Request = FromText<formats::Request>;

template <typename File>
using Parser = File (*)(const std::string& text, const std::string& file,
                        const formats::SceneFileOptions& options);

template <typename File, Parser<File> parse>
FromText<File> Parse(const std::pair<std::string, std::string>& file, const Packages& packages) {
  formats::SceneFileOptions options;
  options.packages = packages;
  const py::gil_scoped_release released;
  return {parse(file.second, file.first, options), file.second, packages};
}

// By the forms of a robot that Python has as well, so that the result pickles.
Robot RobotIn(const Scene& scene, const Robot& robot, const std::optional<Eigen::VectorXd>& q) {
  if (!robot.files) {
    throw py::value_error("what a scene says of a robot is about one from files, see load_robot");
  }
  const Eigen::VectorXd at = q.value_or(robot.description->defaultCSpaceConfiguration());
  std::shared_ptr<RobotDescription> form = robot.description;
  std::vector<AttachedObject> held;
  for (const formats::AttachedObject& attached : scene.attached) {
    held.push_back(formats::PlaceAttached(attached, *form, at, scene.file, scene.base_pose));
    form = WithAttached(*form, CoverObject(held.back()));
  }
  form = formats::WithSceneRules(*robot.files, *form, scene);
  Robot result = MakeAttached(robot, *form);
  result.held.insert(result.held.end(), held.begin(), held.end());
  const CollisionModel& collision = dynamic_cast<const RobotDescriptionInternal&>(*form).collision();
  result = MakeVariant(result, WithCollisionPairs(*result.description, collision.pairs),
                       "with_collision_pairs", py::make_tuple(collision.pairs));
  const ContactRules rules = ContactRulesOf(*form);
  return MakeVariant(result, WithContactRules(*result.description, rules), "with_contact_rules",
                     py::make_tuple(rules.paddings, rules.allowed_obstacles));
}

formats::FramePoses FramesOf(const Robot& robot, const Eigen::VectorXd& q) {
  formats::FramePoses frames;
  for (const std::string& frame : robot.kinematics->frameNames()) {
    frames.emplace(frame, robot.kinematics->pose(q, robot.kinematics->frame(frame)));
  }
  return frames;
}

// Obstacles relative to the base of the robot; those given in one of its frames where that is at a
// configuration.
World WorldOf(const Scene& scene, const Robot* robot, const std::optional<Eigen::VectorXd>& q) {
  formats::FramePoses frames;
  if (robot != nullptr) {
    frames = FramesOf(*robot, q.value_or(robot->description->defaultCSpaceConfiguration()));
  }
  World world;
  formats::AddToWorld(scene, world, frames);
  return world;
}

Eigen::VectorXd StartOf(const Request& request, const Robot& robot) {
  return formats::ConfigurationFromJoints(*robot.description, request.start,
                                          robot.description->defaultCSpaceConfiguration());
}

py::list GoalsOf(const Request& request, const Robot& robot, const std::optional<Pose3>& base_pose) {
  const Eigen::VectorXd start = StartOf(request, robot);
  formats::FramePoses frames = FramesOf(robot, start);
  frames[""] = request.base_pose.value_or(base_pose.value_or(Pose3())).inverse();
  py::list goals;
  for (const formats::Request::Goal& goal : request.goals) {
    goals.append(ToRecord(formats::GoalOf(goal, *robot.description, start, frames)));
  }
  return goals;
}

template <typename File>
std::vector<std::string> UnhonouredTexts(const File& file) {
  std::vector<std::string> texts;
  for (const formats::Unhonoured& unhonoured : file.unhonoured) {
    texts.push_back(formats::ToText(unhonoured));
  }
  return texts;
}

template <typename File>
std::vector<std::string> AttachedIds(const File& file) {
  std::vector<std::string> ids;
  for (const formats::AttachedObject& attached : file.attached) {
    ids.push_back(attached.object.id);
  }
  return ids;
}

// What files of scenes and of requests have in common.
template <typename File, Parser<File> parse>
py::class_<FromText<File>> DefineFile(py::module_& module, const char* name, const char* purpose) {
  py::class_<FromText<File>> type(module, name, purpose);
  type.def_static("_parse", &Parse<File, parse>, py::arg("file"), py::arg("packages"))
      .def(py::pickle(
          [](const FromText<File>& file) {
            return py::make_tuple(std::pair(file.file, py::bytes(file.text)), file.packages);
          },
          [](const py::tuple& state) {
            return Parse<File, parse>(state[0].cast<std::pair<std::string, std::string>>(),
                                      state[1].cast<Packages>());
          }))
      .def_readonly("file", &FromText<File>::file)
      .def_property_readonly("attached", &AttachedIds<FromText<File>>,
                             "Ids of what the robot holds, as the file says.")
      .def_property_readonly(
          "unhonoured", &UnhonouredTexts<FromText<File>>,
          "What the file asks for and Kavo does not honour, although it can change an answer.");
  return type;
}

MeshObstacle LoadMesh(const std::filesystem::path& file, const Eigen::Vector3d& scale) {
  const py::gil_scoped_release released;
  return {formats::ReadMesh(file.string(), scale)};
}

PointCloudObstacle LoadPointCloud(const std::filesystem::path& file, double radius,
                                  const std::optional<double>& voxel_size) {
  const py::gil_scoped_release released;
  return {formats::ReadPointCloud(file.string(), {radius, voxel_size}).cloud};
}

OctreeObstacle LoadOctree(const std::filesystem::path& file, bool unknown_is_occupied) {
  const py::gil_scoped_release released;
  return {std::make_shared<const Octree>(formats::ReadOctree(file.string(), {unknown_is_occupied}))};
}

void DefineRequest(py::module_& module) {
  DefineFile<formats::Request, formats::ParseRequest>(
      module, "Request", "What is to be planned, as a file gives it; made by `load_request`.")
      .def_readonly("group_name", &Request::group_name, "Of the joints that are to move; may be empty.")
      .def_readonly("joint_state", &Request::start, "Joint values at the start, by name.")
      .def_readonly("base_pose", &Request::base_pose,
                    "Of the robot's base in the world, or None where the file does not tell.")
      .def_readonly("allowed_planning_time", &Request::allowed_planning_time, "Seconds, or None.")
      .def_readonly("num_planning_attempts", &Request::num_planning_attempts)
      .def_readonly("velocity_scaling", &Request::velocity_scaling,
                    "How much of the limits a trajectory may use, or None.")
      .def_readonly("acceleration_scaling", &Request::acceleration_scaling, "As above.")
      .def("start", &StartOf, py::arg("robot"),
           "The configuration that a robot starts at (dof,); joints that the file does not name are in the "
           "default configuration.")
      .def("goals", &GoalsOf, py::arg("robot"), py::arg("base_pose") = py::none(),
           R"(Its goals for `Planner.plan_to_goals`, in the order of the file.

Raises ValueError for a goal that names none of the robot's joints, or more than a planner takes as one goal.

Args:
    robot: Frames of it are where they are at the start.
    base_pose: Of its base in the world, where the file does not tell; see `Scene.base_pose`.)");
}

}  // namespace

void DefineFormats(py::module_& module) {
  DefineFile<formats::Scene, formats::ParseScene>(
      module, "Scene", "The obstacles around a robot, as a file gives them; made by `load_scene`.")
      .def_readonly("name", &Scene::name)
      .def_readonly("joint_state", &Scene::joint_state, "Joint values by name, as far as the file gives any.")
      .def_readonly("base_pose", &Scene::base_pose, "Of the robot's base in the world of the file.")
      .def(
          "robot", &RobotIn, py::arg("robot"), py::arg("q") = py::none(),
          R"(A robot from files as it is in the scene: holding what that attaches, under its allowed collisions and paddings.

Args:
    robot: See `load_robot`.
    q: Where the robot is (dof,); its default configuration unless given.)")
      .def("world", &WorldOf, py::arg("robot") = py::none(), py::arg("q") = py::none(),
           R"(A `World` of all its objects, named by their ids, relative to the robot's base.

Args:
    robot: Needed for objects that are given in one of its frames.
    q: Where the robot is (dof,); its default configuration unless given.)");
  DefineRequest(module);
  module.def("load_mesh", &LoadMesh, py::arg("file"), py::arg("scale") = Eigen::Vector3d(1.0, 1.0, 1.0),
             "Reads a `Mesh` from an STL, OBJ, DAE or PLY file; `scale` is by axis (3,).");
  module.def("load_point_cloud", &LoadPointCloud, py::arg("file"), py::kw_only(), py::arg("radius") = 0.0,
             py::arg("voxel_size") = py::none(),
             R"(Reads a `PointCloud` from a PCD or PLY file, or from text of a point in each line. Metres.

Points that are not finite are left out.

Args:
    radius: Of each point.
    voxel_size: All points in a cube of this edge become one, which holds the balls of all of them.)");
  module.def("load_octree", &LoadOctree, py::arg("file"), py::kw_only(),
             py::arg("unknown_is_occupied") = false,
             R"(Reads an `Octree` from a file of OctoMap, binary (.bt) or full (.ot). Metres.

Args:
    unknown_is_occupied: Whether what it does not know counts, within the smallest box around what it knows.)");
}

}  // namespace kavo::python
