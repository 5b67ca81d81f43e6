#include "kavo/util/sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <random>

namespace kavo::util {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr auto kHalf = [](double item) { return 0.5 * item; };

// Few different keys, so that there are many ties, with infinities and NaN.
std::vector<double> RandomItems(std::mt19937& engine) {
  std::vector<double> items(engine() % 60);
  for (double& item : items) {
    const double special[] = {std::nan(""), kInfinity, -kInfinity};
    const auto draw = engine() % 15;
    item = draw < 3 ? special[draw] : static_cast<double>(draw) / 4.0;
  }
  return items;
}

// Whether `b` may not stand before `a`: NaN comes last whatever the direction.
bool InOrder(double a, double b, bool descending) {
  if (std::isnan(a) || std::isnan(b)) {
    return std::isnan(b);
  }
  return descending ? a >= b : a <= b;
}

TEST(Sort, AgreesWithInsertionOneByOne) {
  std::mt19937 engine(1);
  for (int round = 0; round < 400; ++round) {
    const bool descending = round % 2 == 0;
    const std::vector<double> items = RandomItems(engine);
    std::vector<std::size_t> expected;
    for (std::size_t i = 0; i < items.size(); ++i) {
      auto place = expected.begin();
      while (place != expected.end() && InOrder(items[*place], items[i], descending)) {
        ++place;
      }
      expected.insert(place, i);
    }
    const auto sorted = descending ? Sort(items, kHalf, std::greater<>()) : Sort(items, kHalf);
    ASSERT_EQ(sorted.size(), items.size());
    // Divided anywhere, the same keys stand on either side.
    const auto count = static_cast<std::ptrdiff_t>(engine() % (items.size() + 1));
    const auto parts = descending ? Bifurcate(items, kHalf, static_cast<std::size_t>(count), std::greater<>())
                                  : Bifurcate(items, kHalf, static_cast<std::size_t>(count));
    const auto same = [](const IndexedValue& a, const IndexedValue& b) { return a.index == b.index; };
    ASSERT_TRUE(std::is_permutation(parts.begin(), parts.begin() + count, sorted.begin(), same));
    ASSERT_TRUE(std::is_permutation(parts.begin() + count, parts.end(), sorted.begin() + count, same));
    for (std::size_t i = 0; i < items.size(); ++i) {
      ASSERT_EQ(sorted[i].index, expected[i]) << "round " << round;
      const double key = 0.5 * items[expected[i]];
      ASSERT_TRUE(sorted[i].value == key || (std::isnan(sorted[i].value) && std::isnan(key)));
    }
  }
}

}  // namespace
}  // namespace kavo::util
