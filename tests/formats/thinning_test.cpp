#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kavo/formats/thinning_internal.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {
namespace {

using Eigen::Vector3d;

// Adds a tube about z of a fine grid, with flat ends: any number of sides, radii and heights of its rings.
void AddTube(const Vector3d& foot, int num_sides, const std::vector<std::array<double, 2>>& rings,
             std::vector<Vector3d>& vertices, std::vector<TriangleMesh::Triangle>& triangles) {
  const auto sides = static_cast<std::uint32_t>(num_sides);
  for (std::size_t ring = 0; ring < rings.size(); ++ring) {
    for (std::uint32_t side = 0; side < sides; ++side) {
      const double angle = 2.0 * M_PI * side / num_sides;
      const auto [radius, height] = rings[ring];
      vertices.push_back(foot + Vector3d(radius * std::cos(angle), radius * std::sin(angle), height));
      if (ring > 0) {
        const auto begin = static_cast<std::uint32_t>(vertices.size() - 1 - side - sides);
        const std::uint32_t next = (side + 1) % sides;
        triangles.push_back({begin + side, begin + next, begin + sides + next});
        triangles.push_back({begin + side, begin + sides + next, begin + sides + side});
      }
    }
  }
}

double DistanceTo(const DrawnMesh& mesh, const Vector3d& point) {
  return TriangleMesh(mesh.vertices, mesh.triangles).distance(point);
}

// A ball of a metre with an antenna of a millimetre and a plate beside it, none of which may get lost.
TEST(Thinning, MeshesKeepTheirShape) {
  std::vector<Vector3d> vertices;
  std::vector<TriangleMesh::Triangle> triangles;
  std::vector<std::array<double, 2>> ball;
  std::vector<std::array<double, 2>> rod;
  std::vector<std::array<double, 2>> plate = {{0.0, 0.0}};
  for (int i = 0; i <= 150; ++i) {
    const double angle = M_PI * i / 150;
    ball.push_back({0.5 * std::sin(angle), -0.5 * std::cos(angle)});
    rod.push_back({0.0005, 0.5 + 0.4 * i / 150});
  }
  for (int i = 0; i <= 40; ++i) {
    plate.insert(plate.begin() + i, {0.3 * i / 40, 0.0});
    plate.push_back({0.3 * (40 - i) / 40, 0.002});
  }
  AddTube({0, 0, 0}, 300, ball, vertices, triangles);
  AddTube({0, 0, 0}, 12, rod, vertices, triangles);
  AddTube({1, 0, 0}, 80, plate, vertices, triangles);
  const TriangleMesh whole(vertices, triangles);
  for (const std::size_t limit : {std::size_t{1500}, std::size_t{12}}) {
    const DrawnMesh thinned = ThinMesh(whole.vertices(), whole.triangles(), limit);
    EXPECT_LE(thinned.triangles.size(), limit);
    EXPECT_EQ(thinned.num_triangles, whole.triangles().size());
    if (limit > 12) {
      EXPECT_GT(thinned.triangles.size(), limit * 3 / 4);
      for (const Vector3d& vertex : thinned.vertices) {
        EXPECT_LT(whole.distance(vertex), 0.01);
      }
      for (const Vector3d& point : {Vector3d(0, 0, 0.85), Vector3d(0, 0, 0.7), Vector3d(1.28, 0, 0),
                                    Vector3d(1, 0, 0.002), Vector3d(0.5, 0, 0), Vector3d(0, 0, -0.5)}) {
        EXPECT_LT(DistanceTo(thinned, point), 0.03) << point.transpose();
      }
    }
  }
}

// Half of the points lie in a hundredth of the room.
TEST(Thinning, PointsAreSpreadEvenlyInSpace) {
  std::mt19937 engine(1);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  std::vector<Vector3d> points;
  for (int i = 0; i < 40000; ++i) {
    const double scale = i % 2 == 0 ? 1.0 : 0.1;
    points.emplace_back(scale * uniform(engine), scale * uniform(engine), 0.0);
  }
  const std::vector<Vector3d> thinned = ThinPoints(points, 1000);
  EXPECT_EQ(thinned.size(), 1000u);
  int num_dense = 0;
  int quarters[4] = {0, 0, 0, 0};
  for (const Vector3d& point : thinned) {
    num_dense += point.x() < 0.1 && point.y() < 0.1 ? 1 : 0;
    ++quarters[(point.x() < 0.5 ? 0 : 1) + (point.y() < 0.5 ? 0 : 2)];
  }
  EXPECT_LT(num_dense, 20);
  for (const int quarter : quarters) {
    EXPECT_NEAR(quarter, 250, 25);
  }
  EXPECT_EQ(ThinPoints(std::vector<Vector3d>(10, Vector3d::Ones()), 3).size(), 1u);
}

TEST(Thinning, CellsAreJoined) {
  std::vector<Octree::Cell> cells = {{{-4.0, 4.0, 4.0}, 8.0}};
  for (int i = 0; i < 512; ++i) {
    const int row = i / 8 % 8;
    const int layer = i / 64;
    cells.push_back({{0.05 + 0.1 * (i % 8), 0.05 + 0.1 * row, -0.05 - 0.1 * layer}, 0.1});
  }
  const std::vector<Octree::Cell> thinned = ThinCells(cells, 100);
  ASSERT_EQ(thinned.size(), 65u);
  EXPECT_EQ(thinned[0].size, 8.0);
  Vector3d sum = Vector3d::Zero();
  for (std::size_t i = 1; i < thinned.size(); ++i) {
    EXPECT_DOUBLE_EQ(thinned[i].size, 0.2);
    sum += thinned[i].center;
  }
  EXPECT_TRUE(sum.isApprox(64 * Vector3d(0.4, 0.4, -0.4)));
}

TEST(Thinning, WhatIsSmallStaysWhole) {
  EXPECT_EQ(FairLimit({10, 1000, 20, 2000}, 1030), 500u);
  EXPECT_EQ(FairLimit({10, 20}, 30), 20u);
  EXPECT_EQ(FairLimit({}, 30), 30u);
}

}  // namespace
}  // namespace kavo::formats
