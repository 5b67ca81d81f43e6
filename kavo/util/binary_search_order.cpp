#include "kavo/util/binary_search_order.h"

namespace kavo::util {

void BinarySearchOrder::start(int n) {
  intervals_.clear();
  num_done_ = 0;
  if (n >= 1) {
    intervals_.push_back({1, n});
  }
}

int BinarySearchOrder::next() {
  if (num_done_ == intervals_.size()) {
    return 0;
  }
  const Interval interval = intervals_[num_done_++];
  const int middle = interval.first + (interval.last - interval.first) / 2;
  if (interval.first < middle) {
    intervals_.push_back({interval.first, middle - 1});
  }
  if (middle < interval.last) {
    intervals_.push_back({middle + 1, interval.last});
  }
  return middle;
}

std::vector<int> GetBinarySearchOrder(int n) {
  BinarySearchOrder numbers;
  numbers.start(n);
  std::vector<int> order;
  for (int k = numbers.next(); k != 0; k = numbers.next()) {
    order.push_back(k);
  }
  return order;
}

}  // namespace kavo::util
