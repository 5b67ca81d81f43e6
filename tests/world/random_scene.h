#pragma once

#include <Eigen/Geometry>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/shapes/octree.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::test {

//! Random obstacles and places. The same on every machine, which the standard distributions are not.
class RandomScene {
 public:
  explicit RandomScene(std::uint32_t seed) : engine_(seed) {}

  double uniform(double low, double high) {
    return low + (high - low) * (static_cast<double>(engine_()) * 0x1p-32);
  }

  int integer(int low, int high) {
    return low + static_cast<int>(engine_() % static_cast<std::uint32_t>(high - low + 1));
  }

  Eigen::Vector3d point(double reach) {
    const double x = uniform(-reach, reach);
    const double y = uniform(-reach, reach);
    return {x, y, uniform(-reach, reach)};
  }

  //! A multiple of an eighth of `reach` in each coordinate.
  Eigen::Vector3d gridPoint(double reach) { return (8.0 * point(1.0)).array().round() * reach / 8.0; }

  Pose3 pose(double reach) {
    const Eigen::Vector3d position = point(reach);
    const Eigen::Vector3d axis = point(1.0);
    return Pose3(Eigen::Quaterniond(uniform(-1.0, 1.0), axis[0], axis[1], axis[2]), position);
  }

  //! Kinds of bounded obstacles: the convex ones, then mesh, point cloud and octree.
  static constexpr int kNumConvexKinds = 5;
  static constexpr int kNumKinds = 8;

  //! A sphere, box, cylinder, capsule, cone, mesh, cloud or octree (0 to 7) with sizes between a tenth of
  //! `size` and `size`.
  ObstacleShape bounded(int kind, double size) {
    const double a = uniform(0.1 * size, size);
    const double b = uniform(0.1 * size, size);
    switch (kind) {
      case 0:
        return SphereObstacle{0.5 * a};
      case 1:
        return BoxObstacle{{a, b, uniform(0.1 * size, size)}};
      case 2:
        return CylinderObstacle{0.5 * a, b};
      case 3:
        return CapsuleObstacle{0.5 * a, b};
      case 4:
        return ConeObstacle{0.5 * a, b};
      case 5: {
        const bool is_open = integer(0, 3) == 0;
        const bool is_filled = is_open && integer(0, 9) == 0;
        return MeshObstacle{mesh(0.5 * a, is_open), is_filled ? Interior::kSolid : Interior::kIfClosed};
      }
      case 6: {
        std::vector<Eigen::Vector3d> points;
        std::vector<double> radii;
        for (int i = integer(1, 60); i > 0; --i) {
          points.push_back(point(0.5 * a));
          radii.push_back(uniform(0.0, 0.1 * b));
        }
        return PointCloudObstacle{std::make_shared<const PointCloud>(std::move(points), std::move(radii))};
      }
      default: {
        std::vector<Octree::Cell> cells;
        for (int i = integer(1, 60); i > 0; --i) {
          cells.push_back({gridPoint(0.5 * a), 0.0625 * a * (1 << integer(0, 2))});
        }
        return OctreeObstacle{std::make_shared<const Octree>(std::move(cells))};
      }
    }
  }

  //! A ball of bumps and dents, its faces turned either way; open where one is missing.
  std::shared_ptr<const TriangleMesh> mesh(double radius, bool is_open) {
    constexpr std::uint32_t kRings = 5;
    constexpr std::uint32_t kSides = 7;
    std::vector<Eigen::Vector3d> vertices = {{0.0, 0.0, radius}, {0.0, 0.0, -radius}};
    for (std::uint32_t i = 0; i < kRings * kSides; ++i) {
      const std::uint32_t ring = i / kSides;
      const double height = 1.0 - 2.0 * (1.0 + ring) / (kRings + 1.0);
      const Eigen::Quaterniond turn(
          Eigen::AngleAxisd(6.283 / kSides * (i % kSides), Eigen::Vector3d::UnitZ()));
      const Eigen::Vector3d direction = turn * Eigen::Vector3d(std::sqrt(1.0 - height * height), 0.0, height);
      vertices.emplace_back(uniform(0.4, 1.0) * radius * direction);
    }
    const auto vertex = [](std::uint32_t ring, std::uint32_t side) {
      return 2 + ring * kSides + side % kSides;
    };
    std::vector<TriangleMesh::Triangle> triangles;
    for (std::uint32_t side = is_open ? 1 : 0; side < kSides; ++side) {
      triangles.push_back({0, vertex(0, side), vertex(0, side + 1)});
    }
    for (std::uint32_t side = 0; side < kSides; ++side) {
      triangles.push_back({1, vertex(kRings - 1, side), vertex(kRings - 1, side + 1)});
      for (std::uint32_t ring = 0; ring + 1 < kRings; ++ring) {
        triangles.push_back({vertex(ring, side), vertex(ring + 1, side), vertex(ring, side + 1)});
        triangles.push_back({vertex(ring + 1, side + 1), vertex(ring + 1, side), vertex(ring, side + 1)});
      }
    }
    return std::make_shared<const TriangleMesh>(vertices, triangles);
  }

 private:
  std::mt19937 engine_;
};

}  // namespace kavo::test
