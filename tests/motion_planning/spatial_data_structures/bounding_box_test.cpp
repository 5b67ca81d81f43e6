#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/motion_planning/spatial_data_structures/boxes.h"
#include "tests/support/fatal.h"

namespace kavo::planning {
namespace {

using testing::Box;
using testing::ExpectFatal;
using testing::Point;
using testing::Vec;

constexpr auto kMin = BoundingBoxBound::kMin;
constexpr auto kMax = BoundingBoxBound::kMax;
constexpr auto kUp = BoundingBoxOrder::kAscending;
constexpr auto kDown = BoundingBoxOrder::kDescending;

TEST(BoundingBoxTest, MeasuresOfOneBox) {
  const BoundingBox box = Box({0.0, -1.0, 2.0}, {1.0, 2.0, 2.5});
  EXPECT_EQ(box.Dimension(), 3);
  EXPECT_EQ(box.Margin(), 4.5);
  EXPECT_EQ(box.Volume(), 1.5);
  EXPECT_EQ(box.Centroid(), Vec({0.5, 0.5, 2.25}));
  EXPECT_EQ(box.Extent(), Vec({1.0, 3.0, 0.5}));
  const BoundingBox nothing = Box({}, {});
  EXPECT_EQ(nothing.Volume(), 1.0);
  EXPECT_EQ(nothing.Margin(), 0.0);
  EXPECT_EQ(nothing.Overlap(nothing), 1.0);
  std::ostringstream text;
  text << Box({0.0, 0.0}, {1.0, 2.0});
  EXPECT_EQ(text.str(), "{[0 0], [1 2]}");
}

TEST(BoundingBoxTest, MeasuresOfTwoBoxes) {
  const BoundingBox unit = Box({0.0, 0.0}, {1.0, 1.0});
  struct Case {
    BoundingBox other;
    bool intersects;
    double overlap;
    double increase;
    double distance;
  };
  for (const Case& c : {Case{Box({0.5, 0.5}, {2.0, 3.0}), true, 0.25, 5.0, 0.0},
                        Case{Box({1.0, 0.0}, {2.0, 1.0}), true, 0.0, 1.0, 0.0},
                        Case{Box({0.25, 0.25}, {0.5, 0.5}), true, 0.0625, 0.0, 0.0},
                        Case{Box({4.0, 5.0}, {6.0, 7.0}), false, 0.0, 41.0, 5.0},
                        Case{Point({-3.0, 0.5}), false, 0.0, 3.0, 3.0}}) {
    EXPECT_EQ(unit.Intersects(c.other), c.intersects) << c.other;
    EXPECT_EQ(c.other.Intersects(unit), c.intersects) << c.other;
    EXPECT_EQ(unit.Overlap(c.other), c.overlap) << c.other;
    EXPECT_EQ(unit.VolumeIncreaseToInclude(c.other), c.increase) << c.other;
    EXPECT_EQ(unit.DistanceTo(c.other), c.distance) << c.other;
    EXPECT_EQ(c.other.DistanceTo(unit), c.distance) << c.other;
    BoundingBox both = unit;
    both.ExpandToInclude(c.other);
    const BoundingBox built({unit, c.other});
    EXPECT_EQ(both.Min(), built.Min());
    EXPECT_EQ(both.Max(), built.Max());
    EXPECT_EQ(both.Volume() - unit.Volume(), c.increase);
  }
  EXPECT_EQ(unit.DistanceTo(Vec({4.0, 5.0})), 5.0);
  EXPECT_EQ(unit.DistanceTo(Vec({-2.0, 0.5})), 2.0);
  EXPECT_EQ(unit.DistanceTo(Vec({1.0, 0.0})), 0.0);
  EXPECT_EQ(Point({1.0, 1.0}).VolumeIncreaseToInclude(Point({3.0, 4.0})), 6.0);
}

TEST(BoundingBoxTest, UnionNeedsABox) {
  ExpectFatal([] { BoundingBox(std::vector<BoundingBox>{}); }, "!boxes.empty()",
              "motion_planning/spatial_data_structures/bounding_box", 21,
              "At least one box is required for construction.");
}

TEST(BoundingBoxTest, Sorting) {
  const std::vector<BoundingBox> boxes = {Box({3.0}, {4.0}), Box({1.0}, {9.0}), Box({1.05}, {2.0}),
                                          Box({0.0}, {5.0}), Box({1.05}, {2.0})};
  using Indices = std::vector<int>;
  for (const auto& [bound, order, tolerance, sorted] :
       {std::tuple(kMin, kUp, 0.0, Indices{3, 1, 2, 4, 0}),
        std::tuple(kMin, kDown, 0.0, Indices{0, 4, 2, 1, 3}),
        std::tuple(kMax, kUp, 0.0, Indices{2, 4, 0, 3, 1}),
        std::tuple(kMin, kUp, 0.1, Indices{3, 2, 4, 1, 0}),
        // Within the tolerance the other corner decides, in the same direction.
        std::tuple(kMin, kDown, 0.1, Indices{0, 1, 4, 2, 3}),
        // A difference of exactly the tolerance counts as none.
        std::tuple(kMax, kUp, 1.0, Indices{2, 4, 3, 0, 1})}) {
    EXPECT_EQ(SortBoundingBoxIndices(boxes, 0, bound, order, tolerance), sorted);
    std::vector<BoundingBox> in_place = boxes;
    SortBoundingBoxesInPlace(in_place, 0, bound, order, tolerance);
    const std::vector<BoundingBox> copy = SortBoundingBoxes(boxes, 0, bound, order, tolerance);
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      const BoundingBox& expected = boxes[static_cast<std::size_t>(sorted[i])];
      EXPECT_TRUE(copy[i].Min() == expected.Min() && copy[i].Max() == expected.Max());
      EXPECT_TRUE(in_place[i].Min() == expected.Min() && in_place[i].Max() == expected.Max());
    }
  }
  EXPECT_TRUE(SortBoundingBoxIndices({}, 0, kMin, kUp, 0.0).empty());
}

TEST(BoundingBoxTest, SortingByARelationThatIsNoOrderStaysInBounds) {
  std::mt19937 engine(4);
  std::vector<BoundingBox> boxes;
  for (int i = 0; i < 200; ++i) {
    boxes.push_back(testing::RandomBox(engine, 1));
    if (i % 9 == 0) {
      boxes.push_back(Point({std::nan("")}));
    }
  }
  for (const BoundingBoxOrder order : {kUp, kDown}) {
    std::vector<int> indices = SortBoundingBoxIndices(boxes, 0, kMin, order, 0.7);
    std::sort(indices.begin(), indices.end());
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      ASSERT_EQ(indices[i], static_cast<int>(i));
    }
  }
}

TEST(BoundingBoxTest, MaximalSeparation) {
  const double tiny = 1e-12;
  for (const auto& [boxes, indices, separation] :
       {std::tuple(std::vector{Box({0.0}, {1.0}), Box({2.0}, {3.0})}, std::pair(1, 0), 1.0 / 3.0),
        std::tuple(std::vector{Box({0.0}, {1.0}), Box({0.0}, {1.0})}, std::pair(0, 0), 1.0),
        std::tuple(std::vector{Point({5.0}), Point({5.0}), Point({5.0})}, std::pair(0, 0), 0.0),
        std::tuple(std::vector{Point({0.0}), Point({tiny}), Point({tiny})}, std::pair(1, 0), tiny),
        std::tuple(std::vector{Point({0.0}), Point({2.0 * tiny})}, std::pair(1, 0), 1.0)}) {
    const auto result = GetMaximallySeparatedIndices(boxes, 0);
    EXPECT_EQ(result.first, indices);
    EXPECT_EQ(result.second, separation);
  }
  const auto none = GetMaximallySeparatedIndices({}, 0);
  EXPECT_EQ(none.first, std::pair(0, 0));
  EXPECT_TRUE(std::isnan(none.second));
  EXPECT_TRUE(std::signbit(none.second));
}

TEST(BoundingBoxTest, Distribution) {
  std::pair<std::vector<int>, std::vector<int>> groups;
  std::pair<BoundingBox, BoundingBox> bounds{Box({0.0}, {1.0}), Box({5.0}, {6.0})};
  DistributeIndexAndUpdateBounds(7, Point({2.0}), groups, bounds);
  DistributeIndexAndUpdateBounds(8, Point({4.0}), groups, bounds);
  // Both grow by one.
  DistributeIndexAndUpdateBounds(9, Point({3.0}), groups, bounds);
  EXPECT_EQ(groups.first, (std::vector<int>{7}));
  EXPECT_EQ(groups.second, (std::vector<int>{8, 9}));
  EXPECT_EQ(bounds.first.Max(0), 2.0);
  EXPECT_EQ(bounds.second.Min(0), 3.0);
}

TEST(BoundingBoxTest, RemainingIndicesFillAGroupThatNeedsThemAll) {
  struct Case {
    int min_entries;
    std::size_t num_remaining;
    std::size_t group_size;
    bool filled;
  };
  for (const Case& c : {Case{4, 2, 2, true}, Case{4, 1, 2, false}, Case{4, 3, 2, false}, Case{4, 1, 4, false},
                        // One above the minimum: the lack is not minus one but huge.
                        Case{4, 1, 5, false}}) {
    EnumeratedBoxes remaining;
    for (std::size_t i = 0; i < c.num_remaining; ++i) {
      remaining.boxes.push_back(Point({0.0}));
      remaining.indices.push_back(static_cast<int>(10 + i));
    }
    std::vector<int> group(c.group_size, 1);
    AddAllRemainingIndicesIfNeeded(c.min_entries, remaining, group);
    EXPECT_EQ(group.size(), c.group_size + (c.filled ? c.num_remaining : 0));
    EXPECT_EQ(remaining.boxes.size(), c.filled ? 0 : c.num_remaining);
    EXPECT_EQ(remaining.indices.size(), remaining.boxes.size());
    if (c.filled) {
      EXPECT_EQ(group[c.group_size], 10);
    }
  }
}

}  // namespace
}  // namespace kavo::planning
