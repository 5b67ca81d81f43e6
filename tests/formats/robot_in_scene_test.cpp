#include "kavo/formats/robot_in_scene.h"

#include <gmock/gmock.h>

#include <string>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "tests/formats/files.h"

namespace kavo::formats {
namespace {

using testing::FileErrorOf;
using ::testing::HasSubstr;

// base -turns- upper -turns- lower -fixed- hand, each a ball of 0.1; the SRDF lets upper and lower touch.
LoadedRobot Arm(bool self_collision = true) {
  std::string urdf = "<robot name='arm'>";
  for (const char* const link : {"base", "upper", "lower", "hand"}) {
    urdf += std::string("<link name='") + link +
            "'><collision><geometry><sphere radius='0.1'/></geometry></collision></link>";
  }
  const auto joint = [](const std::string& type, const std::string& parent, const std::string& child) {
    return "<joint name='to_" + child + "' type='" + type + "'><origin xyz='1 0 0'/><parent link='" + parent +
           "'/><child link='" + child + "'/><axis xyz='0 0 1'/><limit lower='-3' upper='3'/></joint>";
  };
  urdf += joint("revolute", "base", "upper") + joint("revolute", "upper", "lower") +
          joint("fixed", "lower", "hand") + "</robot>";
  RobotFileOptions options;
  options.self_collision = self_collision;
  return ParseRobot(
      {"arm.urdf", urdf},
      FileText{"arm.srdf", "<robot name='arm'><disable_collisions link1='lower' link2='upper'/></robot>"}, {},
      options);
}

std::string RulesText(const RobotDescription& robot) {
  const CollisionModel& collision = dynamic_cast<const RobotDescriptionInternal&>(robot).collision();
  std::string text;
  for (const auto& [a, b] : collision.pairs) {
    text += a + "-" + b + " ";
  }
  for (const std::string& frame : collision.frames) {
    for (const std::string& obstacle : collision.allowedObstaclesOf(frame)) {
      text += frame + "+" + obstacle + " ";
    }
  }
  return text;
}

TEST(RobotInScene, TheMatrixGoesBeforeTheRobotsOwnFiles) {
  const std::string objects =
      "robot_state: {attached_collision_objects: [{link_name: hand, touch_links: [finger], object: {id: cup, "
      "header: {frame_id: hand}, primitives: [{type: sphere, dimensions: [0.05]}]}}]}\n"
      "collision_objects: [{id: table, primitives: [{type: sphere, dimensions: [0.1]}]}]\n";
  const std::string a_row_for_each = "entry_values: [[1, 0, 1], [0, 1, 1], [1, 1, 1]]";
  const std::pair<std::string, std::string> cases[] = {
      {"", "base-upper base-lower base-hand upper-hand base-cup upper-cup "},
      // What the SRDF lets touch must not, what it forbids may; one body stays one.
      {"entry_names: [upper, lower, base], " + a_row_for_each,
       "base-hand base-cup upper-lower upper-hand upper-cup "},
      {"entry_names: [hand, lower, base], " + a_row_for_each, "base-upper base-cup upper-hand upper-cup "},
      // A default lets touch, and forbids nothing.
      {"default_entry_names: [upper, lower], default_entry_values: [true, false]",
       "base-lower base-hand base-cup upper+table "},
      // What is held counts as a link, objects as what a link may touch.
      {"entry_names: [cup, upper, table], " + a_row_for_each,
       "base-upper base-lower base-hand base-cup upper-hand upper-cup upper+table cup+table "},
      {"entry_names: [cup, upper, table], entry_values: [[0, 1, 0], [1, 0, 0], [0, 0, 0]]",
       "base-upper base-lower base-hand base-cup upper-hand "},
  };
  for (const auto& [matrix, expected] : cases) {
    const Scene scene = ParseSceneYaml(objects + "allowed_collision_matrix: {" + matrix + "}", "s");
    const auto text = [&](const LoadedRobot& robot) {
      return RulesText(*WithScene(robot, scene, Eigen::Vector2d::Zero()));
    };
    EXPECT_EQ(text(Arm()), expected) << matrix;
    // A robot that may touch itself goes on to.
    EXPECT_THAT(text(Arm(false)), ::testing::Not(HasSubstr("-"))) << matrix;
  }
}

TEST(RobotInScene, HoldsWhatIsAttachedWhereItIs) {
  const Scene scene = ParseSceneYaml(
      "{robot_state: {multi_dof_joint_state: {transforms: [{translation: [0, 0, 1]}]}, "
      "attached_collision_objects: "
      "[{link_name: hand, object: {id: cup, header: {frame_id: world}, pose: {position: [3, 0.5, 1]}, "
      "primitives: [{type: sphere, "
      "dimensions: [0.05]}]}}]}, link_padding: [{link_name: hand, padding: 0.02}, {link_name: nose, padding: "
      "1}]}",
      "s");
  const auto robot = WithScene(Arm(), scene, Eigen::Vector2d::Zero());
  const auto bodies = AttachedBodies(*robot);
  ASSERT_EQ(bodies.size(), 1u);
  EXPECT_EQ(bodies[0].frame, "hand");
  EXPECT_LT((bodies[0].pose.translation() - Eigen::Vector3d(0.0, 0.5, 0.0)).norm(), 1e-12);
  EXPECT_EQ(ContactRulesOf(*robot).paddings, (std::map<std::string, double>{{"hand", 0.02}}));
}

TEST(RobotInScene, RefusesWhatCannotBeHeld) {
  const std::string ball = "primitives: [{type: sphere, dimensions: [0.05]}]";
  const std::pair<std::string, std::string> cases[] = {
      {"link_name: claw, object: {id: cup, " + ball + "}", "attached to link \"claw\", expected a link"},
      {"link_name: hand, object: {id: base, " + ball + "}", "which has the name of a link"},
      {"link_name: hand, object: {id: cup, header: {frame_id: hall}, " + ball + "}", "in frame \"hall\""},
      {"link_name: hand, object: {id: cup, planes: [{coef: [0, 0, 1, 0]}]}", "with a plane"},
  };
  for (const auto& [attached, message] : cases) {
    const Scene scene =
        ParseSceneYaml("robot_state: {attached_collision_objects: [{" + attached + "}]}", "s");
    EXPECT_THAT(FileErrorOf([&] { WithScene(Arm(), scene, Eigen::Vector2d::Zero()); }), HasSubstr(message));
  }
}

}  // namespace
}  // namespace kavo::formats
