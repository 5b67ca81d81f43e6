#include "kavo/motion_planning/tree/node.h"

#include <gtest/gtest.h>

#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::Vec;

TEST(NodeTest, CopySharesTheParentAndKeepsItAlive) {
  auto root = std::make_shared<Node>(Vec({5.0}));
  EXPECT_FALSE(root->Parent().has_value());
  EXPECT_FALSE(root->TryGetId().has_value());
  // A null parent counts as set.
  EXPECT_EQ(Node(Vec({1.0}), nullptr).Parent(), std::optional<std::shared_ptr<Node>>(nullptr));
  Node child(Vec({1.0}), root);
  child.SetId(7);
  child.SetId(3);
  const Node copy = child;
  EXPECT_EQ(copy.TryGetId(), 3u);
  EXPECT_EQ(copy.Configuration(), child.Configuration());
  EXPECT_EQ(root.use_count(), 3);
  root.reset();
  EXPECT_EQ((*copy.Parent())->Configuration(), Vec({5.0}));
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
