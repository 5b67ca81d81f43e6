#include "kavo/motion_planning/spatial_data_structures/bounding_box.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

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

bool Same(const BoundingBox& a, const BoundingBox& b) { return a.Min() == b.Min() && a.Max() == b.Max(); }

TEST(BoundingBoxTest, MeasuresOfOneBox) {
  const BoundingBox box = Box({0.0, -1.0, 2.0}, {1.0, 2.0, 2.5});
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
  ExpectFatal([] { BoundingBox(std::vector<BoundingBox>{}); }, "!boxes.empty()",
              "motion_planning/spatial_data_structures/bounding_box", 21,
              "At least one box is required for construction.");
}

TEST(BoundingBoxTest, MeasuresOfTwoBoxes) {
  const BoundingBox unit = Box({0.0, 0.0}, {1.0, 1.0});
  for (const auto& [other, intersects, overlap, increase, distance] :
       {std::tuple(Box({0.5, 0.5}, {2.0, 3.0}), true, 0.25, 5.0, 0.0),
        std::tuple(Box({1.0, 0.0}, {2.0, 1.0}), true, 0.0, 1.0, 0.0),
        std::tuple(Box({0.25, 0.25}, {0.5, 0.5}), true, 0.0625, 0.0, 0.0),
        std::tuple(Box({4.0, 5.0}, {6.0, 7.0}), false, 0.0, 41.0, 5.0),
        std::tuple(Point({-3.0, 0.5}), false, 0.0, 3.0, 3.0)}) {
    EXPECT_EQ(unit.Intersects(other), intersects) << other;
    EXPECT_EQ(other.Intersects(unit), intersects) << other;
    EXPECT_EQ(unit.Overlap(other), overlap) << other;
    EXPECT_EQ(unit.VolumeIncreaseToInclude(other), increase) << other;
    EXPECT_EQ(unit.DistanceTo(other), distance) << other;
    EXPECT_EQ(other.DistanceTo(unit), distance) << other;
    BoundingBox both = unit;
    both.ExpandToInclude(other);
    EXPECT_TRUE(Same(both, BoundingBox({unit, other})));
    EXPECT_EQ(both.Volume() - unit.Volume(), increase);
  }
  for (const auto& [q, distance] :
       {std::pair(Vec({4.0, 5.0}), 5.0), std::pair(Vec({-2.0, 0.5}), 2.0), std::pair(Vec({1.0, 0.0}), 0.0)}) {
    EXPECT_EQ(unit.DistanceTo(q), distance);
  }
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
      EXPECT_TRUE(Same(copy[i], expected) && Same(in_place[i], expected));
    }
  }
}

TEST(BoundingBoxTest, SortingByARelationThatIsNoOrderStaysInBounds) {
  std::mt19937 engine(4);
  std::vector<BoundingBox> boxes;
  boxes.reserve(200);
  for (int i = 0; i < 200; ++i) {
    boxes.push_back(i % 9 == 0 ? Point({std::nan("")}) : testing::RandomBox(engine, 1));
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

}  // namespace
}  // namespace kavo::planning
