#include "kavo/motion_planning/tree/node.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::Vec;

TEST(NodeTest, HasNoParentAndNoIdUntilGiven) {
  Node node(Vec({1.0, 2.0}));
  EXPECT_EQ(node.Dimension(), 2);
  EXPECT_FALSE(node.Parent().has_value());
  EXPECT_FALSE(node.TryGetId().has_value());
  node.SetId(7);
  node.SetId(9);
  EXPECT_EQ(node.TryGetId(), 9u);
}

TEST(NodeTest, NullParentCountsAsSet) {
  const Node node(Vec({1.0}), nullptr);
  ASSERT_TRUE(node.Parent().has_value());
  EXPECT_EQ(*node.Parent(), nullptr);
}

TEST(NodeTest, CopySharesTheParent) {
  const auto root = std::make_shared<Node>(Vec({0.0}));
  Node child(Vec({1.0}), root);
  child.SetId(3);
  const Node copy = child;
  EXPECT_EQ(*copy.Parent(), root);
  EXPECT_EQ(copy.TryGetId(), 3u);
  EXPECT_EQ(copy.Configuration(), child.Configuration());
  EXPECT_EQ(root.use_count(), 3);
}

TEST(NodeTest, ParentOutlivesItsOtherOwners) {
  auto root = std::make_shared<Node>(Vec({5.0}));
  const Node child(Vec({1.0}), root);
  root.reset();
  EXPECT_EQ((*child.Parent())->Configuration(), Vec({5.0}));
}

TEST(NodeTest, LongChainIsDestroyedInConstantStack) {
  const auto root = std::make_shared<Node>(Vec({0.0}));
  auto tip = root;
  std::shared_ptr<Node> held;
  for (int i = 0; i < 1'000'000; ++i) {
    tip = std::make_shared<Node>(Vec({1.0}), tip);
    if (i == 500'000) {
      held = tip;
    }
  }
  // A chain is released up to where somebody else holds it, and by assignment as well as by destruction.
  *tip = Node(Vec({2.0}));
  EXPECT_EQ(held.use_count(), 1);
  EXPECT_EQ(root.use_count(), 2);
  held.reset();
  EXPECT_EQ(root.use_count(), 1);
}

}  // namespace
}  // namespace kavo::planning
