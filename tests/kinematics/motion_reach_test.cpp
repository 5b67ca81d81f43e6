#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/kinematics/motion_reach_internal.h"
#include "tests/kinematics/random_robot.h"
#include "tests/support/vectors.h"

namespace kavo::kinematics::internal {
namespace {

using testing::RandomVec;

// A ball that is clear at both ends of an interval, enlarged as the bound says, must be clear in between: so
// where two points come as near as r, an enlarged ball of radius r reaches the one at an end. The points are
// put to where the way bulges out the most, on random robots and next to the ends of their limits.
TEST(MotionReachTest, BallsThatAreClearAtBothEndsAreClearBetween) {
  std::mt19937 engine(61);
  int num_close = 0;
  for (int round = 0; round < 5000; ++round) {
    const testing::RandomRobot robot(engine, 1 + round % 5);
    const auto description = robot.description();
    const auto& internal = dynamic_cast<const RobotDescriptionInternal&>(*description);
    const Kinematics& model = internal.model();
    const auto num_frames = static_cast<unsigned>(model.frameNames().size());
    const int frame_a = static_cast<int>(engine() % num_frames);
    const int frame_b = static_cast<int>(engine() % num_frames);
    const Kinematics::Plan plan = model.plan({frame_a, frame_b});
    const MotionReach reach(plan, internal.jointLimits());
    const auto n = robot.num_coordinates();
    const Eigen::VectorXd middle = RandomVec(engine, n, -2.9, 2.9);
    const Eigen::VectorXd half_way =
        RandomVec(engine, n, -0.1, 0.1) * std::ldexp(1.0, -static_cast<int>(engine() % 8));
    const bool is_pair = round % 2 == 0;
    // What carries the second point stands still in the world unless it is part of the robot.
    const auto pose_a = [&](double t) { return model.transform(middle + t * half_way, frame_a); };
    const auto pose_b = [&](double t) {
      return is_pair ? model.transform(middle + t * half_way, frame_b) : math::RigidTransform();
    };
    const Eigen::Vector3d point_a = RandomVec(engine, 3, -0.3, 0.3);
    const auto seen_from_b = [&](double t) -> Eigen::Vector3d {
      const math::RigidTransform from = pose_b(t);
      return from.rotation.transpose() * (pose_a(t) * point_a - from.translation);
    };
    Eigen::Vector3d bulge = seen_from_b(0.0) - 0.5 * (seen_from_b(-1.0) + seen_from_b(1.0));
    if (bulge.norm() < 1e-12) {
      bulge = RandomVec(engine, 3, -1.0, 1.0);
    }
    const double distance = std::ldexp(1.0, -static_cast<int>(engine() % 10));
    const Eigen::Vector3d point_b = seen_from_b(0.0) + distance * bulge.normalized();

    const int slot_a = plan.frames[0].slot;
    const int slot_b = plan.frames[1].slot;
    const Eigen::Vector3d in_slot_a = plan.frames[0].offset.transform * point_a;
    const Eigen::Vector3d in_slot_b = plan.frames[1].offset.transform * point_b;
    std::vector<float> rates;
    reach.getRates(2.0 * half_way, rates);
    math::MotionBound bound;
    if (is_pair) {
      const auto [reaches_a, reaches_b] = reach.ofDifferences(slot_a, {in_slot_a}, slot_b, {in_slot_b});
      math::AddMotion(reaches_a, rates.data(), bound);
      math::AddMotion(reaches_b, rates.data(), bound);
    } else {
      math::AddMotion(reach.ofPoints(slot_a, {in_slot_a}), rates.data(), bound);
    }
    const double at_ends =
        std::min((seen_from_b(-1.0) - point_b).norm(), (seen_from_b(1.0) - point_b).norm());
    const double enlarged = bound.enlarged(distance, 1.0);
    ASSERT_GE(enlarged, at_ends * (1.0 - 1e-9)) << "round " << round << ", " << is_pair;
    // Where the bound has little to spare a wrong one shows.
    num_close += enlarged - distance < 1.2 * (at_ends - distance) ? 1 : 0;
  }
  EXPECT_GT(num_close, 250);
}

// An arm that is folded back onto its first axis: what turns next to the frame that looks on hardly moves the
// point, but turns the velocity that the joint farther along gives it. Which is which changes with the frame.
TEST(MotionReachTest, TheJointFartherAlongGivesTheReach) {
  RobotDescriptionBuilder builder("base");
  Joint joint;
  joint.name = "j0";
  joint.parent_frame = "base";
  joint.child_frame = "f0";
  joint.type = JointType::kRevolute;
  joint.limits = JointLimits{-0.025, 0.025};
  builder.addJoint(joint);
  joint.name = "j1";
  joint.parent_frame = "f0";
  joint.child_frame = "f1";
  joint.origin = Pose3::FromTranslation({1.0, 0.0, 0.0});
  builder.addJoint(joint);
  const auto description = builder.build();
  const auto& internal = dynamic_cast<const RobotDescriptionInternal&>(*description);
  const Kinematics& model = internal.model();
  const Kinematics::Plan plan = model.plan({2});
  const MotionReach reach(plan, internal.jointLimits());
  const int tip = plan.frames[0].slot;
  ASSERT_EQ(tip, 1);

  const Eigen::Vector3d far(0.0, 0.3, 0.0);
  const Eigen::Vector3d folded(-1.0, 0.0, 0.0);
  const Eigen::Vector3d elbow(1.0, 0.0, 0.0);
  using Reaches = std::vector<math::JointReaches>;
  const auto [of_folded, of_base] = reach.ofDifferences(tip, {folded}, -1, {far});
  const auto [base, folded_again] = reach.ofDifferences(-1, {far}, tip, {folded});
  const auto [of_tip, of_elbow] = reach.ofDifferences(tip, {far}, -1, {elbow});
  const auto [elbow_again, tip_again] = reach.ofDifferences(-1, {elbow}, tip, {far});
  for (const auto& empty : Reaches{of_base, base, of_tip, tip_again}) {
    EXPECT_TRUE(empty.empty());
  }
  const math::JointReaches of_point = reach.ofPoints(tip, {folded});
  for (const auto& joints : Reaches{of_point, of_folded, folded_again, of_elbow, elbow_again}) {
    ASSERT_EQ(joints.size(), 2u);
    EXPECT_LT(joints[0].reach, 0.03f);
    EXPECT_GT(joints[1].reach, 0.99f);
    const float rates[] = {0.5f, 0.5f};
    math::MotionBound bound;
    math::AddMotion(joints, rates, bound);
    // Twice the product of the rates, and the square of that of the joint farther along.
    EXPECT_GE(bound.acceleration, 0.75f);
  }
}

}  // namespace
}  // namespace kavo::kinematics::internal
