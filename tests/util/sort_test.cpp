#include "kavo/util/sort.h"

#include <gtest/gtest.h>

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
    for (std::size_t i = 0; i < items.size(); ++i) {
      ASSERT_EQ(sorted[i].index, expected[i]) << "round " << round;
      const double key = 0.5 * items[expected[i]];
      ASSERT_TRUE(sorted[i].value == key || (std::isnan(sorted[i].value) && std::isnan(key)));
    }
  }
}

TEST(Bifurcate, PutsTheFirstKeysBeforeAllOthers) {
  std::mt19937 engine(2);
  for (int round = 0; round < 600; ++round) {
    const bool descending = round % 2 == 0;
    const std::vector<double> items = RandomItems(engine);
    const std::size_t count = engine() % (items.size() + 3);
    const auto parts =
        descending ? Bifurcate(items, kHalf, count, std::greater<>()) : Bifurcate(items, kHalf, count);
    ASSERT_EQ(parts.size(), items.size());
    std::vector<bool> seen(items.size());
    for (std::size_t i = 0; i < parts.size(); ++i) {
      ASSERT_FALSE(seen.at(parts[i].index));
      seen[parts[i].index] = true;
      const double key = 0.5 * items[parts[i].index];
      ASSERT_TRUE(parts[i].value == key || (std::isnan(parts[i].value) && std::isnan(key)));
      for (std::size_t k = count; i < count && k < parts.size(); ++k) {
        ASSERT_TRUE(InOrder(parts[i].value, parts[k].value, descending)) << "round " << round;
      }
    }
  }
}

}  // namespace
}  // namespace kavo::util
