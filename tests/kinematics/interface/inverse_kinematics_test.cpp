#include "kavo/kinematics/interface/inverse_kinematics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

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
  target.pose = pose * target.tool;
  const double tolerances[] = {1e-10, 1e-5, 1e-2};
  target.position_tolerance = tolerances[engine() % 3];
  target.orientation_tolerance = 10.0 * tolerances[engine() % 3];
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

using InverseKinematicsTargetTest = testing::EveryTargetTest;

TEST_P(InverseKinematicsTargetTest, AnswersTheSameBits) {
  const std::vector<Eigen::VectorXd> answers = ManyAnswers();
  TearDown();
  EXPECT_EQ(answers, ManyAnswers());
}

KAVO_INSTANTIATE_FOR_EVERY_TARGET(InverseKinematicsTargetTest);

}  // namespace
}  // namespace kavo
