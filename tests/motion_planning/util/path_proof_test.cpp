#include "kavo/motion_planning/util/path_proof.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/world/world.h"
#include "tests/kinematics/random_robot.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"
#include "tests/world/random_scene.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::kInf;
using testing::kNaN;
using testing::RandomVec;
using testing::Vec;
using Verdict = PathProof::Verdict;

// Adds a pin that a ball of the robot passes, somewhere along the motion, at a distance of about some
// millionths: mostly too near or in contact, and seen by few samples. Returns where.
Eigen::VectorXd AddPin(const RobotDescription& robot, const Eigen::VectorXd& from, const Eigen::VectorXd& to,
                       std::mt19937& engine, World& world) {
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(robot);
  const Eigen::VectorXd q = from + (to - from) * RandomVec(engine, 1, 0.0, 1.0)[0];
  const auto& frames = description.collisionFrameNames();
  if (frames.empty()) {
    return q;
  }
  const std::string& frame = frames[engine() % frames.size()];
  const math::Sphere ball = description.collisionSpheres(frame).front();
  const auto kinematics = robot.kinematics();
  const auto center = [&](const Eigen::VectorXd& at) {
    return kinematics->pose(at, kinematics->frame(frame)) * ball.center;
  };
  const Eigen::Vector3d velocity = center(q + 1e-6 * (to - from)) - center(q);
  const Eigen::Vector3d side = (velocity + Eigen::Vector3d::Constant(1e-12)).unitOrthogonal();
  const double gaps[] = {-1e-5, -1e-9, 5e-7, 3e-6, 1e-4};
  const double pin = 1e-3;
  world.add(SphereObstacle{pin},
            Pose3::FromTranslation(center(q) + side * (ball.radius + pin + gaps[engine() % 5])));
  return q;
}

// Random trees of joints of every kind (some follow others) on random motions among random obstacles and
// pins that they graze, held against a look at many configurations by the other check.
TEST(PathProofTest, IsRightAboutRandomMotions) {
  std::mt19937 engine(11);
  std::map<Verdict, int> counts;
  int num_misses = 0;
  for (int round = 0; round < 400; ++round) {
    SCOPED_TRACE(round);
    const testing::RandomRobot random_robot(engine, 1 + round % 10);
    const auto robot = random_robot.withSpheres(engine);
    World world;
    test::RandomScene scene(static_cast<std::uint32_t>(round));
    for (int i = 0; i < round % 7; ++i) {
      world.add(scene.bounded(i % 4, 0.3), scene.pose(1.5));
    }
    if (round % 6 == 0) {
      world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, -1.5}));
    }
    const int n = random_robot.num_coordinates();
    const double sizes[] = {0.05, 0.5, 3.0};
    const double size = sizes[engine() % 3];
    const Eigen::VectorXd from = RandomVec(engine, n, -2.9, 2.9);
    const Eigen::VectorXd to = (from + RandomVec(engine, n, -size, size)).cwiseMax(-3.0).cwiseMin(3.0);
    const Eigen::VectorXd at_pin =
        round % 2 == 0 ? AddPin(*robot, from, to, engine, world) : Eigen::VectorXd(from);

    PathProofOptions options;
    options.tolerance = 1e-3;
    const PathProof proof = ProvePath(*robot, world.view(), {from, to}, options);
    ++counts[proof.verdict];
    const double step = std::max((to - from).norm() / 500.0, 1e-9);
    PathCheck check = CheckPath(*robot, world.view(), {from, to}, step);
    const PathCheck pin_check = CheckPath(*robot, world.view(), {at_pin}, 1.0);
    num_misses += check.IsValid() && !pin_check.IsValid() ? 1 : 0;

    ASSERT_NE(proof.verdict, Verdict::kUndecided);
    if (proof.IsFree()) {
      ASSERT_TRUE(check.IsValid() && pin_check.IsValid());
    }
    for (const PathCheck& seen : {check, pin_check}) {
      // To what rounding may cost, and within the tolerance.
      if (seen.clearance) {
        ASSERT_LE(proof.clearance->distance, seen.clearance->distance + options.tolerance + 1e-12);
      }
      if (seen.self_clearance) {
        ASSERT_LE(proof.self_clearance->distance, seen.self_clearance->distance + options.tolerance + 1e-12);
      }
    }
    // What it says of a place is so, and the verdict follows from it.
    double smallest = kInf;
    if (proof.clearance) {
      const PathCheck there = CheckPath(*robot, world.view(), {proof.clearance->place.configuration}, 1.0);
      ASSERT_NEAR(there.clearance->distance, proof.clearance->distance, 1e-12);
      ASSERT_EQ(there.clearance->frame, proof.clearance->frame);
      smallest = proof.clearance->distance;
    }
    if (proof.self_clearance) {
      const PathCheck there =
          CheckPath(*robot, world.view(), {proof.self_clearance->place.configuration}, 1.0);
      ASSERT_NEAR(there.self_clearance->distance, proof.self_clearance->distance, 1e-12);
      smallest = std::min(smallest, proof.self_clearance->distance);
    }
    ASSERT_EQ(proof.verdict, smallest <= 0.0   ? Verdict::kTouches
                             : smallest < 1e-6 ? Verdict::kTooNear
                                               : Verdict::kFree);
  }
  // The comparison is worth something only if all of it comes up.
  EXPECT_GT(counts[Verdict::kFree], 80);
  EXPECT_GT(counts[Verdict::kTouches], 80);
  EXPECT_GT(counts[Verdict::kTooNear], 5);
  EXPECT_GT(num_misses, 5);
}

// A cart with a ball of radius 0.5 on a rail along x, and on it a hand of radius 0.1 that a joint without
// limits turns about z, 1 m from the axis. A second hand of radius 0.025, an eighth of a metre higher, turns
// the other way and half as far: the two touch where they point the same way, at 4 pi / 3 and its multiples.
std::unique_ptr<RobotDescription> Cart(bool has_balls = true) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {2.0, 0.0, 0.0}, {{-4.0, 4.0}}, 0.0});
  builder.addJoint({"turn", JointType::kContinuous, "cart", "arm", {}});
  builder.addJoint({"echo",
                    JointType::kContinuous,
                    "cart",
                    "echo_arm",
                    Pose3::FromTranslation({0.0, 0.0, 2.0}),
                    Eigen::Vector3d::UnitZ(),
                    {},
                    {},
                    Joint::Mimic{"turn", -0.5, 0.0}});
  if (has_balls) {
    builder.addCollisionSphere("cart", {0.0, 0.0, 0.0}, 0.5);
    builder.addCollisionSphere("arm", {1.0, 0.0, 0.0}, 0.1);
    builder.addCollisionSphere("echo_arm", {1.0, 0.0, -1.875}, 0.025);
    builder.addCollisionPair("arm", "echo_arm");
  }
  return builder.build();
}

TEST(PathProofTest, TellsContactFromTheSmallestGap) {
  const auto floor = [](double height) {
    return std::pair<ObstacleShape, Eigen::Vector3d>(BoxObstacle{{1.0, 9.0, 1.0}}, {0.0, 0.0, height - 0.5});
  };
  // On a circle about the axis, as far from it as a hand with this radius and a gap from the pin.
  const auto pin = [](double radius, double gap, double angle, double height) {
    const double distance = 1.0 + radius + 1e-3 + gap;
    return std::pair<ObstacleShape, Eigen::Vector3d>(
        SphereObstacle{1e-3}, {distance * std::cos(angle), distance * std::sin(angle), height});
  };
  const struct {
    const char* what;
    std::pair<ObstacleShape, Eigen::Vector3d> obstacle;
    std::vector<Eigen::VectorXd> path;
    Verdict verdict;
    double distance;
  } cases[] = {
      {"a gap below the least",
       floor(-0.5 - 5e-7),
       {Vec({0.0, 1.0}), Vec({1e-3, 1.0})},
       Verdict::kTooNear,
       5e-7},
      {"a gap above it", floor(-0.5 - 2e-6), {Vec({0.0, 1.0}), Vec({1e-3, 1.0})}, Verdict::kFree, 2e-6},
      {"touching", floor(-0.5), {Vec({0.0, 1.0}), Vec({1e-3, 1.0})}, Verdict::kTouches, 0.0},
      {"a board that is thinner than any step",
       {BoxObstacle{{1e-5, 0.1, 1.0}}, {1.7, 0.0, 0.0}},
       {Vec({-0.5, 3.0}), Vec({3.5, 3.0})},
       Verdict::kTouches,
       -0.500005},
      {"a pin that a hand scratches",
       pin(0.1, -1e-7, 5.0, 0.0),
       {Vec({0.0, 4.3}), Vec({0.0, 6.0})},
       Verdict::kTouches,
       -1e-7},
      {"that pin a little farther out",
       pin(0.1, 3e-6, 5.0, 0.0),
       {Vec({0.0, 4.3}), Vec({0.0, 6.0})},
       Verdict::kFree,
       3e-6},
      {"a pin that the hand that follows scratches",
       pin(0.025, -1e-7, -2.5, 0.125),
       {Vec({0.0, 4.3}), Vec({0.0, 7.0})},
       Verdict::kTouches,
       -1e-7},
      {"two hands that meet", floor(-9.0), {Vec({0.0, 3.0}), Vec({0.0, 6.0})}, Verdict::kTouches, 0.0},
      {"two hands that do not",
       floor(-9.0),
       {Vec({0.0, 0.01}), Vec({0.0, 4.17})},
       Verdict::kFree,
       std::hypot(0.125, 2.0 * std::sin(0.0075)) - 0.125},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    World world;
    world.add(c.obstacle.first, Pose3::FromTranslation(c.obstacle.second));
    PathProofOptions options;
    options.tolerance = 1e-8;
    const PathProof proof = ProvePath(*Cart(), world.view(), c.path, options);
    EXPECT_EQ(proof.verdict, c.verdict) << ToString(proof.verdict);
    EXPECT_NEAR(std::min(proof.clearance->distance, proof.self_clearance->distance), c.distance, 2e-8);
  }
}

TEST(PathProofTest, EndsForWhateverItIsGiven) {
  World world;
  world.add(SphereObstacle{0.1}, Pose3::FromTranslation({0.0, 0.0, 3.0}));
  const auto robot = Cart();
  const auto bare = Cart(false);
  const double huge = std::numeric_limits<double>::max();
  const struct {
    const RobotDescription& robot;
    std::vector<Eigen::VectorXd> path;
    Verdict verdict;
    std::uint64_t num_placements;
  } cases[] = {
      {*robot, {Vec({1.0, 1.0})}, Verdict::kFree, 1},
      {*robot, {Vec({1.0, 1.0}), Vec({1.0, 1.0})}, Verdict::kFree, 3},
      {*bare, {Vec({1.0, -huge}), Vec({1.0, huge})}, Verdict::kFree, 3},
      {*robot, {Vec({1.0, -huge}), Vec({1.0, huge})}, Verdict::kUndecided, 3},
  };
  for (const auto& c : cases) {
    const PathProof proof = ProvePath(c.robot, world.view(), c.path);
    EXPECT_EQ(proof.verdict, c.verdict) << ToString(proof.verdict);
    EXPECT_EQ(proof.num_placements, c.num_placements);
  }
  // A turn that no number of halvings brings to an end.
  PathProofOptions few;
  few.max_num_bounds = 1000;
  const PathProof endless = ProvePath(*robot, World().view(), {Vec({0.0, 1.0}), Vec({0.0, 1e300})}, few);
  EXPECT_TRUE(endless.verdict == Verdict::kUndecided || endless.verdict == Verdict::kTouches);
  EXPECT_LE(endless.num_placements, 1000u);

  for (const double value : {4.5, kNaN, kInf}) {
    const PathProof proof =
        ProvePath(*robot, world.view(), {Vec({3.0, 0.0}), Vec({0.0, 0.0}), Vec({value, 0.0})});
    EXPECT_EQ(proof.verdict, Verdict::kBeyondLimits);
    EXPECT_EQ(proof.bad->place.segment, 1u);
    EXPECT_EQ(proof.bad->fault.limit->coordinate, 0u);
  }
  EXPECT_EQ(ProvePath(*robot, world.view(), {Vec({3.0, kNaN})}).verdict, Verdict::kBeyondLimits);
  EXPECT_EQ(ProvePath(*robot, world.view(), {Vec({3.5, 1.0}), Vec({-1.0, 1.0})}).limit_margin->distance, 0.5);

  int num_asked = 0;
  const PathProof stopped = ProvePath(*robot, world.view(), {Vec({0.0, 1.0}), Vec({3.0, 2.0})}, {},
                                      [&] { return ++num_asked == 4; });
  EXPECT_EQ(stopped.verdict, Verdict::kStopped);
  EXPECT_EQ(stopped.num_placements, 3u);
}

}  // namespace
}  // namespace kavo::planning
