// What holds after memory ran out, at every single allocation.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "kavo/kinematics/interface/kinematics.h"
#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/interface/robot_variants.h"
#include "kavo/motion_planning/interface/attached_object.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/fast_tree.h"
#include "kavo/world/world.h"
#include "tests/support/allocations.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::NumBlocks;
using testing::RandomVec;
using testing::Survives;
using testing::Vec;

// Expects that two trees hold the same, and find the same by the same way.
void ExpectSame(const Tree& tree, const Tree& other, const Eigen::VectorXd& q) {
  ASSERT_EQ(tree.NumNodes(), other.NumNodes());
  ASSERT_EQ(tree.Nodes().back()->Configuration(), other.Nodes().back()->Configuration());
  ASSERT_EQ(tree.GetClosest(q).node->Configuration(), other.GetClosest(q).node->Configuration());
  ASSERT_EQ(tree.GetApproxClosest(q).node->Configuration(), other.GetApproxClosest(q).node->Configuration());
}

TEST(FailedAllocationTest, InsertsWhollyOrNotAtAll) {
  if (!testing::FailsAllocations()) {
    GTEST_SKIP() << "no allocation can be made to fail in this build";
  }
  const auto make_fast = [](EntrySplitterType splitter) {
    const auto overlap = SelectionMetric::kApproxMinimumOverlapIncrease;
    return CreateFastTree(FastTreeConfig({2, 2, 4, 1, 3, splitter, overlap, overlap, overlap, overlap}));
  };
  using MakeTree = std::function<std::unique_ptr<Tree>()>;
  const MakeTree kinds[] = {[] { return CreateBasicTree(2, SquaredL2Norm, true); },
                            [&] { return make_fast(EntrySplitterType::kBasic); },
                            [&] { return make_fast(EntrySplitterType::kStar); }};
  for (const MakeTree& make : kinds) {
    const auto tree = make();
    const auto untroubled = make();
    std::mt19937 engine(3);
    long num_failures = 0;
    // Past two chunks of the scan and many splits of the index.
    for (unsigned int id = 0; id < 600; ++id) {
      Node node(RandomVec(engine, 2, -1.0, 1.0));
      node.SetId(id);
      const Eigen::VectorXd q = RandomVec(engine, 2, -1.0, 1.0);
      // Building an index of hundreds of nodes anew takes long.
      const bool is_troubled = id < 60 || id % 50 == 0 || (id % 256 < 2 && tree->SupportsNodeId());
      for (long n = 0; is_troubled && !Survives(n, [&] { tree->Insert(node); }); ++n) {
        ++num_failures;
        if (id > 0) {
          ExpectSame(*tree, *untroubled, q);
        }
        // Out of memory again, while the nodes that are left are looked through.
        if (id > 0) {
          Survives(n, [&] { tree->GetClosest(q); });
          ASSERT_EQ(tree->NumNodes(), id);
        }
      }
      if (!is_troubled) {
        tree->Insert(node);
      }
      untroubled->Insert(node);
      ExpectSame(*tree, *untroubled, q);
    }
    // Eigen does not go through `new`.
    EXPECT_GT(num_failures, testing::CountsAllocations() ? 100 : 50);
    EXPECT_EQ(tree->SupportsNodeId() ? (*tree->TryGetNode(257))->TryGetId() : 257u, 257u);
    for (long n = 0; !Survives(n, [&] { tree->ClearAndSetRoot(Node(*untroubled->Nodes()[7])); }); ++n) {
      ASSERT_TRUE(tree->NumNodes() == 600 || tree->NumNodes() == 0) << n;
    }
    EXPECT_EQ(tree->GetClosest(Vec({1.0, 1.0})).node, tree->Nodes()[0]);
  }
}

struct Query {
  const char* name;
  std::shared_ptr<RobotDescription> robot;
  std::function<std::vector<Eigen::VectorXd>(MotionPlanner&)> path;
};

std::vector<Query> Queries() {
  const std::shared_ptr<RobotDescription> arm = LoadThreeLinkArmRobotDescription();
  const std::shared_ptr<RobotDescription> franka = LoadFrankaRobotDescription();
  const Eigen::VectorXd start = Vec({-0.4, 0.1, 0.2});
  const Eigen::VectorXd goal = Vec({1.7, -0.2, -0.3});
  const Eigen::VectorXd ready = franka->defaultCSpaceConfiguration();
  const auto kinematics = franka->kinematics();
  Pose3 place = kinematics->pose(ready, kinematics->frame("tool"));
  PoseGoal near_by;
  near_by.frame = "tool";
  near_by.pose = Pose3(place.rotation(), place.translation() + Eigen::Vector3d(0.0, 0.05, 0.0));
  return {
      {"to a configuration", arm,
       [=](MotionPlanner& planner) {
         // Steps so small that the trees leave the first chunk of their scans.
         planner.setParam("step_size", 0.02);
         return planner.planToCSpaceTarget(start, goal, true).path;
       }},
      {"to a position", arm,
       [=](MotionPlanner& planner) {
         planner.setParam("step_size", 0.02);
         return planner.planToTaskSpaceTarget(start, Eigen::Vector3d(0.6, 0.9, 0.0), true).path;
       }},
      {"by motions", arm,
       [=](MotionPlanner& planner) {
         planner.setParam("planner", "bi_rrt");
         return planner.planToCSpaceTarget(start, goal, true).path;
       }},
      {"stages to a pose and along a line", franka,
       [=](MotionPlanner& planner) {
         return planner.planStages(ready, {{{near_by}}, {{Goal(ready)}}, {{near_by}, LineOptions()}}).path;
       }},
  };
}

// A query runs out of memory at one of its allocations, and the next one on the same planner answers.
TEST(FailedAllocationTest, LeavesAPlannerUsable) {
  if (!testing::FailsAllocations()) {
    GTEST_SKIP() << "no allocation can be made to fail in this build";
  }
  const testing::LogCapture quiet(-1);
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}));
  const WorldView view = world.view();
  for (const Query& query : Queries()) {
    SCOPED_TRACE(query.name);
    const auto untroubled = CreateMotionPlanner(query.robot, view);
    const std::vector<Eigen::VectorXd> expected = query.path(*untroubled);
    ASSERT_FALSE(expected.empty());
    const long num_blocks = NumBlocks();
    long num_failures = 0;
    // Each of the first, then ever fewer.
    for (bool failed = true; failed; num_failures += 1 + num_failures / 40) {
      // A new planner: once trees have grown, they keep their memory.
      const auto planner = CreateMotionPlanner(query.robot, view);
      failed = !Survives(num_failures, [&] { query.path(*planner); });
      ASSERT_EQ(planner->queryReport().status, failed ? SearchStatus::kNone : SearchStatus::kFound);
      ASSERT_FALSE(query.path(*planner).empty()) << num_failures;
      // A rebuilt planner is as good as new.
      planner->setParam("seed", 1234);
      ASSERT_EQ(query.path(*planner), expected) << num_failures;
    }
    EXPECT_GT(num_failures, 500);
    EXPECT_EQ(NumBlocks(), num_blocks);
  }
}

// An object that the robot takes up and puts down is held or lies there, whole, whatever fails.
TEST(FailedAllocationTest, LosesNoObject) {
  if (!testing::FailsAllocations()) {
    GTEST_SKIP() << "no allocation can be made to fail in this build";
  }
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  const Eigen::VectorXd start = Vec({-0.4, 0.1, 0.2});
  const Eigen::VectorXd goal = Vec({1.2, -0.2, -0.3});
  const Pose3 place = Pose3::FromTranslation({2.2, -0.4, 0.0});
  {
    // What is made on first use stays.
    World world;
    world.add(SphereObstacle{0.05}, place, "bar");
    const auto planner = CreateMotionPlanner(robot, world.view());
    planner->setParam("planner", "bi_rrt");
    AttachFromWorld(*planner, world, "bar", "tool", start);
    planner->planToCSpaceTarget(start, goal, false);
  }
  const long num_blocks = NumBlocks();
  for (const bool is_put_down : {false, true}) {
    long num_failures = 0;
    for (bool failed = true; failed; ++num_failures) {
      World world;
      for (int i = 0; i < 3; ++i) {
        world.add(SphereObstacle{0.05}, place * Pose3::FromTranslation({0.1 * i, 0.0, 0.0}), "bar");
      }
      const auto planner = CreateMotionPlanner(robot, world.view());
      planner->setParam("planner", "bi_rrt");
      if (is_put_down) {
        AttachFromWorld(*planner, world, "bar", "tool", start);
      }
      const auto num_held = [&] { return AttachedBodies(*planner->robot()).size(); };
      const std::size_t num_before = num_held();
      failed = !Survives(num_failures, [&] {
        if (is_put_down) {
          DetachIntoWorld(*planner, world, "bar", start);
        } else {
          AttachFromWorld(*planner, world, "bar", "tool", start);
        }
      });
      ASSERT_TRUE(failed || num_held() != num_before);
      WorldView view = world.view();
      ASSERT_EQ(world.numObstacles(), num_held() == 1 ? 0u : 3u) << num_failures;
      ASSERT_EQ(view.inCollision(place.translation(), 0.01), num_held() == 0) << num_failures;
      planner->updateWorldView();
      ASSERT_TRUE(planner->planToCSpaceTarget(start, goal, false).path_found);
    }
    EXPECT_GT(num_failures, 20);
  }
  EXPECT_EQ(NumBlocks(), num_blocks);
}

}  // namespace
}  // namespace kavo::planning
