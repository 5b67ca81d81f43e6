#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/math/constants_internal.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using ::testing::ElementsAre;
using testing::Vec;

using math::kPi;

const RobotDescriptionInternal& Internal(const RobotDescription& description) {
  return dynamic_cast<const RobotDescriptionInternal&>(description);
}

// Limits, spheres and poses are held against a description of the same arm in the tests of robot files.
TEST(Franka, NamesAndDefault) {
  const std::unique_ptr<RobotDescription> franka = LoadFrankaRobotDescription();
  EXPECT_THAT(franka->kinematics()->frameNames(),
              ElementsAre("base", "link1", "link2", "link3", "link4", "link5", "link6", "link7", "flange",
                          "hand", "left_finger", "right_finger", "tool"));
  EXPECT_EQ(franka->defaultCSpaceConfiguration(), Vec({0, -kPi / 4, 0, -3 * kPi / 4, 0, kPi / 2, kPi / 4}));
}

TEST(ThreeLinkArm, IsAPlanarArm) {
  const std::unique_ptr<RobotDescription> arm = LoadThreeLinkArmRobotDescription();
  const std::unique_ptr<Kinematics> kinematics = arm->kinematics();
  EXPECT_THAT(kinematics->frameNames(), ElementsAre("base", "link1", "link2", "link3", "tool"));
  ASSERT_EQ(arm->numCSpaceCoords(), 3u);
  EXPECT_EQ(arm->defaultCSpaceConfiguration(), Vec({0, 0, 0}));
  for (const kinematics::JointLimits& limits : ExtractJointLimits(arm.get())) {
    EXPECT_EQ(limits.min, -kPi);
    EXPECT_EQ(limits.max, kPi);
  }
  // 1.0 along x, 0.8 along y, 0.6 back along x.
  const Eigen::Vector3d tip = kinematics->position(Vec({0, kPi / 2, kPi / 2}), kinematics->frame("tool"));
  EXPECT_LT((tip - Eigen::Vector3d(0.4, 0.8, 0.0)).cwiseAbs().maxCoeff(), 1e-15);
  for (const auto& [frame, length] :
       {std::pair("link1", 1.0), std::pair("link2", 0.8), std::pair("link3", 0.6)}) {
    const std::vector<math::Sphere> spheres = Internal(*arm).collision().spheresOf(frame);
    // Every ring of a rod of 0.03 m around the link lies in some sphere.
    for (int i = 0; i <= 200; ++i) {
      const double x = length * i / 200.0;
      EXPECT_TRUE(std::any_of(spheres.begin(), spheres.end(),
                              [&](const math::Sphere& s) {
                                return s.center[1] == 0.0 && s.center[2] == 0.0 &&
                                       std::hypot(x - s.center[0], 0.03) <= s.radius;
                              }))
          << frame << " at " << x;
    }
  }
}

}  // namespace
}  // namespace kavo
