#include "kavo/motion_planning/rrt/rrt_connect.h"

#include <gtest/gtest.h>

#include <sstream>

#include "kavo/motion_planning/environment/robot_environment.h"
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

// A planner with its two trees.
struct Connect {
  Connect(const RRTConnectConfig& config, const std::shared_ptr<Environment>& environment)
      : tree_a(MakeTree(*environment)),
        tree_b(MakeTree(*environment)),
        rrt(CreateRRTConnect(config, environment, tree_a, tree_b)) {}

  static std::unique_ptr<Tree> MakeTree(const Environment& environment) {
    return CreateBasicTree(static_cast<unsigned long>(environment.CSpaceDimension()),
                           environment.CSpaceDistanceMetric(), false);
  }

  std::optional<Path> Plan(const Eigen::VectorXd& start, const Eigen::VectorXd& goal) {
    return testing::Plan(*rrt, start, goal);
  }

  std::unique_ptr<Tree> tree_a;
  std::unique_ptr<Tree> tree_b;
  std::shared_ptr<RRT> rrt;
};

std::shared_ptr<ScriptedEnvironment> Line(
    const Path& samples, const std::function<bool(double)>& is_valid = [](double) { return true; }) {
  return std::make_shared<ScriptedEnvironment>(
      1, samples, [is_valid](const Eigen::VectorXd& q) { return is_valid(q[0]); });
}

TEST(RRTConnectTest, ConfigurationIsValidated) {
  for (const auto& [edge_length, text] : {std::pair(0.0, "0"), std::pair(kNaN, "nan")}) {
    ExpectFatal([length = edge_length] { RRTConnectConfig(length, 1, 0.5); }, "edge_length > 0.",
                "motion_planning/rrt/rrt_connect", 31,
                std::string("'edge_length' [") + text + "] must be positive.");
  }
  for (const auto& [given, kept] :
       {std::pair(1.5, 1.0), std::pair(-0.2, 0.0), std::pair(kNaN, kNaN), std::pair(1.0, 1.0)}) {
    const LogCapture log;
    const double fraction = RRTConnectConfig(1.0, 1, given).exploration_fraction;
    EXPECT_TRUE(fraction == kept || (std::isnan(fraction) && std::isnan(kept)));
    std::ostringstream warning;
    warning << "Invalid exploration factor for RRT-Connect: [" << given
            << "] is outside of range [0, 1]. Using [" << kept << "].";
    EXPECT_EQ(log.warnings(), given == kept ? std::vector<std::string>{} : std::vector{warning.str()});
  }
}

TEST(RRTConnectTest, FirstExtensionHeadsForTheTarget) {
  Connect connect({1.0, 5, 1.0}, Line({}));
  // The step at 2 lies exactly one edge length from the target.
  EXPECT_EQ(connect.Plan(Vec({0.0}), Vec({3.0})), (Path{Vec({0.0}), Vec({1.0}), Vec({2.0}), Vec({3.0})}));
  // The join of the two trees is no edge of either.
  EXPECT_EQ(connect.rrt->GetAllValidatedEdges().size(), 2u);
  // Within one edge length the first step still comes before the target.
  EXPECT_EQ(connect.Plan(Vec({0.0}), Vec({0.5})), (Path{Vec({0.0}), Vec({1.0}), Vec({0.5})}));
  // The goal may be given as a node that only the trees own.
  EXPECT_EQ(connect.Plan(Vec({3.0}), connect.tree_a->Nodes().back()->Configuration()),
            (Path{Vec({3.0}), Vec({2.0}), Vec({1.0})}));
}

TEST(RRTConnectTest, FailuresAreReported) {
  Connect connect({1.0, 50, 1.0}, Line({}, [](double x) { return !(std::abs(x) > 4.0 && x < 8.0); }));
  connect.tree_a->ClearAndSetRoot(Node(Vec({77.0})));
  for (const auto& [start, goal, warning] :
       {std::tuple(5.0, 0.0, "Invalid configuration, [5]."),
        std::tuple(0.0, 6.5, "Invalid configuration, [6.5]."),
        std::tuple(kNaN, 0.0, "Invalid configuration, [nan]."),
        std::tuple(0.0, kInf, "Invalid configuration, [inf]."),
        std::tuple(0.0, 10.0, "Unable to successfully sample configurations.")}) {
    EXPECT_EQ(connect.tree_a->Nodes().front()->Configuration(), Vec({77.0}));
    const LogCapture log;
    EXPECT_FALSE(connect.Plan(Vec({start}), Vec({goal})).has_value());
    EXPECT_EQ(log.warnings(), std::vector<std::string>{warning});
  }
}

TEST(RRTConnectTest, WalksThatLeadNowhereEnd) {
  for (const auto& [edge_length, sample] :
       {std::pair(1e-30, 5.0), std::pair(1.0, kInf), std::pair(1.0, kNaN)}) {
    Connect connect({edge_length, 6, 0.5},
                    Line(Path(6, Vec({sample})), [](double x) { return !(x > 50.0 && x < 60.0); }));
    EXPECT_FALSE(connect.Plan(Vec({1.0}), Vec({100.0})).has_value());
    for (const Eigen::VectorXd& q : connect.rrt->GetAllValidatedConfigurations()) {
      EXPECT_LE(q[0], 100.0 + 6.0);
    }
  }
}

TEST(RRTConnectTest, WalksGoOnExactlyOneStepBeforeTheirGoal) {
  for (const auto& [sample, last] : {std::pair(103.0, 103.0), std::pair(102.999, 102.0)}) {
    // Start and goal cannot leave for each other; the goal's tree explores.
    Connect connect({1.0, 2, 1.0}, Line({Vec({sample})}, [](double x) { return x < 0.5 || x > 99.5; }));
    EXPECT_FALSE(connect.Plan(Vec({0.0}), Vec({100.0})).has_value());
    EXPECT_EQ(connect.rrt->GetAllValidatedConfigurations().back(), Vec({last}));
  }
}

TEST(RRTConnectTest, NodesAreLimited) {
  RRTConnectConfig config(1.0, 50, 0.5);
  config.max_nodes = 100;
  Connect connect(config, Line({}));
  const LogCapture log;
  EXPECT_FALSE(connect.Plan(Vec({0.0}), Vec({1e16})).has_value());
  EXPECT_EQ(connect.rrt->LastStatus(), SearchStatus::kNodesSpent);
  EXPECT_EQ(connect.rrt->LastNumIterations(), 1u);
  EXPECT_EQ(connect.rrt->GetAllValidatedConfigurations().size(), 100u);
  EXPECT_EQ(log.warnings(),
            std::vector<std::string>{"The search has ended at its limit of [100] nodes, 'max_nodes'."});
  // As many as are needed, roots included, are enough.
  EXPECT_TRUE(connect.Plan(Vec({0.0}), Vec({99.0})).has_value());
  EXPECT_FALSE(connect.Plan(Vec({0.0}), Vec({100.0})).has_value());
}

// A reference of the planner: two trees with fixed roles instead of two that are exchanged.
struct Reference {
  std::optional<Path> Plan(const SmallWorld& world, double exploration_fraction, int max_iterations) {
    if (!world.Ask(world.start) || !world.Ask(world.goal)) {
      return std::nullopt;
    }
    trees[0].Add(world.start, 0);
    trees[1].Add(world.goal, 0);
    int wanted = 0;
    int explorations = 0;
    for (int i = 0; i < max_iterations; ++i, ++num_swaps) {
      Eigen::VectorXd goal;
      int side = static_cast<int>(num_swaps % 2);
      if (i * exploration_fraction > explorations) {
        ++explorations;
        if (num_samples == world.samples.size()) {
          return std::nullopt;
        }
        goal = world.samples[num_samples++];
      } else {
        num_swaps += wanted == side ? 0 : 1;
        side = wanted;
        wanted = 1 - wanted;
        goal = trees[1 - side].points.back();
      }
      ReferenceTree& tree = trees[side];
      const ReferenceTree& other = trees[1 - side];
      std::size_t node = tree.Nearest(goal);
      Eigen::VectorXd q = tree.points[node];
      const Eigen::VectorXd step = ReferenceTree::Step(q, goal, world.step);
      for (q += step; world.Ask(q); q += step) {
        node = tree.Add(q, node);
        const std::size_t nearest = other.Nearest(q);
        if (ReferenceTree::Distance(other.points[nearest], q) <= world.step) {
          Path path = trees[0].Chain(side == 0 ? node : nearest);
          const Path back = trees[1].Chain(side == 0 ? nearest : node);
          path.insert(path.end(), back.rbegin(), back.rend());
          return path;
        }
        if (ReferenceTree::Distance(q, goal) < world.step) {
          break;
        }
      }
    }
    return std::nullopt;
  }

  ReferenceTree trees[2];
  std::size_t num_samples = 0;
  std::uint64_t num_swaps = 0;
};

TEST(RRTConnectTest, AgreesWithThePlannerSpelledOut) {
  int num_found = 0;
  int num_failed = 0;
  const LogCapture log;
  for (unsigned int seed = 0; seed < 600; ++seed) {
    const SmallWorld world(seed, 2 + static_cast<int>(seed % 3));
    const double exploration_fraction = 0.25 * static_cast<double>(seed % 5);
    const int max_iterations = 1 + static_cast<int>(seed % 23);
    Reference reference;
    const std::optional<Path> expected = reference.Plan(world, exploration_fraction, max_iterations);
    const int num_at_once = static_cast<int>(seed % 2) * 8;
    const auto environment = world.MakeEnvironment(num_at_once);
    Connect connect({world.step, static_cast<unsigned long>(max_iterations), exploration_fraction},
                    environment);
    ASSERT_EQ(connect.Plan(world.start, world.goal), expected) << "seed " << seed;
    ASSERT_EQ(environment->num_samples, reference.num_samples) << "seed " << seed;
    if (num_at_once <= 1) {
      ASSERT_EQ(environment->questions, world.questions) << "seed " << seed;
    }
    // A success ends with the start tree in the first owner, a failure wherever the last exchange left it.
    const std::size_t first = expected ? 0 : reference.num_swaps % 2;
    Path inserted = reference.trees[first].points;
    const Path& others = reference.trees[1 - first].points;
    inserted.insert(inserted.end(), others.begin(), others.end());
    ASSERT_EQ(connect.rrt->GetAllValidatedConfigurations(), inserted) << "seed " << seed;
    num_found += expected ? 1 : 0;
    num_failed += !expected && !inserted.empty() ? 1 : 0;
  }
  EXPECT_GT(num_found, 100);
  EXPECT_GT(num_failed, 50);
}

// A tree that tells nothing of its distances is asked for the nearest node after each step. What another one
// is spared, and what is looked ahead to, must change nothing, also where a search is stopped.
TEST(RRTConnectTest, NearestNodesThatAreNotAskedForWouldNotHaveConnected) {
  const LogCapture log;
  std::mt19937 engine(5);
  int num_found = 0;
  for (unsigned int seed = 0; seed < 400; ++seed) {
    const SmallWorld world(seed, 2 + static_cast<int>(seed % 3));
    Eigen::VectorXd weights = testing::RandomVec(engine, world.dimension, 0.1, 3.0);
    weights[0] = seed % 8 == 3 ? 0.0 : (seed % 8 == 7 ? -2.0 : weights[0]);
    const DistanceMetric metrics[] = {L2Norm, SquaredL2Norm, SquaredL2Norm, WeightedSquaredL2Norm(weights)};
    const DistanceMetric& metric = metrics[seed % 4];
    const auto num_polls = seed % 5 == 0 ? engine() % 60 : 100000u;
    Path nodes[2];
    std::optional<Path> paths[2];
    for (const bool is_plain : {false, true}) {
      const auto make_tree = [&] {
        const DistanceMetric opaque = [&](const auto& q0, const auto& q1) { return metric(q0, q1); };
        return CreateBasicTree(static_cast<unsigned long>(world.dimension), is_plain ? opaque : metric,
                               false);
      };
      std::unique_ptr<Tree> tree_a = make_tree();
      std::unique_ptr<Tree> tree_b = make_tree();
      const auto rrt = CreateRRTConnect({0.5 * world.step, 60, 0.5}, world.MakeEnvironment(is_plain ? 1 : 8),
                                        tree_a, tree_b);
      rrt->SetStopCondition([left = num_polls]() mutable { return left-- == 0; });
      paths[is_plain ? 1 : 0] = testing::Plan(*rrt, world.start, world.goal);
      nodes[is_plain ? 1 : 0] = rrt->GetAllValidatedConfigurations();
    }
    ASSERT_EQ(paths[0], paths[1]) << "seed " << seed;
    ASSERT_EQ(nodes[0], nodes[1]) << "seed " << seed;
    num_found += paths[0] ? 1 : 0;
  }
  EXPECT_GT(num_found, 100);
  EXPECT_LT(num_found, 350);
}

TEST(RRTConnectTest, PathOfASmallQueryStaysTheSame) {
  // Recorded once; every build on every machine must find it again.
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}));
  world.add(BoxObstacle{{0.2, 0.9, 1.0}}, Pose3::FromTranslation({-0.9, 1.2, 0.0}));
  Connect connect({0.7, 1000, 0.5}, CreateRobotEnvironment(BuildThreeLinkRobotEnvironmentConfig(
                                        world.view(), {1.0, 1.0, 1.0}, 100, 23)));
  const Path recorded = {
      Vec({-0.4, 0.1, 0.2}),
      Vec({-0.070054312773640159, 0.2439753714269095, 0.27140882963971136}),
      Vec({0.55926221186814906, 0.51858444767233725, 0.40760929607214708}),
      Vec({1.1885787365099383, 0.79319352391776499, 0.54380976250458279}),
      Vec({1.4442893682549691, 0.29659676195888246, 0.12190488125229143}),
      Vec({1.7, -0.2, -0.3}),
  };
  EXPECT_EQ(connect.Plan(recorded.front(), recorded.back()), recorded);
}

}  // namespace
}  // namespace kavo::planning
