#include "kavo/motion_planning/spatial_data_structures/r_star_tree.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/motion_planning/spatial_data_structures/boxes.h"
#include "tests/motion_planning/spatial_data_structures/reference_r_star_tree.h"
#include "tests/support/every_target.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"

namespace kavo::planning {
namespace {

using testing::Box;
using testing::ExpectFatal;
using testing::LogCapture;
using testing::RandomVec;
using testing::ReferenceRStarTree;
using testing::Vec;
using IntTree = RStarTree<int>;
using IntNode = RNode<int>;
using Points = std::vector<Eigen::VectorXd>;

constexpr auto kVolume = SelectionMetric::kMinimumVolumeIncrease;
constexpr auto kCentroid = SelectionMetric::kMinimumCentroidDistance;
constexpr auto kOverlap = SelectionMetric::kApproxMinimumOverlapIncrease;

RStarTreeConfig Config(int dimension, SelectionMetric metric, EntrySplitterType splitter, int num_to_prune,
                       int min_entries = 2, int max_entries = 4) {
  return {dimension, min_entries, max_entries, num_to_prune, 3, splitter, metric, metric, metric, metric};
}

// Every way to build a small tree.
std::vector<RStarTreeConfig> AllConfigs(int dimension) {
  std::vector<RStarTreeConfig> configs;
  for (const SelectionMetric metric : {kVolume, kCentroid, kOverlap}) {
    for (const EntrySplitterType splitter : {EntrySplitterType::kBasic, EntrySplitterType::kStar}) {
      for (const int num_to_prune : {0, 2, 3}) {
        configs.push_back(Config(dimension, metric, splitter, num_to_prune));
      }
    }
  }
  configs.push_back({dimension, 3, 9, 3, 4, EntrySplitterType::kStar, kVolume, kOverlap, kCentroid, kVolume});
  configs.push_back({dimension, 2, 4, 1, 3, EntrySplitterType::kStar, kOverlap, kVolume, kVolume, kCentroid});
  return configs;
}

constexpr int kNumKinds = 6;

Points MakePoints(std::mt19937& engine, int kind, int dimension, int num_points) {
  Points points;
  const Eigen::VectorXd direction = RandomVec(engine, dimension, -1.0, 1.0);
  for (int i = 0; i < num_points; ++i) {
    const Eigen::VectorXd q = RandomVec(engine, dimension, -1.0, 1.0);
    switch (kind) {
      case 0:  // Uniform.
        points.push_back(q);
        break;
      case 1:  // Clustered.
        points.push_back(Eigen::VectorXd::Constant(dimension, static_cast<double>(engine() % 4)) + 0.01 * q);
        break;
      case 2:  // Collinear.
        points.push_back(direction * q[0]);
        break;
      case 3:  // Sorted.
        points.push_back(Eigen::VectorXd::Constant(dimension, 0.1 * i));
        break;
      case 4:  // Many duplicates.
        points.push_back((1.5 * q).array().round());
        break;
      default:  // All equal.
        points.push_back(direction);
    }
  }
  return points;
}

internal::BoxRef Ref(const Eigen::VectorXd& q) { return {q.data(), q.data()}; }

void CheckNearest(const IntTree& tree, const std::vector<BoundingBox>& boxes, const Eigen::VectorXd& q) {
  double best = std::numeric_limits<double>::infinity();
  int num_best = 0;
  std::size_t nearest = 0;
  std::vector<double> distances;
  for (std::size_t i = 0; i < boxes.size(); ++i) {
    distances.push_back(boxes[i].DistanceTo(q));
    num_best = distances[i] < best ? 1 : num_best + (distances[i] == best ? 1 : 0);
    if (distances[i] < best) {
      best = distances[i];
      nearest = i;
    }
  }
  const auto found = static_cast<std::size_t>(tree.NearestNeighbor(q.data()));
  ASSERT_EQ(distances[found], best);
  if (num_best == 1) {
    ASSERT_EQ(found, nearest);
  }
  // The first of the nearest in one leaf. The exact query begins there, and keeps it unless others are
  // nearer.
  const IntNode& leaf = *tree.SelectApproxNearestLeafNode(Ref(q));
  auto near = static_cast<std::size_t>(leaf.Value(0));
  for (int i = 1; i < leaf.NumEntries(); ++i) {
    const auto value = static_cast<std::size_t>(leaf.Value(i));
    near = distances[value] < distances[near] ? value : near;
  }
  ASSERT_EQ(static_cast<std::size_t>(tree.ApproxNearestNeighbor(q.data())), near);
  if (distances[near] == best) {
    ASSERT_EQ(found, near);
  }
}

// The shape of a tree: levels, sizes and values, in order.
std::vector<int> Shape(const IntNode& node) {
  std::vector<int> shape{static_cast<int>(node.Level()), node.NumEntries()};
  for (int i = 0; i < node.NumEntries(); ++i) {
    const std::vector<int> part = node.IsLeaf() ? std::vector{node.Value(i)} : Shape(*node.Child(i));
    shape.insert(shape.end(), part.begin(), part.end());
  }
  return shape;
}

std::vector<int> Shape(const ReferenceRStarTree::Node& node) {
  std::vector<int> shape{static_cast<int>(node.level), static_cast<int>(node.entries.size())};
  for (const auto& entry : node.entries) {
    const std::vector<int> part = entry.child ? Shape(*entry.child) : std::vector{entry.value};
    shape.insert(shape.end(), part.begin(), part.end());
  }
  return shape;
}

using RStarTreeTargetTest = testing::EveryTargetTest;

TEST_P(RStarTreeTargetTest, TreeIsTheOneSpelledOutAndFindsTheNearest) {
  std::mt19937 engine(2);
  int num_root_splits_amid_reinsertion = 0;
  for (const int dimension : {2, 7, 14}) {
    for (const RStarTreeConfig& config : AllConfigs(dimension)) {
      const int kind = static_cast<int>(engine() % kNumKinds);
      const Points points = MakePoints(engine, kind, dimension, 90);
      IntTree tree(config);
      ReferenceRStarTree reference(config);
      std::vector<BoundingBox> boxes;
      for (std::size_t i = 0; i < points.size(); ++i) {
        // Boxes as well as points.
        const BoundingBox box =
            engine() % 5 == 0 && kind < 3 ? testing::RandomBox(engine, dimension) : Box(points[i], points[i]);
        boxes.push_back(box);
        tree.Insert(kinematics::ConfigurationLimits(box.Min(), box.Max()), static_cast<int>(i));
        reference.Insert(box, static_cast<int>(i));
        ASSERT_EQ(Shape(tree.Root()), Shape(*reference.root))
            << "dimension " << dimension << ", kind " << kind << ", insertion " << i;
        ASSERT_EQ(Shape(*tree.SelectApproxNearestLeafNode({box.Min().data(), box.Max().data()})),
                  Shape(*reference.ApproxLeaf(box)));
        ASSERT_NO_FATAL_FAILURE(CheckNearest(tree, boxes, RandomVec(engine, dimension, -2.0, 2.0)));
        ASSERT_NO_FATAL_FAILURE(CheckNearest(tree, boxes, points[i]));
      }
      num_root_splits_amid_reinsertion += reference.num_root_splits_amid_reinsertion;
    }
  }
  // Chains of reinsertions that reached the root were among them.
  EXPECT_GT(num_root_splits_amid_reinsertion, 3);
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(RStarTreeTargetTest);

TEST(RStarTreeTest, ExactQueryStopsAtAZeroDistance) {
  std::mt19937 engine(5);
  const Points points = MakePoints(engine, 0, 2, 500);
  IntTree tree(Config(2, kVolume, EntrySplitterType::kStar, 2));
  for (std::size_t i = 0; i < points.size(); ++i) {
    tree.Insert(Ref(points[i]), static_cast<int>(i));
  }
  IntTree::Nearest nearest;
  nearest.distance = 0.0;
  tree.RecursiveNearestNeighbor(points[3].data(), tree.Root(), nearest);
  EXPECT_EQ(nearest.num_examined, 0);
  nearest = {};
  tree.RecursiveNearestNeighbor(points[3].data(), tree.Root(), nearest);
  EXPECT_EQ(nearest.leaf->Value(nearest.position), 3);
  EXPECT_LT(nearest.num_examined, 60);
}

TEST(ChildNodeSelectorTest, FirstOfEqualOverlapsAndVolumes) {
  internal::BoxRows rows(1);
  for (const BoundingBox& box : {Box({0.0}, {1.0}), Box({3.0}, {4.0}), Box({3.0}, {4.0})}) {
    rows.Append({box.Min().data(), box.Max().data()}, 9);
  }
  EXPECT_EQ(ChildNodeSelector(2).SelectChildNode(rows, Ref(Vec({2.0})), kOverlap), 0);
  EXPECT_EQ(ChildNodeSelector(0).SelectChildNode(rows, Ref(Vec({2.0})), kOverlap), ChildNodeSelector::kNone);
}

TEST(RStarTreeTest, UnknownKindsAreReported) {
  const LogCapture log;
  const auto undefined = static_cast<SelectionMetric>(5);
  IntTree tree(Config(1, undefined, EntrySplitterType::kStar, 1));
  std::vector<BoundingBox> boxes;
  for (int i = 0; i < 30; ++i) {
    boxes.push_back(Box({std::sin(i)}, {std::sin(i)}));
    tree.Insert(Ref(boxes.back().Min()), i);
    ASSERT_NO_FATAL_FAILURE(CheckNearest(tree, boxes, Vec({0.3})));
  }
  EXPECT_EQ(log.records()[0].message, "Undefined metric.");
  IntTree unsplittable(Config(1, kVolume, static_cast<EntrySplitterType>(2), 1));
  EXPECT_EQ(log.records().back().message, "Undefined EntrySplitterImpl");
  EXPECT_THROW(
      for (const BoundingBox& box
           : boxes) { unsplittable.Insert(Ref(box.Min()), 0); },
      util::FatalError);
}

TEST(RNodeTest, EmptyNodesHaveNoBoxAndNoParent) {
  const std::string file = "motion_planning/spatial_data_structures/r_star_node";
  IntNode root(0, 1, 5, {}, std::nullopt);
  ExpectFatal([&] { root.Bounds(); }, "box_.has_value()", file, 170, "Bounds() called for empty node");
  ExpectFatal([&] { IntNode(0, 1, 5, {}, &root); }, "!parent.has_value()", file, 134,
              "An empty node should never have a parent.");
  const double corners[] = {1.0, 2.0};
  root.AddEntry(IntNode::Entry{7, {corners, corners + 1}, nullptr});
  EXPECT_EQ(root.Bounds().Min(0), 1.0);
  EXPECT_EQ(root.Bounds().Max(0), 2.0);
}

}  // namespace
}  // namespace kavo::planning
