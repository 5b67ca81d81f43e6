#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "kavo/motion_planning/spatial_data_structures/box_rows_internal.h"
#include "kavo/motion_planning/spatial_data_structures/entry_splitter_basic.h"
#include "kavo/motion_planning/spatial_data_structures/entry_splitter_star.h"
#include "tests/motion_planning/spatial_data_structures/boxes.h"
#include "tests/support/every_target.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"

namespace kavo::planning {
namespace {

using testing::Box;
using testing::ExpectFatal;
using testing::LogCapture;
using testing::Point;
using Groups = std::pair<std::vector<int>, std::vector<int>>;

TEST(EntrySplitterBasicTest, SplitsWorkedOutByHand) {
  using Case = std::tuple<int, std::vector<BoundingBox>, Groups>;
  for (const auto& [dimension, boxes, groups] :
       {// Seeds 4 (highest lower corner) and 0 (lowest upper one). Box 1 grows the second group by 1 and the
        // first by 8; box 2 too joins the second; box 3 is all that the first still needs.
        Case{1,
             {Box({0.0}, {1.0}), Box({1.0}, {2.0}), Box({2.0}, {3.0}), Box({3.0}, {4.0}), Box({9.0}, {10.0})},
             {{4, 3}, {0, 1, 2}}},
        // Points on a line have no volume: all ties go to the second group.
        Case{2,
             {Point({0.0, 0.0}), Point({1.0, 0.0}), Point({2.0, 0.0}), Point({3.0, 0.0}), Point({4.0, 0.0})},
             {{4, 3}, {0, 1, 2}}},
        // The first group takes two, so that the last is all that the second needs.
        Case{1,
             {Box({9.0}, {10.0}), Box({0.0}, {1.0}), Box({8.0}, {9.0}), Box({7.0}, {8.0}), Box({6.0}, {7.0})},
             {{0, 2, 3}, {1, 4}}},
        // All boxes span the second axis, which counts as a separation by its whole width: more than any on
        // the first axis. Its seeds are one box, so the first two start; then box 2 grows both by 1.
        Case{2,
             {Box({0.0, 0.0}, {1.0, 1.0}), Box({3.0, 0.0}, {4.0, 1.0}), Box({1.5, 0.0}, {2.5, 1.0}),
              Box({9.0, 0.0}, {9.5, 1.0}), Box({9.0, 0.0}, {9.5, 1.0})},
             {{0, 4}, {1, 2, 3}}}}) {
    EXPECT_EQ(EntrySplitterBasic(dimension, 2).SplitEntries(boxes), groups);
  }
}

TEST(EntrySplitterBasicTest, Seeds) {
  const EntrySplitterBasic splitter(2, 2);
  const LogCapture log;
  EXPECT_EQ(splitter.SplitEntries(std::vector<BoundingBox>(5, Point({1.0, 2.0}))),
            (Groups{{0, 4}, {1, 2, 3}}));
  const double inf = std::numeric_limits<double>::infinity();
  const BoundingBox large = Box({0.0, 0.0}, {9.0, 9.0});
  for (const auto& [boxes, seeds] :
       {// A box inside of all others holds both records.
        std::pair(std::vector{large, large, Box({4.0, 4.0}, {5.0, 5.0})}, std::pair(2, 0)),
        // Both axes separate alike: the first keeps the seeds.
        std::pair(std::vector{Point({0.0, 1.0}), Point({1.0, 0.0})}, std::pair(1, 0)),
        // Infinite corners make the separation of the first axis NaN, which never wins.
        std::pair(std::vector{Box({-inf, 0.0}, {inf, 1.0}), Box({inf, 5.0}, {inf, 6.0}),
                              Box({0.0, 2.0}, {1.0, 3.0})},
                  std::pair(1, 0))}) {
    EXPECT_EQ(splitter.PickSeedsLinear(boxes), seeds);
  }
  // Reported for the equal points and for the box inside of all others.
  EXPECT_EQ(
      log.messages(LogLevel::kInfo),
      std::vector<std::string>(2, "Ill-formed set for PickSeedsLinear. Falling back to arbitrary seed."));
  ExpectFatal([] { EntrySplitterBasic(1, 2).SplitEntries({Point({0.0})}); }, "boxes.size() >= 2",
              "motion_planning/spatial_data_structures/entry_splitter_basic", 221,
              "At least two boxes must be provided to pick seeds.");
}

using BoxRowsTest = testing::EveryTargetTest;

TEST_P(BoxRowsTest, AgreesWithBoxesAsObjects) {
  std::mt19937 engine(11);
  for (int round = 0; round < 100; ++round) {
    const int dimension = std::vector{1, 2, 3, 6, 7, 14}[engine() % 6];
    const int min_entries = 2 + static_cast<int>(engine() % 4);
    const int num_boxes = 2 * min_entries + 1 + static_cast<int>(engine() % (round % 10 == 0 ? 200 : 40));
    const bool only_points = engine() % 3 == 0;
    // Far from zero single precision tells little, and farther still nothing.
    const double shift = std::vector{0.0, 0.0, 1e5, 1e9, 1e18}[engine() % 5];
    const auto shifted_box = [&] {
      const BoundingBox box = testing::RandomBox(engine, dimension);
      return Box(box.Min().array() + shift, box.Max().array() + shift);
    };
    internal::BoxRows rows(dimension);
    std::vector<BoundingBox> boxes;
    for (int i = 0; i < num_boxes; ++i) {
      const BoundingBox box = shifted_box();
      boxes.push_back(only_points ? Box(box.Min(), box.Min()) : box);
      rows.Append({boxes.back().Min().data(), boxes.back().Max().data()}, num_boxes);
    }
    const BoundingBox query = shifted_box();
    const internal::BoxRef query_ref{query.Min().data(), query.Max().data()};
    const Eigen::VectorXd& q = query.Min();
    const auto size = static_cast<std::size_t>(rows.PaddedSize());
    std::vector<double> increases(size), centroid_distances(size), overlaps(size), other_overlaps(size),
        squared_distances(size);
    std::vector<int> indices(size);
    rows.VolumeIncreases(query_ref, increases.data());
    rows.CentroidDistances(query_ref, centroid_distances.data());
    rows.Overlaps(query_ref, {boxes[0].Min().data(), boxes[0].Max().data()}, overlaps.data(),
                  other_overlaps.data());
    ASSERT_EQ(rows.NearestCentroid(query_ref),
              std::min_element(centroid_distances.begin(), centroid_distances.begin() + num_boxes) -
                  centroid_distances.begin());
    const auto squared_distance_to = [&q](const BoundingBox& box) {
      double sum = 0.0;
      for (int axis = 0; axis < box.Dimension(); ++axis) {
        const double gap = std::max({box.Min(axis) - q[axis], q[axis] - box.Max(axis), 0.0});
        sum += gap * gap;
      }
      return sum;
    };
    // One of the boxes is just nearer than the limit, or just not.
    const double exact = squared_distance_to(boxes[engine() % boxes.size()]);
    const double limit = engine() % 2 == 0 ? exact : std::nextafter(exact, 2.0 * exact + 1.0);
    double nearest = std::numeric_limits<double>::infinity();
    for (int i = rows.MaybeNearest(q.data(), indices.data(), squared_distances.data()); i > 0; --i) {
      nearest = std::min(nearest, std::sqrt(squared_distances[static_cast<std::size_t>(i - 1)]));
    }
    const int num_nearer = rows.Nearer(q.data(), limit, indices.data(), squared_distances.data());
    int nearer = 0;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      ASSERT_LE(nearest, std::sqrt(squared_distance_to(boxes[i])));
      ASSERT_EQ(increases[i], boxes[i].VolumeIncreaseToInclude(query));
      ASSERT_EQ(centroid_distances[i], query.DistanceTo(boxes[i].Centroid()));
      ASSERT_EQ(overlaps[i], query.Overlap(boxes[i]));
      ASSERT_EQ(other_overlaps[i], boxes[0].Overlap(boxes[i]));
      if (nearer < num_nearer && indices[static_cast<std::size_t>(nearer)] == static_cast<int>(i)) {
        ASSERT_LT(squared_distance_to(boxes[i]), limit);
        ASSERT_EQ(squared_distances[static_cast<std::size_t>(nearer++)], squared_distance_to(boxes[i]));
      } else {
        ASSERT_GE(squared_distance_to(boxes[i]), limit);
      }
    }
    ASSERT_EQ(nearer, num_nearer);
    Eigen::VectorXd min(dimension), max(dimension);
    rows.Union(min.data(), max.data());
    const BoundingBox bounds(boxes);
    ASSERT_TRUE(min == bounds.Min() && max == bounds.Max());
    const EntrySplitterStar splitter(dimension, min_entries, num_boxes - 1);
    const Groups groups = testing::PlainStarSplit(boxes, min_entries);
    ASSERT_EQ(splitter.SplitRows(rows), groups);
    ASSERT_EQ(splitter.SplitEntries(boxes), groups);
  }
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(BoxRowsTest);

}  // namespace
}  // namespace kavo::planning
