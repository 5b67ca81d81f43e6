#include "kavo/motion_planning/rrt/rrt_connect.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "kavo/motion_planning/environment/robot_environment.h"
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

  Path Plan(const Eigen::VectorXd& start, const Eigen::VectorXd& goal) {
    const auto nodes = rrt->TryToFindPath(start, goal);
    return nodes ? Path(ConvertToConfigurations(*nodes)) : std::nullopt;
  }

  std::unique_ptr<Tree> tree_a;
  std::unique_ptr<Tree> tree_b;
  std::shared_ptr<RRT> rrt;
};

std::shared_ptr<ScriptedEnvironment> Line(std::vector<Eigen::VectorXd> samples,
                                          ScriptedEnvironment::Validity is_valid = Free) {
  return std::make_shared<ScriptedEnvironment>(1, std::move(samples), std::move(is_valid));
}

TEST(RRTConnectTest, ConfigurationIsValidated) {
  for (const double edge_length : {0.0, -1.0, std::nan("")}) {
    std::ostringstream value;
    value << edge_length;
    ExpectFatal([&] { RRTConnectConfig(edge_length, 1, 0.5); }, "edge_length > 0.",
                "motion_planning/rrt/rrt_connect", 31,
                "'edge_length' [" + value.str() + "] must be positive.");
  }
  for (const auto& [given, kept] : {std::pair(1.5, 1.0), std::pair(-0.2, 0.0)}) {
    const LogCapture log;
    EXPECT_EQ(RRTConnectConfig(1.0, 1, given).exploration_fraction, kept);
    std::ostringstream warning;
    warning << "Invalid exploration factor for RRT-Connect: [" << given
            << "] is outside of range [0, 1]. Using [" << kept << "].";
    EXPECT_EQ(log.warnings(), std::vector<std::string>{warning.str()});
  }
  const LogCapture log;
  EXPECT_TRUE(std::isnan(RRTConnectConfig(1.0, 1, std::nan("")).exploration_fraction));
  EXPECT_EQ(log.warnings().size(), 1u);
  for (const double given : {0.0, 0.3, 1.0}) {
    EXPECT_EQ(RRTConnectConfig(1.0, 1, given).exploration_fraction, given);
  }
  EXPECT_EQ(log.warnings().size(), 1u);
}

TEST(RRTConnectTest, TreeDimensionsAreCheckedInOrder) {
  const auto environment = Line({});
  auto one = CreateBasicTree(1, L2Norm, false);
  auto two = CreateBasicTree(2, L2Norm, false);
  auto three = CreateBasicTree(3, L2Norm, false);
  const std::string condition = "tree->CSpaceDimension() == rrt_dimension";
  ExpectFatal(
      [&] {
        CreateRRTConnect({1.0, 1, 0.5}, environment, two, three);
      },
      condition, "motion_planning/rrt/rrt_util", 31, "Tree dimension [2] does not match RRT dimenstion [1]");
  ExpectFatal(
      [&] {
        CreateRRTConnect({1.0, 1, 0.5}, environment, one, three);
      },
      condition, "motion_planning/rrt/rrt_util", 31, "Tree dimension [3] does not match RRT dimenstion [1]");
}

TEST(RRTConnectTest, FirstExtensionHeadsForTheTarget) {
  Connect connect({1.0, 5, 1.0}, Line({}));
  // The step at 2 lies exactly one edge length from the target.
  EXPECT_EQ(connect.Plan(Vec({0.0}), Vec({3.0})),
            (std::vector<Eigen::VectorXd>{Vec({0.0}), Vec({1.0}), Vec({2.0}), Vec({3.0})}));
  // One exchange happened, and was undone: the first owner holds the start tree.
  EXPECT_EQ(connect.tree_a->Nodes().front()->Configuration(), Vec({0.0}));
  EXPECT_EQ(connect.rrt->GetAllValidatedConfigurations().size(), 4u);
  // The join of the two trees is no edge of either.
  EXPECT_EQ(connect.rrt->GetAllValidatedEdges().size(), 2u);
  EXPECT_EQ(connect.rrt->CSpaceDimension(), 1);
  // Within one edge length the first step still comes before the target.
  EXPECT_EQ(connect.Plan(Vec({0.0}), Vec({0.5})),
            (std::vector<Eigen::VectorXd>{Vec({0.0}), Vec({1.0}), Vec({0.5})}));
  // The goal may be given as a node that only the trees own.
  EXPECT_EQ(connect.Plan(Vec({3.0}), connect.tree_a->Nodes().back()->Configuration()),
            (std::vector<Eigen::VectorXd>{Vec({3.0}), Vec({2.0}), Vec({1.0})}));
}

TEST(RRTConnectTest, BudgetEndsTheSearchWithoutAReport) {
  const LogCapture log;
  Connect none({1.0, 0, 0.5}, Line({}));
  EXPECT_FALSE(none.Plan(Vec({0.0}), Vec({9.0})).has_value());
  EXPECT_EQ(none.tree_a->Nodes().front()->Configuration(), Vec({0.0}));
  EXPECT_EQ(none.rrt->GetAllValidatedConfigurations().size(), 2u);

  // A wall between start and goal; without exploration nothing is sampled. After an odd number of exchanges
  // the first owner is left with the goal tree.
  const auto walled = Line({Vec({0.5})}, [](const Eigen::VectorXd& q) { return std::abs(q[0] - 5.0) > 1.5; });
  Connect odd({1.0, 1, 0.0}, walled);
  EXPECT_FALSE(odd.Plan(Vec({0.0}), Vec({10.0})).has_value());
  EXPECT_EQ(odd.tree_a->Nodes().front()->Configuration(), Vec({10.0}));
  EXPECT_EQ(odd.tree_b->NumNodes(), 4u);
  EXPECT_EQ(walled->num_samples, 0u);
  EXPECT_TRUE(log.records().empty());
}

TEST(RRTConnectTest, FailuresAreReported) {
  const double inf = std::numeric_limits<double>::infinity();
  Connect connect({1.0, 50, 1.0},
                  Line({}, [](const Eigen::VectorXd& q) { return !(std::abs(q[0]) > 4.0 && q[0] < 8.0); }));
  connect.tree_a->ClearAndSetRoot(Node(Vec({77.0})));
  for (const auto& [start, goal, value] :
       {std::tuple(5.0, 0.0, "5"), std::tuple(0.0, 6.5, "6.5"), std::tuple(std::nan(""), 0.0, "nan"),
        std::tuple(0.0, inf, "inf")}) {
    LogCapture log;
    EXPECT_FALSE(connect.Plan(Vec({start}), Vec({goal})).has_value());
    EXPECT_EQ(log.warnings(),
              std::vector<std::string>{std::string("Invalid configuration, [") + value + "]."});
    EXPECT_EQ(connect.tree_a->Nodes().front()->Configuration(), Vec({77.0}));
  }
  LogCapture log;
  EXPECT_FALSE(connect.Plan(Vec({0.0}), Vec({10.0})).has_value());
  EXPECT_EQ(log.warnings(), std::vector<std::string>{"Unable to successfully sample configurations."});
}

TEST(RRTConnectTest, WalksThatLeadNowhereEnd) {
  const double inf = std::numeric_limits<double>::infinity();
  for (const auto& [edge_length, sample] :
       {std::pair(1e-30, 5.0), std::pair(1.0, inf), std::pair(1.0, std::nan(""))}) {
    Connect connect({edge_length, 6, 0.5}, Line(std::vector(6, Vec({sample})), [](const Eigen::VectorXd& q) {
                      return !(q[0] > 50.0 && q[0] < 60.0);
                    }));
    EXPECT_FALSE(connect.Plan(Vec({1.0}), Vec({100.0})).has_value());
    for (const Eigen::VectorXd& q : connect.rrt->GetAllValidatedConfigurations()) {
      EXPECT_LE(q[0], 100.0 + 6.0);
    }
  }
}

// The planner spelled out: two trees with fixed roles instead of two that are exchanged.
struct Reference {
  Path Plan(const SmallWorld& world, double exploration_fraction, int max_iterations) {
    if (!world.IsFree(world.start) || !world.IsFree(world.goal)) {
      return std::nullopt;
    }
    trees[0].Reset(world.start);
    trees[1].Reset(world.goal);
    Eigen::VectorXd newest[2] = {world.start, world.goal};
    bool turn_of_start = true;
    int explorations = 0;
    for (int i = 0; i < max_iterations; ++i) {
      Eigen::VectorXd goal;
      int side = static_cast<int>(num_swaps % 2);
      if (i * exploration_fraction > explorations) {
        ++explorations;
        if (num_samples == world.samples.size()) {
          return std::nullopt;
        }
        goal = world.samples[num_samples++];
      } else {
        const int wanted = turn_of_start ? 0 : 1;
        num_swaps += wanted == side ? 0 : 1;
        side = wanted;
        turn_of_start = !turn_of_start;
        goal = newest[1 - side];
      }
      ReferenceTree& tree = trees[side];
      const ReferenceTree& other = trees[1 - side];
      int node = tree.Nearest(goal);
      Eigen::VectorXd q = tree.points[static_cast<std::size_t>(node)];
      const Eigen::VectorXd step = ReferenceTree::Step(q, goal, world.step);
      for (q += step; world.IsFree(q); q += step) {
        node = tree.Add(q, node);
        newest[side] = q;
        const int nearest = other.Nearest(q);
        if (ReferenceTree::Distance(other.points[static_cast<std::size_t>(nearest)], q) <= world.step) {
          std::vector<Eigen::VectorXd> path = trees[0].Chain(side == 0 ? node : nearest);
          const std::vector<Eigen::VectorXd> back = trees[1].Chain(side == 0 ? nearest : node);
          path.insert(path.end(), back.rbegin(), back.rend());
          return path;
        }
        if (ReferenceTree::Distance(q, goal) < world.step) {
          break;
        }
      }
      ++num_swaps;
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
    const Path expected = reference.Plan(world, exploration_fraction, max_iterations);
    const auto environment = world.MakeEnvironment();
    Connect connect({world.step, static_cast<unsigned long>(max_iterations), exploration_fraction},
                    environment);
    ASSERT_EQ(connect.Plan(world.start, world.goal), expected) << "seed " << seed;
    if (reference.trees[0].points.empty()) {
      continue;
    }
    ASSERT_EQ(environment->num_samples, reference.num_samples) << "seed " << seed;
    // A success ends with the start tree in the first owner, a failure wherever the last exchange left it.
    const std::size_t first = expected ? 0 : reference.num_swaps % 2;
    std::vector<Eigen::VectorXd> inserted = reference.trees[first].points;
    const std::vector<Eigen::VectorXd>& others = reference.trees[1 - first].points;
    inserted.insert(inserted.end(), others.begin(), others.end());
    ASSERT_EQ(connect.rrt->GetAllValidatedConfigurations(), inserted) << "seed " << seed;
    (expected ? num_found : num_failed) += 1;
  }
  EXPECT_GT(num_found, 100);
  EXPECT_GT(num_failed, 50);
}

TEST(RRTConnectTest, PathOfASmallQueryStaysTheSame) {
  // Recorded once; every build on every machine must find it again.
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}));
  world.add(BoxObstacle{{0.2, 0.9, 1.0}}, Pose3::FromTranslation({-0.9, 1.2, 0.0}));
  const auto environment =
      CreateRobotEnvironment(BuildThreeLinkRobotEnvironmentConfig(world.view(), {1.0, 1.0, 1.0}, 100, 23));
  Connect connect({0.7, 1000, 0.5}, environment);
  const Path path = connect.Plan(Vec({-0.4, 0.1, 0.2}), Vec({1.7, -0.2, -0.3}));
  ASSERT_TRUE(path.has_value());
  const std::vector<Eigen::VectorXd> recorded = {
      Vec({-0.4, 0.1, 0.2}),
      Vec({-0.070054312773640159, 0.2439753714269095, 0.27140882963971136}),
      Vec({0.55926221186814906, 0.51858444767233725, 0.40760929607214708}),
      Vec({1.1885787365099383, 0.79319352391776499, 0.54380976250458279}),
      Vec({1.4442893682549691, 0.29659676195888246, 0.12190488125229143}),
      Vec({1.7, -0.2, -0.3}),
  };
  EXPECT_EQ(*path, recorded);
}

}  // namespace
}  // namespace kavo::planning
