#include "apps/kavo/shape_option.h"

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "apps/kavo/command.h"
#include "apps/kavo/text.h"
#include "kavo/formats/mesh_file.h"
#include "kavo/util/log_message.h"
#include "kavo/util/parse_number.h"
#include "kavo/world/shapes/octree.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::command {

namespace {

constexpr char kExpectedShape[] =
    "a mesh (.stl, .obj, .dae, .ply), a point cloud (.pcd, .ply, .xyz, .txt, .csv), an octree (.bt, .ot), or "
    "box:X,Y,Z, sphere:R, cylinder:R,H, capsule:R,H or cone:R,H";

[[noreturn]] void Fail(const std::string& option, const std::string& text, const std::string& expected) {
  throw UnusableInput(option + " " + Printable(text) + ": expected " + expected);
}

bool IsFile(const std::string& name) {
  std::error_code unused;
  return std::filesystem::is_regular_file(name, unused);
}

// Of nothing, a position, or a position and a quaternion.
std::optional<Pose3> PoseOf(const std::vector<double>& numbers) {
  if (numbers.empty()) {
    return Pose3();
  }
  if (numbers.size() != 3 && numbers.size() != 7) {
    return std::nullopt;
  }
  const Eigen::Vector3d position(numbers[0], numbers[1], numbers[2]);
  if (numbers.size() == 3) {
    return Pose3::FromTranslation(position);
  }
  const Pose3 pose(Eigen::Quaterniond(numbers[6], numbers[3], numbers[4], numbers[5]), position);
  return pose.isFinite() ? std::optional(pose) : std::nullopt;
}

// How many sizes follow the name of each kind.
const std::map<std::string, std::size_t>& NumSizes() {
  static const std::map<std::string, std::size_t> num_sizes = {
      {"box", 3}, {"sphere", 1}, {"cylinder", 2}, {"capsule", 2}, {"cone", 2}};
  return num_sizes;
}

bool IsPrimitive(const std::string& text) {
  const std::size_t colon = text.find(':');
  return colon != std::string::npos && NumSizes().count(text.substr(0, colon)) != 0;
}

NamedShape ReadPrimitive(const std::string& option, const std::string& text) {
  const std::size_t colon = text.find(':');
  const auto found = NumSizes().find(text.substr(0, colon));
  const auto& [kind, num_sizes] = *found;
  const std::vector<double> sizes = ParseNumbers(text.substr(colon + 1)).value_or(std::vector<double>());
  if (sizes.size() != num_sizes ||
      std::any_of(sizes.begin(), sizes.end(), [](double size) { return size <= 0.0; })) {
    Fail(option, text,
         kind + ":" +
             (num_sizes == 3   ? "X,Y,Z"
              : num_sizes == 1 ? "R"
                               : "R,H") +
             " with positive metres");
  }
  const auto shape = [&, &kind = kind]() -> ObstacleShape {
    if (kind == "box") {
      return BoxObstacle{{sizes[0], sizes[1], sizes[2]}};
    }
    if (kind == "sphere") {
      return SphereObstacle{sizes[0]};
    }
    if (kind == "cylinder") {
      return CylinderObstacle{sizes[0], sizes[1]};
    }
    if (kind == "capsule") {
      return CapsuleObstacle{sizes[0], sizes[1]};
    }
    return ConeObstacle{sizes[0], sizes[1]};
  };
  return {kind, shape()};
}

// The name of a file, which a scale may follow.
struct ScaledFile {
  std::string file;
  std::optional<double> scale;
};

ScaledFile SplitScale(const std::string& text) {
  const std::size_t colon = IsFile(text) ? std::string::npos : text.rfind(':');
  const std::optional<double> scale =
      colon == std::string::npos ? std::nullopt : util::ParseNumber(text.substr(colon + 1));
  return {scale ? text.substr(0, colon) : text, scale};
}

// In small letters, with the dot.
std::string EndingOf(const std::string& file) {
  std::string ending = std::filesystem::path(file).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return ending;
}

ObstacleShape ReadCloudObstacle(const std::string& file, const formats::PointCloudOptions& options) {
  const formats::LoadedPointCloud loaded = formats::ReadPointCloud(file, options);
  if (loaded.num_not_finite > 0) {
    KAVO_LOG(LogLevel::kWarning) << file << ": " << loaded.num_not_finite << " of "
                                 << loaded.num_not_finite + loaded.num_points
                                 << " points are not finite and left out.";
  }
  return PointCloudObstacle{loaded.cloud};
}

ObstacleShape ReadOctreeObstacle(const std::string& file, const formats::OctreeFileOptions& options) {
  std::vector<Octree::Cell> cells = formats::ReadOctree(file, options);
  if (cells.empty()) {
    throw UnusableInput(file + ": found no occupied cell, expected at least one");
  }
  return OctreeObstacle{std::make_shared<const Octree>(std::move(cells))};
}

std::string Counted(std::size_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string Range(double least, double most) {
  return Number(least, 4) + (least == most ? "" : " to " + Number(most, 4)) + " m";
}

std::string MeshText(const MeshObstacle& obstacle) {
  const TriangleMesh& mesh = *obstacle.mesh;
  std::size_t num_closed = 0;
  for (std::size_t piece = 0; piece < mesh.numPieces(); ++piece) {
    num_closed += mesh.isPieceClosed(piece) ? 1 : 0;
  }
  const bool is_closed = num_closed == mesh.numPieces();
  std::string text = Counted(mesh.triangles().size(), "triangle") + ", " +
                     (is_closed ? "closed" : "open (" + Counted(mesh.numOpenEdges(), "edge") + ")");
  switch (obstacle.interior) {
    case Interior::kEmpty:
      return text + ", taken as a surface";
    case Interior::kSolid:
      return text + ", taken as solid";
    case Interior::kIfClosed:
      break;
  }
  return text + (is_closed        ? ", solid"
                 : num_closed > 0 ? ", " + std::to_string(num_closed) + " of " +
                                        std::to_string(mesh.numPieces()) + " pieces solid"
                                  : ", a surface");
}

std::string CloudText(const PointCloud& cloud) {
  double least = cloud.radius(0);
  double most = least;
  for (std::size_t i = 0; i < cloud.points().size(); ++i) {
    least = std::min(least, cloud.radius(i));
    most = std::max(most, cloud.radius(i));
  }
  return Counted(cloud.points().size(), "point") + " of radius " + Range(least, most);
}

std::string OctreeText(const Octree& octree) {
  const auto [least, most] =
      std::minmax_element(octree.cells().begin(), octree.cells().end(),
                          [](const Octree::Cell& a, const Octree::Cell& b) { return a.size < b.size; });
  return Counted(octree.cells().size(), "cell") + " of " + Range(least->size, most->size);
}

}  // namespace

PlacedShapeText ParsePlacedShape(const std::string& option, const std::string& text, bool has_frame) {
  PlacedShapeText placed;
  const std::size_t sign = IsFile(text) ? std::string::npos : text.rfind('@');
  placed.shape = text.substr(0, sign);
  std::string place = sign == std::string::npos ? "" : text.substr(sign + 1);
  const char* const expected = has_frame
                                   ? "SHAPE@FRAME[,X,Y,Z[,QX,QY,QZ,QW]], with a quaternion that is not zero"
                                   : "SHAPE[@X,Y,Z[,QX,QY,QZ,QW]], with a quaternion that is not zero";
  if (has_frame) {
    const std::size_t comma = place.find(',');
    placed.frame = place.substr(0, comma);
    if (placed.frame.empty()) {
      Fail(option, text, expected);
    }
    place = comma == std::string::npos ? "" : place.substr(comma + 1);
  }
  const bool has_numbers = has_frame ? text.find(',', sign) != std::string::npos : sign != std::string::npos;
  const auto numbers = has_numbers ? ParseNumbers(place) : std::vector<double>();
  const std::optional<Pose3> pose = numbers ? PoseOf(*numbers) : std::nullopt;
  if (!pose) {
    Fail(option, text, expected);
  }
  placed.pose = *pose;
  return placed;
}

std::string FileOfShape(const std::string& text) { return IsPrimitive(text) ? "" : SplitScale(text).file; }

NamedShape ReadShape(const std::string& option, const std::string& text, const ShapeFileOptions& options) {
  if (IsPrimitive(text)) {
    return ReadPrimitive(option, text);
  }
  const auto [file, scale] = SplitScale(text);
  NamedShape named;
  named.name = std::filesystem::path(file).stem().string();
  const std::string ending = EndingOf(file);
  const auto is_one_of = [&](std::initializer_list<const char*> endings) {
    return std::find(endings.begin(), endings.end(), ending) != endings.end();
  };
  if (!is_one_of({".stl", ".obj", ".dae", ".ply", ".pcd", ".xyz", ".txt", ".csv", ".bt", ".ot"})) {
    Fail(option, text, kExpectedShape);
  }
  if (is_one_of({".stl", ".obj", ".dae"}) || (ending == ".ply" && formats::IsPlyMesh(file))) {
    if (scale && *scale <= 0.0) {
      Fail(option, text, "FILE:SCALE with a positive scale");
    }
    named.shape = MeshObstacle{formats::ReadMesh(file, Eigen::Vector3d::Constant(scale.value_or(1.0))),
                               options.mesh_interior};
    return named;
  }
  if (scale) {
    Fail(option, text, "a scale for nothing but a mesh");
  }
  named.shape = is_one_of({".bt", ".ot"}) ? ReadOctreeObstacle(file, options.octrees)
                                          : ReadCloudObstacle(file, options.points);
  return named;
}

std::string KindOf(const ObstacleShape& shape) {
  struct Kind {
    const char* operator()(const SphereObstacle&) const { return "sphere"; }
    const char* operator()(const BoxObstacle&) const { return "box"; }
    const char* operator()(const CylinderObstacle&) const { return "cylinder"; }
    const char* operator()(const CapsuleObstacle&) const { return "capsule"; }
    const char* operator()(const HalfSpaceObstacle&) const { return "half-space"; }
    const char* operator()(const ConeObstacle&) const { return "cone"; }
    const char* operator()(const MeshObstacle&) const { return "mesh"; }
    const char* operator()(const PointCloudObstacle&) const { return "point cloud"; }
    const char* operator()(const OctreeObstacle&) const { return "octree"; }
  };
  return std::visit(Kind(), shape);
}

std::string SizeText(const ObstacleShape& shape) {
  struct Size {
    static std::string Round(double radius, double height) {
      return "radius " + Number(radius, 4) + " m, height " + Number(height, 4) + " m";
    }
    std::string operator()(const SphereObstacle& sphere) const {
      return "radius " + Number(sphere.radius, 4) + " m";
    }
    std::string operator()(const BoxObstacle& box) const {
      return Number(box.size.x(), 4) + " x " + Number(box.size.y(), 4) + " x " + Number(box.size.z(), 4) +
             " m";
    }
    std::string operator()(const CylinderObstacle& solid) const { return Round(solid.radius, solid.height); }
    std::string operator()(const CapsuleObstacle& solid) const { return Round(solid.radius, solid.height); }
    std::string operator()(const ConeObstacle& solid) const { return Round(solid.radius, solid.height); }
    std::string operator()(const HalfSpaceObstacle&) const { return "below its plane"; }
    std::string operator()(const MeshObstacle& mesh) const { return MeshText(mesh); }
    std::string operator()(const PointCloudObstacle& obstacle) const { return CloudText(*obstacle.cloud); }
    std::string operator()(const OctreeObstacle& obstacle) const { return OctreeText(*obstacle.octree); }
  };
  return std::visit(Size(), shape);
}

}  // namespace kavo::command
