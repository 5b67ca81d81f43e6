#include "kavo/formats/request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/formats/files.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using ::kavo::testing::LogCapture;
using ::kavo::testing::Vec;
using ::testing::ElementsAre;
using ::testing::Pair;

TEST(Request, KeepsAllGoalsInOrder) {
  const Request request = ReadRequest(KAVO_SOURCE_DIR "/tests/formats/data/request.yaml");
  EXPECT_EQ(request.group_name, "arm");
  EXPECT_EQ(request.allowed_planning_time, 2.5);
  EXPECT_EQ(request.num_planning_attempts, 3);
  EXPECT_EQ(request.velocity_scaling, 0.5);
  EXPECT_FALSE(request.acceleration_scaling);
  EXPECT_THAT(request.start, ElementsAre(Pair("b", 1.0), Pair("finger", 2.0)));
  ASSERT_TRUE(request.base_pose);
  EXPECT_EQ(request.base_pose->translation(), Eigen::Vector3d(0, 0, 4));
  ASSERT_EQ(request.goals.size(), 2u);
  EXPECT_THAT(request.goals[0].joints, ElementsAre(Pair("a", 0.25), Pair("b", -1.0)));
  EXPECT_TRUE(request.goals[0].positions.empty());
  EXPECT_TRUE(request.goals[1].joints.empty());
  ASSERT_EQ(request.goals[1].positions.size(), 1u);
  EXPECT_EQ(request.goals[1].positions[0].link, "hand");
  EXPECT_EQ(request.goals[1].positions[0].frame, "base");
  EXPECT_EQ(request.goals[1].positions[0].position, Eigen::Vector3d(1, 2, 3));

  const Request only_start =
      ParseRequest("start_state: {attached_collision_objects: [{link_name: l, object: {id: cup}}]}", "r");
  ASSERT_EQ(only_start.attached.size(), 1u);
  EXPECT_EQ(only_start.attached[0].object.id, "cup");
  EXPECT_TRUE(only_start.goals.empty());
  EXPECT_FALSE(only_start.base_pose);
  EXPECT_FALSE(only_start.allowed_planning_time);
  EXPECT_EQ(only_start.num_planning_attempts, 1);
}

TEST(Request, ReadsRegionsAndOrientations) {
  const Request request = ReadRequest(KAVO_SOURCE_DIR "/tests/formats/data/pose_request.yaml");
  EXPECT_TRUE(request.unhonoured.empty());
  ASSERT_EQ(request.goals.size(), 2u);
  ASSERT_EQ(request.goals[0].positions.size(), 1u);
  const Request::PositionTarget& position = request.goals[0].positions[0];
  EXPECT_EQ(position.offset, Eigen::Vector3d(0, 0, 0.1));
  EXPECT_EQ(position.position, Eigen::Vector3d(0.5, 0.1, 0.3));
  ASSERT_EQ(position.regions.size(), 2u);
  EXPECT_EQ(std::get<BoxObstacle>(position.regions[0].shape).size, Eigen::Vector3d(0.02, 0.04, 0.06));
  EXPECT_EQ(position.regions[0].pose.rotation().z(), 1.0);
  EXPECT_EQ(std::get<CylinderObstacle>(position.regions[1].shape).radius, 0.01);
  EXPECT_EQ(position.regions[1].pose.translation(), Eigen::Vector3d(0.5, -0.1, 0.3));

  using Parameterization = PoseGoal::AxisTolerances::Parameterization;
  ASSERT_EQ(request.goals[0].orientations.size(), 1u);
  const Request::OrientationTarget& turned = request.goals[0].orientations[0];
  EXPECT_EQ(turned.link, "hand");
  EXPECT_EQ(turned.frame, "");
  EXPECT_EQ(turned.orientation.x(), 1.0);
  EXPECT_EQ(turned.tolerances.angles, Eigen::Vector3d(0.01, 0.02, 3.14));
  EXPECT_EQ(turned.tolerances.parameterization, Parameterization::kRotationVector);
  ASSERT_EQ(request.goals[1].orientations.size(), 1u);
  EXPECT_EQ(request.goals[1].orientations[0].tolerances.angles, Eigen::Vector3d::Zero());
  EXPECT_EQ(request.goals[1].orientations[0].tolerances.parameterization, Parameterization::kEulerAngles);
}

TEST(Request, FaultsAreNamedWithTheirLine) {
  testing::ExpectFaults("request", [](const std::string& text) { ParseRequest(text, "r"); });
}

TEST(Request, WhatIsNotHonouredIsListed) {
  const std::string none = "joint_constraints: [], visibility_constraints: [], name: x";
  const std::string goal = "goal_constraints: [{joint_constraints: [{joint_name: a, position: 1}], ";
  const std::pair<std::string, const char*> cases[] = {
      {"path_constraints: {" + none + "}\ntrajectory_constraints: {constraints: [{" + none + "}]}\n" + goal +
           "orientation_constraints: []}]",
       ""},
      {"start_state: {}\npath_constraints: {position_constraints: [{}]}",
       "path_constraints r:2: constraints on the path"},
      {"start_state: {}\ntrajectory_constraints: {constraints: [{joint_constraints: [{}]}]}",
       "trajectory_constraints r:2: constraints on the trajectory"},
      {goal + "visibility_constraints: [{}]}]",
       "visibility_constraints r:1: a visibility constraint of a goal"},
  };
  for (const auto& [text, expected] : cases) {
    std::string found;
    for (const Unhonoured& one : ParseRequest(text, "r").unhonoured) {
      found += std::string(ToString(one.kind)) + " " + ToText(one);
    }
    EXPECT_EQ(found, expected) << text;
  }
}

TEST(Request, ConfigurationsAreInTheOrderOfTheRobot) {
  const auto robot = LoadThreeLinkArmRobotDescription();
  const std::string first = robot->cSpaceCoordName(0);
  const std::string second = robot->cSpaceCoordName(1);
  const std::string third = robot->cSpaceCoordName(2);
  EXPECT_EQ(ConfigurationFromJoints(*robot, {{third, 3}, {"finger", 9}, {first, 1}, {second, 99}}),
            Vec({1, 99, 3}));
  EXPECT_EQ(ConfigurationFromJoints(*robot, {{second, 2}}, Vec({7, 8, 9})), Vec({7, 2, 9}));
  try {
    ConfigurationFromJoints(*robot, {{second, 2}});
    ADD_FAILURE() << "no error";
  } catch (const std::invalid_argument& error) {
    EXPECT_EQ(error.what(), "No value for joint " + first + ", " + third);
  }
  const LogCapture log;
  EXPECT_THROW(ConfigurationFromJoints(*robot, {}, Vec({1, 2})), util::FatalError);
}

}  // namespace
}  // namespace kavo::formats
