#include "kavo/util/sort.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace kavo::util {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr auto kSelf = [](double item) { return item; };

std::vector<std::size_t> Indices(const std::vector<IndexedValue>& values) {
  std::vector<std::size_t> indices;
  for (const IndexedValue& value : values) {
    indices.push_back(value.index);
  }
  return indices;
}

// Few different keys, so that there are many ties, and some NaN.
std::vector<double> RandomKeys(std::mt19937& engine, std::size_t size, bool with_nan) {
  std::vector<double> keys(size);
  for (double& key : keys) {
    const auto draw = engine() % 12;
    key = with_nan && draw == 0 ? kNaN : static_cast<double>(draw) / 4.0;
  }
  return keys;
}

// Whether `b` may not stand before `a`: NaN comes last whatever the direction.
bool InOrder(double a, double b, bool descending) {
  if (std::isnan(a) || std::isnan(b)) {
    return std::isnan(b);
  }
  return descending ? a >= b : a <= b;
}

TEST(Sort, GivesKeysWithTheirIndicesInOrder) {
  const std::vector<std::string> items = {"three", "a", "four", "by"};
  const auto length = [](const std::string& item) { return static_cast<double>(item.size()); };
  const std::vector<IndexedValue> ascending = Sort(items, length);
  EXPECT_THAT(Indices(ascending), ElementsAre(1, 3, 2, 0));
  EXPECT_EQ(ascending[3].value, 5.0);
  EXPECT_THAT(Indices(Sort(items, length, std::greater<>())), ElementsAre(0, 2, 3, 1));
  EXPECT_THAT(Sort(std::vector<double>{}, kSelf), IsEmpty());
}

TEST(Sort, NaNKeysComeLastInBothDirections) {
  const std::vector<double> items = {kNaN, 2.0, kInfinity, kNaN, -kInfinity};
  EXPECT_THAT(Indices(Sort(items, kSelf)), ElementsAre(4, 1, 2, 0, 3));
  EXPECT_THAT(Indices(Sort(items, kSelf, std::greater<>())), ElementsAre(2, 1, 4, 0, 3));
}

TEST(Sort, AgreesWithInsertionOneByOne) {
  std::mt19937 engine(1);
  for (int round = 0; round < 200; ++round) {
    const std::vector<double> keys = RandomKeys(engine, engine() % 60, round % 2 == 0);
    for (const bool descending : {false, true}) {
      std::vector<std::size_t> expected;
      for (std::size_t i = 0; i < keys.size(); ++i) {
        std::size_t place = 0;
        while (place < expected.size() && InOrder(keys[expected[place]], keys[i], descending)) {
          ++place;
        }
        expected.insert(expected.begin() + static_cast<std::ptrdiff_t>(place), i);
      }
      const auto sorted = descending ? Sort(keys, kSelf, std::greater<>()) : Sort(keys, kSelf);
      ASSERT_EQ(Indices(sorted), expected) << "round " << round << ", descending " << descending;
    }
  }
}

TEST(Bifurcate, PutsTheFirstKeysBeforeAllOthers) {
  std::mt19937 engine(2);
  for (int round = 0; round < 300; ++round) {
    const std::vector<double> keys = RandomKeys(engine, engine() % 40, round % 2 == 0);
    for (const bool descending : {false, true}) {
      const std::size_t count = engine() % (keys.size() + 3);
      const auto parts =
          descending ? Bifurcate(keys, kSelf, count, std::greater<>()) : Bifurcate(keys, kSelf, count);
      ASSERT_EQ(parts.size(), keys.size());
      std::vector<bool> seen(keys.size());
      for (const IndexedValue& part : parts) {
        ASSERT_FALSE(seen.at(part.index));
        seen[part.index] = true;
        ASSERT_TRUE(part.value == keys[part.index] ||
                    (std::isnan(part.value) && std::isnan(keys[part.index])));
      }
      for (std::size_t i = 0; i < std::min(count, parts.size()); ++i) {
        for (std::size_t k = count; k < parts.size(); ++k) {
          ASSERT_TRUE(InOrder(parts[i].value, parts[k].value, descending))
              << parts[i].value << " before " << parts[k].value << ", descending " << descending;
        }
      }
    }
  }
}

}  // namespace
}  // namespace kavo::util
