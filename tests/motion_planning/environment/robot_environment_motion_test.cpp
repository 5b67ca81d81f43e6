#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/world/world.h"
#include "tests/kinematics/random_robot.h"
#include "tests/motion_planning/environment/plain_check.h"
#include "tests/support/allocations.h"
#include "tests/support/every_target.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"
#include "tests/world/random_scene.h"

namespace kavo::planning {
namespace {

using testing::PlainCheck;
using testing::RandomVec;
using testing::Vec;

// Straight with two control points, along a Bezier curve with more.
struct Motion {
  Eigen::MatrixXd points;

  Eigen::VectorXd At(double t) const {
    Eigen::MatrixXd left = points;
    while (left.cols() > 1) {
      const Eigen::Index n = left.cols() - 1;
      left = ((1.0 - t) * left.leftCols(n) + t * left.rightCols(n)).eval();
    }
    return left;
  }

  bool IsValidIn(const Environment& environment) const {
    return points.cols() == 2 ? environment.IsValidMotion(points.col(0), points.col(1), 1.0)
                              : environment.IsValidCurve(points, 1.0);
  }
};

// Every third curve turns back where the middle of its parameter is: that is all that comes so far.
Motion RandomMotion(std::mt19937& engine, int num_coordinates, int num_points, double length) {
  Motion motion{Eigen::MatrixXd(num_coordinates, num_points)};
  motion.points.col(0) = RandomVec(engine, num_coordinates, -2.9, 2.9);
  for (int i = 1; i < num_points; ++i) {
    motion.points.col(i) = motion.points.col(0) +
                           length * (RandomVec(engine, num_coordinates, -2.9, 2.9) - motion.points.col(0));
  }
  if (num_points > 2 && engine() % 3 == 0) {
    motion.points.rightCols(num_points / 2) =
        motion.points.leftCols(num_points / 2).rowwise().reverse().eval();
  }
  return motion;
}

bool TouchesAnywhere(const PlainCheck& plain, const Motion& motion, int num_parts) {
  for (int i = 0; i <= num_parts; ++i) {
    if (!plain.IsValid(motion.At(static_cast<double>(i) / num_parts))) {
      return true;
    }
  }
  return false;
}

bool IsNearer(const PathProof& proof, double gap) {
  return (proof.clearance && proof.clearance->distance < gap) ||
         (proof.self_clearance && proof.self_clearance->distance < gap);
}

// An obstacle that the sphere grazes: its surface is `gap` from that of the sphere, in a random direction.
void AddGrazed(const math::Sphere& sphere, double gap, test::RandomScene& scene, World& world) {
  Eigen::Vector3d normal = scene.point(1.0);
  normal.normalize();
  const Eigen::Quaterniond turn = Eigen::Quaterniond::FromTwoVectors(Eigen::Vector3d::UnitX(), normal);
  const auto place = [&](double half) {
    return Pose3(turn, sphere.center + normal * (sphere.radius + gap + half));
  };
  switch (scene.integer(0, 3)) {
    case 0:
      world.add(BoxObstacle{{0.001, 0.3, 0.3}}, place(0.0005));
      break;
    case 1:
      world.add(CapsuleObstacle{0.001, 0.3}, place(0.001));
      break;
    case 2:
      world.add(CylinderObstacle{0.002, 0.2}, place(0.002));
      break;
    default:
      world.add(SphereObstacle{0.05}, place(0.05));
  }
}

using MotionTest = testing::EveryTargetTest;

// Random robots of every kind of joint, also on a base that is placed somewhere, on motions of all lengths,
// most of which graze an obstacle.
TEST_P(MotionTest, AcceptsNothingThatTouches) {
  std::mt19937 engine(53);
  int num_accepted = 0;
  int num_refused = 0;
  for (int round = 0; round < 750; ++round) {
    const testing::RandomRobot robot(engine, 1 + round % 10);
    const auto description = robot.withSpheres(engine);
    const auto n = static_cast<int>(description->numCSpaceCoords());
    Pose3 base;
    if (round % 5 == 0) {
      const Eigen::VectorXd v = RandomVec(engine, 7, -1.0, 1.0);
      base = Pose3(Eigen::Quaterniond(v[0], v[1], v[2], v[3]), v.tail<3>());
    }
    const Motion motion =
        RandomMotion(engine, n, round % 2 == 0 ? 2 : 3 + round / 2 % 4, std::ldexp(1.0, -(round / 8 % 8)));
    test::RandomScene scene(static_cast<std::uint32_t>(round));
    World world;
    const auto& model = dynamic_cast<const RobotDescriptionInternal&>(*description);
    if (const auto frames = model.collision().frames; !frames.empty() && round % 7 != 0) {
      const double at = round % 3 == 0 ? scene.uniform(0.0, 1.0) : 0.5;
      const auto& frame = frames[engine() % frames.size()];
      const auto spheres = model.collision().spheresOf(frame);
      math::Sphere sphere = spheres[engine() % spheres.size()];
      sphere.center = math::RigidTransform(base) *
                      (model.model().transform(motion.At(at), model.model().frame(frame)) * sphere.center);
      const double gaps[] = {-1e-4, -1e-5, 1e-5, 5e-5, 2e-4, 1e-3, 1e-2};
      AddGrazed(sphere, gaps[engine() % 7], scene, world);
    } else {
      world.add(scene.bounded(round % test::RandomScene::kNumKinds, 0.4), scene.pose(1.0));
    }
    if (round % 4 == 0) {
      world.add(scene.bounded(round / 4 % test::RandomScene::kNumKinds, 0.6), scene.pose(0.5), "allowed");
    }
    if (round % 9 == 0) {
      // Too large for single precision.
      world.add(BoxObstacle{{1e7, 1e7, 1.0}}, Pose3::FromTranslation({0.0, 0.0, -9.0}));
    }
    const auto environment =
        CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(n), 10, 1, 2});
    environment->SetBasePose(base);
    const PlainCheck plain(*description, world, base);
    const bool is_accepted = motion.IsValidIn(*environment);
    (is_accepted ? num_accepted : num_refused) += 1;
    if (round % 5 == 0) {
      ASSERT_FALSE(is_accepted && TouchesAnywhere(plain, motion, 1000)) << "round " << round;
      continue;
    }
    ASSERT_EQ(CheckPath(*description, world.view(), {motion.At(0.0)}, 1.0).IsValid(),
              plain.IsValid(motion.At(0.0)));
    // What is refused comes nearer than what is kept and the least enlargement together.
    const PathProof proof = ProveCurves(*description, world.view(), {motion.points});
    ASSERT_TRUE(!is_accepted || proof.IsFree()) << "round " << round;
    ASSERT_TRUE(is_accepted || IsNearer(proof, 1.5e-5)) << "round " << round;
  }
  EXPECT_GT(num_accepted, 100);
  EXPECT_GT(num_refused, 100);
}

// A cart on a rail, above a floor and beside a ball that is fixed to its base or a ball of the world.
TEST_P(MotionTest, KeepsAClearance) {
  const struct {
    double above_floor;
    double beside_ball;
    double from;
    double to;
    bool is_valid;
  } rows[] = {
      {1.9e-6, 1.0, 0.0, 0.0, false}, {2.1e-6, 1.0, 0.0, 0.0, true},   {1.0, 3.9e-6, 0.0, 0.0, false},
      {1.0, 4.1e-6, 0.0, 0.0, true},  {1.5e-5, 1.0, -0.5, 0.5, true},  {1e-6, 1.0, -0.5, 0.5, false},
      {0.0, 1.0, -0.5, 0.5, false},   {1.0, 1.5e-5, -0.5, 0.5, true},  {1.0, 3e-6, -0.5, 0.5, false},
      {1.0, -1e-5, -0.5, 0.5, false}, {1.5e-5, 1.0, -3.0, 12.0, true}, {1.5e-5, 1.0, 99.0, 101.0, false},
  };
  for (const auto& row : rows) {
    RobotDescriptionBuilder builder("base");
    builder.addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {1.0, 0.0, 0.0}, {{-100.0, 100.0}}});
    builder.addCollisionSphere("cart", {0.0, 0.0, 0.1 + row.above_floor}, 0.1);
    builder.addCollisionSphere("base", {0.0, 0.3 + row.beside_ball, 0.1 + row.above_floor}, 0.2);
    builder.addCollisionPair("base", "cart");
    const auto description = builder.build();
    World world;
    world.add(BoxObstacle{{300.0, 0.2, 1.0}}, Pose3::FromTranslation({0.0, 0.0, -0.5}));
    const auto environment =
        CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(1), 10, 1, 2});
    EXPECT_EQ(environment->IsValidMotion(Vec({row.from}), Vec({row.to}), 1.0), row.is_valid)
        << row.above_floor << " " << row.beside_ball;
  }
}

// A cart that turns back right before a wall, where lanes serve and where they do not.
TEST_P(MotionTest, SeesHowFarACurveGoes) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {1.0, 0.0, 0.0}, {{-100.0, 100.0}}});
  const auto description = builder.addCollisionSphere("cart", Eigen::Vector3d::Zero(), 0.5).build();
  for (const double begin : {0.0, 20.0}) {
    for (const double gap : {-1e-4, -1e-5, -1e-6, 1.5e-5, 1e-4}) {
      for (const double way : {1.0, 0.3, 0.02}) {
        // Both go as far as that.
        for (const Eigen::VectorXd& points : {Vec({0.0, 2.0, 0.0}), Vec({0.0, 4.0 / 3.0, 4.0 / 3.0, 0.0})}) {
          World world;
          world.add(BoxObstacle{{0.2, 1.0, 1.0}},
                    Pose3::FromTranslation({begin + way + 0.5 + gap + 0.1, 0.0, 0.0}));
          const auto environment =
              CreateRobotEnvironment({description.get(), world.view(), Eigen::VectorXd::Ones(1), 10, 1, 2});
          const Eigen::MatrixXd curve = begin + way * points.transpose().array();
          EXPECT_EQ(environment->IsValidCurve(curve, 1.0), gap > 0.0)
              << begin << " " << gap << " " << way << " " << points.size();
        }
      }
    }
  }
}

TEST_P(MotionTest, TakesNoMemoryAndFitsTheRobot) {
  World world;
  world.add(BoxObstacle{{0.2, 0.2, 0.2}}, Pose3::FromTranslation({0.7, 0.0, 0.5}));
  const auto robot = LoadFrankaRobotDescription();
  const auto environment =
      CreateRobotEnvironment({robot.get(), world.view(), Eigen::VectorXd::Ones(7), 10, 1, 2});
  const Eigen::VectorXd q = robot->defaultCSpaceConfiguration();
  Eigen::VectorXd turned = q;
  turned[0] += 1.5;
  environment->IsValidMotion(q, turned, 1.0);
  if (testing::CountsAllocations()) {
    const auto before = testing::NumAllocations();
    environment->IsValidMotion(q, turned, 1.0);
    EXPECT_EQ(testing::NumAllocations(), before);
  }
  turned[1] = std::nan("");
  EXPECT_FALSE(environment->IsValidMotion(q, turned, 1.0));
  testing::ExpectFatal([&] { environment->IsValidMotion(q, Vec({1.0}), 1.0); },
                       "static_cast<size_t>(q_start.size()) == dimension_ && "
                       "static_cast<size_t>(q_end.size()) == dimension_",
                       "motion_planning/environment/robot_environment", 170,
                       "A motion from [7] to [1] coordinates does not fit the [7] of the configuration "
                       "space.");
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(MotionTest);

}  // namespace
}  // namespace kavo::planning
