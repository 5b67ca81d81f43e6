#include "kavo/kinematics/interface/frame_pairs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "tests/kinematics/random_robot.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using Kind = FramePair::Kind;
using testing::RandomVec;

// A robot of random joints with narrow limits, one sphere on its base and one on its last frame.
std::unique_ptr<RobotDescription> MakeRobot(const testing::RandomRobot& made, const Eigen::Vector3d& center,
                                            double radius) {
  RobotDescriptionBuilder builder("base");
  for (Joint joint : made.joints()) {
    joint.limits = kinematics::JointLimits{-1.2, 0.9};
    builder.addJoint(joint);
  }
  return builder.addCollisionSphere("base", {0.1, 0.2, 0.3}, radius)
      .addCollisionSphere(made.joints().back().child_frame, center, radius)
      .build();
}

// The smallest distance of the two centres, by random configurations and steps of one coordinate from the
// best.
double SmallestDistance(const testing::RandomRobot& made, const Eigen::Vector3d& center,
                        std::mt19937& engine) {
  const auto distance = [&](const Eigen::VectorXd& q) {
    const int last = static_cast<int>(made.joints().size()) - 1;
    return (made.place(q, last) * center - Eigen::Vector3d(0.1, 0.2, 0.3)).norm();
  };
  Eigen::VectorXd best = RandomVec(engine, made.num_coordinates(), -1.2, 0.9);
  double least = distance(best);
  const auto take_if_nearer = [&](const Eigen::VectorXd& q) {
    if (const double there = distance(q); there < least) {
      best = q;
      least = there;
    }
  };
  for (int i = 0; i < 300; ++i) {
    take_if_nearer(RandomVec(engine, made.num_coordinates(), -1.2, 0.9));
  }
  for (double step = 0.3; step > 1e-5; step *= 0.8) {
    for (Eigen::Index k = 0; k < best.size(); ++k) {
      for (const double change : {step, -step}) {
        Eigen::VectorXd q = best;
        q[k] = std::clamp(q[k] + change, -1.2, 0.9);
        take_if_nearer(q);
      }
    }
  }
  return least;
}

TEST(FramePairs, NothingIsProvenThatTouchesSomewhere) {
  std::mt19937 engine(5);
  FramePairOptions options;
  // So few that the search is left to the proof.
  options.num_samples = 1;
  options.max_boxes = 2000;
  int num_proven = 0;
  int num_found = 0;
  for (int round = 0; round < 200; ++round) {
    const testing::RandomRobot made(engine, 2 + round % 4);
    const Eigen::Vector3d center = RandomVec(engine, 3, -0.3, 0.3);
    const double distance = SmallestDistance(made, center, engine);
    const Kind touching =
        ClassifyFramePairs(*MakeRobot(made, center, 0.5 * distance + 1e-4), options).front().kind;
    ASSERT_NE(touching, Kind::kNever) << "round " << round;
    num_found += touching == Kind::kSometimes ? 1 : 0;
    if (distance > 1e-3) {
      const Kind apart = ClassifyFramePairs(*MakeRobot(made, center, 0.45 * distance), options).front().kind;
      num_proven += apart == Kind::kNever ? 1 : 0;
    }
  }
  EXPECT_GT(num_proven, 25);
  EXPECT_GT(num_found, 10);
}

}  // namespace
}  // namespace kavo
