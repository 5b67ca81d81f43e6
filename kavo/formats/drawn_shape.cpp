#include "kavo/formats/drawn_shape.h"

#include <algorithm>

#include "kavo/formats/drawn_shape_internal.h"
#include "kavo/formats/thinning_internal.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

namespace {

constexpr std::size_t kMostTriangles = 20000;
constexpr std::size_t kMostPoints = 20000;
constexpr std::size_t kMostCells = 4000;
// A box.
constexpr std::size_t kLeastTriangles = 12;

// The sizes of the shapes of one kind.
template <typename Obstacle, typename Size>
std::vector<std::size_t> SizesOf(const std::vector<ObstacleShape>& shapes, const Size& size) {
  std::vector<std::size_t> sizes;
  for (const ObstacleShape& shape : shapes) {
    if (const auto* const obstacle = std::get_if<Obstacle>(&shape)) {
      sizes.push_back(size(*obstacle));
    }
  }
  return sizes;
}

// Draws shapes, none of which has more than these.
struct Drawer {
  std::size_t most_triangles;
  std::size_t most_points;
  std::size_t most_cells;

  template <typename Solid>
  DrawnShape operator()(const Solid& solid) const {
    return solid;
  }
  DrawnShape operator()(const MeshObstacle& obstacle) const {
    return ThinMesh(obstacle.mesh->vertices(), obstacle.mesh->triangles(), most_triangles);
  }
  DrawnShape operator()(const PointCloudObstacle& obstacle) const {
    const PointCloud& cloud = *obstacle.cloud;
    DrawnPoints drawn{ThinPoints(cloud.points(), most_points), 0.0, cloud.points().size()};
    for (std::size_t i = 0; i < drawn.num_points; ++i) {
      drawn.radius = std::max(drawn.radius, cloud.radius(i));
    }
    return drawn;
  }
  DrawnShape operator()(const OctreeObstacle& obstacle) const {
    const std::vector<Octree::Cell>& cells = obstacle.octree->cells();
    return DrawnCells{ThinCells(cells, most_cells), cells.size()};
  }
};

}  // namespace

std::vector<DrawnShape> DrawShapes(const std::vector<ObstacleShape>& shapes) {
  const auto num_triangles = [](const MeshObstacle& obstacle) { return obstacle.mesh->triangles().size(); };
  const auto num_points = [](const PointCloudObstacle& obstacle) { return obstacle.cloud->points().size(); };
  const auto num_cells = [](const OctreeObstacle& obstacle) { return obstacle.octree->cells().size(); };
  const Drawer drawer{
      std::max(FairLimit(SizesOf<MeshObstacle>(shapes, num_triangles), kMostTriangles), kLeastTriangles),
      std::max<std::size_t>(FairLimit(SizesOf<PointCloudObstacle>(shapes, num_points), kMostPoints), 1),
      std::max<std::size_t>(FairLimit(SizesOf<OctreeObstacle>(shapes, num_cells), kMostCells), 8)};
  std::vector<DrawnShape> drawn;
  drawn.reserve(shapes.size());
  for (const ObstacleShape& shape : shapes) {
    drawn.push_back(std::visit(drawer, shape));
  }
  return drawn;
}

}  // namespace kavo::formats
