#pragma once

#include <vector>

#include "kavo/util/export.h"

namespace kavo::util {

//! The integers 1 to n, each once, in bisection order: the middle of the range first, then the middles of its
//! two halves (lower half first), and so on. A segment that is checked in this order meets an obstacle early.
//! Empty for n < 1.
KAVO_EXPORT std::vector<int> GetBinarySearchOrder(int n);

}  // namespace kavo::util
