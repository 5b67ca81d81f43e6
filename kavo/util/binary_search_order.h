#pragma once

#include <cstddef>
#include <vector>

#include "kavo/util/export.h"

namespace kavo::util {

//! The integers 1 to n, each once, in bisection order: the middle of the range first, then the middles of its
//! two halves (lower half first), and so on. A segment that is checked in this order meets an obstacle early.
//!
//! Numbers are worked out as they are asked for. Memory is kept from one range to the next.
class KAVO_EXPORT BinarySearchOrder {
 public:
  //! Begins with the range 1 to `n`, which is empty for n < 1.
  void start(int n);

  //! The next number; 0 at the end.
  int next();

 private:
  struct Interval {
    int first;
    int last;
  };

  // Breadth first: the list is its own queue, and each interval gives its middle to the order.
  std::vector<Interval> intervals_;
  std::size_t num_done_ = 0;
};

//! The whole order. Empty for n < 1.
KAVO_EXPORT std::vector<int> GetBinarySearchOrder(int n);

}  // namespace kavo::util
