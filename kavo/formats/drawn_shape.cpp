#include "kavo/formats/drawn_shape.h"

#include <algorithm>

#include "kavo/formats/drawn_shape_internal.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

namespace {

struct Drawer {
  template <typename Solid>
  DrawnShape operator()(const Solid& solid) const {
    return solid;
  }
  DrawnShape operator()(const MeshObstacle& obstacle) const {
    const TriangleMesh& mesh = *obstacle.mesh;
    return DrawnMesh{mesh.vertices(), mesh.triangles(), mesh.triangles().size()};
  }
  DrawnShape operator()(const PointCloudObstacle& obstacle) const {
    const PointCloud& cloud = *obstacle.cloud;
    DrawnPoints drawn{cloud.points(), 0.0, cloud.points().size()};
    for (std::size_t i = 0; i < drawn.num_points; ++i) {
      drawn.radius = std::max(drawn.radius, cloud.radius(i));
    }
    return drawn;
  }
  DrawnShape operator()(const OctreeObstacle& obstacle) const {
    const std::vector<Octree::Cell>& cells = obstacle.octree->cells();
    return DrawnCells{cells, cells.size()};
  }
};

}  // namespace

DrawnShape DrawShape(const ObstacleShape& shape) { return std::visit(Drawer(), shape); }

}  // namespace kavo::formats
