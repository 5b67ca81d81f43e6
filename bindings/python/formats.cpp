#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bindings/python/bindings.h"
#include "kavo/formats/mesh_file.h"
#include "kavo/formats/octree_file.h"
#include "kavo/formats/point_cloud_file.h"
#include "kavo/formats/robot_in_scene.h"
#include "kavo/formats/scene.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/world/world.h"

namespace kavo::python {

namespace {

using Packages = std::map<std::string, std::string>;

// With what it is read from, by which it pickles.
struct Scene : formats::Scene {
  std::string text;
  Packages packages;
};

Scene ParseScene(const std::pair<std::string, std::string>& file, const Packages& packages) {
  formats::SceneFileOptions options;
  options.packages = packages;
  const py::gil_scoped_release released;
  return {formats::ParseScene(file.second, file.first, options), file.second, packages};
}

// By the forms of a robot that Python has as well, so that the result pickles.
Robot RobotIn(const Scene& scene, const Robot& robot, const std::optional<Eigen::VectorXd>& q) {
  if (!robot.files) {
    throw py::value_error("what a scene says of a robot is about one from files, see load_robot");
  }
  formats::LoadedRobot loaded = *robot.files;
  loaded.description = robot.description;
  const std::shared_ptr<RobotDescription> form =
      formats::WithScene(loaded, scene, q.value_or(robot.description->defaultCSpaceConfiguration()));
  Robot result = MakeAttached(robot, *form);
  const CollisionModel& collision = dynamic_cast<const RobotDescriptionInternal&>(*form).collision();
  result = MakeVariant(result, WithCollisionPairs(*result.description, collision.pairs),
                       "with_collision_pairs", py::make_tuple(collision.pairs));
  const ContactRules rules = ContactRulesOf(*form);
  return MakeVariant(result, WithContactRules(*result.description, rules), "with_contact_rules",
                     py::make_tuple(rules.paddings, rules.allowed_obstacles));
}

// Obstacles relative to the base of the robot; those given in one of its frames where that is at a
// configuration.
World WorldOf(const Scene& scene, const Robot* robot, const std::optional<Eigen::VectorXd>& q) {
  formats::FramePoses frames;
  if (robot != nullptr) {
    const Eigen::VectorXd at = q.value_or(robot->description->defaultCSpaceConfiguration());
    for (const std::string& frame : robot->kinematics->frameNames()) {
      frames.emplace(frame, robot->kinematics->pose(at, robot->kinematics->frame(frame)));
    }
  }
  World world;
  formats::AddToWorld(scene, world, frames);
  return world;
}

std::vector<std::string> UnhonouredTexts(const Scene& scene) {
  std::vector<std::string> texts;
  for (const formats::Unhonoured& unhonoured : scene.unhonoured) {
    texts.push_back(formats::ToText(unhonoured));
  }
  return texts;
}

std::vector<std::string> AttachedIds(const Scene& scene) {
  std::vector<std::string> ids;
  for (const formats::AttachedObject& attached : scene.attached) {
    ids.push_back(attached.object.id);
  }
  return ids;
}

MeshObstacle LoadMesh(const std::filesystem::path& file, const Eigen::Vector3d& scale) {
  const py::gil_scoped_release released;
  return {formats::ReadMesh(file.string(), scale)};
}

PointCloudObstacle LoadPointCloud(const std::string& file, double radius,
                                  const std::optional<double>& voxel_size) {
  const py::gil_scoped_release released;
  return {formats::ReadPointCloud(file, {radius, voxel_size}).cloud};
}

OctreeObstacle LoadOctree(const std::string& file, bool unknown_is_occupied) {
  const py::gil_scoped_release released;
  return {std::make_shared<const Octree>(formats::ReadOctree(file, {unknown_is_occupied}))};
}

}  // namespace

void DefineFormats(py::module_& module) {
  py::class_<Scene>(module, "Scene",
                    "The obstacles around a robot, as a file gives them; made by `load_scene`.")
      .def_static("_parse", &ParseScene, py::arg("file"), py::arg("packages"))
      .def(py::pickle(
          [](const Scene& scene) {
            return py::make_tuple(std::pair(scene.file, py::bytes(scene.text)), scene.packages);
          },
          [](const py::tuple& state) {
            return ParseScene(state[0].cast<std::pair<std::string, std::string>>(),
                              state[1].cast<Packages>());
          }))
      .def_readonly("name", &Scene::name)
      .def_readonly("file", &Scene::file)
      .def_readonly("joint_state", &Scene::joint_state, "Joint values by name, as far as the file gives any.")
      .def_readonly("base_pose", &Scene::base_pose, "Of the robot's base in the world of the file.")
      .def_property_readonly("attached", &AttachedIds, "Ids of what the robot holds in the file.")
      .def_property_readonly(
          "unhonoured", &UnhonouredTexts,
          "What the file asks for and Kavo does not honour, although it can change an answer.")
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
