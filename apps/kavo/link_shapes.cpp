#include "apps/kavo/link_shapes.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <system_error>

#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/text.h"

namespace kavo::command {

namespace {

using Shape = formats::LoadedRobot::LinkShape;

std::string SourceText(Shape::Source source) {
  switch (source) {
    case Shape::Source::kSpheresFile:
      return "file of spheres";
    case Shape::Source::kSrdf:
      return "SRDF";
    case Shape::Source::kUrdf:
      return "spheres of the URDF";
    case Shape::Source::kCover:
      return "cover";
    case Shape::Source::kNone:
      return "nothing";
  }
  return {};
}

// "2 meshes, 1 box".
std::string SolidsText(const Shape& shape) {
  std::vector<std::string> parts;
  const auto add = [&](std::size_t count, const char* one, const char* many) {
    if (count > 0) {
      parts.push_back(std::to_string(count) + " " + (count == 1 ? one : many));
    }
  };
  add(shape.num_meshes, "mesh", "meshes");
  add(shape.num_boxes, "box", "boxes");
  add(shape.num_cylinders, "cylinder", "cylinders");
  add(shape.num_balls, "sphere", "spheres");
  return parts.empty() ? "-" : Join(parts, ", ");
}

}  // namespace

void PackageOptions::AddOptions(CLI::App& app) {
  app.add_option_function<std::vector<std::string>>(
         "--package",
         [this](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             Add(text);
           }
         },
         "Folder of a package that meshes are named by (package://NAME/...); other packages are looked for "
         "in "
         "AMENT_PREFIX_PATH, ROS_PACKAGE_PATH, and from the folder of the URDF upwards; may be repeated")
      ->type_name("NAME=DIR")
      ->allow_extra_args(false)
      ->group("Robot");
}

void PackageOptions::Add(const std::string& text) {
  const std::size_t sign = text.find('=');
  std::error_code unused;
  if (sign == 0 || sign == std::string::npos ||
      !std::filesystem::is_directory(text.substr(sign + 1), unused)) {
    throw UnusableInput("--package " + text + ": expected NAME=DIR with the folder of the package");
  }
  folders_[text.substr(0, sign)] = text.substr(sign + 1);
}

std::string CoverCacheFolder() {
  const auto folder = [](const char* variable) {
    const char* const value = std::getenv(variable);
    return std::filesystem::path(value == nullptr ? "" : value);
  };
  const std::filesystem::path cache = folder("XDG_CACHE_HOME");
  const std::filesystem::path home = folder("HOME");
  return cache.is_absolute()  ? (cache / "kavo").string()
         : home.is_absolute() ? (home / ".cache" / "kavo").string()
                              : "";
}

void LinkShapeOptions::AddOptions(CLI::App& app) {
  const std::string group = "Robot";
  app.add_option("--spheres", spheres_, "YAML file with the collision spheres of the links")
      ->type_name("FILE")
      ->group(group);
  auto* cover =
      app.add_option("--cover", cover_,
                     "Cover the collision geometry of links without given spheres by spheres that bulge no "
                     "more than this (metres); unless given, that follows from the size of each link")
          ->type_name("METRES")
          ->check(CheckPositive)
          ->group(group);
  app.add_flag("--no-cover", is_uncovered_,
               "Cover nothing: of the collision geometry, only spheres stand for something")
      ->excludes(cover)
      ->group(group);
  packages_.AddOptions(app);
}

void LinkShapeOptions::Apply(formats::RobotFileOptions& options) const {
  options.spheres_file = spheres_;
  options.cover = !is_uncovered_;
  options.cover_tolerance = cover_;
  options.cover_cache = CoverCacheFolder();
  options.packages = packages_.Folders();
}

std::string LinkShapeTable(const formats::LoadedRobot& robot, bool shows_work) {
  std::vector<std::vector<std::string>> rows = {
      {"link", "shape from", "solids", "triangles", "spheres", "bulge up to", "tolerance"}};
  if (shows_work) {
    rows[0].emplace_back("time");
  }
  for (const Shape& shape : robot.link_shapes) {
    const bool is_cover = shape.source == Shape::Source::kCover;
    std::vector<std::string> row = {Printable(shape.link),
                                    SourceText(shape.source),
                                    SolidsText(shape),
                                    shape.num_triangles > 0 ? std::to_string(shape.num_triangles) : "-",
                                    std::to_string(shape.num_spheres),
                                    is_cover ? Distance(shape.bulge) : "-",
                                    is_cover ? Distance(shape.tolerance) : "-"};
    if (shows_work) {
      row.push_back(is_cover ? Time(shape.seconds) : "-");
    }
    rows.push_back(row);
  }
  return rows.size() > 1 ? Table(rows) : "";
}

std::vector<std::pair<std::string, std::string>> MeshFiles(const formats::LoadedRobot& robot) {
  std::set<std::string> known;
  std::vector<std::pair<std::string, std::string>> files;
  for (const Shape& shape : robot.link_shapes) {
    for (const std::string& file : shape.mesh_files) {
      if (known.insert(file).second) {
        files.emplace_back("mesh", file);
      }
    }
  }
  return files;
}

}  // namespace kavo::command
