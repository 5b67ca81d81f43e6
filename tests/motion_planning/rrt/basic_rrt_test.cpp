#include "kavo/motion_planning/rrt/basic_rrt.h"

#include <gtest/gtest.h>

#include "kavo/motion_planning/environment/basic_3d_environment.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/rrt/small_world.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::kInf;
using testing::kNaN;
using testing::LogCapture;
using testing::Path;
using testing::ReferenceTree;
using testing::ScriptedEnvironment;
using testing::SmallWorld;
using testing::Vec;

const Eigen::VectorXd kOrigin = Vec({0.0, 0.0, 0.0});

// A planner in free space with its environment and its tree.
struct Planner {
  Planner(double tolerance, double edge_length, unsigned long max_iterations, Path samples,
          ScriptedEnvironment::Validity is_valid = testing::Free, int num_at_once = 1)
      : environment(
            std::make_shared<ScriptedEnvironment>(3, std::move(samples), std::move(is_valid), num_at_once)),
        tree(CreateBasicTree(3, L2Norm, false)),
        rrt(CreateBasicRRT({Eigen::VectorXd::Constant(3, tolerance), edge_length, max_iterations, false},
                           environment, tree)) {}

  std::optional<Path> Plan(const Eigen::VectorXd& start, const Eigen::VectorXd& goal) {
    return testing::Plan(*rrt, start, goal);
  }

  std::shared_ptr<ScriptedEnvironment> environment;
  std::unique_ptr<Tree> tree;
  std::shared_ptr<RRT> rrt;
};

TEST(BasicRRTTest, BadConfigurationsAreFatal) {
  const std::string file = "motion_planning/rrt/basic_rrt";
  for (const auto& [last, edge_length, line, message] :
       {std::tuple(0.0, -1.0, 34, "Each element of 'q_target_tolerance' [0.25    1    0] must be positive."),
        std::tuple(kNaN, 1.0, 34, "Each element of 'q_target_tolerance' [0.25    1  nan] must be positive."),
        std::tuple(1.0, 0.0, 39, "'edge_length' [0] must be positive.")}) {
    const Eigen::VectorXd tolerance = Vec({0.25, 1.0, last});
    ExpectFatal([&, length = edge_length] { BasicRRTConfig(tolerance, length, 1, false); }, {}, file, line,
                message);
  }
  auto tree = CreateBasicTree(4, L2Norm, false);
  const auto create = [&tree](int dimension) {
    CreateBasicRRT({Vec({1.0, 1.0, 1.0}), 1.0, 1, false},
                   std::make_shared<ScriptedEnvironment>(dimension, Path{}), tree);
  };
  ExpectFatal([&] { create(2); }, "environment_->CSpaceDimension() == dimension_", file, 108,
              "World dimension [2] does not match BasicRRT dimension [3]");
  ExpectFatal([&] { create(3); }, "tree->CSpaceDimension() == rrt_dimension", "motion_planning/rrt/rrt_util",
              31, "Tree dimension [4] does not match RRT dimenstion [3]");
}

TEST(BasicRRTTest, BoundariesOfTheTwoDistanceTests) {
  const struct {
    Eigen::VectorXd target;
    Eigen::VectorXd sample;
    bool found;
    std::uint64_t num_nodes;
  } cases[] = {
      // A distance to the target of exactly one edge length is near enough.
      {Vec({1.0, 1.0, 0.0}), Vec({5.0, 0.0, 0.0}), true, 3},
      {Vec({1.0, 1.0000001, 0.0}), Vec({1.5, 0.0, 0.0}), false, 2},
      // A distance to the sample of exactly one edge length does not stop the walk: steps at 1 and 2.
      {Vec({-9.0, 0.0, 0.0}), Vec({2.0, 0.0, 0.0}), false, 3},
      // A sample on the nearest node adds that place once more.
      {Vec({-9.0, 0.0, 0.0}), kOrigin, false, 2},
  };
  for (const auto& c : cases) {
    Planner planner(2.0, 1.0, 1, {c.sample});
    EXPECT_EQ(planner.Plan(kOrigin, c.target).has_value(), c.found);
    EXPECT_EQ(planner.tree->NumNodes(), c.num_nodes);
  }
}

TEST(BasicRRTTest, FailuresAreReported) {
  Planner planner(1.0, 1.0, 9, {}, [](const Eigen::VectorXd& q) { return !(q[0] > 1.0); });
  planner.tree->ClearAndSetRoot(Node(Vec({7.0, 7.0, 7.0})));
  const struct {
    Eigen::VectorXd start;
    Eigen::VectorXd goal;
    std::string warning;
  } cases[] = {
      {Vec({2.0, 0.0, -0.5}), kOrigin, "Invalid configuration, [   2    0 -0.5]."},
      {kOrigin, Vec({2.0, 0.0, 0.0}), "Invalid configuration, [2 0 0]."},
      {kOrigin, Vec({0.0, -kInf, 0.0}), "Invalid configuration, [   0 -inf    0]."},
      {kOrigin, Vec({-5.0, 0.0, 0.0}), "Unable to successfully sample configurations."},
  };
  for (const auto& c : cases) {
    // Until the search begins the tree is left alone.
    EXPECT_EQ(planner.tree->Nodes().front()->Configuration(), Vec({7.0, 7.0, 7.0}));
    const LogCapture log;
    EXPECT_FALSE(planner.Plan(c.start, c.goal).has_value());
    EXPECT_EQ(log.warnings(), std::vector<std::string>{c.warning});
  }
  for (const auto& [start, goal] : {std::pair(Vec({0.0}), kOrigin), std::pair(kOrigin, Vec({0.0}))}) {
    EXPECT_THROW(planner.Plan(start, goal), util::FatalError);
    // Not that of the query before.
    EXPECT_EQ(planner.rrt->LastStatus(), SearchStatus::kNone);
  }
}

TEST(BasicRRTTest, WalksThatLeadNowhereEnd) {
  // Steps too short to move, samples that are no numbers, and steps beyond all numbers.
  for (const auto& [edge_length, sample] :
       {std::pair(1e-30, 5.0), std::pair(1.0, kNaN), std::pair(1.0, kInf), std::pair(kInf, 5.0)}) {
    Planner planner(1.0, edge_length, 2, Path(2, Vec({sample, 1.0, 1.0})));
    EXPECT_FALSE(planner.Plan(Vec({1.0, 1.0, 1.0}), Vec({9.0, 9.0, 9.0})).has_value());
    EXPECT_LE(planner.tree->NumNodes(), 5u);
  }
}

TEST(BasicRRTTest, NodesAreLimited) {
  const auto environment = std::make_shared<ScriptedEnvironment>(3, Path(9, Vec({1e9, 0.0, 0.0})));
  auto tree = CreateBasicTree(3, L2Norm, false);
  BasicRRTConfig config(Vec({1.0, 1.0, 1.0}), 1.0, 9, false);
  config.max_nodes = 100;
  const auto rrt = CreateBasicRRT(config, environment, tree);
  const LogCapture quiet;
  EXPECT_FALSE(rrt->TryToFindPath(kOrigin, Vec({-50.0, 0.0, 0.0})).has_value());
  EXPECT_EQ(rrt->LastStatus(), SearchStatus::kNodesSpent);
  EXPECT_EQ(tree->NumNodes(), 100u);
}

// A reference of the planner, over plain lists.
std::optional<Path> ReferencePlan(const SmallWorld& world, double tolerance, ReferenceTree& tree) {
  if (!world.Ask(world.start) || !world.Ask(world.goal)) {
    return std::nullopt;
  }
  tree.Add(world.start, 0);
  for (const Eigen::VectorXd& sample : world.samples) {
    std::size_t node = tree.Nearest(sample);
    Eigen::VectorXd q = tree.points[node];
    const Eigen::VectorXd step = ReferenceTree::Step(q, sample, world.step);
    for (q += step; world.Ask(q); q += step) {
      node = tree.Add(q, node);
      if (((q - world.goal).array().abs() <= tolerance).all() &&
          ReferenceTree::Distance(world.goal, q) <= world.step) {
        return tree.Chain(tree.Add(world.goal, node));
      }
      if (ReferenceTree::Distance(q, sample) < world.step) {
        break;
      }
    }
  }
  return std::nullopt;
}

TEST(BasicRRTTest, AgreesWithThePlannerSpelledOut) {
  int num_found = 0;
  const LogCapture log;
  for (unsigned int seed = 0; seed < 400; ++seed) {
    const SmallWorld world(seed, 3);
    ReferenceTree tree;
    const std::optional<Path> expected = ReferencePlan(world, 0.15, tree);
    const int num_at_once = static_cast<int>(seed % 2) * 8;
    Planner planner(
        0.15, world.step, 60, world.samples, [&](const auto& q) { return world.IsFree(q); }, num_at_once);
    ASSERT_EQ(planner.Plan(world.start, world.goal), expected) << "seed " << seed;
    ASSERT_EQ(planner.rrt->GetAllValidatedConfigurations(), tree.points) << "seed " << seed;
    if (expected) {
      ASSERT_EQ(planner.rrt->GetAllValidatedEdges().back(), std::pair(expected->end()[-2], world.goal));
    }
    if (num_at_once <= 1) {
      ASSERT_EQ(planner.environment->questions, world.questions) << "seed " << seed;
    }
    num_found += expected.has_value() ? 1 : 0;
  }
  EXPECT_GT(num_found, 50);
  EXPECT_LT(num_found, 350);
}

TEST(BasicRRTTest, PathOfASmallQueryStaysTheSame) {
  // Recorded once; every build on every machine must find it again.
  World world;
  world.add(BoxObstacle{{0.25, 2.0, 1.5}}, Pose3::FromTranslation({0.0, 0.0, -0.25}));
  const kinematics::ConfigurationLimits limits(Vec({-1.0, -1.0, -1.0}), Vec({1.0, 1.0, 1.0}));
  auto tree = CreateBasicTree(3, L2Norm, false);
  const auto rrt = CreateBasicRRT({Vec({0.25, 0.25, 0.25}), 0.3, 1000, false},
                                  CreateBasic3dEnvironment({world.view(), limits, 100, 17}), tree);
  const std::optional<Path> path = testing::Plan(*rrt, Vec({-0.75, 0, -0.5}), Vec({0.75, 0, -0.5}));
  ASSERT_TRUE(path && path->size() == 12);
  // Every waypoint grew out of all before it.
  EXPECT_EQ((*path)[10], Vec({0.77569948307789172, 0.18810429888988844, -0.30220594129580486}));
}

}  // namespace
}  // namespace kavo::planning
