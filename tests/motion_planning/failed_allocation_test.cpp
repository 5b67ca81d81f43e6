// What holds after memory ran out, at every single allocation.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/fast_tree.h"
#include "kavo/world/world.h"
#include "tests/support/allocations.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::FailAllocation;
using testing::RandomVec;
using testing::Vec;

// Whether the call got by without its allocation number `num_before`, counted from zero.
template <typename Call>
bool Survives(long num_before, const Call& call) {
  FailAllocation(num_before);
  bool survives = true;
  try {
    call();
  } catch (const std::bad_alloc&) {
    survives = false;
  }
  FailAllocation(-1);
  return survives;
}

// Expects that two trees hold the same, and find the same by the same way.
void ExpectSame(const Tree& tree, const Tree& other, const Eigen::VectorXd& q) {
  ASSERT_EQ(tree.NumNodes(), other.NumNodes());
  ASSERT_EQ(tree.Nodes().back()->Configuration(), other.Nodes().back()->Configuration());
  ASSERT_EQ(tree.GetClosest(q).node->Configuration(), other.GetClosest(q).node->Configuration());
  ASSERT_EQ(tree.GetApproxClosest(q).node->Configuration(), other.GetApproxClosest(q).node->Configuration());
}

TEST(FailedAllocationTest, InsertsWhollyOrNotAtAll) {
  if (!testing::CountsAllocations()) {
    GTEST_SKIP() << "A sanitizer stands in front of malloc.";
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
    EXPECT_GT(num_failures, 100);
    EXPECT_EQ(tree->SupportsNodeId() ? (*tree->TryGetNode(257))->TryGetId() : 257u, 257u);
    for (long n = 0; !Survives(n, [&] { tree->ClearAndSetRoot(Node(*untroubled->Nodes()[7])); }); ++n) {
      ASSERT_TRUE(tree->NumNodes() == 600 || tree->NumNodes() == 0) << n;
    }
    EXPECT_EQ(tree->GetClosest(Vec({1.0, 1.0})).node, tree->Nodes()[0]);
  }
}

// A query runs out of memory at one of its allocations, and the next one on the same planner answers.
TEST(FailedAllocationTest, LeavesAPlannerUsable) {
  if (!testing::CountsAllocations()) {
    GTEST_SKIP() << "A sanitizer stands in front of malloc.";
  }
  const testing::LogCapture quiet(-1);
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}));
  const WorldView view = world.view();
  const Eigen::VectorXd start = Vec({-0.4, 0.1, 0.2});
  const Eigen::VectorXd goal = Vec({1.7, -0.2, -0.3});
  const Eigen::Vector3d target(0.6, 0.9, 0.0);
  for (const bool to_position : {false, true}) {
    const auto plan = [&](MotionPlanner& planner) {
      return to_position ? planner.planToTaskSpaceTarget(start, target, true)
                         : planner.planToCSpaceTarget(start, goal, true);
    };
    // Steps so small that the trees leave the first chunk of their scans.
    constexpr double kStep = 0.02;
    std::vector<Eigen::VectorXd> expected;
    long num_failures = 0;
    // Each of the first, then ever fewer.
    for (bool failed = true; failed; num_failures += 1 + num_failures / 40) {
      // A new planner: once trees have grown, they keep their memory.
      const auto planner = CreateMotionPlanner(robot, view);
      planner->setParam("step_size", kStep);
      failed = !Survives(num_failures, [&] { plan(*planner); });
      ASSERT_EQ(planner->queryReport().status, failed ? SearchStatus::kNone : SearchStatus::kFound);
      const MotionPlanner::Results results = plan(*planner);
      ASSERT_TRUE(results.path_found) << num_failures;
      EXPECT_EQ(results.path.front(), start);
      // A rebuilt planner is as good as new.
      planner->setParam("step_size", kStep);
      const std::vector<Eigen::VectorXd> path = plan(*planner).path;
      expected = num_failures == 0 ? path : expected;
      ASSERT_EQ(path, expected) << num_failures;
    }
    EXPECT_GT(num_failures, 1000);
  }
}

}  // namespace
}  // namespace kavo::planning
