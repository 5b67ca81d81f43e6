#include "kavo/formats/point_cloud_file.h"

#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "kavo/formats/file_error.h"
#include "kavo/formats/pcd_internal.h"
#include "kavo/formats/ply_internal.h"
#include "kavo/formats/surface_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/text_reader_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

// The columns that names of x, y and z in small or large letters head; none where one of these is missing.
std::optional<std::array<std::size_t, 3>> FindColumns(const std::vector<std::string_view>& names) {
  std::array<std::size_t, 3> columns;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto found = std::find_if(names.begin(), names.end(), [&](std::string_view name) {
      return name == std::string_view("xyz").substr(axis, 1) ||
             name == std::string_view("XYZ").substr(axis, 1);
    });
    if (found == names.end()) {
      return std::nullopt;
    }
    columns[axis] = static_cast<std::size_t>(found - names.begin());
  }
  return columns;
}

std::vector<Eigen::Vector3d> ParsePointLines(std::string_view text, const std::string& file) {
  TextReader reader(text, file);
  std::vector<Eigen::Vector3d> points;
  std::optional<std::array<std::size_t, 3>> columns;
  while (!reader.isAtEnd()) {
    std::string_view line = reader.readLine();
    line = line.substr(0, std::min(line.find('#'), line.find("//")));
    const std::vector<std::string_view> words = Tokens(line, " \t,;");
    if (words.empty()) {
      continue;
    }
    if (!columns) {
      columns = FindColumns(words);
      if (columns) {
        continue;
      }
      columns = {0, 1, 2};
    }
    Eigen::Vector3d point;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const std::size_t column = (*columns)[axis];
      const std::optional<double> number =
          column < words.size() ? ParseMeasured(words[column]) : std::optional<double>();
      if (!number) {
        reader.fail(Quoted(line), "x y z of a point");
      }
      point[static_cast<Eigen::Index>(axis)] = *number;
    }
    if (points.size() == kMaxPoints) {
      reader.fail("more than " + std::to_string(kMaxPoints) + " points", "fewer");
    }
    points.push_back(point);
  }
  return points;
}

std::vector<Eigen::Vector3d> ParsePoints(const std::string& bytes, const std::string& file) {
  const std::string_view text(bytes);
  const std::string_view word = TextReader(text, file).readWord();
  if (word == "ply") {
    return ParsePly(bytes, file, kMaxMeshTriangles).vertices;
  }
  // The comment that PCD begins with may be left out.
  const std::string_view first_line = text.substr(0, text.find('\n'));
  if (first_line.find(".PCD") != std::string_view::npos || word == "VERSION" || word == "FIELDS") {
    return ParsePcd(bytes, file);
  }
  return ParsePointLines(text, file);
}

double Distance(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
  const double x = a.x() - b.x();
  const double y = a.y() - b.y();
  const double z = a.z() - b.z();
  return std::sqrt(x * x + y * y + z * z);
}

// Cells of a grid by their indices, which are whole numbers but need not fit in an integer.
using VoxelKey = std::array<double, 3>;

std::uint64_t HashOf(const VoxelKey& key) {
  std::uint64_t hash = 0;
  for (const double index : key) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &index, sizeof(bits));
    // The increment and the mixing of SplitMix64 (Steele and others, 2014).
    hash = (hash ^ bits) + 0x9E3779B97F4A7C15;
    hash = (hash ^ (hash >> 30)) * 0xBF58476D1CE4E5B9;
    hash = (hash ^ (hash >> 27)) * 0x94D049BB133111EB;
    hash ^= hash >> 31;
  }
  return hash;
}

// The cells that have points, numbered in the order of their first ones. The table of the standard library
// takes several times as long, and most of the time of reading a cloud.
class VoxelTable {
 public:
  explicit VoxelTable(std::size_t num_points) {
    std::size_t size = 16;
    while (size < 2 * num_points) {
      size *= 2;
    }
    slots_.assign(size, kEmpty);
  }

  // The number of a cell; a new one is the number of cells before.
  std::uint32_t number(const VoxelKey& key) {
    for (std::size_t i = HashOf(key);; ++i) {
      std::uint32_t& slot = slots_[i & (slots_.size() - 1)];
      if (slot == kEmpty) {
        slot = static_cast<std::uint32_t>(keys_.size());
        keys_.push_back(key);
        return slot;
      }
      if (keys_[slot] == key) {
        return slot;
      }
    }
  }

 private:
  static constexpr std::uint32_t kEmpty = static_cast<std::uint32_t>(-1);

  // Numbers of cells, where their hashes lead or behind.
  std::vector<std::uint32_t> slots_;
  std::vector<VoxelKey> keys_;
};

// The balls that stand for all points.
struct Balls {
  std::vector<Eigen::Vector3d> centers;
  std::vector<double> radii;
};

Balls MergeByVoxel(const std::vector<Eigen::Vector3d>& points, double radius, double voxel_size) {
  struct Bounds {
    Eigen::Vector3d min;
    Eigen::Vector3d max;
  };
  std::vector<Bounds> voxels;
  std::vector<std::uint32_t> voxel_of_point;
  voxel_of_point.reserve(points.size());
  VoxelTable table(points.size());
  for (const Eigen::Vector3d& point : points) {
    VoxelKey key;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      // Zeros of either sign are one.
      key[axis] = std::floor(point[static_cast<Eigen::Index>(axis)] / voxel_size) + 0.0;
    }
    const std::uint32_t voxel = table.number(key);
    if (voxel == voxels.size()) {
      voxels.push_back({point, point});
    }
    Bounds& bounds = voxels[voxel];
    bounds.min = bounds.min.cwiseMin(point);
    bounds.max = bounds.max.cwiseMax(point);
    voxel_of_point.push_back(voxel);
  }
  Balls balls;
  balls.centers.reserve(voxels.size());
  for (const Bounds& bounds : voxels) {
    balls.centers.emplace_back(bounds.min + 0.5 * (bounds.max - bounds.min));
  }
  balls.radii.assign(voxels.size(), radius);
  for (std::size_t i = 0; i < points.size(); ++i) {
    double& reach = balls.radii[voxel_of_point[i]];
    reach = std::max(reach, radius + Distance(points[i], balls.centers[voxel_of_point[i]]));
  }
  return balls;
}

}  // namespace

LoadedPointCloud ReadPointCloud(const std::string& file, const PointCloudOptions& options) {
  return ParsePointCloud(ReadTextFile(file, kMaxCloudSize), file, options);
}

LoadedPointCloud ParsePointCloud(const std::string& bytes, const std::string& file,
                                 const PointCloudOptions& options) {
  KAVO_CHECK(options.radius >= 0.0 && options.radius <= kLargestLength, "formats/point_cloud_file", 140)
      << "The radius of points must be from 0 to 1e30, got " << options.radius << ".";
  KAVO_CHECK(!options.voxel_size || (std::isfinite(*options.voxel_size) && *options.voxel_size > 0.0),
             "formats/point_cloud_file", 142)
      << "The size of voxels must be positive and finite, got " << *options.voxel_size << ".";
  std::vector<Eigen::Vector3d> points = ParsePoints(bytes, file);
  LoadedPointCloud loaded;
  loaded.num_not_finite = points.size();
  points.erase(std::remove_if(points.begin(), points.end(),
                              [](const Eigen::Vector3d& point) { return !IsPlace(point); }),
               points.end());
  loaded.num_points = points.size();
  loaded.num_not_finite -= points.size();
  if (points.empty()) {
    throw FileError(file, 0,
                    "found " + std::to_string(loaded.num_not_finite) +
                        " points, none of them finite, expected at least one that is");
  }
  if (!options.voxel_size) {
    loaded.cloud = std::make_shared<const PointCloud>(std::move(points), options.radius);
    return loaded;
  }
  Balls balls = MergeByVoxel(points, options.radius, *options.voxel_size);
  loaded.cloud = std::make_shared<const PointCloud>(std::move(balls.centers), std::move(balls.radii));
  return loaded;
}

bool IsPlyMesh(const std::string& file) {
  const std::string bytes = ReadFile(file, kMaxMeshSize);
  TextReader reader(bytes, file);
  while (!reader.isAtEnd()) {
    const std::vector<std::string_view> words = Tokens(reader.readLine());
    if (words.size() == 3 && words[0] == "element" && words[1] == "face") {
      return words[2] != "0";
    }
    if (!words.empty() && words[0] == "end_header") {
      return false;
    }
  }
  return false;
}

}  // namespace kavo::formats
