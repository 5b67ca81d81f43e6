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

// Every point of a round rod of the given radius around a segment, in the frame's coordinates, lies in some
// sphere.
void ExpectCovered(const RobotDescriptionInternal& robot, const std::string& frame,
                   const Eigen::Vector3d& from, const Eigen::Vector3d& to, double rod_radius) {
  const std::vector<math::Sphere> spheres = robot.collisionSpheres(frame);
  const Eigen::Vector3d side_a = (to - from).unitOrthogonal();
  const Eigen::Vector3d side_b = (to - from).normalized().cross(side_a);
  for (int i = 0; i <= 200; ++i) {
    for (int k = 0; k < 16; ++k) {
      const double angle = kPi * k / 8.0;
      const Eigen::Vector3d point = from + (to - from) * (i / 200.0) +
                                    rod_radius * (std::cos(angle) * side_a + std::sin(angle) * side_b);
      double gap = HUGE_VAL;
      for (const math::Sphere& sphere : spheres) {
        gap = std::min(gap, (sphere.center - point).norm() - sphere.radius);
      }
      ASSERT_LE(gap, 0.0) << frame << " at " << point.transpose();
    }
  }
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
  const struct {
    const char* frame;
    double length;
  } links[] = {{"link1", 1.0}, {"link2", 0.8}, {"link3", 0.6}};
  for (const auto& link : links) {
    ExpectCovered(Internal(*arm), link.frame, {0, 0, 0}, {link.length, 0, 0}, 0.03);
  }
}

}  // namespace
}  // namespace kavo
