#include "kavo/motion_planning/rrt/basic_rrt.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "kavo/motion_planning/environment/basic_3d_environment.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/rrt/small_world.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::Free;
using testing::LogCapture;
using testing::ReferenceTree;
using testing::ScriptedEnvironment;
using testing::SmallWorld;
using testing::Vec;

using Path = std::optional<std::vector<Eigen::VectorXd>>;

const Eigen::VectorXd kOrigin = Vec({0.0, 0.0, 0.0});

Path Plan(RRT& rrt, const Eigen::VectorXd& start, const Eigen::VectorXd& goal) {
  const auto nodes = rrt.TryToFindPath(start, goal);
  return nodes ? Path(ConvertToConfigurations(*nodes)) : std::nullopt;
}

TEST(BasicRRTTest, ConfigurationIsValidated) {
  const std::string file = "motion_planning/rrt/basic_rrt";
  const double nan = std::numeric_limits<double>::quiet_NaN();
  ExpectFatal(
      [] {
        BasicRRTConfig(Vec({0.25, 0.0, -1.0}), -1.0, 1, false);
      },
      "q_target_tolerance(i) > 0.", file, 34,
      "Each element of 'q_target_tolerance' [0.25    0   -1] must be positive.");
  ExpectFatal(
      [nan] {
        BasicRRTConfig(Vec({1.0, 1.0, nan}), 1.0, 1, false);
      },
      "q_target_tolerance(i) > 0.", file, 34,
      "Each element of 'q_target_tolerance' [  1   1 nan] must be positive.");
  ExpectFatal(
      [] {
        BasicRRTConfig(Vec({1.0, 1.0, 1.0}), 0.0, 1, false);
      },
      "edge_length > 0.", file, 39, "'edge_length' [0] must be positive.");
}

TEST(BasicRRTTest, DimensionsMustAgree) {
  const BasicRRTConfig config(Vec({1.0, 1.0, 1.0}), 1.0, 1, false);
  auto tree = CreateBasicTree(4, L2Norm, false);
  ExpectFatal(
      [&] {
        CreateBasicRRT(config, std::make_shared<ScriptedEnvironment>(2, std::vector<Eigen::VectorXd>{}, Free),
                       tree);
      },
      "environment_->CSpaceDimension() == dimension_", "motion_planning/rrt/basic_rrt", 108,
      "World dimension [2] does not match BasicRRT dimension [3]");
  ExpectFatal(
      [&] {
        CreateBasicRRT(config, std::make_shared<ScriptedEnvironment>(3, std::vector<Eigen::VectorXd>{}, Free),
                       tree);
      },
      "tree->CSpaceDimension() == rrt_dimension", "motion_planning/rrt/rrt_util", 31,
      "Tree dimension [4] does not match RRT dimenstion [3]");
}

TEST(BasicRRTTest, WalksInEqualStepsAndEndsAtTheExactTarget) {
  // One sample straight ahead; the target is off the line, within the tolerance box of the third step.
  const auto environment = std::make_shared<ScriptedEnvironment>(3, std::vector{Vec({10.0, 0.0, 0.0})}, Free);
  auto tree = CreateBasicTree(3, L2Norm, false);
  const auto rrt = CreateBasicRRT({Vec({0.25, 0.25, 0.25}), 1.0, 5, false}, environment, tree);
  EXPECT_EQ(rrt->CSpaceDimension(), 3);
  const Eigen::VectorXd target = Vec({3.0, 0.25, 0.0});
  EXPECT_EQ(Plan(*rrt, kOrigin, target),
            (std::vector<Eigen::VectorXd>{kOrigin, Vec({1.0, 0.0, 0.0}), Vec({2.0, 0.0, 0.0}),
                                          Vec({3.0, 0.0, 0.0}), target}));
  EXPECT_EQ(rrt->GetAllValidatedConfigurations().size(), 5u);
  EXPECT_EQ(rrt->GetAllValidatedEdges().back(), std::pair(Vec({3.0, 0.0, 0.0}), target));
}

TEST(BasicRRTTest, BoundariesOfTheTwoDistanceTests) {
  // A distance to the target of exactly one edge length is near enough.
  const auto once = [](const Eigen::VectorXd& target, const Eigen::VectorXd& sample) {
    const auto environment = std::make_shared<ScriptedEnvironment>(3, std::vector{sample}, Free);
    auto tree = CreateBasicTree(3, L2Norm, false);
    const auto rrt = CreateBasicRRT({Vec({2.0, 2.0, 2.0}), 1.0, 1, false}, environment, tree);
    const bool found = Plan(*rrt, kOrigin, target).has_value();
    return std::pair(found, tree->NumNodes());
  };
  EXPECT_EQ(once(Vec({1.0, 1.0, 0.0}), Vec({5.0, 0.0, 0.0})), std::pair(true, std::uint64_t{3}));
  EXPECT_FALSE(once(Vec({1.0, 1.0000001, 0.0}), Vec({1.5, 0.0, 0.0})).first);
  // A distance to the sample of exactly one edge length does not stop the walk: steps at 1 and 2.
  EXPECT_EQ(once(Vec({-9.0, 0.0, 0.0}), Vec({2.0, 0.0, 0.0})).second, 3u);
  EXPECT_EQ(once(Vec({-9.0, 0.0, 0.0}), Vec({1.999, 0.0, 0.0})).second, 2u);
  // A sample on the nearest node adds that place once more.
  EXPECT_EQ(once(Vec({-9.0, 0.0, 0.0}), kOrigin).second, 2u);
}

TEST(BasicRRTTest, FailuresAreReported) {
  auto tree = CreateBasicTree(3, L2Norm, false);
  tree->ClearAndSetRoot(Node(Vec({7.0, 7.0, 7.0})));
  const auto environment = std::make_shared<ScriptedEnvironment>(
      3, std::vector<Eigen::VectorXd>{}, [](const Eigen::VectorXd& q) { return !(q[0] > 1.0); });
  const auto rrt = CreateBasicRRT({Vec({1.0, 1.0, 1.0}), 1.0, 9, false}, environment, tree);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    Eigen::VectorXd start;
    Eigen::VectorXd goal;
    std::string warning;
  } cases[] = {
      {Vec({2.0, 0.0, -0.5}), kOrigin, "Invalid configuration, [   2    0 -0.5]."},
      {kOrigin, Vec({2.0, 0.0, 0.0}), "Invalid configuration, [2 0 0]."},
      {Vec({nan, 0.0, 0.0}), kOrigin, "Invalid configuration, [nan   0   0]."},
      {kOrigin, Vec({0.0, -std::numeric_limits<double>::infinity(), 0.0}),
       "Invalid configuration, [   0 -inf    0]."},
  };
  for (const auto& c : cases) {
    LogCapture log;
    EXPECT_FALSE(Plan(*rrt, c.start, c.goal).has_value());
    EXPECT_EQ(log.warnings(), std::vector<std::string>{c.warning});
    EXPECT_EQ(tree->Nodes().front()->Configuration(), Vec({7.0, 7.0, 7.0}));
  }
  LogCapture log;
  EXPECT_FALSE(Plan(*rrt, kOrigin, Vec({-5.0, 0.0, 0.0})).has_value());
  EXPECT_EQ(log.warnings(), std::vector<std::string>{"Unable to successfully sample configurations."});
  EXPECT_THROW(rrt->TryToFindPath(Vec({0.0}), kOrigin), util::FatalError);
  EXPECT_THROW(rrt->TryToFindPath(Vec({0.0, 0.0, 0.0, 0.0}), kOrigin), util::FatalError);
  EXPECT_THROW(rrt->TryToFindPath(kOrigin, Vec({0.0, 0.0, 0.0, 0.0})), util::FatalError);
}

TEST(BasicRRTTest, SpentBudgetIsSilent) {
  for (const unsigned long max_iterations : {0ul, 2ul}) {
    auto tree = CreateBasicTree(3, L2Norm, false);
    const std::vector<Eigen::VectorXd> samples(9, Vec({1.5, 0.0, 0.0}));
    const auto environment = std::make_shared<ScriptedEnvironment>(3, samples, Free);
    const auto rrt = CreateBasicRRT({Vec({1.0, 1.0, 1.0}), 1.0, max_iterations, false}, environment, tree);
    const LogCapture log;
    EXPECT_FALSE(Plan(*rrt, kOrigin, Vec({-50.0, 0.0, 0.0})).has_value());
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(environment->num_samples, max_iterations);
    EXPECT_EQ(tree->NumNodes(), 1 + max_iterations);
  }
}

TEST(BasicRRTTest, WalksThatLeadNowhereEnd) {
  // Steps too short to move, samples that are no numbers, and steps beyond all numbers.
  const double inf = std::numeric_limits<double>::infinity();
  const struct {
    double edge_length;
    Eigen::VectorXd sample;
  } cases[] = {{1e-30, Vec({5.0, 5.0, 5.0})},
               {1.0, Vec({std::nan(""), 0.0, 0.0})},
               {1.0, Vec({inf, 0.0, 0.0})},
               {inf, Vec({5.0, 5.0, 5.0})}};
  for (const auto& c : cases) {
    auto tree = CreateBasicTree(3, L2Norm, false);
    const auto environment = std::make_shared<ScriptedEnvironment>(3, std::vector(2, c.sample), Free);
    const auto rrt = CreateBasicRRT({Vec({1.0, 1.0, 1.0}), c.edge_length, 2, false}, environment, tree);
    const Path path = Plan(*rrt, Vec({1.0, 1.0, 1.0}), Vec({9.0, 9.0, 9.0}));
    EXPECT_FALSE(path.has_value());
    EXPECT_LE(tree->NumNodes(), 5u);
  }
}

TEST(BasicRRTTest, ApproximateSearchIsAskedWhenWanted) {
  // The approximate answer is always the root; the exact one is the node ahead.
  class Tree3 : public Tree {
   public:
    int CSpaceDimension() const override { return tree_->CSpaceDimension(); }
    std::uint64_t NumNodes() const override { return tree_->NumNodes(); }
    const std::vector<std::shared_ptr<Node>>& Nodes() const override { return tree_->Nodes(); }
    std::shared_ptr<Node> ClearAndSetRoot(const Node& node) override { return tree_->ClearAndSetRoot(node); }
    std::shared_ptr<Node> Insert(const Node& node) override { return tree_->Insert(node); }
    std::vector<std::shared_ptr<Node>> Backtrace(const std::shared_ptr<Node>& node) override {
      return tree_->Backtrace(node);
    }
    double Distance(const Eigen::VectorXd& q0, const Eigen::VectorXd& q1) const override {
      return L2Norm(q0, q1);
    }
    ClosestNode GetClosest(const Eigen::VectorXd& q) const override { return tree_->GetClosest(q); }
    ClosestNode GetApproxClosest(const Eigen::VectorXd&) const override {
      return {tree_->Nodes().front(), 0.0};
    }

   private:
    std::unique_ptr<Tree> tree_ = CreateBasicTree(3, L2Norm, false);
  };
  for (const bool use_approx_closest : {false, true}) {
    std::unique_ptr<Tree> tree = std::make_unique<Tree3>();
    const auto environment =
        std::make_shared<ScriptedEnvironment>(3, std::vector(2, Vec({1.5, 0.0, 0.0})), Free);
    const auto rrt = CreateBasicRRT({Vec({1.0, 1.0, 1.0}), 1.0, 2, use_approx_closest}, environment, tree);
    EXPECT_FALSE(Plan(*rrt, kOrigin, Vec({-9.0, 0.0, 0.0})).has_value());
    const Eigen::VectorXd last = tree->Nodes().back()->Configuration();
    EXPECT_EQ(last, use_approx_closest ? Vec({1.0, 0.0, 0.0}) : Vec({2.0, 0.0, 0.0}));
  }
}

// The planner spelled out over plain lists.
struct Reference {
  Path Plan(const SmallWorld& world, double tolerance, unsigned long max_iterations) {
    if (!world.IsFree(world.start) || !world.IsFree(world.goal)) {
      return std::nullopt;
    }
    tree.Reset(world.start);
    for (unsigned long i = 0; i < max_iterations; ++i) {
      if (i == world.samples.size()) {
        return std::nullopt;
      }
      const Eigen::VectorXd& sample = world.samples[i];
      int node = tree.Nearest(sample);
      Eigen::VectorXd q = tree.points[static_cast<std::size_t>(node)];
      const Eigen::VectorXd step = ReferenceTree::Step(q, sample, world.step);
      for (q += step; world.IsFree(q); q += step) {
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

  ReferenceTree tree;
};

TEST(BasicRRTTest, AgreesWithThePlannerSpelledOut) {
  int num_found = 0;
  const LogCapture log;
  for (unsigned int seed = 0; seed < 400; ++seed) {
    const SmallWorld world(seed, 3);
    Reference reference;
    const Path expected = reference.Plan(world, 0.15, 60);
    auto tree = CreateBasicTree(3, L2Norm, false);
    const auto environment = world.MakeEnvironment();
    const auto rrt = CreateBasicRRT({Vec({0.15, 0.15, 0.15}), world.step, 60, false}, environment, tree);
    ASSERT_EQ(Plan(*rrt, world.start, world.goal), expected) << "seed " << seed;
    if (!reference.tree.points.empty()) {
      ASSERT_EQ(rrt->GetAllValidatedConfigurations(), reference.tree.points) << "seed " << seed;
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
  const auto environment = CreateBasic3dEnvironment({world.view(), limits, 100, 17});
  auto tree = CreateBasicTree(3, L2Norm, false);
  const auto rrt = CreateBasicRRT({Vec({0.25, 0.25, 0.25}), 0.3, 1000, false}, environment, tree);
  const Path path = Plan(*rrt, Vec({-0.75, 0.0, -0.5}), Vec({0.75, 0.0, -0.5}));
  ASSERT_TRUE(path.has_value());
  const std::vector<Eigen::VectorXd> recorded = {
      Vec({-0.75, 0, -0.5}),
      Vec({-0.63860427235822059, -0.20893287145533659, -0.31577718086896422}),
      Vec({-0.52720854471644119, -0.41786574291067319, -0.13155436173792848}),
      Vec({-0.41581281707466178, -0.62679861436600981, 0.052668457393107271}),
      Vec({-0.16504469190872673, -0.62456403281931316, 0.21732067889671494}),
      Vec({0.12864526420480821, -0.58214349680673572, 0.17319916710897659}),
      Vec({0.3600597660117284, -0.41460961655751, 0.081658316544362466}),
      Vec({0.47126986835203111, -0.14523992268401592, 0.15287826571564067}),
      Vec({0.58247997069233381, 0.12412977118947816, 0.22409821488691889}),
      Vec({0.67474186015267745, 0.25741167742739057, -0.028337276323797456}),
      Vec({0.77569948307789172, 0.18810429888988844, -0.30220594129580486}),
      Vec({0.75, 0, -0.5}),
  };
  EXPECT_EQ(*path, recorded);
}

}  // namespace
}  // namespace kavo::planning
