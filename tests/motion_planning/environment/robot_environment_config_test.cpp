#include "kavo/motion_planning/environment/robot_environment_config.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/kinematics_internal.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/world/world.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using testing::ExpectFatal;
using testing::LogCapture;
using testing::Vec;

RobotDescriptionBuilder TwoJoints() {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"j1", JointType::kPrismatic, "base", "a", {}, {1.0, 0.0, 0.0}, {{-1.0, 2.0}}, 0.0});
  builder.addJoint({"j2", JointType::kRevolute, "a", "b", {}, {0.0, 0.0, 1.0}, {{-3.0, 3.0}}, 0.0});
  builder.addFrame("tip", "b", Pose3::FromTranslation({1.0, 0.0, 0.0}));
  return builder;
}

TEST(RobotEnvironmentConfigTest, GathersWhatTheDescriptionHolds) {
  auto description = TwoJoints()
                         .addCollisionSphere("b", {0.0, 0.0, 0.0}, 0.1)
                         .addCollisionSphere("a", {0.0, 0.0, 0.0}, 0.2)
                         .addCollisionSphere("b", {1.0, 0.0, 0.0}, 0.3)
                         .build();
  RobotEnvironmentConfig config(description.get(), World().view(), Vec({1.0, 2.0}), 7, 8, 9);
  description.reset();

  EXPECT_EQ(config.NumJoints(), 2);
  EXPECT_EQ(config.max_sampling_attempts, 7);
  EXPECT_EQ(config.c_space_seed, 8);
  EXPECT_EQ(config.task_space_seed, 9);
  EXPECT_EQ(config.distance_weights, Vec({1.0, 2.0}));
  ASSERT_EQ(config.JointLimits().size(), 2u);
  EXPECT_EQ(config.JointLimits()[0].max, 2.0);
  EXPECT_EQ(config.FrameNames(), (std::vector<std::string>{"b", "a"}));
  ASSERT_EQ(config.CollisionSpheres("b").size(), 2u);
  EXPECT_EQ(config.CollisionSpheres("b")[1].radius, 0.3);
  EXPECT_TRUE(config.CollisionSpheres("tip").empty());
  EXPECT_EQ(config.GetFrameNames().back(), "tip");
  EXPECT_EQ(config.GetTaskSpaceFrame().index(), config.Kinematics()->frame("tip").index());
  EXPECT_FALSE(config.TryGetTaskSpaceLimits().has_value());

  // An unknown frame is taken as it is.
  config.AddCollisionSphere("nowhere", {{0.0, 0.0, 0.0}, -1.0});
  config.AddCollisionSphere("b", {{0.0, 0.0, 0.0}, 0.4});
  EXPECT_EQ(config.FrameNames(), (std::vector<std::string>{"b", "a", "nowhere"}));
  EXPECT_EQ(config.CollisionSpheres("b").size(), 3u);
}

TEST(RobotEnvironmentConfigTest, TaskSpaceFrameIsFoundByExactName) {
  const auto description = TwoJoints().build();
  RobotEnvironmentConfig config(description.get(), World().view(), Vec({1.0, 1.0}), 1, 1, 1);
  EXPECT_EQ(config.SetTaskSpaceFrame("a")->index(), config.Kinematics()->frame("a").index());
  LogCapture log;
  EXPECT_FALSE(config.SetTaskSpaceFrame("A").has_value());
  EXPECT_EQ(log.warnings(),
            std::vector<std::string>{"Unable to find \"A\". Task space frame name will not be updated"});
  EXPECT_EQ(config.GetTaskSpaceFrame().index(), config.Kinematics()->frame("a").index());
}

TEST(RobotEnvironmentConfigTest, TaskSpaceLimitsHaveThreeCoordinates) {
  const auto description = TwoJoints().build();
  RobotEnvironmentConfig config(description.get(), World().view(), Vec({1.0, 1.0}), 1, 1, 1);
  ExpectFatal(
      [&] {
        config.SetTaskSpaceLimits({Vec({0.0, 0.0}), Vec({1.0, 1.0})});
      },
      "task_space_limits.Dimension() == 3", "motion_planning/environment/robot_environment_config", 91,
      "Dimension for 'task_space_limits' [2] is expected to be 3.");
  config.SetTaskSpaceLimits({Vec({0.0, 0.0, 0.0}), Vec({1.0, 1.0, 1.0})});
  config.SetTaskSpaceLimits({Vec({0.0, 0.0, 0.0}), Vec({1.0, 1.0, 2.0})});
  EXPECT_EQ(config.TryGetTaskSpaceLimits()->Max()[2], 2.0);
}

TEST(RobotEnvironmentConfigTest, CountsMustMatchTheJoints) {
  const auto description = TwoJoints().build();
  const std::string file = "motion_planning/environment/robot_environment_config";
  ExpectFatal(
      [&] {
        RobotEnvironmentConfig(description.get(), World().view(), Vec({1.0, 1.0, 1.0}), 1, 1, 1);
      },
      "distance_weights.size() == num_joints_", file, 104,
      "Only 3 'distance_weights' provided for kinematics with 2 joints.");

  EXPECT_THROW(RobotEnvironmentConfig(nullptr, World().view(), Vec({}), 1, 1, 1), util::FatalError);

  const auto model = dynamic_cast<KinematicsInternal&>(*description->kinematics()).model();
  const RobotDescriptionInternal short_of_limits(
      {model, {"j1", "j2"}, {{0.0, 1.0}}, Vec({0.0, 0.0}), {}, {}});
  // The limits are checked before the weights.
  ExpectFatal([&] { RobotEnvironmentConfig(&short_of_limits, World().view(), Vec({}), 1, 1, 1); },
              "static_cast<int>(joint_limits_.size()) == num_joints_", file, 101,
              "Only 1 'joint_limits' provided for kinematics with 2 joints.");
}

TEST(RobotEnvironmentConfigTest, ExampleBuildersFixTheTaskSpaceSeed) {
  const World world;
  const auto franka = BuildFrankaRobotEnvironmentConfig(world.view(), Eigen::VectorXd::Ones(7), 11, 12);
  const auto three_link = BuildThreeLinkRobotEnvironmentConfig(world.view(), {1.0, 2.0, 3.0}, 13, 14);
  EXPECT_EQ(franka.NumJoints(), 7);
  EXPECT_EQ(three_link.NumJoints(), 3);
  EXPECT_EQ(three_link.distance_weights, Vec({1.0, 2.0, 3.0}));
  for (const auto* config : {&franka, &three_link}) {
    EXPECT_EQ(config->task_space_seed, 142);
    EXPECT_FALSE(config->FrameNames().empty());
  }
  EXPECT_EQ(franka.max_sampling_attempts, 11);
  EXPECT_EQ(three_link.c_space_seed, 14);
}

}  // namespace
}  // namespace kavo::planning
