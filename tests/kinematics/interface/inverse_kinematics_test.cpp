#include "kavo/kinematics/interface/inverse_kinematics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kavo/util/fatal_error.h"
#include "tests/kinematics/random_robot.h"
#include "tests/support/every_target.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using testing::RandomVec;

// What remains between a pose and a target, by Eigen's own rotations.
struct Remaining {
  double position;
  double angle;
};

Remaining Compare(const Pose3& frame, const PoseTarget& target) {
  const auto isometry = [](const Pose3& pose) {
    return Eigen::Isometry3d(Eigen::Translation3d(pose.translation()) * pose.rotation());
  };
  const Eigen::Isometry3d rest = isometry(target.pose).inverse() * isometry(frame) * isometry(target.tool);
  Eigen::Vector3d position = rest.translation();
  Eigen::Vector3d sine = Eigen::Quaterniond(rest.linear()).vec();
  for (std::size_t i = 0; i < 3; ++i) {
    const auto axis = static_cast<Eigen::Index>(i);
    position[axis] *= target.position_counts[i] ? 1.0 : 0.0;
    sine[axis] *= target.rotation_counts[i] ? 1.0 : 0.0;
  }
  return {position.norm(), 2.0 * std::asin(std::min(1.0, sine.norm()))};
}

PoseTarget RandomTarget(const Pose3& pose, std::mt19937& engine) {
  PoseTarget target;
  if (engine() % 2 == 0) {
    const Eigen::VectorXd v = RandomVec(engine, 7, -0.5, 0.5);
    target.tool = Pose3(Eigen::Quaterniond(v[0], v[1], v[2], v[3]), v.tail<3>());
  }
  const double tolerances[] = {1e-10, 1e-5, 1e-2};
  target.position_tolerance = tolerances[engine() % 3];
  target.orientation_tolerance = 10.0 * tolerances[engine() % 3];
  // Few robots get all the way to a pose that is off by as much as a wide tolerance leaves room for.
  Eigen::Vector3d shift = RandomVec(engine, 3, -0.5, 0.5);
  shift *= target.position_tolerance == 1e-2 ? 1e-2 : 0.0;
  const Eigen::Vector3d axis = RandomVec(engine, 3, -1.0, 1.0).normalized();
  const Eigen::AngleAxisd turn(target.orientation_tolerance == 1e-1 ? 0.08 : 0.0, axis);
  target.pose = pose * target.tool * Pose3(Eigen::Quaterniond(turn), shift);
  if (engine() % 2 == 0) {
    for (std::size_t i = 0; i < 3; ++i) {
      target.position_counts[i] = engine() % 3 != 0;
      target.rotation_counts[i] = engine() % 3 != 0;
    }
  }
  return target;
}

TEST(InverseKinematicsTest, AgreesWithTheForwardKinematicsOnRandomRobots) {
  std::mt19937 engine(11);
  int num_solved = 0;
  int num_targets = 0;
  for (int round = 0; round < 200; ++round) {
    const testing::RandomRobot robot(engine, 1 + round % 12);
    const auto description = robot.description();
    const auto kinematics = description->kinematics();
    const auto n = static_cast<Eigen::Index>(description->numCSpaceCoords());
    const std::string& name = robot.joints()[engine() % robot.joints().size()].child_frame;
    const auto frame = kinematics->frame(name);
    const PoseTarget target = RandomTarget(kinematics->pose(RandomVec(engine, n, -3.0, 3.0), frame), engine);
    InverseKinematicsOptions options;
    options.max_solutions = 3;
    // Some of these robots have hardly any room.
    options.max_restarts = 1000;
    options.reference = RandomVec(engine, n, -3.0, 3.0);
    const InverseKinematicsResult result = SolveInverseKinematics(*description, name, target, options);
    ++num_targets;
    num_solved += result.solutions.empty() ? 0 : 1;
    EXPECT_EQ(result.nearest.has_value(), result.solutions.empty());
    double last = 0.0;
    for (const Eigen::VectorXd& q : result.solutions) {
      const Remaining rest = Compare(kinematics->pose(q, frame), target);
      EXPECT_LE(rest.position, target.position_tolerance);
      EXPECT_LE(rest.angle, target.orientation_tolerance);
      EXPECT_LE(q.lpNorm<Eigen::Infinity>(), 3.0);
      EXPECT_GE((q - *options.reference).norm(), last);
      last = (q - *options.reference).norm();
    }
    for (std::size_t a = 0; a < result.solutions.size(); ++a) {
      for (std::size_t b = 0; b < a; ++b) {
        EXPECT_GE((result.solutions[a] - result.solutions[b]).norm(), 1e-3);
      }
    }
    if (result.nearest) {
      const Remaining rest = Compare(kinematics->pose(result.nearest->q, frame), target);
      EXPECT_NEAR(rest.position, result.nearest->position_error, 1e-12);
      EXPECT_NEAR(rest.angle, result.nearest->orientation_error, 1e-7);
    }
  }
  EXPECT_EQ(num_solved, num_targets);
}

Joint Hinge(const std::string& name, const std::string& parent, const Eigen::Vector3d& origin) {
  Joint joint;
  joint.name = name;
  joint.type = JointType::kRevolute;
  joint.parent_frame = parent;
  joint.child_frame = name + "_link";
  joint.origin = Pose3::FromTranslation(origin);
  joint.limits = kinematics::JointLimits{-1.0, 1.0};
  return joint;
}

PoseTarget PositionTarget(const Eigen::Vector3d& position) {
  PoseTarget target;
  target.pose = Pose3::FromTranslation(position);
  target.rotation_counts = {false, false, false};
  return target;
}

// Two hinges about z with a metre behind each, the second one of which may be endless. A wheel that moves
// nothing hangs on the second one.
std::unique_ptr<RobotDescription> TwoHinges(bool is_endless = false) {
  Joint elbow = Hinge("elbow", "shoulder_link", {1.0, 0.0, 0.0});
  if (is_endless) {
    elbow.type = JointType::kContinuous;
    elbow.limits.reset();
  }
  return RobotDescriptionBuilder("base")
      .addJoint(Hinge("shoulder", "base", Eigen::Vector3d::Zero()))
      .addJoint(Hinge("wheel", "elbow_link", Eigen::Vector3d::Zero()))
      .addJoint(elbow)
      .addFrame("tool", "elbow_link", Pose3::FromTranslation({1.0, 0.0, 0.0}))
      .build();
}

TEST(InverseKinematicsTest, SaysWhyThereIsNoAnswer) {
  const auto robot = TwoHinges();
  PoseTarget turned = PositionTarget({2.0, 0.0, 0.0});
  turned.rotation_counts = {true, true, true};
  turned.pose = Pose3(Eigen::Quaterniond(0.0, 0.0, 0.0, 1.0), {2.0, 0.0, 0.0});
  turned.position_counts = {false, false, false};
  InverseKinematicsOptions refuse;
  refuse.filter = [](const Eigen::VectorXd&) { return false; };
  refuse.max_restarts = 3;
  InverseKinematicsOptions nothing;
  nothing.max_restarts = 0;
  const struct {
    PoseTarget target;
    InverseKinematicsOptions options;
    std::string text;
  } cases[] = {
      {PositionTarget({2.012, 0.0, 0.0}), {}, "the nearest it got: 12 mm, 0 degrees"},
      {PositionTarget({0.0, 0.0, 1.5}), {}, "the nearest it got: 2.31 m, 0 degrees; elbow at its limit"},
      {turned, {}, "the nearest it got: 0 mm, 65.4 degrees; shoulder, elbow at their limits"},
      {PositionTarget({1e200, 0.0, 0.0}), {}, "the nearest it got: inf m, 0 degrees"},
      {PositionTarget({1.9, 0.1, 0.0}), refuse, "2 configurations have the pose, and all were refused"},
      {PositionTarget({1.9, 0.1, 0.0}), nothing, "there was nothing to begin at"},
      {PositionTarget({1.9, 0.1, 0.0}), {}, "1 solution"},
  };
  for (const auto& [target, options, text] : cases) {
    EXPECT_EQ(Explain(*robot, SolveInverseKinematics(*robot, "tool", target, options)), text);
  }
}

TEST(InverseKinematicsTest, NumbersRestartsAndCountsSolutionsOnce) {
  const auto robot = TwoHinges(true);
  InverseKinematics solver(*robot, "tool");
  const PoseTarget target = PositionTarget({1.5, 0.2, 0.0});
  InverseKinematicsOptions options;
  options.max_solutions = 10;
  // Elbow to the left and to the right: of the twenty restarts most come upon one of them again.
  options.max_restarts = 20;
  const InverseKinematicsResult both = solver.solve(target, options);
  ASSERT_EQ(both.solutions.size(), 2u);
  EXPECT_EQ(both.num_restarts, 20u);
  EXPECT_NEAR(both.solutions[0][2], -both.solutions[1][2], 1e-4);

  // One restart alone finds the same bits whether others came before it or not.
  options.max_restarts = 1;
  std::vector<Eigen::VectorXd> alone;
  for (options.first_restart = 0; options.first_restart < 20; ++options.first_restart) {
    const InverseKinematicsResult one = solver.solve(target, options);
    alone.insert(alone.end(), one.solutions.begin(), one.solutions.end());
  }
  for (const Eigen::VectorXd& solution : both.solutions) {
    EXPECT_GE(std::count(alone.begin(), alone.end(), solution), 1);
  }
}

TEST(InverseKinematicsTest, StaysAtSeedAndReference) {
  const auto robot = TwoHinges(true);
  InverseKinematics solver(*robot, "tool");
  const PoseTarget target = PositionTarget({1.5, 0.2, 0.0});
  // The wheel moves nothing, and the elbow has turned a thousand times.
  const Eigen::VectorXd seed = testing::Vec({0.9, 0.5, -1.5 + 2000.0 * std::acos(-1.0)});
  InverseKinematicsOptions options;
  options.seeds = {seed};
  options.max_restarts = 0;
  const InverseKinematicsResult result = solver.solve(target, options);
  ASSERT_EQ(result.solutions.size(), 1u);
  EXPECT_EQ(result.solutions[0][1], 0.5);
  EXPECT_NEAR(result.solutions[0][2], seed[2], 0.3);

  options.seeds.clear();
  options.max_restarts = 20;
  options.max_solutions = 2;
  options.reference = testing::Vec({-0.4, 0.25, 1.8});
  const InverseKinematicsResult sorted = solver.solve(target, options);
  ASSERT_EQ(sorted.solutions.size(), 2u);
  EXPECT_GT(sorted.solutions[0][2], 0.0);
  EXPECT_EQ(sorted.solutions[0][1], 0.25);
}

TEST(InverseKinematicsTest, FollowsALineWithoutJumps) {
  const auto robot = LoadFrankaRobotDescription();
  const auto kinematics = robot->kinematics();
  const auto tool = kinematics->frame("tool");
  InverseKinematics solver(*robot, "tool");
  Eigen::VectorXd q = robot->defaultCSpaceConfiguration();
  PoseTarget target;
  const Pose3 start = kinematics->pose(q, tool);
  int num_steps = 0;
  NearestPose nearest;
  // Down, until the arm cannot reach further.
  for (;; ++num_steps) {
    target.pose = Pose3::FromTranslation({0.0, 0.0, -0.01 * num_steps}) * start;
    const std::optional<Eigen::VectorXd> next = solver.follow(q, target, &nearest);
    if (!next) {
      break;
    }
    EXPECT_LE((*next - q).lpNorm<Eigen::Infinity>(), 0.1);
    const Remaining rest = Compare(kinematics->pose(*next, tool), target);
    EXPECT_LE(rest.position, 1e-5);
    EXPECT_LE(rest.angle, 1e-4);
    q = *next;
  }
  EXPECT_GT(num_steps, 80);
  EXPECT_EQ(Explain(*robot, nearest), "the nearest it got: 7.88 mm, 0.442 degrees; joint2 at its limit");
}

TEST(InverseKinematicsTest, RefusesWhatIsNoQuestion) {
  const auto robot = TwoHinges();
  const PoseTarget good = PositionTarget({1.0, 1.0, 0.0});
  PoseTarget not_finite = good;
  not_finite.pose = Pose3::FromTranslation({std::nan(""), 0.0, 0.0});
  PoseTarget exact = good;
  exact.position_tolerance = 0.0;
  InverseKinematicsOptions none;
  none.max_solutions = 0;
  InverseKinematicsOptions wrong_seed;
  wrong_seed.seeds = {Eigen::VectorXd::Zero(2)};
  const auto solve = [&](const PoseTarget& target, const InverseKinematicsOptions& options) {
    SolveInverseKinematics(*robot, "tool", target, options);
  };
  EXPECT_THROW(solve(not_finite, {}), util::FatalError);
  EXPECT_THROW(solve(exact, {}), util::FatalError);
  EXPECT_THROW(solve(good, none), util::FatalError);
  EXPECT_THROW(solve(good, wrong_seed), util::FatalError);
}

// Answers to a few hundred questions of all kinds.
std::vector<Eigen::VectorXd> ManyAnswers() {
  std::mt19937 engine(5);
  std::vector<Eigen::VectorXd> answers;
  for (int round = 0; round < 200; ++round) {
    const testing::RandomRobot robot(engine, 1 + round % 12);
    const auto description = robot.description();
    const auto kinematics = description->kinematics();
    const auto n = static_cast<Eigen::Index>(description->numCSpaceCoords());
    const std::string& name = robot.joints().back().child_frame;
    const Pose3 pose = kinematics->pose(RandomVec(engine, n, -3.0, 3.0), kinematics->frame(name));
    PoseTarget target = RandomTarget(pose, engine);
    if (round % 8 == 0) {
      target.pose = target.pose * Pose3::FromTranslation({20.0, 0.0, 0.0});
    }
    InverseKinematicsOptions options;
    options.max_solutions = 3;
    const InverseKinematicsResult result = SolveInverseKinematics(*description, name, target, options);
    answers.insert(answers.end(), result.solutions.begin(), result.solutions.end());
    if (result.nearest) {
      answers.push_back(result.nearest->q);
    }
  }
  return answers;
}

TEST(InverseKinematicsTest, IsTheSameInEveryBuild) {
  const auto robot = LoadFrankaRobotDescription();
  const auto kinematics = robot->kinematics();
  InverseKinematics solver(*robot, "tool");
  std::mt19937 engine(3);
  std::uint64_t hash = 14695981039346656037u;
  for (int i = 0; i < 100; ++i) {
    PoseTarget target;
    target.pose = kinematics->pose(RandomVec(engine, 7, -1.5, 1.5), kinematics->frame("tool"));
    target.rotation_counts[2] = i % 2 == 0;
    const InverseKinematicsResult result = solver.solve(target);
    for (const double coordinate : result.nearest ? result.nearest->q : result.solutions.front()) {
      std::uint64_t bits = 0;
      std::memcpy(&bits, &coordinate, sizeof(bits));
      hash = (hash ^ bits) * 1099511628211u;
    }
  }
  EXPECT_EQ(hash, 9544999594360490253u);
}

using InverseKinematicsTargetTest = testing::EveryTargetTest;

TEST_P(InverseKinematicsTargetTest, AnswersTheSameBits) {
  const std::vector<Eigen::VectorXd> answers = ManyAnswers();
  TearDown();
  EXPECT_EQ(answers, ManyAnswers());
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(InverseKinematicsTargetTest);

}  // namespace
}  // namespace kavo
