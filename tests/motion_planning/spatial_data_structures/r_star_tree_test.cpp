#include "kavo/motion_planning/spatial_data_structures/r_star_tree.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>

#include "tests/motion_planning/spatial_data_structures/boxes.h"
#include "tests/motion_planning/spatial_data_structures/reference_r_star_tree.h"
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
  return configs;
}

constexpr int kNumKinds = 6;

Points MakePoints(std::mt19937& engine, int kind, int dimension, int num_points) {
  Points points;
  const Eigen::VectorXd direction = RandomVec(engine, dimension, -1.0, 1.0);
  for (int i = 0; i < num_points; ++i) {
    const Eigen::VectorXd q = RandomVec(engine, dimension, -1.0, 1.0);
    // Uniform, clustered, collinear, sorted, with many duplicates, all equal.
    const Eigen::VectorXd choices[kNumKinds] = {
        q,
        Eigen::VectorXd::Constant(dimension, static_cast<double>(engine() % 4)) + 0.01 * q,
        direction * q[0],
        Eigen::VectorXd::Constant(dimension, 0.1 * i),
        (1.5 * q).array().round(),
        direction};
    points.push_back(choices[kind]);
  }
  return points;
}

internal::BoxRef Ref(const Eigen::VectorXd& q) { return {q.data(), q.data()}; }

// Everything that must hold below a node. `count` collects how often each value is present.
void CheckNode(const IntNode& node, const RStarTreeConfig& config, const Points& points,
               std::vector<int>& count) {
  ASSERT_LE(node.NumEntries(), config.max_entries_per_node);
  ASSERT_GE(node.NumEntries(), node.Parent().has_value() ? config.min_entries_per_node : 1);
  std::vector<BoundingBox> boxes;
  const auto object = [&](const internal::BoxRef& box) {
    return Box(Eigen::Map<const Eigen::VectorXd>(box.min, config.dimension),
               Eigen::Map<const Eigen::VectorXd>(box.max, config.dimension));
  };
  for (int i = 0; i < node.NumEntries(); ++i) {
    if (node.IsLeaf()) {
      const auto value = static_cast<std::size_t>(node.Value(i));
      ASSERT_LT(value, points.size());
      ++count[value];
      boxes.push_back(object(Ref(points[value])));
    } else {
      ASSERT_EQ(node.Child(i)->Level() + 1, node.Level());
      ASSERT_EQ(node.Child(i)->Parent(), std::optional(const_cast<IntNode*>(&node)));
      ASSERT_NO_FATAL_FAILURE(CheckNode(*node.Child(i), config, points, count));
      boxes.push_back(object(node.Child(i)->Corners()));
    }
    for (int axis = 0; axis < config.dimension; ++axis) {
      ASSERT_EQ(node.Boxes().Min(i, axis), boxes.back().Min(axis));
      ASSERT_EQ(node.Boxes().Max(i, axis), boxes.back().Max(axis));
    }
  }
  const BoundingBox bounds = object(node.Corners());
  ASSERT_TRUE(bounds.Min() == BoundingBox(boxes).Min() && bounds.Max() == BoundingBox(boxes).Max());
}

void CheckTree(const IntTree& tree, const RStarTreeConfig& config, const Points& points) {
  ASSERT_FALSE(tree.Root().Parent().has_value());
  std::vector<int> count(points.size());
  ASSERT_NO_FATAL_FAILURE(CheckNode(tree.Root(), config, points, count));
  ASSERT_EQ(count, std::vector<int>(points.size(), 1));
}

void CheckNearest(const IntTree& tree, const Points& points, const Eigen::VectorXd& q) {
  std::vector<double> distances;
  for (const Eigen::VectorXd& point : points) {
    distances.push_back(Box(point, point).DistanceTo(q));
  }
  const double best = *std::min_element(distances.begin(), distances.end());
  ASSERT_EQ(distances[static_cast<std::size_t>(tree.NearestNeighbor(q.data()))], best);
  ASSERT_GE(distances[static_cast<std::size_t>(tree.ApproxNearestNeighbor(q.data()))], best);
}

// The shape of a tree: levels, sizes and values, in order.
void AppendShape(const IntNode& node, std::vector<int>& shape) {
  shape.insert(shape.end(), {static_cast<int>(node.Level()), node.NumEntries()});
  for (int i = 0; i < node.NumEntries(); ++i) {
    node.IsLeaf() ? shape.push_back(node.Value(i)) : AppendShape(*node.Child(i), shape);
  }
}

void AppendShape(const ReferenceRStarTree::Node& node, std::vector<int>& shape) {
  shape.insert(shape.end(), {static_cast<int>(node.level), static_cast<int>(node.entries.size())});
  for (const auto& entry : node.entries) {
    entry.child ? AppendShape(*entry.child, shape) : shape.push_back(entry.value);
  }
}

void InsertAll(IntTree& tree, const Points& points) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    tree.Insert(Ref(points[i]), static_cast<int>(i));
  }
}

class RStarTreeTargetTest : public ::testing::TestWithParam<std::int64_t> {
 protected:
  void SetUp() override { hwy::SetSupportedTargetsForTest(GetParam()); }
  void TearDown() override { hwy::SetSupportedTargetsForTest(0); }
};

TEST(RStarTreeTest, InvariantsHoldAfterEachInsertion) {
  std::mt19937 engine(1);
  for (const int dimension : {2, 3, 7, 14}) {
    for (const RStarTreeConfig& config : AllConfigs(dimension)) {
      for (int kind = 0; kind < kNumKinds; ++kind) {
        SCOPED_TRACE("dimension " + std::to_string(dimension) + ", kind " + std::to_string(kind));
        const Points points = MakePoints(engine, kind, dimension, 80);
        IntTree tree(config);
        Points inserted;
        for (const Eigen::VectorXd& q : points) {
          tree.Insert(Ref(q), static_cast<int>(inserted.size()));
          inserted.push_back(q);
          ASSERT_NO_FATAL_FAILURE(CheckTree(tree, config, inserted));
          ASSERT_NO_FATAL_FAILURE(CheckNearest(tree, inserted, RandomVec(engine, dimension, -2.0, 2.0)));
        }
        ASSERT_NO_FATAL_FAILURE(CheckNearest(tree, inserted, points[17]));
      }
    }
  }
}

TEST_P(RStarTreeTargetTest, TreeIsTheOneSpelledOut) {
  std::mt19937 engine(2);
  int num_root_splits_amid_reinsertion = 0;
  for (const int dimension : {2, 7}) {
    for (const RStarTreeConfig& config : AllConfigs(dimension)) {
      const int kind = static_cast<int>(engine() % kNumKinds);
      const Points points = MakePoints(engine, kind, dimension, 90);
      IntTree tree(config);
      ReferenceRStarTree reference(config);
      for (std::size_t i = 0; i < points.size(); ++i) {
        // Boxes as well as points.
        const BoundingBox box =
            engine() % 5 == 0 && kind < 3 ? testing::RandomBox(engine, dimension) : Box(points[i], points[i]);
        tree.Insert(kinematics::ConfigurationLimits(box.Min(), box.Max()), static_cast<int>(i));
        reference.Insert(box, static_cast<int>(i));
        std::vector<int> shape, expected;
        AppendShape(tree.Root(), shape);
        AppendShape(*reference.root, expected);
        ASSERT_EQ(shape, expected) << "dimension " << dimension << ", kind " << kind << ", insertion " << i;
      }
      num_root_splits_amid_reinsertion += reference.num_root_splits_amid_reinsertion;
    }
  }
  // Chains of reinsertions that reached the root were among them.
  EXPECT_GT(num_root_splits_amid_reinsertion, 3);
}

INSTANTIATE_TEST_SUITE_P(Targets, RStarTreeTargetTest,
                         ::testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         [](const auto& target) { return std::string(hwy::TargetName(target.param)); });

TEST(RStarTreeTest, LargeNodesAndManyPoints) {
  std::mt19937 engine(3);
  const RStarTreeConfig config = Config(7, kCentroid, EntrySplitterType::kStar, 0, 90, 180);
  const Points points = MakePoints(engine, 0, 7, 3000);
  IntTree tree(config);
  InsertAll(tree, points);
  ASSERT_NO_FATAL_FAILURE(CheckTree(tree, config, points));
  for (int i = 0; i < 50; ++i) {
    ASSERT_NO_FATAL_FAILURE(CheckNearest(tree, points, RandomVec(engine, 7, -1.5, 1.5)));
  }
  tree.Clear();
  tree.Insert(Ref(points[0]), 0);
  EXPECT_NO_FATAL_FAILURE(CheckTree(tree, config, {points[0]}));
}

TEST(RStarTreeTest, ExactQueryStopsAtAZeroDistance) {
  std::mt19937 engine(5);
  const Points points = MakePoints(engine, 0, 2, 500);
  IntTree tree(Config(2, kVolume, EntrySplitterType::kStar, 2));
  InsertAll(tree, points);
  IntTree::Nearest nearest;
  nearest.distance = 0.0;
  tree.RecursiveNearestNeighbor(points[3].data(), tree.Root(), nearest);
  EXPECT_EQ(nearest.num_examined, 0);
  nearest = {};
  tree.RecursiveNearestNeighbor(points[3].data(), tree.Root(), nearest);
  EXPECT_EQ(nearest.leaf->Value(nearest.position), 3);
  EXPECT_LT(nearest.num_examined, 60);
}

TEST(ChildNodeSelectorTest, NothingIsChosenWithoutACandidate) {
  internal::BoxRows row(1);
  const Eigen::VectorXd q = Vec({2.0});
  row.Append(Ref(q), 9);
  const LogCapture log;
  EXPECT_EQ(ChildNodeSelector(0).SelectChildNode(row, Ref(q), kOverlap), ChildNodeSelector::kNone);
  EXPECT_EQ(ChildNodeSelector(2).SelectChildNode(row, Ref(q), static_cast<SelectionMetric>(3)),
            ChildNodeSelector::kNone);
  EXPECT_EQ(log.messages(LogLevel::kCritical), std::vector<std::string>{"Undefined metric."});
}

TEST(RStarTreeTest, UnknownKindsAreReported) {
  const LogCapture log;
  const auto undefined = static_cast<SelectionMetric>(5);
  const RStarTreeConfig config = Config(1, undefined, EntrySplitterType::kStar, 1);
  IntTree tree(config);
  Points points;
  for (int i = 0; i < 30; ++i) {
    points.push_back(Vec({std::sin(i)}));
    tree.Insert(Ref(points.back()), i);
    ASSERT_NO_FATAL_FAILURE(CheckTree(tree, config, points));
    ASSERT_NO_FATAL_FAILURE(CheckNearest(tree, points, Vec({0.3})));
  }
  IntTree unsplittable(Config(1, kVolume, static_cast<EntrySplitterType>(2), 1));
  EXPECT_EQ(log.records().back().message, "Undefined EntrySplitterImpl");
  EXPECT_THROW(
      for (const Eigen::VectorXd& q
           : points) { unsplittable.Insert(Ref(q), 0); },
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
