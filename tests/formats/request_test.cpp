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

using ::kavo::testing::FileErrorOf;
using ::kavo::testing::LogCapture;
using ::kavo::testing::Vec;
using ::testing::ElementsAre;
using ::testing::Pair;

TEST(Request, KeepsAllGoalsInOrder) {
  const testing::TemporaryDirectory directory;
  const Request request = ReadRequest(directory.write("request.yaml", R"(
workspace_parameters: {max_corner: [1, 1, 1]}
planner_id: any
group_name: arm
goal_constraints:
  - joint_constraints:
      - {joint_name: a, position: 0.25, tolerance_above: 0.01}
      - {position: -1, joint_name: b}
  - position_constraints:
      - link_name: hand
        target_point_offset: {x: 0, y: 0.0, z: -0.0}
        constraint_region:
          primitives: [{type: sphere, dimensions: [0.01]}]
          primitive_poses: [{position: {x: 1, y: 2, z: 3}, orientation: [0, 0, 0, 1]}, {position: [9, 9, 9]}]
start_state:
  joint_state: {position: [1, 2], name: [b, finger]}
  multi_dof_joint_state: {transforms: [{translation: [0, 0, 4]}]}
)"));
  EXPECT_EQ(request.group_name, "arm");
  EXPECT_THAT(request.start, ElementsAre(Pair("b", 1.0), Pair("finger", 2.0)));
  ASSERT_TRUE(request.base_pose);
  EXPECT_EQ(request.base_pose->translation(), Eigen::Vector3d(0, 0, 4));
  ASSERT_EQ(request.goals.size(), 2u);
  EXPECT_THAT(request.goals[0].joints, ElementsAre(Pair("a", 0.25), Pair("b", -1.0)));
  EXPECT_TRUE(request.goals[0].positions.empty());
  EXPECT_TRUE(request.goals[1].joints.empty());
  ASSERT_EQ(request.goals[1].positions.size(), 1u);
  EXPECT_EQ(request.goals[1].positions[0].link, "hand");
  EXPECT_EQ(request.goals[1].positions[0].position, Eigen::Vector3d(1, 2, 3));

  const Request only_start = ParseRequest("start_state: {}", "r");
  EXPECT_TRUE(only_start.goals.empty());
  EXPECT_FALSE(only_start.base_pose);
}

TEST(Request, FaultsAreNamedWithTheirLine) {
  const std::string joints = "goal_constraints:\n - joint_constraints:\n   - ";
  const std::string position = "goal_constraints:\n - position_constraints:\n   - ";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"group_name: arm", "r:1: found neither of them, expected `start_state` or `goal_constraints`"},
      {"goal_constraints: {a: 1}", "r:1: found a map, expected a sequence"},
      {"goal_constraints:\n - name: a",
       "r:2: found a goal without them, expected `joint_constraints` or `position_constraints`"},
      {joints + "{position: 1}", "r:3: found nothing under `joint_name`, expected a value"},
      {joints + "{joint_name: a, position: fast}", "r:3: found \"fast\", expected a finite number"},
      {joints + "{joint_name: a, position: 1}\n   - {joint_name: a, position: 1}",
       "r:4: found joint \"a\" again, expected one position for each joint"},
      {position + "{link_name: hand}", "r:3: found nothing under `constraint_region`, expected a value"},
      {position + "{link_name: hand, constraint_region: {meshes: [{}]}}",
       "r:3: found no `primitive_poses`, expected the pose of the region for link \"hand\""},
      {position + "{link_name: hand, target_point_offset: [0, 0, 1e-9]}",
       "r:3: found a `target_point_offset` of link \"hand\", expected none: the target is for the link's "
       "origin"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_EQ(FileErrorOf([&text = text] { ParseRequest(text, "r"); }), message) << text;
  }
}

TEST(Request, WhatIsNotConsideredIsWarnedOfOnce) {
  const LogCapture log;
  const std::string goal =
      "{position_constraints: [{header: {frame_id: FRAME}, link_name: hand, constraint_region: "
      "{primitive_poses: "
      "[{}]}}], orientation_constraints: [{}]}";
  const auto in_frame = [&goal](const std::string& frame) {
    return std::string(goal).replace(goal.find("FRAME"), 5, frame);
  };
  ParseRequest("goal_constraints: [" + in_frame("/world") + ", " + in_frame("''") + "]", "r");
  ParseRequest("goal_constraints: [" + in_frame("/base") + ", " + in_frame("base") + "]", "s");
  EXPECT_THAT(log.warnings(),
              ElementsAre("r: Orientation constraints are not considered.",
                          "s: Orientation constraints are not considered.",
                          "s: Frame \"base\" of a position constraint is taken for the world."));
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
