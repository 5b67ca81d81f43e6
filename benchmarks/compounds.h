#pragma once

// Scenes of bumpy balls, as a mesh, a cloud of points and the leaves of an octree; and the same in FCL, where
// it is there.

#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "kavo/math/sphere.h"
#include "kavo/world/obstacle.h"
#include "kavo/world/shapes/octree.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"

#ifdef KAVO_BENCHMARK_FCL
#include <fcl/geometry/bvh/BVH_model.h>
#include <fcl/geometry/octree/octree.h>
#include <fcl/narrowphase/collision.h>
#include <fcl/narrowphase/collision_object.h>
#include <octomap/OcTree.h>
#endif

namespace kavo::benchmarks {

//! A ball whose radius changes with the direction by a quarter at most.
struct BumpyBall {
  Eigen::Vector3d at(double height, double angle) const {
    const double side = std::sqrt(std::max(0.0, 1.0 - height * height));
    const double radius = mean * (1.0 + 0.15 * std::sin(5.0 * angle) * side + 0.1 * std::cos(7.0 * height));
    return center + radius * Eigen::Vector3d(side * std::cos(angle), side * std::sin(angle), height);
  }

  Eigen::Vector3d center;
  double mean;
};

//! Balls in a volume that are clear of what is occupied.
//! \param random `double(low, high)`.
template <class Random>
std::vector<BumpyBall> BumpyBalls(std::size_t count, const std::vector<math::Sphere>& occupied,
                                  Random& random) {
  std::vector<BumpyBall> balls;
  while (balls.size() < count) {
    const Eigen::Vector3d center(random(-1.3, 1.3), random(-1.3, 1.3), random(-1.2, 1.4));
    const BumpyBall ball{center, random(0.06, 0.2)};
    if (std::none_of(occupied.begin(), occupied.end(), [&](const math::Sphere& sphere) {
          return (sphere.center - center).norm() <= sphere.radius + 1.26 * ball.mean + 0.02;
        })) {
      balls.push_back(ball);
    }
  }
  return balls;
}

//! About so many triangles, in closed pieces.
inline MeshObstacle MeshOf(const std::vector<BumpyBall>& balls, std::size_t num_triangles) {
  const std::size_t of_each = num_triangles / balls.size();
  const auto sides =
      static_cast<std::uint32_t>(std::max(3.0, std::round(std::sqrt(static_cast<double>(of_each)))));
  const std::uint32_t rings = sides / 2;
  std::vector<Eigen::Vector3d> vertices;
  std::vector<TriangleMesh::Triangle> triangles;
  for (const BumpyBall& ball : balls) {
    const auto first = static_cast<std::uint32_t>(vertices.size());
    vertices.push_back(ball.at(1.0, 0.0));
    for (std::uint32_t ring = 1; ring < rings; ++ring) {
      for (std::uint32_t side = 0; side < sides; ++side) {
        vertices.push_back(ball.at(std::cos(M_PI * ring / rings), 2.0 * M_PI * side / sides));
      }
    }
    vertices.push_back(ball.at(-1.0, 0.0));
    const auto last = static_cast<std::uint32_t>(vertices.size()) - 1;
    for (std::uint32_t side = 0; side < sides; ++side) {
      const std::uint32_t next = (side + 1) % sides;
      triangles.push_back({first, first + 1 + side, first + 1 + next});
      triangles.push_back({last, last - sides + next, last - sides + side});
      for (std::uint32_t ring = 0; ring + 2 < rings; ++ring) {
        const std::uint32_t upper = first + 1 + ring * sides;
        triangles.push_back({upper + side, upper + sides + side, upper + next});
        triangles.push_back({upper + next, upper + sides + side, upper + sides + next});
      }
    }
  }
  return {std::make_shared<const TriangleMesh>(vertices, triangles)};
}

template <class Random>
std::vector<Eigen::Vector3d> PointsOn(const std::vector<BumpyBall>& balls, std::size_t num_points,
                                      Random& random) {
  std::vector<Eigen::Vector3d> points;
  points.reserve(num_points);
  for (std::size_t i = 0; i < num_points; ++i) {
    const double height = random(-1.0, 1.0);
    points.push_back(balls[i % balls.size()].at(height, random(-3.14159, 3.14159)));
  }
  return points;
}

//! The cells of a grid that points of the balls lie in.
inline OctreeObstacle OctreeOf(const std::vector<Eigen::Vector3d>& points, double size) {
  std::set<std::array<std::int64_t, 3>> keys;
  for (const Eigen::Vector3d& point : points) {
    keys.insert({static_cast<std::int64_t>(std::floor(point[0] / size)),
                 static_cast<std::int64_t>(std::floor(point[1] / size)),
                 static_cast<std::int64_t>(std::floor(point[2] / size))});
  }
  std::vector<Octree::Cell> cells;
  cells.reserve(keys.size());
  for (const auto& [x, y, z] : keys) {
    cells.push_back({{(static_cast<double>(x) + 0.5) * size, (static_cast<double>(y) + 0.5) * size,
                      (static_cast<double>(z) + 0.5) * size},
                     size});
  }
  return {std::make_shared<const Octree>(std::move(cells))};
}

#ifdef KAVO_BENCHMARK_FCL
//! The same for FCL: triangles as BVHModel<OBBRSS>, cells as an octree of OctoMap, the balls around points as
//! leaves of one that are as wide as they are: FCL has no other place for points.
class FclCompound {
 public:
  explicit FclCompound(const ObstacleShape& shape) {
    if (const auto* mesh = std::get_if<MeshObstacle>(&shape)) {
      const auto model = std::make_shared<fcl::BVHModel<fcl::OBBRSSd>>();
      std::vector<fcl::Triangle> triangles;
      for (const TriangleMesh::Triangle& triangle : mesh->mesh->triangles()) {
        triangles.emplace_back(triangle[0], triangle[1], triangle[2]);
      }
      model->beginModel();
      model->addSubModel(mesh->mesh->vertices(), triangles);
      model->endModel();
      object_ = std::make_unique<fcl::CollisionObjectd>(model);
    } else if (const auto* cells = std::get_if<OctreeObstacle>(&shape)) {
      std::vector<Eigen::Vector3d> centers;
      for (const Octree::Cell& cell : cells->octree->cells()) {
        centers.push_back(cell.center);
      }
      setOctree(centers, cells->octree->cells().front().size);
    } else {
      const PointCloud& cloud = *std::get<PointCloudObstacle>(shape).cloud;
      setOctree(cloud.points(), 2.0 * cloud.radius(0));
    }
  }

  bool touches(const Eigen::Vector3d& center, double radius) {
    if (!ball_ || radius != radius_) {
      radius_ = radius;
      ball_ = std::make_unique<fcl::CollisionObjectd>(std::make_shared<fcl::Sphered>(radius));
    }
    ball_->setTranslation(center);
    ball_->computeAABB();
    if (!ball_->getAABB().overlap(object_->getAABB())) {
      return false;
    }
    fcl::CollisionResultd result;
    return fcl::collide(ball_.get(), object_.get(), fcl::CollisionRequestd(), result) > 0;
  }

 private:
  void setOctree(const std::vector<Eigen::Vector3d>& places, double size) {
    const auto tree = std::make_shared<octomap::OcTree>(size);
    for (const Eigen::Vector3d& place : places) {
      tree->updateNode(octomap::point3d(static_cast<float>(place[0]), static_cast<float>(place[1]),
                                        static_cast<float>(place[2])),
                       true, true);
    }
    tree->updateInnerOccupancy();
    object_ = std::make_unique<fcl::CollisionObjectd>(std::make_shared<fcl::OcTreed>(tree));
  }

  std::unique_ptr<fcl::CollisionObjectd> object_;
  std::unique_ptr<fcl::CollisionObjectd> ball_;
  double radius_ = 0.0;
};
#endif

}  // namespace kavo::benchmarks
