#include "kavo/world/shapes/triangle_mesh.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "kavo/util/fatal_error.h"
#include "kavo/world/shapes/mesh_tree_internal.h"
#include "kavo/world/world.h"
#include "tests/world/random_scene.h"

namespace kavo {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(TriangleMeshTest, JoinsWhatIsTheSameAndTellsOpenPiecesFromClosedOnes) {
  // A tetrahedron of four loose triangles, as STL has them: one turned over, one twice, and one that is a
  // line; and beside it a single triangle.
  const Eigen::Vector3d a(0.0, 0.0, 0.0);
  const Eigen::Vector3d b(1.0, 0.0, 0.0);
  const Eigen::Vector3d c(0.0, 1.0, 0.0);
  const Eigen::Vector3d d(-0.0, 0.0, 1.0);
  const Eigen::Vector3d far(5.0, 0.0, 0.0);
  const TriangleMesh mesh(
      {a, b, c, a, b, d, d, c, -a, b, c, d, far, far + c, far + d, c, b, a},
      {{0, 1, 2}, {3, 4, 5}, {12, 13, 14}, {6, 7, 8}, {9, 10, 11}, {15, 16, 17}, {0, 3, 1}});
  EXPECT_THAT(mesh.vertices(), ElementsAre(a, b, c, d, far, far + c, far + d));
  EXPECT_THAT(mesh.triangles(), SizeIs(5));
  EXPECT_THAT(mesh.pieces(), ElementsAre(0, 0, 1, 0, 0));
  ASSERT_EQ(mesh.numPieces(), 2u);
  EXPECT_TRUE(mesh.isPieceClosed(0));
  EXPECT_FALSE(mesh.isPieceClosed(1));
  EXPECT_EQ(mesh.numOpenEdges(), 3u);
}

TEST(TriangleMeshTest, RefusesWhatIsNoMesh) {
  const std::vector<Eigen::Vector3d> corners = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  EXPECT_THROW(TriangleMesh(corners, {}), util::FatalError);
  EXPECT_THROW(TriangleMesh(corners, {{0, 1, 3}}), util::FatalError);
  EXPECT_THROW(TriangleMesh(corners, {{0, 1, 1}}), util::FatalError);
  for (const double bad : {std::numeric_limits<double>::infinity(), -1e31}) {
    EXPECT_THROW(TriangleMesh({{0, 0, 0}, {1, 0, 0}, {0, bad, 0}}, {{0, 1, 2}}), util::FatalError);
  }
}

// A box of which each face is a grid of squares in two triangles, turned either way.
struct GridBox {
  void add(test::RandomScene& random, const Eigen::Vector3d& center, const Eigen::Vector3d& size, int count) {
    for (int axis = 0; axis < 3; ++axis) {
      for (const double side : {-0.5, 0.5}) {
        for (int i = 0; i < count * count; ++i) {
          const int column = i % count;
          const int row = i / count;
          const auto corner = [&](int u, int v) {
            Eigen::Vector3d shares;
            shares[axis] = side;
            shares[(axis + 1) % 3] = static_cast<double>(column + u) / count - 0.5;
            shares[(axis + 2) % 3] = static_cast<double>(row + v) / count - 0.5;
            vertices.emplace_back(center + size.cwiseProduct(shares));
          };
          for (const int u : {0, 1}) {
            corner(u, u);
            corner(1, 0);
            corner(0, 1);
            const auto first = static_cast<std::uint32_t>(vertices.size()) - 3;
            triangles.push_back(random.integer(0, 1) == 0
                                    ? TriangleMesh::Triangle{first, first + 1, first + 2}
                                    : TriangleMesh::Triangle{first + 1, first, first + 2});
          }
        }
      }
    }
  }

  std::vector<Eigen::Vector3d> vertices;
  std::vector<TriangleMesh::Triangle> triangles;
};

// Boxes made of triangles against boxes, also with rays that run along edges and through vertices. Where a
// few lie in one another the surface of each is still there.
TEST(TriangleMeshTest, MeshesOfBoxesAnswerAsBoxes) {
  test::RandomScene random(51);
  const struct {
    int count;
    bool is_turned;
    bool on_grid;
  } cases[] = {{1, false, true}, {1, true, false}, {4, false, true}, {4, false, false}, {7, true, false}};
  for (const auto& [count, is_turned, on_grid] : cases) {
    SCOPED_TRACE(::testing::Message() << count << " turned " << is_turned << " grid " << on_grid);
    const Eigen::Vector3d size(1.0, 2.0, 0.5);
    const Pose3 pose = is_turned ? random.pose(1.0) : Pose3();
    GridBox box;
    box.add(random, Eigen::Vector3d::Zero(), size, count);
    const auto mesh = std::make_shared<const TriangleMesh>(box.vertices, box.triangles);
    ASSERT_TRUE(mesh->isClosed());
    World meshes;
    meshes.add(MeshObstacle{mesh}, pose);
    World shells;
    shells.add(MeshObstacle{mesh, Interior::kEmpty}, pose);
    World boxes;
    boxes.add(BoxObstacle{size}, pose);
    for (int i = 0; i < 2000; ++i) {
      const Eigen::Vector3d local = on_grid ? random.gridPoint(2.0) : random.point(i % 2 == 0 ? 2.0 : 0.6);
      const Eigen::Vector3d point = pose * local;
      const double distance = boxes.view().nearestObstacle(point)->distance;
      ASSERT_NEAR(meshes.view().nearestObstacle(point)->distance, distance, 1e-12) << local.transpose();
      ASSERT_NEAR(shells.view().nearestObstacle(point)->distance, std::fabs(distance), 1e-12);
      const double radius = random.uniform(0.0, 0.5);
      if (std::fabs(distance - radius) > 1e-9) {
        ASSERT_EQ(meshes.view().inCollision(point, radius), distance <= radius) << local.transpose();
      }
      if (std::fabs(distance) > 1e-9) {
        ASSERT_EQ(mesh->contains(local), distance < 0.0) << local.transpose();
      }
    }
  }
}

// A box without one of its faces, of which the caller says that it is solid.
TEST(TriangleMeshTest, ASurfaceWithAHoleIsFilledWhereItIsSaidToBeSolid) {
  test::RandomScene random(54);
  GridBox box;
  box.add(random, Eigen::Vector3d::Zero(), {1.0, 1.0, 1.0}, 8);
  box.triangles.erase(box.triangles.begin(), box.triangles.begin() + 128);
  const auto mesh = std::make_shared<const TriangleMesh>(box.vertices, box.triangles);
  ASSERT_EQ(mesh->numOpenEdges(), 32u);
  World solid;
  solid.add(MeshObstacle{mesh, Interior::kSolid}, Pose3());
  World surface;
  surface.add(MeshObstacle{mesh}, Pose3());
  for (int i = 0; i < 2000; ++i) {
    const Eigen::Vector3d point = random.point(0.8);
    // Cells that the surface runs through are not filled.
    const double from_box = point.cwiseAbs().maxCoeff() - 0.5;
    const double distance = solid.view().nearestObstacle(point)->distance;
    if (from_box < -0.07) {
      EXPECT_LT(distance, 0.0) << point.transpose();
      EXPECT_FALSE(surface.view().inCollision(point, 0.0));
    } else if (from_box > 0.0) {
      EXPECT_GT(distance, 0.0) << point.transpose();
      EXPECT_TRUE(point[0] < -0.5 || distance == surface.view().nearestObstacle(point)->distance);
    }
  }
}

// More pieces around a point than are looked at in one go; and of those that it is in, an even number.
TEST(TriangleMeshTest, PiecesInOneAnotherAreEachSolid) {
  test::RandomScene random(52);
  GridBox boxes;
  for (int i = 0; i < 100; ++i) {
    boxes.add(random, Eigen::Vector3d::Zero(), Eigen::Vector3d::Constant(2.0 + 0.125 * i), 1);
  }
  const TriangleMesh mesh(boxes.vertices, boxes.triangles);
  ASSERT_EQ(mesh.numPieces(), 100u);
  for (int i = 0; i < 50; ++i) {
    const Eigen::Vector3d point = random.point(10.0);
    EXPECT_EQ(mesh.contains(point), point.cwiseAbs().maxCoeff() < 1.0 + 0.0625 * 99.0) << point.transpose();
  }
}

// The nearest point against the nearest of many, also of triangles that rounding leaves no area.
TEST(TriangleMeshTest, NearestPointsInTrianglesAreNearest) {
  test::RandomScene random(53);
  for (int trial = 0; trial < 3000; ++trial) {
    const Eigen::Vector3d a = random.point(1.0);
    const Eigen::Vector3d b = random.point(1.0);
    const double width = std::pow(10.0, -2 * random.integer(0, 10));
    const Eigen::Vector3d c = a + random.uniform(-0.5, 1.5) * (b - a) + width * random.point(1.0);
    const Eigen::Vector3d middle =
        a + random.uniform(0.0, 1.0) * (b - a) + random.uniform(0.0, 1.0) * (c - a);
    const Eigen::Vector3d point =
        middle + random.uniform(0.0, trial % 2 == 0 ? 1.0 : width) * random.point(1.0);
    const internal::NearInTriangle nearest = internal::NearestInTriangle({a, b, c}, point);
    // By halving between points of three pairs of sides, each on the one that is nearer: distance is convex.
    const auto distance_on = [&](double s) {
      const Eigen::Vector3d from = a + s * (b - a);
      const Eigen::Vector3d way = (1.0 - s) * (c - a);
      const double length = way.squaredNorm();
      const double t = length > 0.0 ? std::min(std::max(way.dot(point - from) / length, 0.0), 1.0) : 0.0;
      return (from + t * way - point).norm();
    };
    double low = 0.0;
    double high = 1.0;
    for (int i = 0; i < 200; ++i) {
      const double third = (high - low) / 3.0;
      (distance_on(low + third) < distance_on(high - third) ? high : low) +=
          distance_on(low + third) < distance_on(high - third) ? -third : third;
    }
    const double least = std::min({distance_on(low), distance_on(0.0), distance_on(1.0)});
    ASSERT_NEAR(std::sqrt(nearest.squared_distance), least, 1e-14) << "width " << width << " trial " << trial;
    ASSERT_NEAR((nearest.point - point).norm(), least, 1e-7);
  }
}

}  // namespace
}  // namespace kavo
