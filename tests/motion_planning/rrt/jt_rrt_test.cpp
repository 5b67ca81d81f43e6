#include "kavo/motion_planning/rrt/jt_rrt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/world/world.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::LogCapture;
using testing::Vec;

constexpr char kFile[] = "motion_planning/rrt/jt_rrt";

JtRRTConfig Config(double edge_length = 0.1, double zone = 0.03, double final_tolerance = 1e-5,
                   double exploitation = 0.4, double exploration = 0.1, std::size_t max_iterations = 10000) {
  return {edge_length,     Eigen::Vector3d::Constant(zone),
          final_tolerance, exploitation,
          exploration,     max_iterations,
          false,           3};
}

// A planner with its environment and trees.
struct Planner {
  explicit Planner(const JtRRTConfig& config, RobotEnvironmentConfig environment_config)
      : environment(MakeEnvironment(environment_config)),
        c_space_tree(CreateBasicTree(static_cast<unsigned long>(environment->CSpaceDimension()),
                                     environment->CSpaceDistanceMetric(), true)),
        task_space_tree(CreateBasicTree(3, L2Norm, true)),
        rrt(CreateJtRRT(config, environment, c_space_tree, task_space_tree)) {}

  static std::shared_ptr<RobotEnvironment> MakeEnvironment(RobotEnvironmentConfig& config) {
    config.SetTaskSpaceLimits({Vec({-1.0, -1.0, -1.0}), Vec({1.0, 1.0, 1.0})});
    return CreateRobotEnvironment(config);
  }

  std::vector<Eigen::VectorXd> Plan(const Eigen::VectorXd& start, const Eigen::VectorXd& target) const {
    const auto nodes = rrt->TryToFindPath(start, target);
    return nodes ? ConvertToConfigurations(*nodes) : std::vector<Eigen::VectorXd>{};
  }

  std::shared_ptr<RobotEnvironment> environment;
  std::unique_ptr<Tree> c_space_tree;
  std::unique_ptr<Tree> task_space_tree;
  std::shared_ptr<JtRRT> rrt;
};

RobotEnvironmentConfig ThreeLink(const World& world = World()) {
  return BuildThreeLinkRobotEnvironmentConfig(world.view(), {1.0, 1.0, 1.0}, 100, 5);
}

// A slide along x and one along y: the Jacobian is the identity everywhere.
RobotEnvironmentConfig Table(const World& world, int max_sampling_attempts = 100) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"x", JointType::kPrismatic, "base", "sledge", {}, {1.0, 0.0, 0.0}, {{-1.0, 1.0}}, 0.0});
  builder.addJoint({"y", JointType::kPrismatic, "sledge", "tool", {}, {0.0, 1.0, 0.0}, {{-1.0, 1.0}}, 0.0});
  builder.addCollisionSphere("tool", {0.0, 0.0, 0.0}, 0.01);
  return {builder.build().get(), world.view(), Vec({1.0, 1.0}), max_sampling_attempts, 1, 2};
}

const Eigen::VectorXd kStart = Vec({-0.4, 0.1, 0.2});

TEST(JtRRTTest, SettingsAreCheckedWhenASearchStarts) {
  const double nan = std::nan("");
  JtRRTConfig zone = Config();
  zone.x_target_zone_tolerance = {0.5, 0.0, -1.0};
  const struct {
    JtRRTConfig config;
    int line;
    std::string message;
  } cases[] = {
      {zone, 39, "Each element of 'x_target_zone_tolerance' [0.5   0  -1] must be positive."},
      {Config(0.1, 0.1, 0.0), 45, "'x_target_final_tolerance' [0] must be positive."},
      {Config(nan), 49, "'edge_length' [nan] must be positive."},
      {Config(0.1, 0.1, 0.1, 0.4, -0.5), 54,
       "'task_space_exploration_fraction' [-0.5] must be in range [0, 1]."},
      {Config(0.1, 0.1, 0.1, 1.5, 0.0), 59,
       "'task_space_exploitation_fraction' [1.5] must be in range [0, 1]."},
      {Config(0.1, 0.1, 0.1, 0.5, 0.6), 65,
       "Total task space fraction, 'task_space_exploration_fraction' + 'task_space_exploitation_fraction' "
       "[1.1] must be in range [0, 1]."},
  };
  for (const auto& c : cases) {
    const auto plan = [&c] { Planner(c.config, ThreeLink()).Plan(kStart, Eigen::Vector3d(1.0, 1.0, 0.0)); };
    ExpectFatal(plan, {}, kFile, c.line, c.message);
  }
  ValidateJtRRTConfig(Config(0.1, 0.1, 0.1, 0.4, 0.6));
}

TEST(JtRRTTest, TreesAndEnvironmentMustFit) {
  Planner planner(Config(), ThreeLink());
  auto no_ids = CreateBasicTree(3, L2Norm, false);
  auto flat = CreateBasicTree(2, L2Norm, true);
  const auto create = [&](const std::shared_ptr<RobotEnvironment>& environment,
                          std::unique_ptr<Tree>& c_space_tree, std::unique_ptr<Tree>& task_space_tree) {
    CreateJtRRT(Config(), environment, c_space_tree, task_space_tree);
  };
  EXPECT_THROW(create(planner.environment, flat, planner.task_space_tree), util::FatalError);
  EXPECT_THROW(create(planner.environment, planner.c_space_tree, flat), util::FatalError);
  ExpectFatal(
      [&] { create(CreateRobotEnvironment(ThreeLink()), planner.c_space_tree, planner.task_space_tree); },
      "maybe_sample.has_value()", kFile, 206, "RobotEnvironment does NOT support task space sampling.");
  ExpectFatal([&] { create(planner.environment, no_ids, planner.task_space_tree); },
              "c_space_tree->SupportsNodeId()", kFile, 113, "");
  ExpectFatal([&] { create(planner.environment, planner.c_space_tree, no_ids); },
              "task_space_tree->SupportsNodeId()", kFile, 114, "");
  ASSERT_FALSE(planner.Plan(kStart, Vec({1.0, 1.0, 0.0})).empty());
  ExpectFatal([&] { planner.Plan(kStart, Vec({1.0, 1.0})); }, "x_target.size() == 3", kFile, 123, "");
  EXPECT_EQ(planner.rrt->LastStatus(), SearchStatus::kNone);
}

// The search written out plainly, on lists: the configurations that it inserts, and the indices of the path.
struct SlowSearch {
  SlowSearch(const JtRRTConfig& c, const RobotEnvironment& e, const Eigen::VectorXd& start,
             const Eigen::VectorXd& target) {
    const auto x = [&](const Eigen::VectorXd& at) -> Eigen::VectorXd { return e.TaskSpacePosition(at); };
    const auto pull = [&](const Eigen::VectorXd& at, const Eigen::VectorXd& goal) -> Eigen::VectorXd {
      Eigen::MatrixXd jacobian(3, at.size());
      e.GetTaskSpacePositionJacobian(at, jacobian);
      return jacobian.transpose() * (c.edge_length * (goal - x(at)).normalized());
    };
    const auto insert = [&](const Eigen::VectorXd& at, std::size_t parent) {
      q.push_back(at);
      positions.push_back(x(at));
      parents.push_back(parent);
      return q.size() - 1;
    };
    const auto min = e.CSpaceCoordLimits().Min().array();
    const auto max = e.CSpaceCoordLimits().Max().array();
    std::mt19937 modes(static_cast<unsigned int>(c.seed));
    std::mt19937 draws(static_cast<unsigned int>(c.seed) ^ 12345u);
    std::set<std::size_t> candidates;
    bool in_zone = false;
    e.SampleTaskSpace();  // drawn when a planner is made
    std::size_t node = insert(start, 0);
    for (std::size_t i = 0; i < c.max_iterations && !in_zone; ++i) {
      const double r = static_cast<double>(modes()) / 4294967295.0;
      const bool exploit = r < c.task_space_exploitation_fraction;
      const bool straight = r >= c.task_space_exploitation_fraction + c.task_space_exploration_fraction;
      const Eigen::VectorXd goal = exploit    ? target
                                   : straight ? *e.SampleConfiguration()
                                              : Eigen::VectorXd(*e.SampleTaskSpace());
      const auto distance = [&](const Eigen::VectorXd& at, const Eigen::VectorXd& position) {
        return straight ? e.CSpaceDistanceMetric()(at, goal) : (position - goal).norm();
      };
      std::vector<double> distances(q.size());
      std::transform(q.begin(), q.end(), positions.begin(), distances.begin(), distance);
      node =
          static_cast<std::size_t>(std::min_element(distances.begin(), distances.end()) - distances.begin());
      if (exploit) {
        if (candidates.empty()) {
          continue;
        }
        if (candidates.count(node) == 0) {
          node = *std::next(candidates.begin(), static_cast<std::ptrdiff_t>(draws() % candidates.size()));
        }
        candidates.erase(node);
      }
      const auto step = [&](const Eigen::VectorXd& at) -> Eigen::VectorXd {
        const Eigen::VectorXd dq = straight ? Eigen::VectorXd(goal - at) : pull(at, goal);
        return straight || dq.norm() > 1e-6 ? c.edge_length * dq.normalized() : dq;
      };
      Eigen::VectorXd dq = step(q[node]);
      Eigen::VectorXd next = (q[node] + dq).array().max(min).min(max);
      if (dq.norm() < 1e-6 || (next.array() <= min || next.array() >= max).all()) {
        continue;
      }
      while (!in_zone && e.IsValidConfiguration(next)) {
        node = insert(next, node);
        if (!exploit) {
          candidates.insert(node);
        }
        in_zone = ((x(next) - target).array().abs() <= c.x_target_zone_tolerance.array()).all();
        const Eigen::VectorXd previous = dq;
        dq = straight ? dq : step(next);
        if (c.edge_length > distance(next, x(next)) || dq.norm() < 1e-6 || dq.dot(previous) < 0.0) {
          break;
        }
        next += dq;
      }
    }
    if (!in_zone) {
      return;
    }
    Eigen::VectorXd refined = q[node];
    Eigen::VectorXd previous = Eigen::VectorXd::Zero(start.size());
    double scale = c.edge_length;
    for (int i = 0; i < 1001 && (x(refined) - target).norm() > c.x_target_final_tolerance; ++i) {
      const Eigen::VectorXd direction = pull(refined, target).normalized();
      refined += scale * direction;
      scale /= direction.dot(previous) < 0.0 ? 1.4 : 1.0;
      previous = direction;
    }
    const Eigen::VectorXd from = q[node];
    for (int k = 1; k <= (refined - from).norm() / c.edge_length; ++k) {
      node = insert(from + k * c.edge_length * (refined - from).normalized(), node);
    }
    for (node = insert(refined, node); node > 0; node = parents[node]) {
      path.insert(path.begin(), node);
    }
    path.insert(path.begin(), 0);
  }

  std::vector<Eigen::VectorXd> q;
  std::vector<Eigen::VectorXd> positions;
  std::vector<std::size_t> parents;
  std::vector<std::size_t> path;
};

TEST(JtRRTTest, SearchesLikeItsReference) {
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}));
  const auto environment_config = [&world] {
    return BuildThreeLinkRobotEnvironmentConfig(world.view(), {1.0, 2.0, 0.5}, 100, 5);
  };
  const JtRRTConfig configs[] = {Config(), Config(0.3, 0.05, 1e-3, 0.2, 0.6),
                                 Config(0.03, 0.2, 1e-5, 0.6, 0.2, 40),
                                 Config(0.1, 0.03, 1e-5, 0.5, 0.0, 200),
                                 // The refinement spends its budget of steps on the way.
                                 Config(0.001, 3.0),
                                 // Nothing to pull without exploration.
                                 Config(0.1, 0.01, 1e-5, 1.0, 0.0, 50)};
  const LogCapture log(0);
  int num_found = 0;
  for (const JtRRTConfig& config : configs) {
    for (const auto& target : {Vec({-0.5, 1.0, 0.0}), Vec({0.6, 0.9, 0.0}), Vec({-1.2, -0.4, 0.0})}) {
      const Planner planner(config, environment_config());
      RobotEnvironmentConfig reference_config = environment_config();
      const SlowSearch slow(config, *Planner::MakeEnvironment(reference_config), kStart, target);
      const auto path = planner.Plan(kStart, target);
      const auto& nodes = planner.c_space_tree->Nodes();
      const auto& x_nodes = planner.task_space_tree->Nodes();
      ASSERT_EQ(nodes.size(), slow.q.size());
      ASSERT_EQ(x_nodes.size(), slow.q.size());
      for (std::size_t i = 0; i < nodes.size(); ++i) {
        ASSERT_LT((nodes[i]->Configuration() - slow.q[i]).norm(), 1e-9) << i;
        // The trees are in step.
        ASSERT_EQ(x_nodes[i]->Configuration(),
                  planner.environment->TaskSpacePosition(nodes[i]->Configuration()));
        for (const auto& node : {nodes[i], x_nodes[i]}) {
          ASSERT_EQ(node->TryGetId(), i);
          ASSERT_EQ(node->Parent().has_value(), i > 0);
          ASSERT_TRUE(i == 0 || (*node->Parent())->TryGetId() == slow.parents[i]) << i;
        }
      }
      EXPECT_EQ(planner.rrt->GetAllValidatedConfigurations().size(), nodes.size());
      EXPECT_EQ(planner.rrt->GetAllValidatedEdges().size(), nodes.size() - 1);
      EXPECT_EQ(planner.rrt->LastStatus(),
                path.empty() ? SearchStatus::kIterationsSpent : SearchStatus::kFound);
      ASSERT_EQ(path.size(), slow.path.size());
      for (std::size_t i = 0; i < path.size(); ++i) {
        ASSERT_LT((path[i] - slow.q[slow.path[i]]).norm(), 1e-9) << i;
      }
      num_found += path.empty() ? 0 : 1;
    }
  }
  EXPECT_GT(num_found, 6);
}

TEST(JtRRTTest, FailuresEndInBoundedTimeWithTheirReports) {
  World world;
  world.add(SphereObstacle{0.2}, Pose3::FromTranslation({-0.5, 0.5, 0.0}));
  const auto expect = [&](const Eigen::VectorXd& start, const Eigen::VectorXd& target, SearchStatus status,
                          const std::vector<std::string>& warnings) {
    const Planner planner(Config(0.1, 0.01, 1e-5, 0.4, 0.1, 300), Table(world));
    LogCapture log;
    EXPECT_TRUE(planner.Plan(start, target).empty());
    EXPECT_EQ(planner.rrt->LastStatus(), status) << target.transpose();
    EXPECT_EQ(log.records().size(), warnings.size());
    EXPECT_EQ(log.warnings(), warnings);
  };
  const Eigen::VectorXd origin = Vec({0.0, 0.0});
  expect(Vec({-0.5, 0.5}), Vec({0.5, 0.5, 0.0}), SearchStatus::kInvalidStart,
         {"Invalid configuration, [-0.5  0.5]."});
  expect(origin, Vec({0.5, HUGE_VAL, 0.0}), SearchStatus::kInvalidTarget,
         {"Invalid target position, [0.5 inf   0]."});
  // Out of reach, and inside the obstacle.
  expect(origin, Vec({0.5, 0.5, 0.5}), SearchStatus::kIterationsSpent, {});
  expect(origin, Vec({-0.5, 0.5, 0.0}), SearchStatus::kIterationsSpent, {});
  // Where sampling fails the environment says so.
  const Planner planner(Config(0.1, 0.01, 1e-5, 0.0, 0.0), Table(world, 0));
  LogCapture log;
  EXPECT_TRUE(planner.Plan(Vec({0.0, 0.0}), Vec({0.5, 0.5, 0.0})).empty());
  EXPECT_EQ(planner.rrt->LastStatus(), SearchStatus::kSamplingFailed);
  EXPECT_EQ(log.warnings(), std::vector<std::string>{"Unable to find a valid configuration."});
  // No budget, no path.
  const Planner idle(Config(0.1, 0.5, 1e-5, 0.4, 0.1, 0), Table(world));
  EXPECT_TRUE(idle.Plan(Vec({0.0, 0.0}), Vec({0.1, 0.0, 0.0})).empty());
  EXPECT_EQ(idle.c_space_tree->NumNodes(), 1u);
}

TEST(JtRRTTest, BoundsOfTheTargetZoneBelongToIt) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"x", JointType::kPrismatic, "base", "tool", {}, {1.0, 0.0, 0.0}, {{-1.0, 1.0}}, 0.0});
  for (const double side : {1.0, -1.0}) {
    // Steps of a quarter, straight along x: the first one ends on the bound, near enough to stay there.
    const Planner planner(Config(0.25, 0.25, 0.3, 0.0, 0.0),
                          {builder.build().get(), World().view(), Vec({1.0}), 100, 1, 2});
    const auto path = planner.Plan(Vec({0.0}), Vec({0.5 * side, 0.0, 0.0}));
    ASSERT_FALSE(path.empty());
    EXPECT_EQ(path.back(), Vec({0.25 * side}));
  }
}

TEST(JtRRTTest, StraightWalksGoToTheirEndWithinTheLimitOfNodes) {
  JtRRTConfig config = Config(2e-5, 0.01, 1e-5, 0.0, 0.0, 1);
  const LogCapture quiet;
  for (const std::uint64_t max_nodes : {std::uint64_t{24000}, std::uint64_t{10}, kDefaultMaxNodes}) {
    config.max_nodes = max_nodes;
    const Planner planner(config, Table(World()));
    EXPECT_TRUE(planner.Plan(Vec({-0.9, -0.9}), Vec({0.9, 0.9, 0.9})).empty());
    const bool is_limited = max_nodes < kDefaultMaxNodes;
    EXPECT_EQ(planner.rrt->LastStatus(),
              is_limited ? SearchStatus::kNodesSpent : SearchStatus::kIterationsSpent);
    // Each configuration has its position.
    if (is_limited) {
      EXPECT_EQ(planner.c_space_tree->NumNodes(), max_nodes / 2);
    } else {
      EXPECT_GT(planner.c_space_tree->NumNodes(), 12000u);
    }
  }
}

TEST(JtRRTTest, TargetThatRefinementCannotReachIsReported) {
  // The zone is high enough to be met from the plane, the target itself is 0.05 above it.
  const Planner planner(Config(0.1, 0.1), Table(World()));
  LogCapture log;
  const auto path = planner.Plan(Vec({0.0, 0.0}), Vec({0.5, 0.5, 0.05}));
  ASSERT_FALSE(path.empty());
  const auto messages = log.messages(LogLevel::kError);
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_THAT(
      messages[0],
      ::testing::MatchesRegex(
          "Unable to find c-space target from the given warm start \\[.*\\]. Closest valid c-space "
          "target found is \\[.*\\]. Task space position for returned c-space configuration is "
          "\\[.*\\]. This task space position is .* away from task space target \\[ 0.5  0.5 0.05\\]."));
  const LogCapture quiet(0);
  planner.Plan(Vec({0.0, 0.0}), Vec({0.5, 0.5, 0.05}));
  EXPECT_TRUE(quiet.records().empty());
}

}  // namespace
}  // namespace kavo::planning
