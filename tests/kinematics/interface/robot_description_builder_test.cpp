#include "kavo/kinematics/interface/robot_description_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/configuration_limits.h"
#include "tests/support/fatal.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using kinematics::JointLimits;
using ::testing::ElementsAre;
using testing::Vec;

Joint MakeJoint(const std::string& name, JointType type, const std::string& parent,
                const std::string& child) {
  Joint joint;
  joint.name = name;
  joint.type = type;
  joint.parent_frame = parent;
  joint.child_frame = child;
  joint.limits = JointLimits{-1.0, 2.0};
  return joint;
}

TEST(RobotDescriptionBuilder, NumbersCoordinatesAsAddedAndFramesAfterTheirParents) {
  RobotDescriptionBuilder builder("base");
  // The wrist comes before the arm that it hangs on.
  builder.addJoint(MakeJoint("wrist", JointType::kRevolute, "arm", "hand"));
  builder.addFrame("camera", "base", Pose3::Identity());
  builder.addJoint(MakeJoint("mount", JointType::kFixed, "base", "plate"));
  builder.addJoint(MakeJoint("slide", JointType::kPrismatic, "plate", "cart"));
  builder.addJoint(MakeJoint("shoulder", JointType::kContinuous, "cart", "arm"));
  builder.addFrame("tool", "hand", Pose3::Identity());
  const std::unique_ptr<RobotDescription> robot = builder.build();

  EXPECT_THAT(robot->kinematics()->frameNames(),
              ElementsAre("base", "camera", "plate", "cart", "arm", "hand", "tool"));
  ASSERT_EQ(robot->numCSpaceCoords(), 3u);
  EXPECT_EQ(robot->cSpaceCoordName(0), "wrist");
  EXPECT_EQ(robot->cSpaceCoordName(1), "slide");
  EXPECT_EQ(robot->cSpaceCoordName(2), "shoulder");
  testing::ExpectFatal([&] { robot->cSpaceCoordName(3); }, "coord_index < numCSpaceCoords()",
                       "kinematics/interface/robot_description_internal", 17, "Invalid coord_index");
}

TEST(RobotDescriptionBuilder, ATurnChangesNothingWhereAllThatFollowsTurnsWithIt) {
  using Mimic = Joint::Mimic;
  const struct {
    JointType type;
    bool has_limits;
    std::vector<std::pair<JointType, double>> followers;
    bool is_periodic;
  } cases[] = {
      {JointType::kContinuous, false, {}, true},
      {JointType::kContinuous, true, {}, false},
      {JointType::kRevolute, true, {}, false},
      {JointType::kContinuous, false, {{JointType::kRevolute, -3.0}, {JointType::kContinuous, 0.0}}, true},
      {JointType::kContinuous, false, {{JointType::kRevolute, 1.0}, {JointType::kRevolute, 0.5}}, false},
      {JointType::kContinuous, false, {{JointType::kContinuous, 0.5}, {JointType::kRevolute, 1.0}}, false},
      {JointType::kContinuous, false, {{JointType::kPrismatic, 1.0}}, false},
      {JointType::kContinuous, false, {{JointType::kPrismatic, 0.0}}, true},
  };
  for (const auto& c : cases) {
    RobotDescriptionBuilder builder("base");
    builder.addJoint(MakeJoint("first", JointType::kPrismatic, "base", "a"));
    Joint joint = MakeJoint("joint", c.type, "a", "0");
    if (!c.has_limits) {
      joint.limits.reset();
    }
    builder.addJoint(joint);
    for (const auto& [type, multiplier] : c.followers) {
      const std::string child = "at " + std::to_string(multiplier);
      Joint follower = MakeJoint(child, type, "0", child);
      follower.mimic = Mimic{"joint", multiplier, 0.1};
      builder.addJoint(follower);
    }
    EXPECT_EQ(ExtractPeriodicCoordinates(builder.build().get()),
              c.is_periodic ? std::vector<Eigen::Index>{1} : std::vector<Eigen::Index>{});
  }
}

TEST(RobotDescriptionBuilder, NamesTheCulprit) {
  const double inf = HUGE_VAL;
  const double nan = std::nan("");
  constexpr JointType kSlide = JointType::kPrismatic;
  constexpr JointType kFree = JointType::kContinuous;
  constexpr JointType kFixed = JointType::kFixed;
  // The first table changes a joint "elbow" from "base" to "forearm", the second a robot.
  const struct {
    std::function<void(Joint&)> change;
    int line;
    std::string message;
  } of_a_joint[] = {
      {[](Joint& j) { j.name = ""; }, 61, "The joint that carries frame \"forearm\" has no name."},
      {[](Joint& j) { j.child_frame = ""; }, 63, "Joint \"elbow\" carries a frame without name."},
      {[&](Joint& j) {
         j.origin = Pose3::FromTranslation(Vec({0, inf, 0}));
       },
       65,
       "Joint \"elbow\" has an origin that is not finite (translation [0 inf 0], quaternion x y z w [0 0 0 "
       "1])."},
      {[&](Joint& j) {
         j.axis = Vec({0, inf, 0});
       },
       73, "Joint \"elbow\" has the axis [0 inf 0], which is not finite."},
      {[](Joint& j) { j.axis.setZero(); }, 75, "Joint \"elbow\" has an axis of length zero."},
      {[](Joint& j) { j.child_frame = "base"; }, 117, "Joint \"elbow\" carries the base frame \"base\"."},
      {[](Joint& j) { j.parent_frame = "arm"; }, 127,
       "Joint \"elbow\" is attached to frame \"arm\", which no joint carries."},
      {[](Joint& j) { j.limits.reset(); }, 40,
       "Joint \"elbow\" has no limits; a revolute or prismatic joint needs them."},
      {[=](Joint& j) { j.type = kSlide, j.limits.reset(); }, 40,
       "Joint \"elbow\" has no limits; a revolute or prismatic joint needs them."},
      {[=](Joint& j) { j.type = kFree, j.limits->max = nan; }, 43,
       "Joint \"elbow\" has limits [-1, nan] that are not finite."},
      {[](Joint& j) { j.limits->min = 2.5; }, 46,
       "Joint \"elbow\" has the lower limit 2.5 above its upper limit 2."},
      {[=](Joint& j) { j.default_value = nan; }, 54,
       "Joint \"elbow\" has the default value nan outside its limits [-1, 2]."},
      {[=](Joint& j) { j.type = kFree, j.limits.reset(), j.default_value = inf; }, 57,
       "Joint \"elbow\" has the default value inf, which is not finite."},
      {[=](Joint& j) { j.held_value = nan; }, 71,
       "Joint \"elbow\" is held at the value nan, which is not finite."},
      {[](Joint& j) { j.mimic = Joint::Mimic(), j.mimic->joint = "elbow"; }, 183,
       "Joint \"elbow\" follows joint \"elbow\", which is no coordinate."},
  };
  const struct {
    std::function<void(RobotDescriptionBuilder&)> add;
    int line;
    std::string message;
  } of_a_robot[] = {
      {[=](auto& b) { b.addJoint(MakeJoint("eye", kFixed, "base", "other")); }, 114,
       "There are two joints with the name \"eye\"."},
      {[=](auto& b) { b.addJoint(MakeJoint("j", kFixed, "base", "eye")); }, 119,
       "Frame \"eye\" is carried by two joints, \"eye\" and \"j\"."},
      {[=](auto& b) {
         b.addJoint(MakeJoint("j1", kFixed, "b", "a")).addJoint(MakeJoint("j2", kFixed, "a", "b"));
       },
       176,
       "Joint \"j1\" belongs to a cycle or hangs on one: frame \"a\" is not connected to the base frame "
       "\"base\"."},
      {[](auto& b) {
         b.addCollisionSphere("arm", Vec({0, 0, 0}), 1.0);
       },
       184, "A collision sphere is attached to frame \"arm\", which does not exist."},
      {[=](auto& b) {
         b.addCollisionSphere("base", Vec({0, 0, nan}), 1.0);
       },
       187, "A collision sphere of frame \"base\" has the center [0 0 nan], which is not finite."},
      {[=](auto& b) {
         b.addCollisionSphere("base", Vec({0, 0, 0}), inf);
       },
       190, "A collision sphere of frame \"base\" has the radius inf; it must be positive and finite."},
      {[](auto& b) { b.addCollisionPair("base", "arm"); }, 258,
       "A collision pair names frame \"arm\", which does not exist."},
      {[](auto& b) { b.addCollisionPair("base", "base"); }, 261,
       "A collision pair names frame \"base\" twice."},
  };
  const auto expect = [](RobotDescriptionBuilder& builder, int line, const std::string& message) {
    testing::ExpectFatal([&] { builder.build(); }, {}, "kinematics/interface/robot_description_builder", line,
                         message);
  };
  for (const auto& [change, line, message] : of_a_joint) {
    Joint joint = MakeJoint("elbow", JointType::kRevolute, "base", "forearm");
    change(joint);
    RobotDescriptionBuilder builder("base");
    expect(builder.addJoint(joint), line, message);
  }
  for (const auto& [add, line, message] : of_a_robot) {
    RobotDescriptionBuilder builder("base");
    add(builder.addFrame("eye", "base", Pose3::Identity()));
    expect(builder, line, message);
  }
  RobotDescriptionBuilder unnamed("");
  expect(unnamed, 105, "The base frame has no name.");
}

TEST(RobotDescriptionBuilder, FixedJointsNeedNeitherAxisNorLimits) {
  Joint joint = MakeJoint("weld", JointType::kFixed, "base", "plate");
  joint.axis.setZero();
  joint.limits = JointLimits{1.0, -1.0};
  joint.default_value = 7.0;
  EXPECT_EQ(RobotDescriptionBuilder("base").addJoint(joint).build()->numCSpaceCoords(), 0u);
}

class ForeignDescription : public RobotDescription {
 public:
  std::size_t numCSpaceCoords() const override { return 0; }
  std::string cSpaceCoordName(std::size_t) const override { return ""; }
  Eigen::VectorXd defaultCSpaceConfiguration() const override { return {}; }
  std::unique_ptr<Kinematics> kinematics() const override { return nullptr; }
};

TEST(ExtractJointLimits, NeedsADescriptionOfThisLibrary) {
  const ForeignDescription foreign;
  testing::ExpectFatal(
      [&] { ExtractJointLimits(&foreign); }, "description != nullptr",
      "kinematics/interface/robot_description", 14,
      "The robot description was not made by this library's RobotDescriptionBuilder or loaders.");
  testing::ExpectFatal([] { ExtractJointLimits(nullptr); }, "robot_description != nullptr",
                       "kinematics/interface/robot_description", 11, "No robot description was given.");
}

TEST(ConfigurationLimits, TakesBoundsAsTheyAreButOfOneLength) {
  const kinematics::ConfigurationLimits reversed(Vec({1.0, 0.0}), Vec({-1.0, 3.0}));
  EXPECT_EQ(reversed.Range(), Vec({-2.0, 3.0}));
  testing::ExpectFatal(
      [] {
        kinematics::ConfigurationLimits(Vec({1.0}), Vec({1.0, 2.0}));
      },
      "min.size() == max.size()", "kinematics/interface/configuration_limits", 9,
      "Length of 'min' [1] must match length of 'max' [2].");
}

}  // namespace
}  // namespace kavo
