#include "kavo/util/binary_search_order.h"

#include <gmock/gmock.h>

#include <algorithm>

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

// After the first 2^k - 1 entries, no run of indices that were not yet visited is longer than n / 2^k: each
// level of the bisection halves what is left, and in the end each index was visited once.
TEST(BinarySearchOrder, EachLevelHalvesTheLongestGap) {
  for (int n = 1; n <= 300; ++n) {
    const std::vector<int> order = GetBinarySearchOrder(n);
    ASSERT_EQ(order.size(), static_cast<std::size_t>(n));
    for (int power = 1; power <= 2 * n; power *= 2) {
      std::vector<int> visited(order.begin(), order.begin() + std::min(power - 1, n));
      visited.insert(visited.end(), {0, n + 1});
      std::sort(visited.begin(), visited.end());
      for (std::size_t i = 1; i < visited.size(); ++i) {
        ASSERT_LE(visited[i] - visited[i - 1] - 1, n / power) << "n = " << n << ", after " << power - 1;
      }
    }
  }
}

}  // namespace
}  // namespace kavo::util
