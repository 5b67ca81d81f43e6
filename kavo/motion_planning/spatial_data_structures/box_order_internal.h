#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

namespace kavo::planning::internal {

//! What boxes are sorted by.
struct BoxKey {
  double key;
  //! Compared instead where keys are equal.
  double other;
  int index;
};

inline bool ComesBefore(const BoxKey& a, const BoxKey& b, double tolerance) {
  const bool equal = std::abs(b.key - a.key) <= tolerance;
  const double key_a = equal ? a.other : a.key;
  const double key_b = equal ? b.other : b.key;
  return key_a < key_b || (!(key_b < key_a) && a.index < b.index);
}

//! Ascending order. With a positive tolerance (and with NaN) the relation is not transitive. A sort by
//! merging can live with that; one that partitions may run out of its range.
inline void SortBoxKeys(std::vector<BoxKey>& keys, double tolerance) {
  std::stable_sort(keys.begin(), keys.end(),
                   [tolerance](const BoxKey& a, const BoxKey& b) { return ComesBefore(a, b, tolerance); });
}

}  // namespace kavo::planning::internal
