#include "kavo/world/world_view.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <vector>

#include "kavo/util/fatal_error.h"
#include "kavo/world/world.h"
#include "tests/support/allocations.h"
#include "tests/world/random_scene.h"

namespace kavo {
namespace {

using test::RandomScene;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kLargest = std::numeric_limits<double>::max();

Pose3 At(double x, double y, double z) { return Pose3::FromTranslation({x, y, z}); }

double Below(double value) { return std::nextafter(value, -kInfinity); }

WorldView ViewOf(const ObstacleShape& shape, const Pose3& pose, double padding = 0.0) {
  World world;
  world.setPadding(world.add(shape, pose), padding);
  return world.view();
}

TEST(WorldView, WhatCannotBePlacedIsNotFreeAndANegativeRadiusTouchesNothing) {
  const struct {
    Eigen::Vector3d center;
    double radius;
    bool in_empty_world;
    bool at_ball;
  } cases[] = {
      {{0.0, 0.0, 0.0}, 0.0, false, true},          {{0.0, 0.0, 0.0}, -0.0, false, true},
      {{0.0, 0.0, 0.0}, -1e-300, false, false},     {{0.0, 0.0, 0.0}, -5.0, false, false},
      {{kNaN, 0.0, 0.0}, 1.0, true, true},          {{0.0, kInfinity, 0.0}, 1.0, true, true},
      {{0.0, 0.0, -kInfinity}, -1.0, true, true},   {{0.0, 0.0, 0.0}, kNaN, true, true},
      {{0.0, 0.0, 0.0}, kInfinity, true, true},     {{9.0, 0.0, 0.0}, -kInfinity, true, true},
      {{1e200, 1e200, 0.0}, 1.4e200, false, false}, {{1e200, 1e200, 0.0}, 1.5e200, false, true},
      {{0.0, 0.0, kLargest}, 1.0, false, false},    {{0.0, 0.0, kLargest}, -kLargest, false, false},
      {{0.0, 3.0, 0.0}, kLargest, false, true},
  };
  const WorldView empty = World().view();
  const WorldView ball = ViewOf(SphereObstacle{1.0}, Pose3());
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.center.transpose() << " radius " << c.radius);
    EXPECT_EQ(empty.inCollision(c.center, c.radius), c.in_empty_world);
    EXPECT_EQ(ball.inCollision(c.center, c.radius), c.at_ball);
  }
  EXPECT_FALSE(empty.nearestObstacle({0.0, 0.0, 0.0}).has_value());
  EXPECT_FALSE(ball.nearestObstacle({0.0, kNaN, 0.0}).has_value());
}

// The point of a solid that lies furthest in the direction of a unit vector, both in the solid's frame.
Eigen::Vector3d FurthestPoint(const ObstacleShape& shape, const Eigen::Vector3d& u) {
  const Eigen::Vector3d signs(u[0] < 0.0 ? -1.0 : 1.0, u[1] < 0.0 ? -1.0 : 1.0, u[2] < 0.0 ? -1.0 : 1.0);
  if (const auto* sphere = std::get_if<SphereObstacle>(&shape)) {
    return sphere->radius * u;
  }
  if (const auto* box = std::get_if<BoxObstacle>(&shape)) {
    return 0.5 * box->size.cwiseProduct(signs);
  }
  if (const auto* cylinder = std::get_if<CylinderObstacle>(&shape)) {
    const double side = cylinder->radius / std::hypot(u[0], u[1]);
    return {side * u[0], side * u[1], 0.5 * cylinder->height * signs[2]};
  }
  if (const auto* cone = std::get_if<ConeObstacle>(&shape)) {
    const double side = cone->radius / std::hypot(u[0], u[1]);
    const double half = 0.5 * cone->height;
    return u[2] * cone->height > cone->radius * std::hypot(u[0], u[1])
               ? Eigen::Vector3d(0.0, 0.0, half)
               : Eigen::Vector3d(side * u[0], side * u[1], -half);
  }
  const auto& capsule = std::get<CapsuleObstacle>(shape);
  return capsule.radius * u + Eigen::Vector3d(0.0, 0.0, 0.5 * capsule.height * signs[2]);
}

// The signed distance of a point p from a convex solid with support function h is the largest value of u.p -
// h(u) over all directions u, inside and outside. The directions are searched by random steps from several
// starts.
TEST(WorldView, DistancesMatchTheSupportFunctionAtRandomPoses) {
  RandomScene random(11);
  for (int trial = 0; trial < 400; ++trial) {
    const ObstacleShape shape = random.bounded(trial % RandomScene::kNumConvexKinds, 1.0);
    const Pose3 pose = random.pose(0.5);
    const Eigen::Vector3d point = random.point(trial % 3 == 0 ? 2.0 : 0.7);
    const Eigen::Vector3d local = pose.rotation().conjugate() * (point - pose.translation());
    const auto value = [&](const Eigen::Vector3d& u) { return u.dot(local - FurthestPoint(shape, u)); };
    double largest = -kInfinity;
    for (int start = 0; start < 12; ++start) {
      Eigen::Vector3d best = random.point(1.0).normalized();
      for (double step = 0.5; step > 1e-4; step *= 0.965) {
        const Eigen::Vector3d next = (best + random.point(step)).normalized();
        best = value(next) > value(best) ? next : best;
      }
      largest = std::max(largest, value(best));
    }
    const double distance = ViewOf(shape, pose).nearestObstacle(point)->distance;
    EXPECT_GE(distance, largest - 1e-12) << "kind " << shape.index();
    EXPECT_LE(distance, largest + 1e-3) << "kind " << shape.index();

    const double above = (pose.rotation() * Eigen::Vector3d::UnitZ()).dot(point - pose.translation());
    const WorldView ground = ViewOf(HalfSpaceObstacle{}, pose);
    const double height = ground.nearestObstacle(point)->distance;
    EXPECT_NEAR(height, above, 1e-12);
    EXPECT_TRUE(ground.inCollision(point, std::max(height, 0.0)));
    EXPECT_FALSE(ground.inCollision(point, Below(std::max(height, 0.0))));
  }
}

// Distances as they are of a world with an obstacle for each point and each cell.
TEST(WorldView, CloudsAndOctreesAreTheBallsAndCubesThatTheyAreMadeOf) {
  RandomScene random(12);
  for (int trial = 0; trial < 60; ++trial) {
    const ObstacleShape shape = random.bounded(6 + trial % 2, 1.0);
    const Pose3 pose = random.pose(0.5);
    World parts;
    if (const auto* cloud = std::get_if<PointCloudObstacle>(&shape)) {
      for (std::size_t i = 0; i < cloud->cloud->points().size(); ++i) {
        const Pose3 place = pose * Pose3::FromTranslation(cloud->cloud->points()[i]);
        parts.add(SphereObstacle{cloud->cloud->radius(i)}, place);
      }
    } else {
      for (const Octree::Cell& cell : std::get<OctreeObstacle>(shape).octree->cells()) {
        const Pose3 place = pose * Pose3::FromTranslation(cell.center);
        parts.add(BoxObstacle{Eigen::Vector3d::Constant(cell.size)}, place);
      }
    }
    const WorldView view = ViewOf(shape, pose);
    for (int i = 0; i < 100; ++i) {
      const Eigen::Vector3d point = random.point(1.0);
      const double distance = parts.view().nearestObstacle(point)->distance;
      ASSERT_NEAR(view.nearestObstacle(point)->distance, distance, 1e-14);
      const double radius = random.uniform(0.0, 0.3);
      ASSERT_EQ(view.inCollision(point, radius), parts.view().inCollision(point, radius));
    }
  }
  EXPECT_THROW(PointCloud({}, 0.1), util::FatalError);
  EXPECT_THROW(PointCloud({{0.0, kNaN, 0.0}}, 0.1), util::FatalError);
  EXPECT_THROW(PointCloud({{0.0, 0.0, 1e31}}, 0.1), util::FatalError);
  EXPECT_THROW(PointCloud({{0.0, 0.0, 0.0}}, -0.1), util::FatalError);
  EXPECT_THROW(PointCloud({{0.0, 0.0, 0.0}}, {0.1, 0.1}), util::FatalError);
  EXPECT_THROW(Octree({}), util::FatalError);
  EXPECT_THROW(Octree({{{0.0, 0.0, 0.0}, 0.0}}), util::FatalError);
  EXPECT_THROW(Octree({{{kInfinity, 0.0, 0.0}, 1.0}}), util::FatalError);
}

// The distances to the obstacles one by one say what `nearestObstacle` and `inCollision` must find with
// bounds, tree and wide vectors: to the last bit, with every set of instructions.
TEST(WorldView, NearestAndContactAreWhatTheDistancesSayOnEveryTarget) {
  const Eigen::Vector3d here(0.0, 0.0, 0.0);
  const struct {
    int num_obstacles;
    // Room for the obstacles and their size; far scenes press the single-precision bounds.
    double reach;
    double size;
    Eigen::Vector3d offset;
    bool on_grid;
  } scenes[] = {
      {1, 1.0, 0.5, here, false},
      {7, 1.0, 0.5, here, false},
      {8, 1.0, 0.5, here, true},
      {9, 1.0, 0.5, here, false},
      {20, 2.0, 0.5, here, true},
      {64, 2.0, 0.4, here, false},
      {65, 3.0, 0.4, here, true},
      {513, 4.0, 0.3, here, false},
      {3000, 8.0, 0.3, here, false},
      {600, 1e-6, 1e-7, here, false},
      {50, 1e-25, 1e-26, here, false},
      {100, 1e9, 1e7, here, false},
      {100, 2.0, 0.5, {1e6, -1e6, 3e5}, false},
      {100, 2.0, 0.5, {1e13, 0.0, -1e15}, true},
      {30, 1e39, 1e39, here, false},
      {60, 8e306, 1.7e308, here, false},
  };
  for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::SetSupportedTargetsForTest(target);
    RandomScene random(13);
    int num_touching = 0;
    int num_free = 0;
    for (const auto& scene : scenes) {
      SCOPED_TRACE(::testing::Message() << scene.num_obstacles << " obstacles, target " << target);
      // Others are refused where they are larger than anybody's.
      const int num_kinds = scene.size < 1e20 ? RandomScene::kNumKinds : RandomScene::kNumConvexKinds;
      World world;
      std::vector<std::pair<ObstacleHandle, WorldView>> singles;
      for (int i = 0; i < scene.num_obstacles; ++i) {
        const Pose3 pose = random.pose(scene.reach);
        const ObstacleShape shape = scene.on_grid ? ObstacleShape(BoxObstacle{{0.25, 0.5, 0.125}})
                                                  : random.bounded(i % num_kinds, scene.size);
        const Pose3 place = scene.on_grid
                                ? Pose3::FromTranslation(scene.offset + random.gridPoint(scene.reach))
                                : Pose3(pose.rotation(), scene.offset + pose.translation());
        const double padding = i % 3 == 0 ? random.uniform(0.0, 0.3 * scene.size) : 0.0;
        singles.emplace_back(world.add(shape, place), ViewOf(shape, place, padding));
        world.setPadding(singles.back().first, padding);
      }
      if (scene.num_obstacles % 2 == 1) {
        const Pose3 floor = Pose3::FromTranslation(scene.offset - Eigen::Vector3d(0.0, 0.0, scene.reach));
        singles.emplace_back(world.add(HalfSpaceObstacle{}, floor), ViewOf(HalfSpaceObstacle{}, floor));
      }
      const WorldView view = world.view();
      for (int i = 0; i < 150; ++i) {
        const double reach = (i % 10 == 0 ? 10.0 : 1.2) * scene.reach;
        const Eigen::Vector3d center =
            scene.offset + (scene.on_grid ? random.gridPoint(reach) : random.point(reach));
        WorldView::Nearest expected_nearest{ObstacleHandle(0), kInfinity};
        for (const auto& [handle, alone] : singles) {
          const double distance_alone = alone.nearestObstacle(center)->distance;
          if (distance_alone < expected_nearest.distance || expected_nearest.obstacle.id() == 0) {
            expected_nearest = {handle, distance_alone};
          }
        }
        const double distance = expected_nearest.distance;
        ASSERT_EQ(view.nearestObstacle(center)->distance, distance) << center.transpose();
        ASSERT_EQ(view.nearestObstacle(center)->obstacle.id(), expected_nearest.obstacle.id());
        const double d = std::fabs(distance);
        for (const double radius :
             {0.0, random.uniform(0.0, scene.size), d, Below(d), std::nextafter(d, kInfinity)}) {
          const bool expected = radius >= 0.0 && distance <= radius;
          ASSERT_EQ(view.inCollision(center, radius), expected)
              << "centre " << center.transpose() << " radius " << radius << " distance " << distance;
          ++(expected ? num_touching : num_free);
        }
      }
    }
    EXPECT_GT(num_touching, 1000);
    EXPECT_GT(num_free, 1000);
  }
  hwy::SetSupportedTargetsForTest(0);
}

// The worst case for bounds in single precision: the furthest point of an obstacle along an axis sits where
// rounding jumps, and a ball touches it there to the last bit, from near and far, small and large.
TEST(WorldView, BoundsNeverHideAContact) {
  RandomScene random(15);
  int num_contacts = 0;
  for (int trial = 0; trial < 10000; ++trial) {
    const double size = std::pow(10.0, random.integer(-2, 6));
    const ObstacleShape shape = random.bounded(trial % RandomScene::kNumConvexKinds, size);
    const Eigen::Quaterniond turn =
        trial % 10 < 5 ? Eigen::Quaterniond::Identity() : random.pose(1.0).rotation();
    const int axis = random.integer(0, 2);
    const Eigen::Vector3d direction = (2 * random.integer(0, 1) - 1) * Eigen::Vector3d::Unit(axis);
    const Eigen::Vector3d local = turn.conjugate() * (direction + 1e-30 * random.point(1.0));
    Eigen::Vector3d touched = random.point(size);
    const double gap = random.uniform(0.0, std::pow(10.0, random.integer(-2, 6)));
    const double jump = 1.0 + (2 * random.integer(0, 1000) + 1) * 0x1p-24;
    touched[axis] = jump + random.uniform(-2.0, 2.0) * (size + gap) * 0x1p-52;
    const WorldView view = ViewOf(shape, Pose3(turn, touched - turn * FurthestPoint(shape, local)));
    const Eigen::Vector3d center = touched + gap * direction;
    const double distance = view.nearestObstacle(center)->distance;
    if (distance >= 0.0) {
      ASSERT_TRUE(view.inCollision(center, distance)) << "kind " << shape.index() << " size " << size;
      ++num_contacts;
    }
  }
  EXPECT_GT(num_contacts, 9000);
}

TEST(WorldView, CopiesUpdateTogetherAndOthersStayAsTheyAre) {
  const Eigen::Vector3d place(1.0, 2.0, 3.0);
  std::optional<World> world(std::in_place);
  WorldView view = world->view();
  WorldView copy = view;
  WorldView other = world->view();
  const ObstacleHandle ball = world->add(SphereObstacle{0.5}, At(1.0, 2.0, 3.0), "ball");
  EXPECT_FALSE(view.inCollision(place, 0.0)) << "an edit alone changes no view";
  EXPECT_FALSE(view.nearestObstacle(place).has_value());
  copy.update();
  EXPECT_TRUE(view.inCollision(place, 0.0)) << "copies share what one of them took";
  EXPECT_FALSE(other.inCollision(place, 0.0));
  other.update();
  EXPECT_TRUE(other.inCollision(place, 0.0));

  world->remove(ball);
  EXPECT_FALSE(world->contains(ball));
  EXPECT_EQ(view.name(ball), "ball") << "nor does its name go";
  EXPECT_EQ(view.nearestObstacle(place)->obstacle.id(), ball.id());
  EXPECT_TRUE(view.inCollision(place, 0.0)) << "a removed obstacle stays in what was taken before";
  world.reset();
  view.update();
  EXPECT_FALSE(copy.inCollision(place, 0.0)) << "a view keeps its world alive";
}

TEST(WorldView, QueriesDoNotAllocate) {
  RandomScene random(14);
  World world;
  world.add(HalfSpaceObstacle{}, At(0.0, 0.0, -3.0));
  for (int i = 0; i < 500; ++i) {
    world.add(random.bounded(i % RandomScene::kNumKinds, 0.3), random.pose(3.0));
  }
  WorldView view = world.view();
  const long before = testing::NumAllocations();
  EXPECT_EQ(before > 0, testing::CountsAllocations()) << "the counter must count";
  std::size_t hits = 0;
  for (int i = 0; i < 200; ++i) {
    const Eigen::Vector3d point = random.point(3.0);
    hits += view.inCollision(point, 0.1) ? 1U : 0U;
    hits += view.inCollision(point * 1e150, 0.1) ? 1U : 0U;
    hits += view.nearestObstacle(point).has_value() ? 1U : 0U;
    view.update();
  }
  EXPECT_EQ(testing::NumAllocations(), before);
  EXPECT_GT(hits, 200U);
}

}  // namespace
}  // namespace kavo
