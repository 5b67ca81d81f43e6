#include "kavo/motion_planning/util/path_check.h"

#include <gtest/gtest.h>

#include <random>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/util/configuration_inspection.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::kInf;
using testing::kNaN;
using testing::RandomVec;
using testing::Vec;

// Two carts on one rail along x, each with a ball of radius 0.5; the second one's rail is 1 m higher.
std::unique_ptr<RobotDescription> Carts(bool may_not_touch) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint(
      {"low", JointType::kPrismatic, "base", "low_cart", {}, {1.0, 0.0, 0.0}, {{-4.0, 4.0}}, 0.0});
  builder.addJoint({"high",
                    JointType::kPrismatic,
                    "base",
                    "high_cart",
                    Pose3::FromTranslation({0.0, 0.0, 1.25}),
                    {1.0, 0.0, 0.0},
                    {{-2.0, 3.0}},
                    0.0});
  builder.addCollisionSphere("low_cart", {0.0, 0.0, 0.0}, 0.5);
  builder.addCollisionSphere("high_cart", {0.0, 0.0, 0.0}, 0.5);
  builder.addCollisionSphere("high_cart", {0.0, 0.0, -0.25}, 0.5);
  if (may_not_touch) {
    builder.addCollisionPair("low_cart", "high_cart");
  }
  return builder.build();
}

TEST(PathCheckTest, FindsTheFirstBadConfigurationAndTheDeepestContact) {
  World world;
  const ObstacleHandle post =
      world.add(BoxObstacle{{0.5, 4.0, 0.5}}, Pose3::FromTranslation({2.0, 0.0, 0.0}));
  const auto robot = Carts(false);
  // The low cart touches the post from 1.25 to 2.75: the second segment runs from 1 to 2 in quarters.
  const std::vector<Eigen::VectorXd> path = {Vec({0.0, -1.0}), Vec({1.0, -1.0}), Vec({2.0, -1.0})};
  const PathCheck check = CheckPath(*robot, world.view(), path, 0.25);
  EXPECT_EQ(check.num_configurations, 9u);
  EXPECT_EQ(check.num_bad, 4u);
  ASSERT_TRUE(check.first_bad.has_value());
  EXPECT_FALSE(check.IsValid());
  EXPECT_EQ(check.first_bad->place.segment, 1u);
  EXPECT_EQ(check.first_bad->place.fraction, 0.25);
  ASSERT_TRUE(check.first_bad->fault.contact.has_value());
  EXPECT_EQ(check.first_bad->fault.contact->frame, "low_cart");
  EXPECT_EQ(check.first_bad->fault.contact->obstacle, post);
  EXPECT_EQ(check.first_bad->fault.contact->depth, 0.0);
  EXPECT_EQ(check.first_bad->fault.contact->center, Eigen::Vector3d(1.25, 0.0, 0.0));
  // In the middle of the post the ball is 0.25 below the nearest surface.
  EXPECT_EQ(check.clearance->distance, -0.75);
  EXPECT_EQ(check.clearance->place.fraction, 1.0);
  EXPECT_EQ(check.clearance->place.segment, 1u);
  EXPECT_FALSE(check.self_clearance.has_value());
  // The high cart stays 1 m from its lower limit.
  EXPECT_EQ(check.limit_margin->distance, 1.0);
  EXPECT_EQ(check.limit_margin->coordinate, 1u);

  // A step that jumps over the post sees nothing of it, and says how near it came.
  const PathCheck coarse = CheckPath(*robot, world.view(), {Vec({0.5, 0.0}), Vec({3.5, 0.0})}, 3.0);
  EXPECT_TRUE(coarse.IsValid());
  EXPECT_EQ(coarse.num_configurations, 2u);
  EXPECT_EQ(coarse.clearance->distance, 0.75);
  EXPECT_EQ(coarse.clearance->frame, "low_cart");
}

TEST(PathCheckTest, AnInspectionListsAllThatIsWrong) {
  World world;
  world.add(BoxObstacle{{0.5, 4.0, 0.5}}, Pose3::FromTranslation({2.0, 0.0, 0.0}), "post");
  world.add(SphereObstacle{0.25}, Pose3::FromTranslation({2.0, 0.0, 2.0}), "ball");
  const auto found =
      InspectConfigurations(*Carts(true), world.view(), {Vec({2.0, 2.0}), Vec({4.5, -2.5}), Vec({0.0, 3.0})});
  ASSERT_EQ(found.size(), 3u);
  // Both carts are at the post, the high one with its upper ball in reach of neither obstacle.
  ASSERT_EQ(found[0].contacts.size(), 2u);
  EXPECT_EQ(found[0].contacts[0].frame, "low_cart");
  EXPECT_EQ(found[0].contacts[0].depth, 0.75);
  EXPECT_EQ(found[0].contacts[1].obstacle_name, "ball");
  EXPECT_EQ(found[0].contacts[1].sphere, 0u);
  EXPECT_EQ(found[0].clearance->obstacle_name, "post");
  ASSERT_EQ(found[0].self_contacts.size(), 1u);
  EXPECT_EQ(found[0].self_contacts[0].spheres[1], 1u);
  EXPECT_EQ(found[0].Fault()->contact->depth, 0.75);
  EXPECT_FALSE(found[0].Fault()->self_contact.has_value());
  EXPECT_EQ(found[1].limits.size(), 2u);
  EXPECT_EQ(found[1].Fault()->limit->coordinate, 0u);
  EXPECT_TRUE(found[2].IsValid() && !found[2].Fault());

  // The base of the arm stays where it is.
  World floor;
  floor.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, -0.1}), "floor");
  const auto arm = LoadFrankaRobotDescription();
  const auto at_rest = InspectConfigurations(*arm, floor.view(), {arm->defaultCSpaceConfiguration()});
  EXPECT_EQ(at_rest[0].clearance->frame, "base");
  EXPECT_EQ(at_rest[0].moving_clearance->frame, "link1");
}

TEST(PathCheckTest, ChecksPairsOfFramesOnlyWhereTheRobotHasThem) {
  const World world;
  // The lower ball of the high cart passes the low cart's at a height of 1: they touch at the same x only.
  const std::vector<Eigen::VectorXd> path = {Vec({-1.0, 0.0}), Vec({1.0, 0.0})};
  const PathCheck check = CheckPath(*Carts(true), world.view(), path, 0.5);
  EXPECT_EQ(check.num_bad, 1u);
  ASSERT_TRUE(check.first_bad.has_value());
  EXPECT_EQ(check.first_bad->place.fraction, 0.5);
  ASSERT_TRUE(check.first_bad->fault.self_contact.has_value());
  EXPECT_EQ(check.first_bad->fault.self_contact->frames[0], "low_cart");
  EXPECT_EQ(check.first_bad->fault.self_contact->spheres[1], 1u);
  EXPECT_EQ(check.self_clearance->distance, 0.0);
  EXPECT_EQ(check.self_clearance->frames[1], "high_cart");
  EXPECT_FALSE(check.clearance.has_value());

  EXPECT_TRUE(CheckPath(*Carts(false), world.view(), path, 0.5).IsValid());
}

TEST(PathCheckTest, ChecksClosedLimitsAndWhatIsNotFinite) {
  const World world;
  const auto robot = Carts(false);
  const struct {
    Eigen::VectorXd q;
    bool is_valid;
    std::size_t coordinate;
  } cases[] = {
      {Vec({4.0, -2.0}), true, 0},  {Vec({0.0, 3.5}), false, 1},  {Vec({-4.5, 9.0}), false, 0},
      {Vec({0.0, kNaN}), false, 1}, {Vec({kInf, 0.0}), false, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.q.transpose());
    // As the only waypoint, and at the end of a segment.
    for (const auto& path : {std::vector{c.q}, std::vector<Eigen::VectorXd>{Vec({0.0, 0.0}), c.q}}) {
      const PathCheck check = CheckPath(*robot, world.view(), path, 100.0);
      EXPECT_EQ(check.IsValid(), c.is_valid);
      if (!c.is_valid) {
        ASSERT_TRUE(check.first_bad.has_value());
        EXPECT_EQ(check.first_bad->fault.limit->coordinate, c.coordinate);
      }
    }
  }
  EXPECT_EQ(CheckPath(*robot, world.view(), {Vec({0.0, 3.5})}, 1.0).limit_margin->distance, -0.5);
}

TEST(PathCheckTest, AgreesWithTheEnvironmentThatPlannersUse) {
  World world;
  world.add(BoxObstacle{{0.4, 0.4, 0.4}}, Pose3::FromTranslation({0.5, 0.0, 0.5}));
  world.add(SphereObstacle{0.2}, Pose3::FromTranslation({-0.4, 0.3, 0.3}));
  world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, -0.1}));
  const auto robot = LoadFrankaRobotDescription();
  const auto environment = CreateRobotEnvironment(
      RobotEnvironmentConfig(robot.get(), world.view(), Eigen::VectorXd::Ones(7), 1, 1, 1));
  std::mt19937 engine(5);
  int num_valid = 0;
  int num_contacts = 0;
  for (int i = 0; i < 300; ++i) {
    const Eigen::VectorXd q = RandomVec(engine, 7, -1.8, 1.8);
    const PathCheck check = CheckPath(*robot, world.view(), {q}, 1.0);
    const auto fault = environment->FindFault(q);
    ASSERT_EQ(check.IsValid(), !fault) << q.transpose();
    num_valid += check.IsValid() ? 1 : 0;
    if (fault && fault->contact) {
      ++num_contacts;
      EXPECT_NEAR(check.first_bad->fault.contact->depth, fault->contact->depth, 1e-12);
    }
  }
  EXPECT_GT(num_valid, 10);
  EXPECT_GT(num_contacts, 10);
}

TEST(PathCheckTest, RefusesWhatIsNoPath) {
  const auto robot = Carts(false);
  const Eigen::VectorXd origin = Vec({0.0, 0.0});
  const auto expect = [&](const std::vector<Eigen::VectorXd>& path, double step, int line,
                          const char* message) {
    ExpectFatal([&] { CheckPath(*robot, World().view(), path, step); }, {}, "motion_planning/util/path_check",
                line, message);
  };
  expect({}, 1.0, 150, "There is no configuration to check.");
  expect({origin}, 0.0, 151, "The step [0] must be positive.");
  expect({origin, Vec({0.0})}, 1.0, 153, "Waypoint 1 has 1 coordinates, the robot 2.");
  expect({origin, Vec({1.0, 0.0})}, 1e-300, 163,
         "A segment of length [1] has too many parts of [1e-300] to be checked.");
}

}  // namespace
}  // namespace kavo::planning
