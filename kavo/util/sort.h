#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <vector>

namespace kavo::util {

//! A sort key and the place that its item has in the list it came from.
struct IndexedValue {
  double value;       //!< The key.
  std::size_t index;  //!< The place, from 0.
};

namespace internal {

template <typename Items, typename Key>
std::vector<IndexedValue> MakeIndexedValues(const Items& items, const Key& key) {
  std::vector<IndexedValue> values;
  values.reserve(items.size());
  for (const auto& item : items) {
    values.push_back({key(item), values.size()});
  }
  return values;
}

// A total order: by key, NaN behind every number, then by index. So the result depends neither on the
// standard library nor on keys that compare like nothing else.
template <typename Compare>
auto TotalOrder(const Compare& compare) {
  return [compare](const IndexedValue& a, const IndexedValue& b) {
    const bool a_is_nan = std::isnan(a.value);
    const bool b_is_nan = std::isnan(b.value);
    if (a_is_nan != b_is_nan) {
      return b_is_nan;
    }
    if (!a_is_nan && compare(a.value, b.value)) {
      return true;
    }
    if (!a_is_nan && compare(b.value, a.value)) {
      return false;
    }
    return a.index < b.index;
  };
}

}  // namespace internal

//! The keys of `items` with their indices, sorted by key; the items stay where they are. Callers may not rely
//! on the order of equal keys.
//! \param key Gives an item's key, a double.
//! \param compare Order of keys: std::less<>() for ascending, std::greater<>() for descending.
template <typename Items, typename Key, typename Compare = std::less<>>
std::vector<IndexedValue> Sort(const Items& items, const Key& key, const Compare& compare = {}) {
  std::vector<IndexedValue> values = internal::MakeIndexedValues(items, key);
  std::sort(values.begin(), values.end(), internal::TotalOrder(compare));
  return values;
}

//! The keys of `items` with their indices, such that the `count` keys that come first in the order `compare`
//! stand before all others. The order within the two parts is open to callers. With `count` at or above the
//! number of items the first part holds them all.
template <typename Items, typename Key, typename Compare = std::less<>>
std::vector<IndexedValue> Bifurcate(const Items& items, const Key& key, std::size_t count,
                                    const Compare& compare = {}) {
  std::vector<IndexedValue> values = internal::MakeIndexedValues(items, key);
  if (count < values.size()) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(count), values.end(),
                     internal::TotalOrder(compare));
  }
  return values;
}

}  // namespace kavo::util
