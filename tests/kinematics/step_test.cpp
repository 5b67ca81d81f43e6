#include <gtest/gtest.h>
#include <hwy/highway.h>

#include <random>
#include <vector>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "tests/kinematics/random_robot.h"
#include "tests/support/vectors.h"

namespace kavo::kinematics::internal {
namespace {

// All numbers of many placements, with the wide vectors of one target.
std::vector<double> PlaceFrames(std::int64_t target) {
  hwy::SetSupportedTargetsForTest(target);
  std::mt19937 engine(3);
  std::vector<double> numbers;
  for (int round = 0; round < 100; ++round) {
    const testing::RandomRobot robot(engine, 1 + round % 14);
    const auto description = robot.description();
    const auto kinematics = description->kinematics();
    std::vector<kavo::Kinematics::FrameHandle> frames;
    for (const Joint& joint : robot.joints()) {
      frames.push_back(kinematics->frame(joint.child_frame));
    }
    const auto sweep = kinematics->frameSweep(frames);
    const auto n = static_cast<int>(description->numCSpaceCoords());
    for (int i = 0; i < 10; ++i) {
      const Eigen::VectorXd q = testing::RandomVec(engine, n, -3.0, 3.0);
      for (const math::RigidTransform& frame : sweep->compute(q)) {
        numbers.insert(numbers.end(), frame.rotation.data(), frame.rotation.data() + 9);
        numbers.insert(numbers.end(), frame.translation.data(), frame.translation.data() + 3);
      }
      const Eigen::MatrixXd jacobian = kinematics->positionJacobian(q, frames.back());
      numbers.insert(numbers.end(), jacobian.data(), jacobian.data() + jacobian.size());
    }
  }
  hwy::SetSupportedTargetsForTest(0);
  return numbers;
}

TEST(StepTest, EveryTargetGivesTheSameBits) {
  const std::vector<double> expected = PlaceFrames(HWY_STATIC_TARGET);
  ASSERT_GT(expected.size(), 10000u);
  for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
    const std::vector<double> numbers = PlaceFrames(target);
    ASSERT_EQ(numbers.size(), expected.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      ASSERT_EQ(numbers[i], expected[i]) << hwy::TargetName(target) << ", number " << i;
    }
  }
}

}  // namespace
}  // namespace kavo::kinematics::internal
