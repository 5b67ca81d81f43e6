#include "kavo/motion_planning/util/path_proof.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/world/world.h"
#include "tests/kinematics/random_robot.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"
#include "tests/world/random_scene.h"

namespace kavo::planning {
namespace {

using testing::kInf;
using testing::kNaN;
using testing::RandomVec;
using testing::Vec;
using Verdict = PathProof::Verdict;

Eigen::VectorXd PointOf(Eigen::MatrixXd points, double t) {
  for (Eigen::Index n = points.cols() - 1; n > 0; --n) {
    points = ((1.0 - t) * points.leftCols(n) + t * points.rightCols(n)).eval();
  }
  return points;
}

// Adds a pin that a ball of the robot passes, somewhere along the motion, at a distance of about some
// millionths: mostly too near or in contact, and seen by few samples. Returns where.
Eigen::VectorXd AddPin(const RobotDescription& robot, const Eigen::MatrixXd& motion, std::mt19937& engine,
                       World& world) {
  const auto& description = dynamic_cast<const RobotDescriptionInternal&>(robot);
  const double t = RandomVec(engine, 1, 0.0, 1.0)[0];
  Eigen::VectorXd q = PointOf(motion, t);
  const auto& frames = description.collision().frames;
  if (frames.empty()) {
    return q;
  }
  const std::string& frame = frames[engine() % frames.size()];
  const math::Sphere ball = description.collision().spheresOf(frame).front();
  const auto kinematics = robot.kinematics();
  const auto center = [&](const Eigen::VectorXd& at) {
    return kinematics->pose(at, kinematics->frame(frame)) * ball.center;
  };
  const Eigen::Vector3d velocity = center(PointOf(motion, t + 1e-6)) - center(q);
  const Eigen::Vector3d side = (velocity + Eigen::Vector3d::Constant(1e-12)).unitOrthogonal();
  const double gaps[] = {-1e-5, -1e-9, 5e-7, 3e-6, 1e-4};
  const double pin = 1e-3;
  world.add(SphereObstacle{pin},
            Pose3::FromTranslation(center(q) + side * (ball.radius + pin + gaps[engine() % 5])));
  return q;
}

// Random trees of joints of every kind (some follow others) on random motions among random obstacles and a
// pin that they graze, straight and along curves, held against a look at many configurations by the other
// check. Most trees are small: there the bounds are tight.
TEST(PathProofTest, IsRightAboutRandomMotions) {
  std::mt19937 engine(11);
  std::map<Verdict, int> counts;
  int num_seen_once = 0;
  for (int round = 0; round < 600; ++round) {
    SCOPED_TRACE(round);
    const auto num_joints = 1 + static_cast<int>(engine() % (round % 3 == 0 ? 10 : 3));
    const testing::RandomRobot random_robot(engine, num_joints);
    const auto robot = random_robot.withSpheres(engine);
    World world;
    test::RandomScene scene(static_cast<std::uint32_t>(round));
    for (int i = 0; i < round % 7; ++i) {
      world.add(scene.bounded((round + i) % test::RandomScene::kNumKinds, 0.3), scene.pose(1.5));
    }
    const int n = random_robot.num_coordinates();
    const double size = round % 2 == 0 ? 6.0 : 0.5;
    Eigen::MatrixXd motion = RandomVec(engine, n, -2.9, 2.9).replicate(1, round % 3 == 1 ? 3 + round % 4 : 2);
    for (Eigen::Index i = 1; i < motion.cols(); ++i) {
      motion.col(i) = (motion.col(0) + RandomVec(engine, n, -size, size)).cwiseMax(-3.0).cwiseMin(3.0);
    }
    std::vector<Eigen::VectorXd> looked_at = {AddPin(*robot, motion, engine, world)};
    for (int i = 0; i <= 200; ++i) {
      looked_at.push_back(PointOf(motion, i / 200.0));
    }

    PathProofOptions options;
    options.tolerance = 1e-3;
    const PathProof proof = ProveCurves(*robot, world.view(), {motion}, options);
    ++counts[proof.verdict];
    const PathCheck seen = CheckPath(*robot, world.view(), looked_at, 1e9);
    num_seen_once += seen.num_bad == 1 ? 1 : 0;
    ASSERT_EQ(seen.clearance.has_value(), proof.clearance.has_value());
    ASSERT_EQ(seen.self_clearance.has_value(), proof.self_clearance.has_value());
    // What it says of a place is so (to rounding), nothing undercuts it, and the verdict follows from it.
    double smallest = kInf;
    if (proof.clearance) {
      const PathCheck there = CheckPath(*robot, world.view(), {proof.clearance->place.configuration}, 1.0);
      ASSERT_NEAR(there.clearance->distance, proof.clearance->distance, 1e-12);
      ASSERT_LE(proof.clearance->distance, seen.clearance->distance + options.tolerance);
      smallest = proof.clearance->distance;
    }
    if (proof.self_clearance) {
      const PathCheck there =
          CheckPath(*robot, world.view(), {proof.self_clearance->place.configuration}, 1.0);
      ASSERT_NEAR(there.self_clearance->distance, proof.self_clearance->distance, 1e-12);
      ASSERT_LE(proof.self_clearance->distance, seen.self_clearance->distance + options.tolerance);
      smallest = std::min(smallest, proof.self_clearance->distance);
    }
    ASSERT_EQ(proof.verdict, smallest <= 0.0   ? Verdict::kTouches
                             : smallest < 1e-6 ? Verdict::kTooNear
                                               : Verdict::kFree);
    ASSERT_TRUE(seen.IsValid() || !proof.IsFree());
  }
  // The comparison is worth something only if all of it comes up.
  EXPECT_GT(counts[Verdict::kFree], 120);
  EXPECT_GT(counts[Verdict::kTouches], 120);
  EXPECT_GT(counts[Verdict::kTooNear], 8);
  EXPECT_GT(num_seen_once, 40);
}

// Two balls anywhere on a random tree, of such radii that they overlap by a hundredth of a millimetre where a
// motion brings them together most.
TEST(PathProofTest, FindsWhereTheRobotGrazesItself) {
  std::mt19937 engine(13);
  int num_seen_once = 0;
  for (int round = 0; round < 500; ++round) {
    SCOPED_TRACE(round);
    const testing::RandomRobot random_robot(engine, 2 + static_cast<int>(engine() % 4));
    const auto& joints = random_robot.joints();
    const std::string frame = engine() % 2 == 0 ? "base" : joints[engine() % (joints.size() - 1)].child_frame;
    const std::string& other = joints.back().child_frame;
    const Eigen::VectorXd centers = RandomVec(engine, 6, -0.5, 0.5);
    const auto with_radius = [&](double radius) {
      RobotDescriptionBuilder builder("base");
      for (const Joint& joint : joints) {
        builder.addJoint(joint);
      }
      builder.addCollisionSphere(frame, centers.head<3>(), radius);
      builder.addCollisionSphere(other, centers.tail<3>(), radius);
      builder.addCollisionPair(frame, other);
      return builder.build();
    };
    const int n = random_robot.num_coordinates();
    const std::vector<Eigen::VectorXd> path = {RandomVec(engine, n, -3.0, 3.0),
                                               RandomVec(engine, n, -3.0, 3.0)};
    const double step = std::max((path[1] - path[0]).norm() / 500.0, 1e-9);
    const double radius = 1e-6;
    const double gap = CheckPath(*with_radius(radius), World().view(), path, step).self_clearance->distance;
    const auto grazing = with_radius(radius + 0.5 * (gap + 1e-5));
    const PathProof proof = ProvePath(*grazing, World().view(), path);
    ASSERT_EQ(proof.verdict, Verdict::kTouches);
    const auto environment =
        CreateRobotEnvironment({grazing.get(), World().view(), Eigen::VectorXd::Ones(n), 10, 1, 2});
    // Nor does the proof that shares nothing with this one pass it over.
    ASSERT_FALSE(environment->IsValidMotion(path[0], path[1], 1.0));
    num_seen_once += CheckPath(*grazing, World().view(), path, step).num_bad == 1 ? 1 : 0;
  }
  EXPECT_GT(num_seen_once, 50);
}

// A cart with a ball of radius 0.5 on a rail along x, and on it a hand of radius 0.1 that a joint without
// limits turns about z, 1 m from the axis. A second hand of radius 0.025, an eighth of a metre higher, turns
// the other way and half as far: the two touch where they point the same way, at 4 pi / 3 and its multiples.
std::unique_ptr<RobotDescription> Cart() {
  Joint echo{"echo", JointType::kContinuous, "cart", "echo_arm", Pose3::FromTranslation({0.0, 0.0, 2.0})};
  echo.mimic = Joint::Mimic{"turn", -0.5, 0.0};
  return RobotDescriptionBuilder("base")
      .addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {2.0, 0.0, 0.0}, {{-4.0, 4.0}}})
      .addJoint({"turn", JointType::kContinuous, "cart", "arm", {}})
      .addJoint(echo)
      .addCollisionSphere("cart", {0.0, 0.0, 0.0}, 0.5)
      .addCollisionSphere("arm", {1.0, 0.0, 0.0}, 0.1)
      .addCollisionSphere("echo_arm", {1.0, 0.0, -1.875}, 0.025)
      .addCollisionPair("arm", "echo_arm")
      .build();
}

TEST(PathProofTest, TellsContactFromTheSmallestGap) {
  const BoxObstacle floor{{1.0, 9.0, 1.0}};
  const BoxObstacle board{{1e-5, 0.1, 1.0}};
  const struct {
    BoxObstacle obstacle;
    Eigen::Vector3d center;
    std::vector<Eigen::VectorXd> path;
    Verdict verdict;
    double distance;
  } cases[] = {
      // Below the cart.
      {floor, {0.0, 0.0, -1.0 - 5e-7}, {Vec({0.0, 1.0}), Vec({1e-3, 1.0})}, Verdict::kTooNear, 5e-7},
      {floor, {0.0, 0.0, -1.0 - 2e-6}, {Vec({0.0, 1.0}), Vec({1e-3, 1.0})}, Verdict::kFree, 2e-6},
      {floor, {0.0, 0.0, -1.0}, {Vec({0.0, 1.0}), Vec({1e-3, 1.0})}, Verdict::kTouches, 0.0},
      // In its way, thinner than any step.
      {board, {1.7, 0.0, 0.0}, {Vec({-0.5, 3.0}), Vec({3.5, 3.0})}, Verdict::kTouches, -0.500005},
      // Two hands that meet, and two that almost do at both ends.
      {floor, {0.0, 0.0, -9.0}, {Vec({0.0, 3.0}), Vec({0.0, 6.0})}, Verdict::kTouches, 0.0},
      {floor,
       {0.0, 0.0, -9.0},
       {Vec({0.0, 0.01}), Vec({0.0, 4.17})},
       Verdict::kFree,
       std::hypot(0.125, 2.0 * std::sin(0.0075)) - 0.125},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.distance);
    World world;
    world.add(c.obstacle, Pose3::FromTranslation(c.center));
    PathProofOptions options;
    options.tolerance = 1e-8;
    const PathProof proof = ProvePath(*Cart(), world.view(), c.path, options);
    EXPECT_EQ(proof.verdict, c.verdict) << ToString(proof.verdict);
    EXPECT_NEAR(std::min(proof.clearance->distance, proof.self_clearance->distance), c.distance, 2e-8);
  }
}

// To and fro, back where it began at both ends and in the middle, up to a wall on one side.
TEST(PathProofTest, FollowsACurveWhereItGoes) {
  for (const double control : {6.0, -6.0}) {
    for (const double gap : {-1e-5, 1e-5}) {
      World world;
      world.add(BoxObstacle{{0.1, 9.0, 9.0}},
                Pose3::FromTranslation({std::sqrt(3.0) + 0.5 + gap + 0.05, 0.0, 0.0}));
      Eigen::MatrixXd curve = Eigen::MatrixXd::Constant(2, 4, 3.0);
      curve.row(0) << 0.0, control, -control, 0.0;
      const PathProof proof = ProveCurves(*Cart(), world.view(), {curve});
      EXPECT_EQ(proof.verdict, gap < 0.0 ? Verdict::kTouches : Verdict::kFree) << control;
      EXPECT_LE(proof.clearance->distance, gap + 1e-4);
    }
  }
}

TEST(PathProofTest, EndsForWhateverItIsGiven) {
  World world;
  world.add(SphereObstacle{0.1}, Pose3::FromTranslation({0.0, 0.0, 3.0}));
  const auto robot = Cart();
  const double huge = std::numeric_limits<double>::max();
  const struct {
    std::vector<Eigen::VectorXd> path;
    Verdict verdict;
    std::uint64_t num_placements;
  } cases[] = {
      {{Vec({1.0, 1.0})}, Verdict::kFree, 1},
      {{Vec({1.0, 1.0}), Vec({1.0, 1.0})}, Verdict::kFree, 3},
      {{Vec({1.0, -huge}), Vec({1.0, huge})}, Verdict::kUndecided, 3},
  };
  for (const auto& c : cases) {
    const PathProof proof = ProvePath(*robot, world.view(), c.path);
    EXPECT_EQ(proof.verdict, c.verdict) << ToString(proof.verdict);
    EXPECT_EQ(proof.num_placements, c.num_placements);
  }
  // A turn that no number of halvings brings to an end.
  PathProofOptions few;
  few.max_num_bounds = 1000;
  const PathProof endless = ProvePath(*robot, World().view(), {Vec({0.0, 1.0}), Vec({0.0, 1e300})}, few);
  EXPECT_TRUE(endless.verdict == Verdict::kUndecided || endless.verdict == Verdict::kTouches);
  EXPECT_LE(endless.num_placements, 1000u);

  // So far out that rounding alone may take a hand some centimetres, to a pin that it passes at one.
  World pin;
  pin.add(SphereObstacle{1e-3},
          Pose3::FromTranslation(1.111 * Eigen::Vector3d(std::cos(1e13), std::sin(1e13), 0.0)));
  EXPECT_EQ(ProvePath(*robot, pin.view(), {Vec({0.0, 1e13 - 0.5}), Vec({0.0, 1e13 + 0.5})}, few).verdict,
            Verdict::kUndecided);

  for (const double value : {4.5, kNaN, kInf}) {
    const PathProof proof =
        ProvePath(*robot, world.view(), {Vec({3.0, 0.0}), Vec({0.0, 0.0}), Vec({value, 0.0})});
    EXPECT_EQ(proof.verdict, Verdict::kBeyondLimits);
    EXPECT_EQ(proof.bad->place.segment, 1u);
    EXPECT_EQ(proof.bad->fault.limit->coordinate, 0u);
  }
  EXPECT_EQ(ProvePath(*robot, world.view(), {Vec({3.0, kNaN})}).verdict, Verdict::kBeyondLimits);
  EXPECT_EQ(ProvePath(*robot, world.view(), {Vec({3.5, 1.0}), Vec({-1.0, 1.0})}).limit_margin->distance, 0.5);

  // A rail from -4 to 4, and a control point beyond that.
  for (const auto& [control, margin] : {std::pair(4.5, 1.75), std::pair(8.0, 0.0), std::pair(9.0, -0.5)}) {
    Eigen::MatrixXd curve(2, 3);
    curve << 0.0, control, 0.0, 1.0, 1.0, 1.0;
    const PathProof proof = ProveCurves(*robot, world.view(), {curve.leftCols(1), curve});
    EXPECT_EQ(proof.verdict, margin < 0.0 ? Verdict::kBeyondLimits : Verdict::kFree);
    EXPECT_NEAR(proof.limit_margin->distance, margin, 1e-11);
    EXPECT_EQ(proof.limit_margin->place.segment, 1u);
    EXPECT_NEAR(proof.limit_margin->place.fraction, 0.5, 1e-5);
    EXPECT_EQ(proof.bad && proof.bad->fault.limit->value > 4.4, margin < 0.0);
    curve(0, 1) = kNaN;
    EXPECT_EQ(ProveCurves(*robot, world.view(), {curve}).verdict, Verdict::kBeyondLimits);
    const Eigen::MatrixXd elsewhere = Eigen::MatrixXd::Zero(2, 2);
    EXPECT_THROW(ProveCurves(*robot, world.view(), {curve, elsewhere}), util::FatalError);
  }

  int num_asked = 0;
  const PathProof stopped = ProvePath(*robot, world.view(), {Vec({0.0, 1.0}), Vec({3.0, 2.0})}, {},
                                      [&] { return ++num_asked == 4; });
  EXPECT_EQ(stopped.verdict, Verdict::kStopped);
  EXPECT_EQ(stopped.num_placements, 3u);
}

}  // namespace
}  // namespace kavo::planning
