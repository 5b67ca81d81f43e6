#include "kavo/formats/joint_limits_file.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/formats/files.h"

namespace kavo::formats {
namespace {

constexpr char kLimits[] = R"(default_velocity_scaling_factor: 0.1
default_acceleration_scaling_factor: 0
joint_limits:
  joint1:
    has_velocity_limits: true
    max_velocity: 2.5
    has_acceleration_limits: false
    max_acceleration: 0
  joint3: {max_acceleration: 4, max_deceleration: 3.0, has_jerk_limits: true, max_jerk: 50, has_position_limits: no}
  finger: {has_velocity_limits: true, max_velocity: 0.1, min_position: 0.0}
)";

TEST(JointLimitsFile, GoesBeforeWhatIsKnownOfARobot) {
  for (const bool is_nested : {false, true}) {
    SCOPED_TRACE(is_nested);
    std::string text = kLimits;
    if (is_nested) {
      text = "robot_description_planning:\n  " + text;
      for (std::size_t at = text.find('\n') + 1; (at = text.find('\n', at)) != std::string::npos; ++at) {
        text.replace(at, 1, "\n  ");
      }
    }
    const JointLimitsFile file = ParseJointLimits(text, "l");
    EXPECT_EQ(file.velocity_scaling, 0.1);
    EXPECT_FALSE(file.acceleration_scaling);
    ASSERT_EQ(file.unhonoured.size(), 1u);
    EXPECT_EQ(file.unhonoured[0].kind, Unhonoured::Kind::kPositionLimits);
    const auto robot = LoadFrankaRobotDescription();
    planning::MotionLimits limits = planning::FrankaMotionLimits();
    TakeJointLimits(file, *robot, limits);
    EXPECT_EQ(limits.velocity.head<3>(), Eigen::Vector3d(2.5, 2.175, 2.175));
    EXPECT_EQ(limits.acceleration.head<3>(), Eigen::Vector3d(15.0, 7.5, 3.0));
    EXPECT_EQ(limits.jerk->head<3>(), Eigen::Vector3d(7500.0, 3750.0, 50.0));
  }
}

TEST(JointLimitsFile, FaultsAreNamedWithTheirLine) {
  testing::ExpectFaults("joint_limits", [](const std::string& text) { ParseJointLimits(text, "l"); });
}

}  // namespace
}  // namespace kavo::formats
