#include "apps/kavo/scene_options.h"

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "apps/kavo/help.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

constexpr char kObstacle[] = "--obstacle";

// What is larger than the largest cloud there may be is no radius.
std::string CheckRadius(const std::string& text) {
  const double metres = util::ParseNumber(text).value_or(-1.0);
  return metres >= 0.0 && metres <= 1e30 ? "" : text + " is not a number of at least 0";
}

}  // namespace

void SceneOptions::AddOptions(CLI::App& app) {
  const std::string group = "Scene";
  app.add_option("-s,--scene", scenes_, "Planning scenes (YAML or .scene); empty space without one")
      ->type_name("FILE...")
      ->group(group);
  app.add_option(
         kObstacle, obstacles_,
         "A further obstacle, at a pose in the world (metres, a quaternion); may be repeated. SHAPE is a "
         "mesh (.stl, .obj, .dae, .ply; FILE:SCALE scales it), a point cloud (.pcd, .ply, .xyz, .txt, "
         ".csv), an octree (.bt, .ot), or box:X,Y,Z, sphere:R, cylinder:R,H, capsule:R,H (H between the "
         "centres of its ends) or cone:R,H")
      ->type_name("SHAPE[@X,Y,Z[,QX,QY,QZ,QW]]")
      ->group(group)
      ->allow_extra_args(false);
  app.add_option("--point-radius", shapes_.points.radius, "Radius of each point of a cloud")
      ->type_name("METRES")
      ->group(group)
      ->check(CheckRadius)
      ->capture_default_str();
  app.add_option("--voxel", shapes_.points.voxel_size,
                 "Make the points of a cloud that lie in one cell of a grid of this size one, with a radius "
                 "that holds them all")
      ->type_name("METRES")
      ->group(group)
      ->check(CheckPositive);
  app.add_flag("--unknown-occupied", shapes_.octrees.unknown_is_occupied,
               "Take what an octree does not know for occupied, within the box around all that it knows")
      ->group(group);
  const auto set_interior = [this](Interior interior) {
    return [this, interior](std::int64_t) { shapes_.mesh_interior = interior; };
  };
  CLI::Option* solid = app.add_flag_function("--mesh-solid", set_interior(Interior::kSolid),
                                             "Take meshes for solid where they have holes, too")
                           ->group(group);
  app.add_flag_function("--mesh-surface", set_interior(Interior::kEmpty),
                        "Take meshes for surfaces where they are closed, too")
      ->group(group)
      ->excludes(solid);
  app.add_option("--ignore-robot", cut_margin_,
                 "Cut the points and cells out of clouds and octrees that the robot itself touches at the "
                 "start, with spheres larger by this margin")
      ->type_name("[METRES]")
      ->group(group)
      ->expected(0, 1)
      ->default_str("0.01")
      ->check(CheckRadius);
  contacts_.AddOptions(app);
}

std::vector<std::pair<std::string, std::string>> SceneOptions::Files() const {
  std::vector<std::pair<std::string, std::string>> files;
  for (const std::string& scene : scenes_) {
    files.emplace_back("scene", scene);
  }
  for (const std::string& obstacle : obstacles_) {
    files.emplace_back("obstacle", FileOfShape(ParsePlacedShape(kObstacle, obstacle, false).shape));
  }
  const auto of_contacts = contacts_.Files();
  files.insert(files.end(), of_contacts.begin(), of_contacts.end());
  return files;
}

formats::SceneFileOptions SceneOptions::FileOptions(const formats::PackageFolders& packages) const {
  formats::SceneFileOptions options;
  options.packages = packages;
  options.mesh_interior = shapes_.mesh_interior;
  options.octrees = shapes_.octrees;
  return options;
}

formats::Scene SceneOptions::Obstacles(std::set<std::string> taken) const {
  formats::Scene scene;
  scene.file = kObstacle;
  for (const std::string& text : obstacles_) {
    const PlacedShapeText placed = ParsePlacedShape(kObstacle, text, false);
    NamedShape named = ReadShape(kObstacle, placed.shape, shapes_);
    std::string name = named.name;
    for (std::size_t number = 2; !taken.insert(name).second; ++number) {
      name = named.name + "_" + std::to_string(number);
    }
    scene.objects.push_back({name, {{std::move(named.shape), placed.pose}}, "", 0});
  }
  return scene;
}

}  // namespace kavo::command
