#include "kavo/motion_planning/rrt/find_path.h"

#include <gtest/gtest.h>

#include "kavo/motion_planning/environment/robot_environment_config.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/exact_balls.h"
#include "tests/motion_planning/rrt/small_world.h"
#include "tests/support/log_capture.h"

namespace kavo::planning {
namespace {

TEST(FindPath, IsThePlannerAndTheShortCutsPutTogetherByHand) {
  const testing::LogCapture log;
  int num_found = 0;
  for (unsigned int seed = 0; seed < 100; ++seed) {
    const testing::SmallWorld world(seed, 2);
    const RRTConnectConfig config(world.step, 20, 0.5);
    const auto environment = world.MakeEnvironment();
    std::unique_ptr<Tree> trees[] = {CreateBasicTree(2, L2Norm, false), CreateBasicTree(2, L2Norm, false)};
    const auto rrt = CreateRRTConnect(config, environment, trees[0], trees[1]);
    testing::Path path = testing::Plan(*rrt, world.start, world.goal).value_or(testing::Path());

    FindPathOptions options;
    options.shorten = seed % 2 == 0;
    const FoundPath found = FindPath(world.MakeEnvironment(), config, world.start, world.goal, options);
    EXPECT_EQ(found.status, rrt->LastStatus());
    EXPECT_EQ(found.num_iterations, rrt->LastNumIterations());
    EXPECT_EQ(found.num_nodes, trees[0]->NumNodes() + trees[1]->NumNodes());
    EXPECT_EQ(found.num_raw_waypoints, path.size());
    if (options.shorten && path.size() > 2) {
      ++num_found;
      path = ShortCircuitPath(path, environment, world.step, 20, 1);
      // A stop where the search asks last, and one where the short cuts ask first.
      int num_asked = 0;
      options.shorten = false;
      options.stop_condition = [&] { return ++num_asked < 0; };
      FindPath(world.MakeEnvironment(), config, world.start, world.goal, options);
      for (const bool is_late : {false, true}) {
        options.shorten = true;
        int left = num_asked - (is_late ? 0 : 1);
        options.stop_condition = [&] { return left-- <= 0; };
        const FoundPath stopped = FindPath(world.MakeEnvironment(), config, world.start, world.goal, options);
        EXPECT_EQ(stopped.status, is_late ? SearchStatus::kFound : SearchStatus::kStopped);
        EXPECT_EQ(stopped.was_shortening_stopped, is_late);
      }
    }
    EXPECT_EQ(found.path, path);
  }
  EXPECT_GT(num_found, 20);
}

TEST(FindPath, PlansByMotionsInAnyEnvironment) {
  const auto balls = testing::UnitBox(2);
  balls->balls.emplace_back(testing::Vec({0.5, 0.4}), 0.3);
  const Eigen::VectorXd start = testing::Vec({0.0, 0.4});
  const Eigen::VectorXd goal = testing::Vec({1.0, 0.4});
  FindPathOptions options;
  for (const bool shorten : {false, true}) {
    options.shorten = shorten;
    const auto planner = CreateBiRRT({}, balls);
    testing::Path path = planner->TryToConnect({start}, {goal})->path;
    const FoundPath found = FindPath(balls, BiRRTConfig(), start, goal, options);
    EXPECT_EQ(found.num_raw_waypoints, path.size());
    EXPECT_EQ(found.num_iterations, planner->LastNumIterations());
    EXPECT_EQ(found.num_nodes, planner->NumNodes()[0] + planner->NumNodes()[1]);
    EXPECT_EQ(found.path, shorten ? ShortenByMotions(path, *balls).path : path);
  }
  options.stop_condition = [] { return true; };
  EXPECT_EQ(FindPath(balls, BiRRTConfig(), start, goal, options).status, SearchStatus::kStopped);
}

TEST(FindPath, PlansByOneTreeAndToPositions) {
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
  auto robot = BuildThreeLinkRobotEnvironmentConfig(world.view(), {1.0, 1.0, 1.0}, 100, 1);
  robot.SetTaskSpaceLimits({Eigen::Vector3d(-2.0, -2.0, 0.0), Eigen::Vector3d(2.0, 2.0, 0.0)});
  const Eigen::VectorXd start = testing::Vec({-0.4, 0.1, 0.2});
  const Eigen::VectorXd goal = testing::Vec({-1.0, -0.5, 0.4});
  const Eigen::Vector3d target(1.0, 1.2, 0.0);
  FindPathOptions raw;
  raw.shorten = false;

  const BasicRRTConfig basic(Eigen::VectorXd::Constant(3, 0.3), 0.1, 10000, false);
  std::unique_ptr<Tree> tree =
      CreateBasicTree(3, CreateRobotEnvironment(robot)->CSpaceDistanceMetric(), false);
  const auto by_hand = CreateBasicRRT(basic, CreateRobotEnvironment(robot), tree);
  const testing::Path path = testing::Plan(*by_hand, start, goal).value();
  const FoundPath found = FindPath(CreateRobotEnvironment(robot), basic, start, goal, raw);
  EXPECT_EQ(found.path, path);
  EXPECT_EQ(found.num_nodes, tree->NumNodes());
  EXPECT_LT(FindPath(CreateRobotEnvironment(robot), basic, start, goal).path.size(), path.size());

  const JtRRTConfig jt({0.1, {0.03, 0.03, 0.03}, 1e-5, 0.4, 0.1, 10000, false, 1});
  const std::shared_ptr<RobotEnvironment> environment = CreateRobotEnvironment(robot);
  std::unique_ptr<Tree> trees[] = {CreateBasicTree(3, environment->CSpaceDistanceMetric(), true),
                                   CreateBasicTree(3, L2Norm, true)};
  const auto jt_by_hand = CreateJtRRT(jt, environment, trees[0], trees[1]);
  const testing::Path to_position = testing::Plan(*jt_by_hand, start, target).value();
  const FoundPath found_position = FindPath(CreateRobotEnvironment(robot), jt, start, target, raw);
  EXPECT_EQ(found_position.path, to_position);
  EXPECT_EQ(found_position.num_nodes, trees[0]->NumNodes() + trees[1]->NumNodes());
  // A start that is there already.
  EXPECT_TRUE(FindPath(environment, jt, start, environment->TaskSpacePosition(start)));
}

}  // namespace
}  // namespace kavo::planning
