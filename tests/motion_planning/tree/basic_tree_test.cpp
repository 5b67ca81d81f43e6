#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/periodic_metric.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "kavo/motion_planning/tree/tesk_tree_util.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/allocations.h"
#include "tests/support/every_target.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::kInf;
using testing::kNaN;
using testing::LogCapture;
using testing::RandomVec;
using testing::Vec;

Node WithId(const Eigen::VectorXd& q, unsigned int id) {
  Node node(q);
  node.SetId(id);
  return node;
}

// Hides a metric from the tree, which then calls it node by node.
DistanceMetric Opaque(const DistanceMetric& metric) {
  return [metric](const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) { return metric(q0, q1); };
}

std::vector<DistanceMetric> BuiltInMetrics(std::mt19937& engine, int dimension) {
  const WeightedSquaredL2Norm weighted(RandomVec(engine, dimension, 0.1, 3.0));
  return {L2Norm, SquaredL2Norm, weighted, PeriodicMetric(L2Norm, {0, 2}), PeriodicMetric(weighted, {1})};
}

bool SameBits(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// Points that bring out ties and specials: a coarse lattice, points so near that different squares have one
// root, and now and then NaN.
Eigen::VectorXd NastyPoint(std::mt19937& engine, int dimension) {
  Eigen::VectorXd q = RandomVec(engine, dimension, -5.0, 5.0);
  const unsigned kind = engine() % 8;
  if (kind < 3) {
    return q.array().round();
  }
  if (kind == 3) {
    return Eigen::VectorXd::Constant(dimension, 1.0) * (1.0 + 1e-16 * static_cast<double>(engine() % 5));
  }
  if (kind == 4 && dimension > 0) {
    const double specials[] = {kNaN, kInf, -kInf, 1e200, 1e-200};
    q[static_cast<Eigen::Index>(engine() % static_cast<unsigned>(dimension))] = specials[engine() % 5];
  }
  return q;
}

using BasicTreeTargetTest = testing::EveryTargetTest;

TEST_P(BasicTreeTargetTest, ScanFindsWhatThePlainLoopFinds) {
  std::mt19937 engine(7);
  for (const int dimension : {0, 1, 2, 3, 7, 14}) {
    for (const DistanceMetric& metric : BuiltInMetrics(engine, dimension)) {
      const auto scanned = CreateBasicTree(static_cast<unsigned long>(dimension), metric, false);
      const auto plain = CreateBasicTree(static_cast<unsigned long>(dimension), Opaque(metric), false);
      // Past a block, past a chunk.
      for (int i = 0; i < 600; ++i) {
        const Node node(NastyPoint(engine, dimension));
        scanned->Insert(node);
        plain->Insert(node);
        if (i < 20 || i % 17 == 0) {
          const Eigen::VectorXd q = NastyPoint(engine, dimension);
          const ClosestNode scan = scanned->GetClosest(q);
          const ClosestNode loop = plain->GetClosest(q);
          ASSERT_TRUE(SameBits(scan.distance, loop.distance)) << scan.distance << " " << loop.distance;
          const auto place = std::find(plain->Nodes().begin(), plain->Nodes().end(), loop.node);
          ASSERT_EQ(scanned->Nodes()[static_cast<std::size_t>(place - plain->Nodes().begin())], scan.node)
              << "dimension " << dimension << ", " << i << " nodes";
        }
      }
    }
  }
}

// Sizes of coordinates and weights, a power of ten each, at which squares or sums leave the range of single
// precision, or the differences of the points drown in its rounding.
TEST_P(BasicTreeTargetTest, ScanIsExactWhereSinglePrecisionFails) {
  const struct {
    double size;
    double weight;
    double offset;
  } scales[] = {{1e18, 1.0, 0.0},    {1e-20, 1.0, 0.0},   {1e-25, 1.0, 0.0}, {1e23, 1e-20, 0.0},
                {1e22, 1e-13, 0.0},  {1e-22, 1e26, 0.0},  {1e-20, 1e9, 0.0}, {1e10, 1e-45, 0.0},
                {1.0, 1e31, 0.0},    {1.0, 1e-300, 0.0},  {1.0, 1.0, 1e6},   {1e-7, 1.0, 1.0},
                {1e-9, 1e-10, 1e-3}, {1e10, 1e-10, 1e17}, {1.0, -1.0, 1e3},  {1e200, 1.0, 0.0}};
  std::mt19937 engine(11);
  for (const auto& [size, weight, offset] : scales) {
    for (const int dimension : {2, 7, 64, 65}) {
      const Eigen::VectorXd weights = weight * RandomVec(engine, dimension, 0.1, 3.0);
      for (const DistanceMetric& metric :
           {DistanceMetric(L2Norm), DistanceMetric(WeightedSquaredL2Norm(weights)),
            DistanceMetric(PeriodicMetric(SquaredL2Norm, {0, 6}))}) {
        const auto scanned = CreateBasicTree(static_cast<unsigned long>(dimension), metric, false);
        const auto point = [&, s = size, o = offset] {
          const Eigen::VectorXd v = s * RandomVec(engine, dimension, -1.0, 1.0);
          return Eigen::VectorXd(v.array() + o);
        };
        for (int i = 0; i < 60; ++i) {
          scanned->Insert(Node(point()));
        }
        for (int i = 0; i < 20; ++i) {
          const Eigen::VectorXd q = point();
          const auto& nodes = scanned->Nodes();
          const auto nearest =
              std::min_element(nodes.begin(), nodes.end(), [&](const auto& a, const auto& b) {
                return metric(a->Configuration(), q) < metric(b->Configuration(), q);
              });
          ASSERT_EQ(scanned->GetClosest(q).node, *nearest)
              << "size " << size << ", weight " << weight << ", dimension " << dimension;
        }
      }
    }
  }
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(BasicTreeTargetTest);

TEST(BasicTreeTest, EarlierNodeWinsATieAndAFirstOneAtNaNStays) {
  for (const DistanceMetric& metric : {DistanceMetric(L2Norm), Opaque(L2Norm)}) {
    for (const double x : {10.0, kNaN}) {
      const auto tree = CreateBasicTree(2, metric, false);
      const auto root = tree->ClearAndSetRoot(Node(Vec({x, 0.0})));
      const auto first = tree->Insert(Node(Vec({3.0, 4.0})));
      tree->Insert(Node(Vec({-3.0, 4.0})));
      EXPECT_EQ(tree->GetClosest(Vec({0.0, 0.0})).node, std::isnan(x) ? root : first);
      EXPECT_EQ(tree->GetApproxClosest(Vec({0.0, 0.0})).node, std::isnan(x) ? root : first);
    }
  }
}

TEST(BasicTreeTest, CustomMetricGetsNodeFirstAndEachNodeOnce) {
  std::vector<std::pair<double, double>> calls;
  const auto tree = CreateBasicTree(
      1,
      [&calls](const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) {
        calls.emplace_back(q0[0], q1[0]);
        return std::abs(q0[0] - q1[0]);
      },
      false);
  tree->ClearAndSetRoot(Node(Vec({1.0})));
  tree->Insert(Node(Vec({2.0})));
  EXPECT_EQ(tree->GetClosest(Vec({5.0})).distance, 3.0);
  EXPECT_EQ(calls, (std::vector<std::pair<double, double>>{{1.0, 5.0}, {1.0, 5.0}, {2.0, 5.0}}));
}

TEST(BasicTreeTest, StartsOverWithARoot) {
  const auto tree = CreateBasicTree(1, L2Norm, false);
  EXPECT_EQ(tree->CSpaceDimension(), 1);
  EXPECT_FALSE(tree->SupportsNodeId());
  const auto root = tree->ClearAndSetRoot(Node(Vec({1.0})));
  const auto child = tree->Insert(Node(Vec({2.0}), root));
  const auto grandchild = tree->Insert(Node(Vec({3.0}), child));
  EXPECT_EQ(tree->Backtrace(grandchild), (std::vector<std::shared_ptr<Node>>{grandchild, child, root}));
  const auto new_root = tree->ClearAndSetRoot(Node(Vec({9.0})));
  EXPECT_EQ(tree->Nodes(), std::vector<std::shared_ptr<Node>>{new_root});
  EXPECT_EQ(tree->GetClosest(Vec({1.0})).node, new_root);
  // A tree may start over from a node that only it owns.
  EXPECT_EQ(tree->ClearAndSetRoot(*tree->Nodes().front())->Configuration(), Vec({9.0}));

  ExpectFatal([&] { tree->ClearAndSetRoot(Node(Vec({2.0}), root)); }, "!node.Parent().has_value()",
              "motion_planning/tree/basic_tree", 26, "");
  EXPECT_EQ(tree->NumNodes(), 0u);
  ExpectFatal([&] { tree->GetClosest(Vec({2.0})); }, "!nodes_.empty()", "motion_planning/tree/basic_tree", 60,
              "An empty tree has no closest node.");
  const auto kept = tree->Insert(Node(Vec({4.0})));
  ExpectFatal([&] { *kept = Node(Vec({5.0})); }, "!is_in_tree_", "motion_planning/tree/node", 28,
              "A node in a tree cannot be assigned to: the tree would not notice.");
  Node copy = *kept;
  copy = Node(Vec({5.0}), kept);
  EXPECT_EQ(copy.Configuration(), Vec({5.0}));
  EXPECT_EQ(*copy.Parent(), kept);
  EXPECT_EQ(kept->Configuration(), Vec({4.0}));
  ExpectFatal([&] { tree->Backtrace(nullptr); }, "node != nullptr", "motion_planning/tree/node", 45,
              "There is no node to start a chain from.");
}

TEST(BasicTreeTest, FirstNodeWithAnIdIsFound) {
  const auto tree = CreateBasicTree(1, L2Norm, true);
  EXPECT_TRUE(tree->SupportsNodeId());
  const auto first = tree->ClearAndSetRoot(WithId(Vec({1.0}), 5));
  tree->Insert(WithId(Vec({2.0}), 6));
  tree->Insert(WithId(Vec({3.0}), 5));
  EXPECT_EQ(tree->TryGetNode(5), first);
  ExpectFatal([&] { tree->Insert(Node(Vec({4.0}))); }, "node.TryGetId().has_value()",
              "motion_planning/tree/basic_tree", 40, "");
  const auto without_ids = CreateBasicTree(1, L2Norm, false);
  without_ids->ClearAndSetRoot(WithId(Vec({1.0}), 12));
  const LogCapture log;
  EXPECT_FALSE(tree->TryGetNode(12).has_value() || without_ids->TryGetNode(12).has_value());
  EXPECT_EQ(log.warnings(), std::vector<std::string>(2, "Unable to find node with id \"12\" in tree."));
}

TEST(BasicTreeTest, WrongLengthIsReportedAndNeverNear) {
  for (const DistanceMetric& metric :
       {DistanceMetric(L2Norm), DistanceMetric(WeightedSquaredL2Norm(Vec({1.0, 1.0})))}) {
    const auto tree = CreateBasicTree(2, metric, false);
    tree->ClearAndSetRoot(Node(Vec({1.0, 1.0})));
    LogCapture log(0);
    tree->Insert(Node(Vec({0.0, 0.0, 0.0})));
    const std::string message = "Input dimension [3] does not match tree dimension [2].";
    EXPECT_EQ(log.messages(LogLevel::kCritical), std::vector<std::string>{message});
    const auto good = tree->Insert(Node(Vec({0.5, 0.0})));
    EXPECT_EQ(tree->GetClosest(Vec({0.0, 0.0})).node, good);
    log.clear();
    EXPECT_TRUE(std::isnan(tree->GetClosest(Vec({0.0, 0.0, 0.0})).distance));
    EXPECT_EQ(log.messages(LogLevel::kCritical).front(), message);
  }
}

TEST(BasicTreeTest, NearestNodeIsFoundWithoutAllocation) {
  const auto tree = CreateBasicTree(7, L2Norm, false);
  for (int i = 0; i < 300; ++i) {
    tree->Insert(Node(Eigen::VectorXd::Constant(7, i)));
  }
  const Eigen::VectorXd q = Eigen::VectorXd::Constant(7, 150.2);
  tree->GetClosest(q);
  const long before = testing::NumAllocations();
  const ClosestNode closest = tree->GetClosest(q);
  EXPECT_EQ(testing::NumAllocations(), before);
  EXPECT_EQ(closest.node, tree->Nodes()[150]);
}

TEST(BasicTreeTest, TellsWhereADetourIsNeverShorter) {
  using Geometry = Tree::Geometry;
  const std::pair<DistanceMetric, Geometry> cases[] = {
      {PeriodicMetric(L2Norm, {0}), Geometry::kUnknown},
      {WeightedSquaredL2Norm(Vec({1.0, -1e-9})), Geometry::kUnknown},
      {WeightedSquaredL2Norm(Vec({1.0, kNaN})), Geometry::kUnknown},
      {WeightedSquaredL2Norm(Vec({1.0, 0.0})), Geometry::kSquaredMetric},
  };
  for (const auto& [metric, geometry] : cases) {
    EXPECT_EQ(CreateBasicTree(2, metric, false)->DistanceGeometry(), geometry);
  }
}

TEST(TeskTreeTest, FallsBackToABasicTreeWithANotice) {
  TeskTreeConfig config;
  config.dimension = 2;
  config.distance_metric_type = tesk::planning::DistanceMetricType::kWeightedSquaredL2Norm;
  config.distance_metric_weights = Vec({2.0, 1.0});
  LogCapture log(1);
  const auto tree = CreateTeskTree(config);
  EXPECT_EQ(
      log.messages(LogLevel::kError),
      std::vector<std::string>{"TESK not enabled in build. Creating 'BasicTree' instead of 'TeskTree'"});
  EXPECT_EQ(tree->CSpaceDimension(), 2);
  EXPECT_EQ(tree->Distance(Vec({0.0, 0.0}), Vec({3.0, 4.0})), 34.0);
  config.distance_metric_weights = Vec({2.0});
  EXPECT_THROW(CreateTeskTree(config), util::FatalError);
}

}  // namespace
}  // namespace kavo::planning
