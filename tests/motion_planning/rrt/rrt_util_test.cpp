#include "kavo/motion_planning/rrt/rrt_util.h"

#include <gtest/gtest.h>

#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/distance_metrics.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::Vec;

TEST(RrtUtilTest, TreeDimensionMustBeThePlanners) {
  const auto tree = CreateBasicTree(6, L2Norm, false);
  ValidateTreeDimension(tree, 6);
  testing::ExpectFatal([&] { ValidateTreeDimension(tree, 7); }, "tree->CSpaceDimension() == rrt_dimension",
                       "motion_planning/rrt/rrt_util", 31,
                       "Tree dimension [6] does not match RRT dimenstion [7]");
}

TEST(RrtUtilTest, ExtractionAppends) {
  const auto tree = CreateBasicTree(1, L2Norm, false);
  const auto root = tree->ClearAndSetRoot(Node(Vec({1.0})));
  std::vector<std::pair<Eigen::VectorXd, Eigen::VectorXd>> edges;
  ExtractEdges(tree->Nodes(), edges);
  EXPECT_TRUE(edges.empty());
  tree->Insert(Node(Vec({2.0}), root));
  std::vector<Eigen::VectorXd> configurations;
  for (int i = 0; i < 2; ++i) {
    ExtractConfigurations(tree->Nodes(), configurations);
    ExtractEdges(tree->Nodes(), edges);
  }
  EXPECT_EQ(configurations, (std::vector<Eigen::VectorXd>{Vec({1.0}), Vec({2.0}), Vec({1.0}), Vec({2.0})}));
  ASSERT_EQ(edges.size(), 2u);
  EXPECT_EQ(edges[1], std::pair(Vec({1.0}), Vec({2.0})));
}

}  // namespace
}  // namespace kavo::planning
