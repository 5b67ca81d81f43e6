#include "kavo/motion_planning/environment/robot_environment.h"

#include <gtest/gtest.h>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/motion_planning/environment/robot_environment_config.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/util/random_generator.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/allocations.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::kInf;
using testing::kNaN;
using testing::LogCapture;
using testing::RandomVec;
using testing::Vec;

// A cart on a rail along x with a turning mast; a ball of radius 0.5 on the cart and one of 0.25 at the tip,
// 2 m out.
RobotDescriptionBuilder Cart() {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {1.0, 0.0, 0.0}, {{-4.0, 4.0}}, 0.0});
  builder.addJoint({"mast", JointType::kRevolute, "cart", "mast", {}, {0.0, 0.0, 1.0}, {{-3.0, 3.0}}, 0.0});
  builder.addFrame("tip", "mast", Pose3::FromTranslation({2.0, 0.0, 0.0}));
  return builder;
}

std::unique_ptr<RobotDescription> CartWithSpheres() {
  return Cart()
      .addCollisionSphere("cart", {0.0, 0.0, 0.0}, 0.5)
      .addCollisionSphere("tip", {0.0, 0.0, 0.0}, 0.25)
      .build();
}

RobotEnvironmentConfig CartConfig(const RobotDescription& description, const World& world,
                                  int attempts = 100) {
  return {&description, world.view(), Vec({1.0, 2.0}), attempts, 5, 6};
}

TEST(RobotEnvironmentTest, JudgesLimitsAndSpheres) {
  World world;
  world.add(BoxObstacle{{1.0, 1.0, 1.0}}, Pose3::FromTranslation({3.5, 0.0, 0.0}));
  const auto environment = CreateRobotEnvironment(CartConfig(*CartWithSpheres(), world));
  EXPECT_EQ(environment->CSpaceDimension(), 2);
  EXPECT_EQ(environment->CSpaceDistanceMetric()(Vec({0.0, 0.0}), Vec({3.0, 2.0})), 9.0 + 2.0 * 4.0);
  // The tip's ball touches the box at x = 3, then the cart's.
  for (const auto& [q, is_valid] :
       {std::pair(Vec({0.75, 0.0}), false), std::pair(Vec({0.74, 0.0}), true),
        std::pair(Vec({2.5, 3.0}), false), std::pair(Vec({2.4, 3.0}), true),
        std::pair(Vec({-4.0, 0.0}), true), std::pair(Vec({-4.0000001, 0.0}), false),
        std::pair(Vec({0.0, 3.1}), false), std::pair(Vec({kNaN, 0.0}), false),
        std::pair(Vec({0.0, kInf}), false)}) {
    EXPECT_EQ(environment->IsValidConfiguration(q), is_valid) << q.transpose();
  }
}

TEST(RobotEnvironmentTest, AgreesWithEverySphereAskedOnItsOwn) {
  World world;
  std::mt19937 engine(3);
  for (int i = 0; i < 12; ++i) {
    world.add(SphereObstacle{0.15}, Pose3::FromTranslation(RandomVec(engine, 3, -1.0, 1.0)));
  }
  const auto view = world.view();
  const auto description = LoadFrankaRobotDescription();
  const RobotEnvironmentConfig config(description.get(), view, Eigen::VectorXd::Ones(7), 10, 1, 2);
  const auto environment = CreateRobotEnvironment(config);
  const Pose3 base(Eigen::Quaterniond(0.9, 0.1, -0.2, 0.3), {0.1, -0.2, 0.05});
  environment->SetBasePose(base);
  const auto& limits = environment->CSpaceCoordLimits();
  int num_valid = 0;
  for (int i = 0; i < 2000; ++i) {
    const Eigen::VectorXd u = RandomVec(engine, 7, 0.0, 1.0);
    const Eigen::VectorXd q = limits.Min() + u.cwiseProduct(limits.Range());
    bool touches = false;
    for (const std::string& name : config.FrameNames()) {
      const Pose3 pose = base * config.Kinematics()->pose(q, config.Kinematics()->frame(name));
      for (const math::Sphere& sphere : config.CollisionSpheres(name)) {
        touches |= view.inCollision(pose * sphere.center, sphere.radius);
      }
    }
    const long before = testing::NumAllocations();
    const bool is_valid = environment->IsValidConfiguration(q);
    // The first call may set up the choice of instruction set.
    ASSERT_TRUE(i == 0 || testing::NumAllocations() == before);
    ASSERT_EQ(is_valid, !touches) << q.transpose();
    num_valid += touches ? 0 : 1;
  }
  // The comparison is worth something only if both answers come up.
  EXPECT_GT(num_valid, 200);
  EXPECT_LT(num_valid, 1800);
}

// Two arms of 1 m side by side, 1 m apart, with a ball of radius 0.25 at each tip; they point at each other
// at (0, pi).
RobotDescriptionBuilder TwoArms() {
  RobotDescriptionBuilder builder("base");
  for (const std::string side : {"left", "right"}) {
    const Pose3 place = Pose3::FromTranslation({side == "left" ? 0.0 : 3.0, 0.0, 0.0});
    builder.addJoint({side + "_joint", JointType::kRevolute, "base", side, place, {0, 0, 1}, {{-4.0, 4.0}}});
    builder.addFrame(side + "_tip", side, Pose3::FromTranslation({1.25, 0.0, 0.0}));
    builder.addCollisionSphere(side + "_tip", {0.0, 0.0, 0.0}, 0.25);
    builder.addCollisionSphere(side + "_tip", {-0.5, 0.0, 0.0}, 0.125);
  }
  return builder;
}

TEST(RobotEnvironmentTest, PairsOfFramesMustNotTouch) {
  const double pi = std::acos(-1.0);
  World world;
  const auto make = [&](const RobotDescriptionBuilder& builder) {
    return CreateRobotEnvironment({builder.build().get(), world.view(), Vec({1.0, 1.0}), 10, 5, 6});
  };
  const auto free = make(TwoArms());
  const auto paired =
      make(TwoArms().addCollisionPair("left_tip", "right_tip").addCollisionPair("base", "left"));
  // The tips' centres are 3 - 2.5 cos(a) apart along x for (a, pi - a); they touch at 0.5.
  const struct {
    double angle;
    bool touches;
  } cases[] = {{0.0, true}, {1e-3, false}, {0.4, false}};
  for (const auto& [angle, touches] : cases) {
    const Eigen::VectorXd q = Vec({angle, pi - angle});
    EXPECT_TRUE(free->IsValidConfiguration(q));
    EXPECT_EQ(paired->IsValidConfiguration(q), !touches) << angle;
  }
  // With the base far away, and with an obstacle: that contact is named first.
  paired->SetBasePose(Pose3::FromTranslation({0.0, 0.0, 1e6}));
  const Eigen::VectorXd meeting = Vec({0.0, pi});
  auto fault = paired->FindFault(meeting);
  ASSERT_TRUE(fault && fault->self_contact && !fault->contact);
  EXPECT_EQ(fault->self_contact->frames[0], "left_tip");
  EXPECT_EQ(fault->self_contact->frames[1], "right_tip");
  EXPECT_EQ(fault->self_contact->spheres[0] + fault->self_contact->spheres[1], 0u);
  EXPECT_EQ(fault->self_contact->depth, 0.0);
  paired->SetBasePose(Pose3::Identity());
  world.add(SphereObstacle{0.5}, Pose3::FromTranslation({1.25, 0.0, 0.0}));
  paired->UpdateWorldView();
  fault = paired->FindFault(meeting);
  EXPECT_TRUE(fault && fault->contact && !fault->self_contact);
}

TEST(RobotEnvironmentTest, BasePoseMovesSpheresButNotTaskSpace) {
  World world;
  const ObstacleHandle ball = world.add(SphereObstacle{0.1}, Pose3::FromTranslation({0.0, 5.0, 0.0}));
  const auto environment = CreateRobotEnvironment(CartConfig(*CartWithSpheres(), world));
  const Eigen::VectorXd q = Vec({0.0, 0.0});
  EXPECT_TRUE(environment->IsValidConfiguration(q));
  environment->SetBasePose(Pose3::FromTranslation({0.0, 5.0, 0.0}));
  EXPECT_FALSE(environment->IsValidConfiguration(q));
  EXPECT_EQ(environment->TaskSpacePosition(q), Eigen::Vector3d(2.0, 0.0, 0.0));
  EXPECT_THROW(environment->SetBasePose(Pose3::FromTranslation({0.0, kNaN, 0.0})), util::FatalError);
  EXPECT_FALSE(environment->IsValidConfiguration(q));
  world.disable(ball);
  environment->UpdateWorldView();
  EXPECT_TRUE(environment->IsValidConfiguration(q));
}

TEST(RobotEnvironmentTest, TaskSpaceJacobianNeedsItsSize) {
  const auto environment = CreateRobotEnvironment(CartConfig(*Cart().build(), World()));
  const Eigen::VectorXd q = Vec({1.0, 0.0});
  Eigen::MatrixXd jacobian(3, 2);
  environment->GetTaskSpacePositionJacobian(q, jacobian);
  Eigen::MatrixXd expected(3, 2);
  expected << 1.0, 0.0, 0.0, 2.0, 0.0, 0.0;
  EXPECT_TRUE(jacobian.isApprox(expected, 1e-15)) << jacobian;

  Eigen::MatrixXd wide(3, 3);
  Eigen::MatrixXd tall(4, 2);
  const Eigen::VectorXd q3 = Vec({0.0, 0.0, 0.0});
  const auto expect = [](const auto& call, int line) {
    ExpectFatal(call, {}, "motion_planning/environment/robot_environment", line, "");
  };
  expect([&] { environment->TaskSpacePosition(q3); }, 58);
  expect([&] { environment->GetTaskSpacePositionJacobian(q3, wide); }, 64);
  expect([&] { environment->GetTaskSpacePositionJacobian(q, wide); }, 65);
  expect([&] { environment->GetTaskSpacePositionJacobian(q, tall); }, 66);
  ExpectFatal([&] { environment->IsValidConfiguration(q3); }, "static_cast<size_t>(q.size()) == dimension_",
              "motion_planning/environment/robot_environment", 150,
              "Dimension of q [3] must match number of configuration space coordinates [2].");
}

TEST(RobotEnvironmentTest, SamplingGivesUpWithAWarning) {
  World world;
  world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, 10.0}));
  const auto description = CartWithSpheres();
  LogCapture log;
  EXPECT_FALSE(CreateRobotEnvironment(CartConfig(*description, world, 3))->SampleConfiguration().has_value());
  const auto untried = CreateRobotEnvironment(CartConfig(*description, World(), 0));
  EXPECT_FALSE(untried->SampleConfiguration().has_value());
  EXPECT_EQ(log.warnings(), std::vector<std::string>(2, "Unable to find a valid configuration."));

  // Nothing is drawn without an attempt, and a negative number of attempts does not run out.
  const auto unlimited = CreateRobotEnvironment(CartConfig(*description, World(), -1));
  EXPECT_TRUE(unlimited->SampleConfiguration().has_value());
}

TEST(RobotEnvironmentTest, ReversedJointLimitsWarnAndLeaveNothingValid) {
  const auto model = dynamic_cast<KinematicsInternal&>(*Cart().build()->kinematics()).model();
  const RobotDescriptionInternal reversed(
      {model, {"rail", "mast"}, {{0.5, 0.25}, {-3.0, 3.0}}, Vec({0.0, 0.0}), {}, {}});
  const LogCapture log;
  const auto environment = CreateRobotEnvironment(CartConfig(reversed, World(), 50));
  EXPECT_FALSE(environment->IsValidConfiguration(Vec({0.3, 0.0})));
  EXPECT_FALSE(environment->SampleConfiguration().has_value());
  EXPECT_EQ(log.warnings(), (std::vector<std::string>{
                                "Min [0.5] cannot be greater than max [0.25]. Range will not be updated.",
                                "Unable to find a valid configuration."}));
}

TEST(RobotEnvironmentTest, TaskSpaceSamplesComeFromItsLimits) {
  auto config = CartConfig(*Cart().build(), World());
  {
    const LogCapture log;
    EXPECT_FALSE(CreateRobotEnvironment(config)->SampleTaskSpace().has_value());
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{"Task space limits not provided. Will NOT sample task space."});
  }
  config.SetTaskSpaceLimits({Vec({1.0, 2.0, 3.0}), Vec({1.5, 2.0, 4.0})});
  util::RandomGenerator<Eigen::Vector3d> expected(6);
  expected.SetRange({1.0, 2.0, 3.0}, {1.5, 2.0, 4.0});
  const auto environment = CreateRobotEnvironment(config);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(*environment->SampleTaskSpace(), expected.Sample());
  }
}

TEST(RobotEnvironmentTest, ConfigurationIsCheckedAgain) {
  auto changed = CartConfig(*Cart().build(), World());
  changed.distance_weights = Vec({1.0});
  ExpectFatal([&] { CreateRobotEnvironment(changed); },
              "config.distance_weights.size() == config.NumJoints()",
              "motion_planning/environment/robot_environment", 40,
              "Only 1 'distance_weights' provided for kinematics with 2 joints.");

  const LogCapture log;
  for (const math::Sphere& bad : {math::Sphere{{0.0, kNaN, 0.0}, 0.1}, math::Sphere{{0.0, 0.0, 0.0}, -1.0},
                                  math::Sphere{{0.0, 0.0, 0.0}, kInf}}) {
    auto with_bad_sphere = CartConfig(*Cart().build(), World());
    with_bad_sphere.AddCollisionSphere("mast", bad);
    EXPECT_THROW(CreateRobotEnvironment(with_bad_sphere), util::FatalError);
    EXPECT_EQ(log.records().back().message.find("Collision sphere 0 of frame 'mast'"), 0u);
  }
}

// A slide so long that a sphere on it is nowhere finite: neither limit nor contact is to blame.
TEST(RobotEnvironmentTest, FaultIsNamedWhereSpheresAreNowhere) {
  RobotDescriptionBuilder builder("base");
  const Pose3 far = Pose3::FromTranslation({1.5e308, 0.0, 0.0});
  builder.addJoint(
      {"rail", JointType::kPrismatic, "base", "cart", far, {1.0, 0.0, 0.0}, {{0.0, 1e308}}, 0.0});
  builder.addCollisionSphere("cart", {0.0, 0.0, 0.0}, 0.5);
  const auto robot = builder.build();
  const auto environment = CreateRobotEnvironment({robot.get(), World().view(), Vec({1.0}), 1, 1, 1});
  const Eigen::VectorXd q = Vec({1e308});
  ASSERT_FALSE(environment->IsValidConfiguration(q));
  EXPECT_EQ(environment->FindFault(q)->unplaced_frame, "cart");
  const PathCheck check = CheckPath(*robot, World().view(), {q}, 0.1);
  ASSERT_FALSE(check.IsValid());
  EXPECT_EQ(check.first_bad->fault.unplaced_frame, "cart");
}

TEST(RobotEnvironmentConfigTest, GathersWhatTheDescriptionHolds) {
  auto description = Cart()
                         .addCollisionSphere("mast", {0.0, 0.0, 0.0}, 0.1)
                         .addCollisionSphere("cart", {0.0, 0.0, 0.0}, 0.2)
                         .addCollisionSphere("mast", {1.0, 0.0, 0.0}, 0.3)
                         .build();
  auto config = CartConfig(*description, World());
  description.reset();
  ASSERT_EQ(config.CollisionSpheres("mast").size(), 2u);
  EXPECT_EQ(config.CollisionSpheres("mast")[1].radius, 0.3);
  EXPECT_TRUE(config.CollisionSpheres("tip").empty());
  EXPECT_EQ(config.GetTaskSpaceFrame().index(), config.Kinematics()->frame("tip").index());

  // Another description adds its spheres, and its pairs to those that are there.
  const auto pairs = [](const std::vector<std::pair<std::string, std::string>>& frames) {
    auto builder = Cart().addCollisionSphere("tip", {0.0, 0.0, 0.0}, 0.4);
    for (const auto& [a, b] : frames) {
      builder.addCollisionPair(a, b);
    }
    return builder.build();
  };
  auto paired = CartConfig(*pairs({{"mast", "cart"}}), World());
  paired.AddCollisionSpheres(pairs({{"cart", "mast"}, {"tip", "base"}}).get());
  EXPECT_EQ(paired.CollisionSpheres("tip").size(), 2u);
  EXPECT_EQ(paired.CollisionPairs(),
            (std::vector<std::pair<std::string, std::string>>{{"mast", "cart"}, {"tip", "base"}}));

  // An unknown frame is taken as it is.
  config.AddCollisionSphere("nowhere", {{0.0, 0.0, 0.0}, -1.0});
  EXPECT_EQ(config.FrameNames(), (std::vector<std::string>{"mast", "cart", "nowhere"}));

  // A task space frame is found by its exact name.
  EXPECT_EQ(config.SetTaskSpaceFrame("cart")->index(), config.Kinematics()->frame("cart").index());
  const LogCapture log;
  EXPECT_FALSE(config.SetTaskSpaceFrame("Cart").has_value());
  EXPECT_EQ(log.warnings(),
            std::vector<std::string>{"Unable to find \"Cart\". Task space frame name will not be updated"});
  EXPECT_EQ(config.GetTaskSpaceFrame().index(), config.Kinematics()->frame("cart").index());
}

TEST(RobotEnvironmentConfigTest, CountsMustMatch) {
  const auto description = Cart().build();
  const std::string file = "motion_planning/environment/robot_environment_config";
  const auto make = [](const RobotDescription* given, int num_weights) {
    return RobotEnvironmentConfig(given, World().view(), Eigen::VectorXd::Ones(num_weights), 1, 1, 1);
  };
  const kinematics::ConfigurationLimits flat(Vec({0.0, 0.0}), Vec({1.0, 1.0}));
  ExpectFatal([&] { make(description.get(), 2).SetTaskSpaceLimits(flat); },
              "task_space_limits.Dimension() == 3", file, 91,
              "Dimension for 'task_space_limits' [2] is expected to be 3.");
  ExpectFatal([&] { make(description.get(), 3); }, "distance_weights.size() == num_joints_", file, 104,
              "Only 3 'distance_weights' provided for kinematics with 2 joints.");
  EXPECT_THROW(make(nullptr, 0), util::FatalError);
  // The limits are checked before the weights.
  const auto model = dynamic_cast<KinematicsInternal&>(*description->kinematics()).model();
  const RobotDescriptionInternal short_of_limits(
      {model, {"rail", "mast"}, {{0.0, 1.0}}, Vec({0.0, 0.0}), {}, {}});
  ExpectFatal([&] { make(&short_of_limits, 0); }, "static_cast<int>(joint_limits_.size()) == num_joints_",
              file, 101, "Only 1 'joint_limits' provided for kinematics with 2 joints.");
}

}  // namespace
}  // namespace kavo::planning
