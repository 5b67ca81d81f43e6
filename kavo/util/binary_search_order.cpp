#include "kavo/util/binary_search_order.h"

#include <cstddef>

namespace kavo::util {

std::vector<int> GetBinarySearchOrder(int n) {
  if (n < 1) {
    return {};
  }
  struct Interval {
    int first;
    int last;
    int Middle() const { return first + (last - first) / 2; }
  };
  // Breadth first: the list of intervals is its own queue, and each interval gives its middle to the order.
  std::vector<Interval> intervals;
  intervals.reserve(static_cast<std::size_t>(n));
  intervals.push_back({1, n});
  std::vector<int> order;
  order.reserve(static_cast<std::size_t>(n));
  for (std::size_t i = 0; i < intervals.size(); ++i) {
    const Interval interval = intervals[i];
    const int middle = interval.Middle();
    order.push_back(middle);
    if (interval.first < middle) {
      intervals.push_back({interval.first, middle - 1});
    }
    if (middle < interval.last) {
      intervals.push_back({middle + 1, interval.last});
    }
  }
  return order;
}

}  // namespace kavo::util
