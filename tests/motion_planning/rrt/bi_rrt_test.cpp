#include "kavo/motion_planning/rrt/bi_rrt.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/math/constants_internal.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/fatal_error.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/exact_balls.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::Balls;
using testing::ExpectValid;
using testing::LogCapture;
using testing::Path;
using testing::RandomVec;
using testing::UnitBox;
using testing::Vec;

TEST(BiRRTTest, PathsAndTreesAreMadeOfMotionsThatWereFoundValid) {
  const LogCapture log;
  std::mt19937 engine(3);
  int num_found = 0;
  int num_failed = 0;
  for (int k = 0; k < 300; ++k) {
    const int dimension = 2 + k % 3;
    const auto balls = UnitBox(dimension);
    for (int i = 0; i < 3 * dimension; ++i) {
      balls->balls.emplace_back(RandomVec(engine, dimension, 0.0, 1.0), 0.24);
    }
    BiRRTConfig config;
    config.range = 0.3;
    config.scales = Eigen::VectorXd::Constant(dimension, 2.0);
    config.seed = static_cast<std::uint32_t>(k);
    config.max_iterations = 10;
    const auto planner = CreateBiRRT(config, balls);
    const Eigen::VectorXd start = RandomVec(engine, dimension, 0.0, 1.0);
    const Eigen::VectorXd goal = RandomVec(engine, dimension, 0.0, 1.0);
    const auto found = planner->TryToConnect({start}, {goal});
    if (found) {
      ++num_found;
      EXPECT_TRUE(found->path.front() == start && found->path.back() == goal);
      ExpectValid(*balls, found->path);
      EXPECT_EQ(planner->LastStatus(), SearchStatus::kFound);
    } else if (planner->LastStatus() == SearchStatus::kIterationsSpent) {
      ++num_failed;
      EXPECT_EQ(planner->LastNumIterations(), 10u);
    }
    const auto edges = planner->GetAllValidatedEdges();
    const auto num_nodes = planner->NumNodes();
    EXPECT_EQ(planner->GetAllValidatedConfigurations().size(), num_nodes[0] + num_nodes[1]);
    for (std::size_t i = 0; i < edges.size(); ++i) {
      const bool is_of_start = i + 1 < num_nodes[0];
      ExpectValid(*balls, is_of_start ? Path{edges[i].first, edges[i].second}
                                      : Path{edges[i].second, edges[i].first});
      EXPECT_LE((edges[i].second - edges[i].first).norm(), 0.15 + 1e-12);
    }
  }
  EXPECT_GT(num_found, 50);
  EXPECT_GT(num_failed, 10);
}

TEST(BiRRTTest, TakesTheStartAndTheGoalThatMeet) {
  const LogCapture log;
  // A wall with a gap on the one side; a room without a door.
  const auto balls = UnitBox(2);
  for (double x = 0.0; x < 0.75; x += 0.02) {
    balls->balls.emplace_back(Vec({x, 0.5}), 0.03);
  }
  for (double angle = 0.0; angle < 6.3; angle += 0.1) {
    balls->balls.emplace_back(Vec({0.2 + 0.12 * std::cos(angle), 0.2 + 0.12 * std::sin(angle)}), 0.03);
  }
  const Path starts = {Vec({-1.0, 0.0}), Vec({0.2, 0.2}), Vec({0.4, 0.9})};
  const Path goals = {Vec({0.5, 0.5}), Vec({0.2, 0.2}), Vec({0.6, 0.1})};
  const auto planner = CreateBiRRT({}, balls);
  const auto found = planner->TryToConnect(starts, goals);
  ASSERT_TRUE(found);
  // Both are in the room, which is a start and a goal.
  EXPECT_EQ(std::pair(found->start, found->goal), (std::pair<std::size_t, std::size_t>(1, 1)));
  const auto around = planner->TryToConnect({starts[0], starts[2]}, goals);
  ASSERT_TRUE(around);
  EXPECT_EQ(std::pair(around->start, around->goal), (std::pair<std::size_t, std::size_t>(1, 2)));
  EXPECT_TRUE(around->path.front() == starts[2] && around->path.back() == goals[2]);
  ExpectValid(*balls, around->path);

  // Before the search until there is one, the one in the room, then after 16 and 32 samples.
  const std::vector<Path> draws = {{}, {Vec({2.0, 0.0})}, {goals[1]}, {}, {Vec({0.9, 0.9})}};
  std::size_t num_draws = 0;
  const auto drawn = planner->TryToConnect({starts[2]}, [&]() -> std::optional<Path> {
    return num_draws < draws.size() ? std::optional(draws[num_draws++]) : std::nullopt;
  });
  ASSERT_TRUE(drawn);
  EXPECT_EQ(drawn->goal, 2u);
  EXPECT_EQ(drawn->path.back(), draws[4][0]);
  EXPECT_EQ(planner->LastNumIterations(), 33u);
  EXPECT_THROW(planner->TryToConnect({}, goals), util::FatalError);
  EXPECT_THROW(planner->TryToConnect(starts, {Vec({0.0})}), util::FatalError);
}

TEST(BiRRTTest, EndsThatAreOfNoUseEndTheQueryAtOnce) {
  const auto balls = UnitBox(1);
  balls->balls.emplace_back(Vec({0.5}), 0.1);
  const auto planner = CreateBiRRT({}, balls);
  const std::string too_close = " is valid, but too close to a contact to prove a motion from it.";
  for (const auto& [start, goal, status, warning] :
       {std::tuple(0.5, 0.0, SearchStatus::kInvalidStart, std::string("Invalid configuration, [0.5].")),
        std::tuple(0.0, 2.0, SearchStatus::kInvalidTarget, std::string("Invalid configuration, [2].")),
        std::tuple(0.395, 0.0, SearchStatus::kStartTooClose, "Configuration [0.395]" + too_close),
        std::tuple(0.0, 0.605, SearchStatus::kTargetTooClose, "Configuration [0.605]" + too_close)}) {
    const LogCapture log;
    EXPECT_FALSE(planner->TryToFindPath(Vec({start}), Vec({goal})));
    EXPECT_EQ(planner->LastStatus(), status);
    EXPECT_EQ(log.warnings(), std::vector<std::string>{warning});
    EXPECT_EQ(planner->LastNumIterations(), 0u);
  }
  EXPECT_EQ(ToString(SearchStatus::kStartTooClose), std::string("start too close"));
  EXPECT_EQ(ToString(SearchStatus::kTargetTooClose), std::string("target too close"));
}

// A start that is walled in while the goal is in the open.
struct Enclosed {
  explicit Enclosed(const std::function<void(BiRRTConfig&)>& edit) : balls(UnitBox(2)) {
    for (double angle = 0.0; angle < 6.3; angle += 0.05) {
      balls->balls.emplace_back(Vec({0.5 + 0.1 * std::cos(angle), 0.5 + 0.1 * std::sin(angle)}), 0.01);
    }
    BiRRTConfig config;
    config.max_iterations = 2000;
    edit(config);
    planner = CreateBiRRT(config, balls);
  }

  SearchStatus Ask() {
    balls->num_motions = 0;
    EXPECT_FALSE(planner->TryToConnect({Vec({0.5, 0.5})}, {Vec({0.9, 0.9})}));
    return planner->LastStatus();
  }

  std::shared_ptr<Balls> balls;
  std::shared_ptr<BiRRT> planner;
};

TEST(BiRRTTest, GrowsTheSmallerTreeAndWithinItsDomain) {
  Enclosed usual([](BiRRTConfig&) {});
  EXPECT_EQ(usual.Ask(), SearchStatus::kIterationsSpent);
  const auto [of_start, of_goal] = usual.planner->NumNodes();
  EXPECT_LE(of_goal, 2 * of_start + 2);
  Enclosed in_turns([](BiRRTConfig& config) { config.balance = testing::kInf; });
  in_turns.Ask();
  EXPECT_GT(in_turns.planner->NumNodes()[1], 2 * of_goal);
  // From close samples it goes in small motions, but for the tries to connect.
  double shares[2];
  for (const bool is_small : {false, true}) {
    Enclosed enclosed([&](BiRRTConfig& config) { config.domain = is_small ? 0.2 : 0.0; });
    enclosed.Ask();
    const double range = AutomaticRange(*enclosed.balls, Vec({1.0, 1.0}));
    const auto edges = enclosed.planner->GetAllValidatedEdges();
    shares[is_small] =
        static_cast<double>(std::count_if(
            edges.begin(), edges.end(),
            [&](const auto& edge) { return (edge.second - edge.first).norm() > 0.3 * range; })) /
        static_cast<double>(edges.size());
  }
  EXPECT_LT(shares[1], 0.5 * shares[0]);
  // Nor do samples of a domain without end come to lie on the limits.
  Enclosed open([](BiRRTConfig& config) { config.domain = testing::kInf; });
  open.Ask();
  const Path nodes = open.planner->GetAllValidatedConfigurations();
  EXPECT_GT(nodes.size(), 100u);
  EXPECT_LT(std::count_if(nodes.begin(), nodes.end(), [](const auto& q) { return q[0] == 0.0; }), 10);
}

TEST(BiRRTTest, EndsWhereItIsTold) {
  const LogCapture log;
  Enclosed enclosed([](BiRRTConfig& config) { config.max_nodes = 30; });
  EXPECT_EQ(enclosed.Ask(), SearchStatus::kNodesSpent);
  EXPECT_EQ(enclosed.planner->NumNodes()[0] + enclosed.planner->NumNodes()[1], 30u);
  EXPECT_EQ(log.warnings().back(), "The search has ended at its limit of [30] nodes, 'max_nodes'.");
  for (const int num_motions : {0, 1, 7}) {
    // Two of them are those of the ends.
    enclosed.planner->SetStopCondition([&] { return enclosed.balls->num_motions >= 2 + num_motions; });
    EXPECT_EQ(enclosed.Ask(), SearchStatus::kStopped);
    EXPECT_EQ(enclosed.balls->num_motions, 2 + num_motions);
  }
  Enclosed sampling([](BiRRTConfig& config) { config.samples = BiRRTConfig::Samples::kEnvironment; });
  EXPECT_EQ(sampling.Ask(), SearchStatus::kSamplingFailed);
}

TEST(BiRRTTest, GoesTheShortWayRound) {
  const LogCapture log;
  std::mt19937 engine(5);
  int num_turned = 0;
  for (std::uint32_t seed = 0; seed < 60; ++seed) {
    // A strip that closes to a ring, whose other coordinate has limits. The balls are all around the ring.
    const auto ring = std::make_shared<Balls>(Vec({-testing::kInf, 0.0}), Vec({testing::kInf, 1.0}),
                                              std::vector<Eigen::Index>{0});
    for (int i = 0; i < 8; ++i) {
      const Eigen::VectorXd center = RandomVec(engine, 2, 0.0, 1.0);
      for (int turn = -4; turn <= 4; ++turn) {
        ring->balls.emplace_back(Vec({math::kTwoPi * (center[0] + turn), center[1]}), 0.35);
      }
    }
    BiRRTConfig config;
    config.range = 0.8;
    config.seed = seed;
    const auto planner = CreateBiRRT(config, ring);
    const Eigen::VectorXd start = Vec({2.8, RandomVec(engine, 1, 0.0, 1.0)[0]});
    const Eigen::VectorXd goal = Vec({-2.8, RandomVec(engine, 1, 0.0, 1.0)[0]});
    const auto found = planner->TryToConnect({start}, {goal});
    if (found) {
      EXPECT_EQ(found->path.front(), start);
      EXPECT_TRUE(AreTurnsApart(found->path.back(), goal, {0}));
      ExpectValid(*ring, found->path);
      num_turned += std::abs(found->path.back()[0] - goal[0]) > 1.0 ? 1 : 0;
    }
  }
  EXPECT_GT(num_turned, 10);
}

// Joints that slide, turn, turn without end and follow, in turn, and a fixed tool.
std::shared_ptr<RobotDescription> Arm(int num_joints) {
  RobotDescriptionBuilder builder("link0");
  for (int i = 0; i <= num_joints; ++i) {
    Joint joint;
    joint.name = "joint" + std::to_string(i);
    joint.parent_frame = "link" + std::to_string(i);
    joint.child_frame = "link" + std::to_string(i + 1);
    joint.origin = Pose3::FromTranslation({0.0, 0.0, i == 0 ? 0.0 : 2.0 / num_joints});
    joint.axis = i % 2 == 0 ? Eigen::Vector3d::UnitX() : Eigen::Vector3d::UnitZ();
    joint.type = i == 0            ? JointType::kPrismatic
                 : i == num_joints ? JointType::kFixed
                 : i % 4 == 1      ? JointType::kContinuous
                                   : JointType::kRevolute;
    joint.limits = kinematics::JointLimits{i == 0 ? -0.7 : -2.0, i == 0 ? 0.7 : 2.0};
    if (i == num_joints / 2) {
      builder.addJoint(joint);
      joint.name = "follower";
      joint.parent_frame = joint.child_frame;
      joint.child_frame = "elbow";
      joint.mimic = Joint::Mimic{"joint" + std::to_string(i), -0.5, 0.1};
      builder.addCollisionSphere("elbow", {0.0, 0.05, 0.0}, 0.04);
    }
    builder.addJoint(joint);
    builder.addCollisionSphere("link" + std::to_string(i + 1), {0.0, 0.0, 0.05}, 0.05);
  }
  return builder.build();
}

TEST(BiRRTTest, ArmsOfAnyNumberOfJointsNeedNoSettings) {
  const LogCapture log;
  World world;
  for (const double x : {-0.5, 0.0, 0.5}) {
    world.add(BoxObstacle{{0.15, 0.15, 2.0}}, Pose3::FromTranslation({x, 0.45, 0.6}));
    world.add(SphereObstacle{0.15}, Pose3::FromTranslation({x + 0.2, -0.45, 1.0}));
  }
  for (const int num_joints : {6, 7, 8, 14}) {
    const std::shared_ptr<RobotDescription> robot = Arm(num_joints);
    const auto ends = CreateRobotEnvironment(RobotEnvironmentConfig(
        robot.get(), world.view(), Eigen::VectorXd::Ones(num_joints), 1000, 5 * num_joints, 1));
    const auto planner = CreateMotionPlanner(robot, world.view());
    planner->setParam("planner", "bi_rrt");
    for (int i = 0; i < 10; ++i) {
      const Eigen::VectorXd start = *ends->SampleConfiguration();
      const Eigen::VectorXd goal = *ends->SampleConfiguration();
      const auto results = planner->planToCSpaceTarget(start, goal, true);
      ASSERT_TRUE(results.path_found) << num_joints << " joints: " << ToString(planner->queryReport().status);
      EXPECT_EQ(results.path.front(), start);
      EXPECT_TRUE(AreTurnsApart(results.path.back(), goal, ends->PeriodicCoordinates()));
      EXPECT_EQ(ProvePath(*robot, world.view(), results.path).verdict, PathProof::Verdict::kFree);
      EXPECT_FALSE(planner->queryReport().first_invalid_interpolated);
    }
  }
}

// A nut that slides without end along a screw: there is no bound on how far the table moves it.
TEST(BiRRTTest, SlidesWithoutEndLeaveWhatHasBounds) {
  const LogCapture log;
  RobotDescriptionBuilder builder("base");
  const Eigen::Vector3d z = Eigen::Vector3d::UnitZ();
  builder.addJoint({"table", JointType::kRevolute, "base", "table", {}, z, {{-1.0, 1.0}}});
  builder.addJoint({"lift", JointType::kPrismatic, "table", "lift", {}, z, {{0.0, 1.0}}});
  builder.addJoint({"screw", JointType::kContinuous, "lift", "screw", {}, z});
  builder.addJoint({"nut",
                    JointType::kPrismatic,
                    "lift",
                    "nut",
                    {},
                    Eigen::Vector3d::UnitX(),
                    {},
                    {},
                    Joint::Mimic{"screw", 0.01, 0.0}});
  builder.addCollisionSphere("nut", {0.0, 0.0, 0.0}, 0.1);
  World world;
  world.add(SphereObstacle{0.1}, Pose3::FromTranslation({0.0, 0.0, -0.5}));
  const auto planner = CreateMotionPlanner(builder.build(), world.view());
  planner->setParam("planner", "bi_rrt");
  EXPECT_TRUE(planner->planToCSpaceTarget(Vec({0.5, 0.0, 0.0}), Vec({0.5, 1.0, 1.0}), false).path_found);
}

TEST(BiRRTTest, PathOfASmallQueryStaysTheSame) {
  // Recorded once; every build on every machine must find it again.
  const auto balls = UnitBox(3);
  for (const auto& center : {Vec({0.5, 0.5, 0.5}), Vec({0.5, 0.1, 0.6}), Vec({0.3, 0.9, 0.4})}) {
    balls->balls.emplace_back(center, 0.3);
  }
  BiRRTConfig config;
  config.seed = 23;
  config.range = 0.5;
  const auto found = CreateBiRRT(config, balls)->TryToConnect({Vec({0.0, 0.5, 0.5})}, {Vec({1.0, 0.5, 0.5})});
  const Path recorded = {
      Vec({0, 0.5, 0.5}),
      Vec({0.029692806269231511, 0.14707058973793508, 0.14707058973793508}),
      Vec({0.35312853751282103, 0.23287860079473033, 0.18456268139826601}),
      Vec({0.67656426875641051, 0.31868661185152558, 0.22205477305859694}),
      Vec({1, 0.40449462290832083, 0.25954686471892785}),
      Vec({1, 0.5, 0.5}),
  };
  ASSERT_TRUE(found);
  EXPECT_EQ(found->path, recorded);
}

}  // namespace
}  // namespace kavo::planning
