// Joints that turn without limits: every planner goes the short way round, in paths without jumps.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/rrt/basic_rrt.h"
#include "kavo/motion_planning/rrt/jt_rrt.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/rrt/small_world.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::Path;
using testing::Vec;

using math::kPi;

// Turns about z, each carrying the next at a distance of half a metre, a ball at the end of each.
std::unique_ptr<RobotDescription> Arm(int num_joints, JointType follower, double multiplier) {
  RobotDescriptionBuilder builder("link0");
  for (int i = 0; i < num_joints; ++i) {
    Joint joint;
    joint.name = "joint" + std::to_string(i);
    joint.type = JointType::kContinuous;
    joint.parent_frame = "link" + std::to_string(i);
    joint.child_frame = "link" + std::to_string(i + 1);
    joint.origin = Pose3::FromTranslation({i == 0 ? 0.0 : 0.5, 0.0, 0.0});
    builder.addJoint(joint);
    builder.addCollisionSphere(joint.child_frame, {0.5, 0.0, 0.0}, 0.05);
  }
  Joint joint;
  joint.name = "follower";
  joint.type = follower;
  joint.parent_frame = "link" + std::to_string(num_joints);
  joint.child_frame = "tool";
  joint.origin = Pose3::FromTranslation({0.5, 0.0, 0.0});
  joint.mimic = Joint::Mimic{"joint0", multiplier, 0.25};
  builder.addJoint(joint);
  builder.addCollisionSphere("tool", {0.05, 0.0, 0.0}, 0.02);
  return builder.build();
}

void ExpectSound(const RobotDescription& robot, const World& world, const Path& path,
                 const Eigen::VectorXd& start, double longest_segment) {
  EXPECT_EQ(path.front(), start);
  EXPECT_TRUE(CheckPath(robot, world.view(), path, 0.01).IsValid());
  for (std::size_t i = 1; i < path.size(); ++i) {
    EXPECT_LE((path[i] - path[i - 1]).norm(), longest_segment);
  }
}

double Length(const Path& path) {
  double length = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    length += (path[i] - path[i - 1]).norm();
  }
  return length;
}

TEST(PeriodicPlanning, MetricGoesTheShortWayRound) {
  const PeriodicMetric metric(L2Norm, {1});
  EXPECT_DOUBLE_EQ(metric(Vec({0, 3.1}), Vec({3, -3.1 - 4 * kPi})), std::hypot(3.0, 2 * kPi - 6.2));
  EXPECT_DOUBLE_EQ(metric(Vec({3.1, 0}), Vec({-3.1, 0})), 6.2);
  EXPECT_EQ(WholeTurns(0.0, 3.14), 0.0);
  EXPECT_DOUBLE_EQ(WholeTurns(1.0, -16.0), -6 * kPi);
}

TEST(PeriodicPlanning, PlansAcrossPi) {
  struct Case {
    JointType follower;
    double multiplier;
    double length;
  };
  const double half_way_round = 2 * kPi - 6.2;
  for (const auto& [follower, multiplier, length] :
       {Case{JointType::kRevolute, -2.0, half_way_round}, Case{JointType::kRevolute, 0.5, 6.2},
        Case{JointType::kPrismatic, 0.01, 6.2}}) {
    for (const bool accelerator : {true, false}) {
      SCOPED_TRACE(multiplier);
      const World world;
      const std::shared_ptr<RobotDescription> robot = Arm(1, follower, multiplier);
      const auto planner = CreateMotionPlanner(robot, world.view());
      planner->setParam("enable_tesk_tree", accelerator);
      const auto results = planner->planToCSpaceTarget(Vec({3.1}), Vec({-3.1}), true);
      ASSERT_TRUE(results.path_found);
      ExpectSound(*robot, world, results.path, Vec({3.1}), 6.3);
      EXPECT_NEAR((results.path.back() - results.path.front()).norm(), length, 1e-12);
      for (std::size_t i = 1; i < results.interpolated_path.size(); ++i) {
        EXPECT_LE((results.interpolated_path[i] - results.interpolated_path[i - 1]).norm(), 0.1 + 1e-12);
      }
      // Nothing keeps the joint within a turn.
      EXPECT_TRUE(planner->planToCSpaceTarget(Vec({20.0}), Vec({20.3}), false).path_found);
      // Here whole turns are lost in rounding: the end would not be the target.
      planner->setParam("max_iterations", 10);
      planner->setParam("max_nodes", 1000);
      EXPECT_FALSE(planner->planToCSpaceTarget(Vec({1e17}), Vec({1.0}), false).path_found);
    }
  }
}

// Among obstacles the branches of the two trees stand turns apart now and then.
TEST(PeriodicPlanning, BranchesMeetWithoutJumps) {
  World world;
  world.add(SphereObstacle{0.2}, Pose3::FromTranslation({-0.75, 0.0, 0.0}));
  world.add(SphereObstacle{0.15}, Pose3::FromTranslation({0.3, 0.7, 0.0}));
  const std::shared_ptr<RobotDescription> robot = Arm(2, JointType::kContinuous, 1.0);
  int num_turned = 0;
  int num_unwound = 0;
  for (int seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    const auto environment = CreateRobotEnvironment(
        RobotEnvironmentConfig(robot.get(), world.view(), Vec({1, 1}), 1000, seed, seed));
    auto tree_a = CreateBasicTree(2, WithPeriods(L2Norm, environment->PeriodicCoordinates()), false);
    auto tree_b = CreateBasicTree(2, WithPeriods(L2Norm, environment->PeriodicCoordinates()), false);
    const auto rrt = CreateRRTConnect(RRTConnectConfig(0.05, 10000, 0.5), environment, tree_a, tree_b);
    const Eigen::VectorXd start = Vec({2.5, 0.3});
    const Eigen::VectorXd goal = Vec({-2.4, -0.2});
    const std::optional<Path> path = testing::Plan(*rrt, start, goal);
    ASSERT_TRUE(path);
    ExpectSound(*robot, world, *path, start, 0.05 + 1e-9);
    const Eigen::VectorXd turns = (path->back() - goal) / (2 * kPi);
    EXPECT_LT((turns - turns.array().round().matrix()).norm(), 1e-12);
    num_turned += turns.norm() > 0.5 ? 1 : 0;

    const Path shortened = ShortCircuitPath(*path, environment, 0.05, 20, 3);
    ExpectSound(*robot, world, shortened, start, 10.0);
    const Eigen::VectorXd moved = shortened.back() - goal;
    EXPECT_LT((moved / (2 * kPi) - (moved / (2 * kPi)).array().round().matrix()).norm(), 1e-12);
    EXPECT_LE(Length(shortened), Length(*path));
    num_unwound += (shortened.back() - path->back()).norm() > 1.0 ? 1 : 0;
  }
  // Some ways go right round a joint and need not.
  EXPECT_GT(num_unwound, 0);
  EXPECT_GT(num_turned, 0);
  EXPECT_LT(num_turned, 20);
}

TEST(PeriodicPlanning, TheOtherPlanners) {
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.0, 0.0, 0.0}));
  const std::shared_ptr<RobotDescription> robot = Arm(3, JointType::kContinuous, -1.0);
  RobotEnvironmentConfig config(robot.get(), world.view(), Vec({1, 1, 1}), 1000, 7, 8);
  config.SetTaskSpaceLimits({Vec({-1.5, -1.5, -0.1}), Vec({1.5, 1.5, 0.1})});
  const auto environment = CreateRobotEnvironment(config);
  const Eigen::VectorXd start = Vec({3.0, 0.2, 3.0});
  {
    auto tree = CreateBasicTree(3, environment->CSpaceDistanceMetric(), false);
    const auto rrt =
        CreateBasicRRT(BasicRRTConfig(Vec({0.4, 0.4, 0.4}), 0.4, 20000, false), environment, tree);
    const std::optional<Path> path = testing::Plan(*rrt, start, Vec({-3.0, -0.2, -3.0}));
    ASSERT_TRUE(path);
    ExpectSound(*robot, world, *path, start, 0.7);
    EXPECT_LT((path->back() - Vec({2 * kPi - 3.0, -0.2, 2 * kPi - 3.0})).norm(), 1e-12);
    // Ways that are longer than they need be leave more nodes behind.
    EXPECT_EQ(rrt->GetAllValidatedConfigurations().size(), 28u);
  }
  auto c_space_tree = CreateBasicTree(3, environment->CSpaceDistanceMetric(), true);
  auto task_space_tree = CreateBasicTree(3, L2Norm, true);
  // Most of the tree grows towards random configurations.
  const auto rrt = CreateJtRRT(JtRRTConfig(0.1, {0.1, 0.1, 0.1}, 1e-4, 0.1, 0.1, 10000, false, 5),
                               environment, c_space_tree, task_space_tree);
  const Eigen::VectorXd target = environment->TaskSpacePosition(Vec({-2.5, -0.5, -2.0}));
  const std::optional<Path> path = testing::Plan(*rrt, start, target);
  ASSERT_TRUE(path);
  ExpectSound(*robot, world, *path, start, 0.1 + 1e-9);
  EXPECT_LT((environment->TaskSpacePosition(path->back()) - target).norm(), 1e-4);
  double largest = 0.0;
  for (const auto& [parent, child] : rrt->GetAllValidatedEdges()) {
    largest = std::max(largest, child.cwiseAbs().maxCoeff());
    EXPECT_LE((child - parent).norm(), 0.1 + 1e-9);
  }
  EXPECT_GT(largest, kPi);
  EXPECT_EQ(rrt->GetAllValidatedConfigurations().size(), 136u);
}

}  // namespace
}  // namespace kavo::planning
