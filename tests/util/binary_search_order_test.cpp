#include "kavo/util/binary_search_order.h"

#include <gmock/gmock.h>

namespace kavo::util {
namespace {

TEST(BinarySearchOrder, IsBreadthFirstWithTheLowerHalfFirst) {
  const std::vector<std::vector<int>> orders = {
      {}, {1}, {1, 2}, {2, 1, 3}, {4, 2, 6, 1, 3, 5, 7}, {5, 2, 8, 1, 3, 6, 9, 4, 7, 10}};
  for (const std::vector<int>& order : orders) {
    EXPECT_EQ(GetBinarySearchOrder(static_cast<int>(order.size())), order);
  }
  EXPECT_THAT(GetBinarySearchOrder(-7), ::testing::IsEmpty());
}

}  // namespace
}  // namespace kavo::util
