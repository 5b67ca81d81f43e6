#include "kavo/world/shapes/sphere_cover.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "kavo/util/fatal_error.h"
#include "kavo/world/shapes/octree.h"
#include "kavo/world/shapes/point_cloud.h"
#include "kavo/world/shapes/triangle_mesh.h"
#include "kavo/world/world.h"
#include "tests/world/random_scene.h"

namespace kavo {
namespace {

using Triangles = std::vector<TriangleMesh::Triangle>;
using Vertices = std::vector<Eigen::Vector3d>;

// A surface to which more is added.
struct Surface {
  // Faces of a box, -x first, of which some may be left out.
  Surface& box(const Eigen::Vector3d& low, const Eigen::Vector3d& high, unsigned left_out = 0) {
    for (int face = 0; face < 6; ++face) {
      if ((left_out >> face & 1U) == 0) {
        const int axis = face / 2;
        Eigen::Vector3d corners[4];
        for (int i = 0; i < 4; ++i) {
          corners[i][axis] = (face % 2 == 0 ? low : high)[axis];
          corners[i][(axis + 1) % 3] = (i == 1 || i == 2 ? high : low)[(axis + 1) % 3];
          corners[i][(axis + 2) % 3] = (i >= 2 ? high : low)[(axis + 2) % 3];
        }
        // Turned as it happens.
        triangle(corners[0], corners[1], corners[2]);
        triangle(corners[0], corners[2], corners[3]);
      }
    }
    return *this;
  }

  Surface& triangle(const Eigen::Vector3d& a, const Eigen::Vector3d& b, const Eigen::Vector3d& c) {
    const auto first = static_cast<std::uint32_t>(vertices.size());
    vertices.insert(vertices.end(), {a, b, c});
    triangles.push_back({first, first + 1, first + 2});
    return *this;
  }

  Surface& torus(double large, double small, int count) {
    const auto point = [&](int i, int j) {
      const double u = 2.0 * M_PI * i / count;
      const double v = 2.0 * M_PI * j / count;
      const double side = large + small * std::cos(v);
      return Eigen::Vector3d(side * std::cos(u), side * std::sin(u), small * std::sin(v));
    };
    for (int i = 0; i < count; ++i) {
      for (int j = 0; j < count; ++j) {
        const int next_i = (i + 1) % count;
        const int next_j = (j + 1) % count;
        triangle(point(i, j), point(next_i, j), point(i, next_j));
        triangle(point(next_i, next_j), point(next_i, j), point(i, next_j));
      }
    }
    return *this;
  }

  Surface& soup(test::RandomScene& random, int count) {
    for (int i = 0; i < count; ++i) {
      const Eigen::Vector3d a = random.point(0.1);
      triangle(a, a + random.point(0.05), a + random.point(0.05));
    }
    return *this;
  }

  ObstacleShape shape() const {
    return MeshObstacle{std::make_shared<const TriangleMesh>(vertices, triangles)};
  }

  Vertices vertices;
  Triangles triangles;
};

struct Case {
  std::string name;
  std::vector<CoverPart> parts;
  double tolerance;
  // No more spheres than that.
  std::size_t most;
  // What else counts as inside where it is a question of how far spheres reach.
  std::vector<CoverPart> voids = {};
};

void PrintTo(const Case& test, std::ostream* stream) { *stream << test.name; }

World WorldOf(const std::vector<CoverPart>& parts) {
  World world;
  for (const CoverPart& part : parts) {
    world.add(part.shape, part.pose);
  }
  return world;
}

// Points of the parts: where random segments cross a surface, and what they cross inside.
Vertices PointsOf(const std::vector<CoverPart>& parts, test::RandomScene& random, int count) {
  const WorldView view = WorldOf(parts).view();
  Vertices points;
  for (const CoverPart& part : parts) {
    if (const auto* mesh = std::get_if<MeshObstacle>(&part.shape)) {
      for (const TriangleMesh::Triangle& triangle : mesh->mesh->triangles()) {
        for (int i = 0; i < 1 + count / static_cast<int>(mesh->mesh->triangles().size()); ++i) {
          // Corners and edges too.
          double u = std::max(random.uniform(-0.2, 1.0), 0.0);
          double v = std::max(random.uniform(-0.2, 1.0), 0.0);
          if (u + v > 1.0) {
            const double sum = u + v;
            u /= sum;
            v /= sum;
          }
          const Vertices& vertices = mesh->mesh->vertices();
          const Eigen::Vector3d& a = vertices[triangle[0]];
          points.push_back(part.pose *
                           (a + u * (vertices[triangle[1]] - a) + v * (vertices[triangle[2]] - a)));
        }
      }
    }
  }
  for (int i = 0; i < count; ++i) {
    Eigen::Vector3d point = random.point(0.4);
    // To the surface by as many steps as it takes.
    for (int step = 0; step < 100; ++step) {
      const double distance = view.nearestObstacle(point)->distance;
      if (distance <= 1e-12) {
        points.push_back(point);
        break;
      }
      Eigen::Vector3d gradient;
      for (int axis = 0; axis < 3; ++axis) {
        const Eigen::Vector3d shift = 1e-7 * Eigen::Vector3d::Unit(axis);
        gradient[axis] =
            view.nearestObstacle(point + shift)->distance - view.nearestObstacle(point - shift)->distance;
      }
      if (gradient.norm() == 0.0) {
        break;
      }
      point -= distance * gradient.normalized();
    }
  }
  return points;
}

class SphereCoverTest : public testing::TestWithParam<Case> {};

TEST_P(SphereCoverTest, HoldsAllPointsAndReachesNoFartherThanTheTolerance) {
  const Case& test = GetParam();
  const SphereCover cover = CoverBySpheres(test.parts, {test.tolerance, {}});
  EXPECT_EQ(cover.tolerance, test.tolerance);
  EXPECT_LE(cover.bulge, test.tolerance);
  EXPECT_LE(cover.spheres.size(), test.most);

  test::RandomScene random(1);
  const Vertices points = PointsOf(test.parts, random, 1000);
  ASSERT_GT(points.size(), 500u);
  std::size_t num_outside = 0;
  for (const Eigen::Vector3d& point : points) {
    num_outside += std::none_of(cover.spheres.begin(), cover.spheres.end(), [&](const math::Sphere& sphere) {
      return (point - sphere.center).norm() <= sphere.radius + 1e-12;
    });
  }
  EXPECT_EQ(num_outside, 0u) << "of " << points.size();

  std::vector<CoverPart> filled = test.parts;
  filled.insert(filled.end(), test.voids.begin(), test.voids.end());
  const WorldView view = WorldOf(filled).view();
  double farthest = -1.0;
  for (const math::Sphere& sphere : cover.spheres) {
    for (int i = 0; i < 200; ++i) {
      const Eigen::Vector3d way = random.point(1.0);
      const Eigen::Vector3d point = sphere.center + sphere.radius * way.normalized();
      farthest = std::max(farthest, view.nearestObstacle(point)->distance);
    }
  }
  EXPECT_LE(farthest, cover.bulge + 1e-12);
  // What may be used is used: that is what makes them few.
  EXPECT_GT(farthest, 0.5 * cover.bulge);
}

std::vector<Case> Cases() {
  const Pose3 turned(Eigen::Quaterniond(0.3, 0.5, -0.2, 0.7), {0.05, -0.1, 0.2});
  const Eigen::Vector3d low(-0.1, -0.08, -0.06);
  const Eigen::Vector3d high(0.1, 0.08, 0.06);
  // Two faces with slits along all their edges, and a plate in the middle that keeps no ball from going by.
  const Surface with_slits = Surface()
                                 .box(low, high, 0b100001)
                                 .box({-0.1, -0.078, -0.058}, {-0.1, 0.078, 0.058}, 0b111110)
                                 .box({-0.098, -0.078, 0.06}, {0.098, 0.078, 0.06}, 0b011111);
  Surface twice = Surface().box(low, high).box({-0.02, -0.02, -0.2}, {0.02, 0.02, 0.1});
  for (TriangleMesh::Triangle triangle : Triangles(twice.triangles)) {
    std::swap(triangle[0], triangle[1]);
    twice.triangles.push_back(triangle);
  }
  test::RandomScene random(3);
  Vertices cloud;
  std::vector<Octree::Cell> cells;
  for (int i = 0; i < 100; ++i) {
    cloud.push_back(random.point(0.1));
    cells.push_back({random.gridPoint(0.1), 0.0125});
  }
  return {
      {"ball", {{SphereObstacle{0.1}, turned}}, 0.02, 1},
      {"box", {{BoxObstacle{{0.3, 0.2, 0.1}}, turned}}, 0.02, 60},
      {"cylinder", {{CylinderObstacle{0.1, 0.3}, turned}}, 0.02, 60},
      {"capsule", {{CapsuleObstacle{0.05, 0.3}, turned}}, 0.01, 12},
      {"cone", {{ConeObstacle{0.1, 0.2}, turned}}, 0.02, 40},
      {"closed_pieces_through_each_other_repeated_and_turned_over", {{twice.shape(), turned}}, 0.02, 60},
      {"open_box", {{Surface().box(low, high, 0b100000).shape(), turned}}, 0.02, 500},
      {"box_with_slits", {{with_slits.shape(), turned}}, 0.02, 40, {{BoxObstacle{high - low}, turned}}},
      {"torus", {{Surface().torus(0.1, 0.03, 24).shape(), {}}}, 0.02, 40},
      {"thin_plate", {{Surface().box({-0.1, -0.1, 0.0}, {0.1, 0.1, 0.0005}).shape(), {}}}, 0.02, 200},
      {"needle",
       {{Surface().triangle({0, 0, 0}, {0.3, 1e-9, 0}, {0.15, 1e-7, 0}).shape(), turned}},
       0.01,
       20},
      {"soup", {{Surface().soup(random, 60).shape(), {}}}, 0.02, 200},
      {"cloud", {{PointCloudObstacle{std::make_shared<const PointCloud>(cloud, 0.01)}, turned}}, 0.02, 120},
      {"octree", {{OctreeObstacle{std::make_shared<const Octree>(cells)}, turned}}, 0.02, 120},
      {"several", {{BoxObstacle{{0.1, 0.1, 0.1}}, {}}, {CapsuleObstacle{0.03, 0.3}, turned}}, 0.02, 60},
  };
}

INSTANTIATE_TEST_SUITE_P(, SphereCoverTest, testing::ValuesIn(Cases()),
                         [](const auto& test) { return test.param.name; });

TEST(CoverBySpheresTest, FindsTheToleranceForANumberOfSpheres) {
  // One sphere around a cube reaches (sqrt(3) - 1) halves of its side beyond a face.
  const std::vector<CoverPart> cube = {{BoxObstacle{{0.2, 0.2, 0.2}}, {}}};
  const SphereCover one = CoverBySpheres(cube, {0.05, 1});
  EXPECT_EQ(one.spheres.size(), 1u);
  EXPECT_NEAR(one.tolerance, 0.0732, 0.003);
  const SphereCover enough = CoverBySpheres(cube, {0.08, 10});
  EXPECT_EQ(enough.spheres.size(), 1u);
  EXPECT_EQ(enough.tolerance, 0.08);
}

TEST(CoverBySpheresTest, TakesAnySizeButRefusesWhatIsNoShapeOfAnySize) {
  for (const double size : {1e-6, 1e6}) {
    const SphereCover cover = CoverBySpheres({{BoxObstacle{{size, size, size}}, {}}}, {0.3 * size, {}});
    EXPECT_LE(cover.spheres.size(), 12u) << size;
  }
  // What would take a billion spheres is covered as well as the greatest number allows.
  const SphereCover coarse = CoverBySpheres({{BoxObstacle{{1.0, 1.0, 1.0}}, {}}}, {1e-5, 20});
  EXPECT_GT(coarse.tolerance, 0.01);
  EXPECT_LE(coarse.spheres.size(), 20u);

  const BoxObstacle box{{1.0, 1.0, 1.0}};
  const Pose3 nowhere = Pose3::FromTranslation({std::numeric_limits<double>::quiet_NaN(), 0.0, 0.0});
  for (const std::vector<CoverPart>& parts :
       std::vector<std::vector<CoverPart>>{{},
                                           {{HalfSpaceObstacle{}, {}}},
                                           {{BoxObstacle{{1.0, 0.0, 1.0}}, {}}},
                                           {{box, nowhere}},
                                           {{MeshObstacle{}, {}}}}) {
    EXPECT_THROW(CoverBySpheres(parts, {0.1, {}}), util::FatalError);
  }
  EXPECT_THROW(CoverBySpheres({{box, {}}}, {0.0, {}}), util::FatalError);
  EXPECT_THROW(CoverBySpheres({{box, {}}}, {0.1, 0}), util::FatalError);
}

}  // namespace
}  // namespace kavo
