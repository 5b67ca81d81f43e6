#include "kavo/motion_planning/tree/fast_tree.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kavo/motion_planning/tree/basic_tree.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::kInf;
using testing::kNaN;
using testing::LogCapture;
using testing::RandomVec;
using testing::Vec;

std::unique_ptr<Tree> MakeFast(int dimension) {
  const auto centroid = SelectionMetric::kMinimumCentroidDistance;
  return CreateFastTree(FastTreeConfig({dimension, 2, 5, 2, 3, EntrySplitterType::kStar, centroid,
                                        SelectionMetric::kApproxMinimumOverlapIncrease, centroid, centroid}));
}

std::unique_ptr<Tree> MakeBasic(int dimension) {
  return CreateBasicTree(static_cast<unsigned long>(dimension), L2Norm, false);
}

TEST(FastTreeTest, AgreesWithTheScan) {
  std::mt19937 engine(1);
  for (const int dimension : {1, 2, 7, 14}) {
    const auto fast = MakeFast(dimension);
    const auto basic = MakeBasic(dimension);
    EXPECT_EQ(fast->CSpaceDimension(), dimension);
    EXPECT_FALSE(fast->SupportsNodeId());
    EXPECT_EQ(fast->DistanceGeometry(), basic->DistanceGeometry());
    for (int i = 0; i < 400; ++i) {
      const Node node(RandomVec(engine, dimension, -1.0, 1.0));
      const auto inserted = fast->Insert(node);
      ASSERT_EQ(inserted, fast->Nodes().back());
      basic->Insert(node);
      const Eigen::VectorXd q = RandomVec(engine, dimension, -1.0, 1.0);
      const ClosestNode closest = fast->GetClosest(q);
      const ClosestNode expected = basic->GetClosest(q);
      ASSERT_EQ(closest.distance, expected.distance);
      ASSERT_EQ(closest.node->Configuration(), expected.node->Configuration());
      const ClosestNode near = fast->GetApproxClosest(q);
      ASSERT_EQ(near.distance, fast->Distance(near.node->Configuration(), q));
      ASSERT_GE(near.distance, expected.distance);
      ASSERT_EQ(fast->GetClosest(node.Configuration()).node, fast->Nodes().back());
    }
    EXPECT_EQ(fast->NumNodes(), 400u);
  }
}

TEST(FastTreeTest, RootsAndChains) {
  const auto tree = MakeFast(2);
  for (int i = 0; i < 2; ++i) {
    const auto root = tree->ClearAndSetRoot(Node(Vec({3.0, 4.0})));
    EXPECT_EQ(tree->NumNodes(), 1u);
    EXPECT_EQ(tree->GetClosest(Vec({0.0, 0.0})).node, root);
    EXPECT_EQ(tree->GetApproxClosest(Vec({0.0, 0.0})).distance, 5.0);
    const auto child = tree->Insert(Node(Vec({1.0, 0.0}), root));
    const auto grandchild = tree->Insert(Node(Vec({2.0, 0.0}), child));
    EXPECT_EQ(tree->Backtrace(grandchild), (std::vector<std::shared_ptr<Node>>{grandchild, child, root}));
    EXPECT_EQ(tree->Backtrace(root).size(), 1u);
    EXPECT_EQ(tree->Backtrace(std::make_shared<Node>(Vec({1.0, 0.0}), nullptr)).size(), 1u);
  }
  // The new root may be one of the nodes that are dropped.
  EXPECT_EQ(tree->ClearAndSetRoot(*tree->Nodes().front())->Configuration(), Vec({3.0, 4.0}));
  const Node child(Vec({0.0, 0.0}), tree->Nodes().front());
  testing::ExpectFatal([&] { tree->ClearAndSetRoot(child); }, "!node.Parent().has_value()",
                       "motion_planning/tree/fast_tree", 30, "");
  EXPECT_EQ(tree->NumNodes(), 0u);
  EXPECT_THROW(tree->GetClosest(Vec({0.0, 0.0})), util::FatalError);
  EXPECT_THROW(tree->GetApproxClosest(Vec({0.0, 0.0})), util::FatalError);
}

TEST(FastTreeTest, WrongLengthsAreReportedAndNeverNear) {
  const auto tree = MakeFast(2);
  tree->ClearAndSetRoot(Node(Vec({0.0, 0.0})));
  const LogCapture log;
  tree->Insert(Node(Vec({1.0, 2.0, 3.0})));
  EXPECT_TRUE(std::isnan(tree->GetClosest(Vec({1.0})).distance));
  EXPECT_TRUE(std::isnan(tree->GetApproxClosest(Eigen::VectorXd::Zero(5)).distance));
  const std::string end = "] does not match tree dimension [2].";
  EXPECT_EQ(log.messages(LogLevel::kCritical),
            (std::vector<std::string>{"Input dimension [3" + end, "Input dimension [1" + end,
                                      "Input dimension [5" + end}));
  EXPECT_EQ(tree->GetClosest(Vec({1.0, 2.0})).node, tree->Nodes()[0]);
  EXPECT_EQ(tree->NumNodes(), 2u);
}

TEST(FastTreeTest, NumbersThatAreNoneAreNeverNear) {
  const auto tree = MakeFast(2);
  for (const double bad : {kNaN, kInf, -kInf}) {
    tree->Insert(Node(Vec({bad, 0.0})));
  }
  EXPECT_EQ(tree->GetClosest(Vec({0.0, 0.0})).node, tree->Nodes()[0]);
  // Squares and volumes overflow.
  std::mt19937 engine(3);
  for (int i = 0; i < 60; ++i) {
    tree->Insert(Node(RandomVec(engine, 2, -1e300, 1e300)));
  }
  EXPECT_EQ(tree->GetClosest(Vec({0.0, 0.0})).distance, kInf);
  tree->Insert(Node(Vec({1.0, 0.0})));
  EXPECT_EQ(tree->GetClosest(Vec({0.0, 0.0})).distance, 1.0);
  EXPECT_EQ(tree->GetClosest(Vec({kNaN, 0.0})).node, tree->Nodes()[0]);
}

}  // namespace
}  // namespace kavo::planning
