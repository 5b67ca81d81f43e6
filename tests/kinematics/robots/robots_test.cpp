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

TEST(Franka, PosesWorkedOutByHand) {
  const std::unique_ptr<Kinematics> franka = LoadFrankaRobotDescription()->kinematics();
  const auto position = [&](const Eigen::VectorXd& q, const char* frame) {
    return franka->position(q, franka->frame(frame));
  };
  const auto expect_near = [](const Eigen::Vector3d& actual, const Eigen::Vector3d& expected) {
    EXPECT_LT((actual - expected).cwiseAbs().maxCoeff(), 1e-12) << actual.transpose();
  };

  // Ready: everything in the x-z plane. The upper arm leans back by 45 degrees: 0.316 along (-1, 0, 1) / sqrt
  // 2, elbow 0.0825 along (1, 0, 1) / sqrt 2. The forearm is level with its axis 0.0825 above: up by 0.0825,
  // along x by 0.384. Then 0.088 along x and the tool straight down by 0.107 + 0.1034.
  const Eigen::VectorXd ready = Vec({0, -kPi / 4, 0, -3 * kPi / 4, 0, kPi / 2, kPi / 4});
  const double r = std::sqrt(0.5);
  const Eigen::Vector3d elbow(r * (0.0825 - 0.316), 0.0, 0.333 + r * (0.316 + 0.0825));
  expect_near(position(ready, "link4"), elbow);
  const Eigen::Vector3d wrist = elbow + Eigen::Vector3d(0.384, 0.0, 0.0825);
  expect_near(position(ready, "link5"), wrist);
  expect_near(position(ready, "tool"), wrist + Eigen::Vector3d(0.088, 0.0, -0.107 - 0.1034));
  // Joint 7 undoes the hand's turn of -45 degrees: the fingers open along the base's y axis, left to the left
  // as seen along the tool that points down.
  const Pose3 tool = franka->pose(ready, franka->frame("tool"));
  Eigen::Matrix3d down;
  down << 1, 0, 0, 0, -1, 0, 0, 0, -1;
  EXPECT_LT((tool.matrix() - down).cwiseAbs().maxCoeff(), 1e-12);
  expect_near(position(ready, "left_finger") - position(ready, "right_finger"), {0.0, -0.08, 0.0});
  expect_near(position(ready, "left_finger") - position(ready, "hand"), {0.0, -0.04, -0.0584});
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

TEST(Franka, SpheresCoverTheLinksWithoutGaps) {
  const std::unique_ptr<RobotDescription> description = LoadFrankaRobotDescription();
  const RobotDescriptionInternal& franka = Internal(*description);
  // From each link's frame to where the next one starts, as thick as the housings there.
  const struct {
    const char* frame;
    Eigen::Vector3d from, to;
    double rod_radius;
  } segments[] = {
      {"base", {-0.1, 0, 0.06}, {0, 0, 0.06}, 0.07},
      {"base", {0, 0, 0}, {0, 0, 0.14}, 0.06},
      {"link1", {0, 0, -0.193}, {0, 0, 0}, 0.055},
      {"link1", {0, 0, 0}, {0, -0.06, 0}, 0.055},
      {"link2", {0, 0, 0.06}, {0, 0, 0}, 0.055},
      {"link2", {0, 0, 0}, {0, -0.19, 0}, 0.055},
      {"link3", {0, 0, -0.14}, {0, 0, 0}, 0.05},
      {"link3", {0, 0, 0}, {0.0825, 0, 0}, 0.045},
      {"link3", {0.0825, -0.06, 0}, {0.0825, 0.06, 0}, 0.05},
      {"link4", {0, 0, -0.06}, {0, 0, 0.06}, 0.05},
      {"link4", {0, 0, 0}, {-0.0825, 0.04, 0}, 0.05},
      {"link4", {-0.0825, 0.04, 0}, {-0.0825, 0.15, 0}, 0.05},
      {"link5", {0, 0, -0.25}, {0, 0, -0.1}, 0.05},
      {"link5", {0, 0, -0.1}, {0, 0, 0}, 0.045},
      {"link6", {0, 0, 0}, {0.088, 0, 0}, 0.045},
      {"link7", {0, 0, 0}, {0, 0, 0.1}, 0.04},
      {"hand", {0, -0.1, 0.018}, {0, 0.1, 0.018}, 0.025},
      {"hand", {0, -0.1, 0.046}, {0, 0.1, 0.046}, 0.025},
      {"left_finger", {0, 0.011, 0}, {0, 0.011, 0.053}, 0.009},
      {"right_finger", {0, -0.011, 0}, {0, -0.011, 0.053}, 0.009},
  };
  for (const auto& segment : segments) {
    ExpectCovered(franka, segment.frame, segment.from, segment.to, segment.rod_radius);
  }
}

// What the robot lets pass between its fingers must not count as the robot.
TEST(Franka, SpheresLeaveTheGraspFree) {
  const std::unique_ptr<RobotDescription> description = LoadFrankaRobotDescription();
  const RobotDescriptionInternal& franka = Internal(*description);
  const std::unique_ptr<Kinematics> kinematics = description->kinematics();
  const Eigen::VectorXd q = description->defaultCSpaceConfiguration();
  const Eigen::Vector3d tool = kinematics->position(q, kinematics->frame("tool"));
  for (const std::string& frame : franka.collisionFrameNames()) {
    const Pose3 pose = kinematics->pose(q, kinematics->frame(frame));
    for (const math::Sphere& sphere : franka.collisionSpheres(frame)) {
      EXPECT_GT((pose * sphere.center - tool).norm() - sphere.radius, 0.02) << frame;
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
