#include "kavo/world/shapes/cut_out.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support/vectors.h"

namespace kavo {
namespace {

using ::kavo::testing::RandomVec;

std::vector<math::Sphere> RandomSpheres(std::mt19937& engine) {
  std::vector<math::Sphere> spheres;
  spheres.reserve(5);
  for (int i = 0; i < 5; ++i) {
    spheres.push_back({RandomVec(engine, 3, -2, 2), 0.2 * (1 + i)});
  }
  return spheres;
}

TEST(CutOut, PointsWhoseBallsTouchNoSphereStay) {
  std::mt19937 engine(11);
  const std::vector<math::Sphere> spheres = RandomSpheres(engine);
  std::vector<Eigen::Vector3d> points;
  std::vector<double> radii;
  for (int i = 0; i < 2000; ++i) {
    points.emplace_back(RandomVec(engine, 3, -3, 3));
    radii.push_back(i % 3 * 0.1);
  }
  std::vector<Eigen::Vector3d> expected;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (std::all_of(spheres.begin(), spheres.end(), [&](const math::Sphere& sphere) {
          return (sphere.center - points[i]).norm() > sphere.radius + radii[i];
        })) {
      expected.push_back(points[i]);
    }
  }
  const auto cloud = std::make_shared<const PointCloud>(points, radii);
  const RemainingPoints remaining = CutOut(cloud, spheres);
  EXPECT_EQ(remaining.cloud->points(), expected);
  EXPECT_EQ(remaining.num_cut, points.size() - expected.size());
  EXPECT_GT(remaining.num_cut, 100u);
  EXPECT_EQ(CutOut(cloud, {}).cloud, cloud);
  EXPECT_EQ(CutOut(cloud, {{{0, 0, 0}, 9}}).cloud, nullptr);
}

TEST(CutOut, LargeCellsLoseOnlyThePartsThatTouch) {
  std::mt19937 engine(13);
  const std::vector<math::Sphere> spheres = RandomSpheres(engine);
  const auto octree = std::make_shared<const Octree>(
      std::vector<Octree::Cell>{{{0, 0, 0}, 4.0}, {{2.25, 0, 0}, 0.5}, {{9, 0, 0}, 0.5}});
  const RemainingCells remaining = CutOut(octree, spheres);
  // Half a metre is the smallest: a point stays unless its cell of that grid is touched.
  const auto is_touched = [&](const Eigen::Vector3d& point) {
    const Eigen::Vector3d center = ((point * 2).array().floor() + 0.5) / 2;
    return std::any_of(spheres.begin(), spheres.end(), [&](const math::Sphere& sphere) {
      return ((sphere.center - center).array().abs() - 0.25).max(0.0).matrix().norm() <= sphere.radius;
    });
  };
  double volume = 0.0;
  for (const Octree::Cell& cell : remaining.octree->cells()) {
    volume += cell.size * cell.size * cell.size;
  }
  EXPECT_EQ(volume + static_cast<double>(remaining.num_cut) * 0.125, 64.25);
  for (int i = 0; i < 2000; ++i) {
    const Eigen::Vector3d point = RandomVec(engine, 3, -2, 2);
    const bool is_there = std::any_of(remaining.octree->cells().begin(), remaining.octree->cells().end(),
                                      [&](const Octree::Cell& cell) {
                                        return (point - cell.center).cwiseAbs().maxCoeff() <= 0.5 * cell.size;
                                      });
    EXPECT_EQ(is_there, !is_touched(point)) << point.transpose();
  }
  EXPECT_EQ(CutOut(octree, {{{5, 5, 5}, 1}}).octree, octree);
  EXPECT_EQ(CutOut(octree, {{{0, 0, 0}, 20}}).octree, nullptr);
  EXPECT_EQ(CutOut(octree, {{{0, 0, 0}, 20}}).num_cut, 514u);
}

}  // namespace
}  // namespace kavo
