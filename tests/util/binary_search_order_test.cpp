#include "kavo/util/binary_search_order.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace kavo::util {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(BinarySearchOrder, IsBreadthFirstWithTheLowerHalfFirst) {
  EXPECT_THAT(GetBinarySearchOrder(0), IsEmpty());
  EXPECT_THAT(GetBinarySearchOrder(-7), IsEmpty());
  EXPECT_THAT(GetBinarySearchOrder(1), ElementsAre(1));
  EXPECT_THAT(GetBinarySearchOrder(2), ElementsAre(1, 2));
  EXPECT_THAT(GetBinarySearchOrder(7), ElementsAre(4, 2, 6, 1, 3, 5, 7));
  EXPECT_THAT(GetBinarySearchOrder(10), ElementsAre(5, 2, 8, 1, 3, 6, 9, 4, 7, 10));
}

TEST(BinarySearchOrder, HoldsEachIndexOnce) {
  std::vector<int> sizes(300);
  std::iota(sizes.begin(), sizes.end(), 1);
  sizes.insert(sizes.end(), {1023, 1024, 1025, 99991});
  for (const int n : sizes) {
    std::vector<int> order = GetBinarySearchOrder(n);
    std::vector<int> all(static_cast<std::size_t>(n));
    std::iota(all.begin(), all.end(), 1);
    std::sort(order.begin(), order.end());
    ASSERT_EQ(order, all) << "n = " << n;
  }
}

// After the first 2^k - 1 entries, no run of indices that were not yet visited is longer than n / 2^k: each
// level of the bisection halves what is left.
TEST(BinarySearchOrder, EachLevelHalvesTheLongestGap) {
  for (int n = 1; n <= 300; ++n) {
    const std::vector<int> order = GetBinarySearchOrder(n);
    for (int power = 1; power - 1 <= n; power *= 2) {
      std::vector<int> visited(order.begin(), order.begin() + (power - 1));
      std::sort(visited.begin(), visited.end());
      visited.push_back(n + 1);
      int longest_gap = 0;
      int last = 0;
      for (const int index : visited) {
        longest_gap = std::max(longest_gap, index - last - 1);
        last = index;
      }
      ASSERT_LE(longest_gap, n / power) << "n = " << n << ", after " << power - 1 << " entries";
    }
  }
}

}  // namespace
}  // namespace kavo::util
