#include "kavo/kinematics/interface/robot_description_builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kavo/kinematics/interface/configuration_limits.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
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

const RobotDescriptionInternal& Internal(const RobotDescription& description) {
  return dynamic_cast<const RobotDescriptionInternal&>(description);
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

TEST(RobotDescriptionBuilder, LimitsAndDefaults) {
  Joint free = MakeJoint("free", JointType::kContinuous, "base", "a");
  free.limits.reset();
  Joint limited = MakeJoint("limited", JointType::kContinuous, "a", "b");
  Joint at_limit = MakeJoint("at_limit", JointType::kRevolute, "b", "c");
  at_limit.default_value = 2.0;
  Joint locked = MakeJoint("locked", JointType::kPrismatic, "c", "d");
  locked.limits = JointLimits{0.25, 0.25};
  const std::unique_ptr<RobotDescription> robot = RobotDescriptionBuilder("base")
                                                      .addJoint(free)
                                                      .addJoint(limited)
                                                      .addJoint(at_limit)
                                                      .addJoint(locked)
                                                      .build();

  EXPECT_EQ(robot->defaultCSpaceConfiguration(), Vec({0.0, 0.5, 2.0, 0.25}));
  const kinematics::ConfigurationLimits limits(ExtractJointLimits(robot.get()));
  EXPECT_EQ(limits.Dimension(), 4u);
  EXPECT_EQ(limits.Min(), Vec({-HUGE_VAL, -1.0, -1.0, 0.25}));
  EXPECT_EQ(limits.Max(), Vec({HUGE_VAL, 2.0, 2.0, 0.25}));
  EXPECT_EQ(limits.Range(), Vec({HUGE_VAL, 3.0, 3.0, 0.0}));
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

TEST(RobotDescriptionBuilder, KeepsSpheresByFrameInTheOrderOfTheirFirst) {
  const std::unique_ptr<RobotDescription> robot = RobotDescriptionBuilder("base")
                                                      .addCollisionSphere("tip", {1, 0, 0}, 0.1)
                                                      .addCollisionSphere("base", {2, 0, 0}, 0.2)
                                                      .addCollisionSphere("tip", {3, 0, 0}, 0.3)
                                                      .addFrame("tip", "base", Pose3::Identity())
                                                      .addFrame("bare", "base", Pose3::Identity())
                                                      .build();
  EXPECT_EQ(robot->numCSpaceCoords(), 0u);
  EXPECT_THAT(Internal(*robot).collisionFrameNames(), ElementsAre("tip", "base"));
  const std::vector<math::Sphere> spheres = Internal(*robot).collisionSpheres("tip");
  ASSERT_EQ(spheres.size(), 2u);
  EXPECT_EQ(spheres[0].center, Eigen::Vector3d(1, 0, 0));
  EXPECT_EQ(spheres[1].center, Eigen::Vector3d(3, 0, 0));
  EXPECT_EQ(spheres[1].radius, 0.3);
  EXPECT_TRUE(Internal(*robot).collisionSpheres("bare").empty());
  EXPECT_TRUE(Internal(*robot).collisionSpheres("nowhere").empty());
}

TEST(RobotDescriptionBuilder, NamesTheCulprit) {
  const double inf = HUGE_VAL;
  const double nan = std::nan("");
  const auto revolute = [](const std::function<void(Joint&)>& change) {
    return [change](RobotDescriptionBuilder& builder) {
      Joint joint = MakeJoint("elbow", JointType::kRevolute, "base", "forearm");
      change(joint);
      builder.addJoint(joint);
    };
  };
  const std::string center_condition =
      "std::isfinite(sphere.center[0]) && std::isfinite(sphere.center[1]) && "
      "std::isfinite(sphere.center[2])";
  const std::string radius_condition = "std::isfinite(sphere.radius) && sphere.radius > 0.0";
  const std::string limits_condition = "std::isfinite(limits.min) && std::isfinite(limits.max)";
  const std::string default_condition = "limits.min <= value && value <= limits.max";
  const std::string connected_condition = "frame_indices.count(joint.child_frame) != 0";
  const struct {
    std::function<void(RobotDescriptionBuilder&)> add;
    std::string condition;
    int line;
    std::string message;
  } cases[] = {
      {revolute([](Joint& j) { j.name = ""; }), "!joint.name.empty()", 61,
       "The joint that carries frame \"forearm\" has no name."},
      {revolute([](Joint& j) { j.child_frame = ""; }), "!joint.child_frame.empty()", 63,
       "Joint \"elbow\" carries a frame without name."},
      {revolute([&](Joint& j) {
         j.origin = Pose3::FromTranslation({0, inf, 0});
       }),
       "joint.origin.isFinite()", 65,
       "Joint \"elbow\" has an origin that is not finite (translation [0 inf 0], quaternion x y z w [0 0 0 "
       "1])."},
      {revolute([&](Joint& j) {
         j.axis = {0, inf, 0};
       }),
       "std::isfinite(axis[0]) && std::isfinite(axis[1]) && std::isfinite(axis[2])", 73,
       "Joint \"elbow\" has the axis [0 inf 0], which is not finite."},
      {revolute([](Joint& j) { j.axis.setZero(); }), "axis[0] != 0.0 || axis[1] != 0.0 || axis[2] != 0.0", 75,
       "Joint \"elbow\" has an axis of length zero."},
      {[](auto& b) {
         b.addFrame("eye", "base", Pose3::Identity());
         b.addJoint(MakeJoint("eye", JointType::kFixed, "base", "other"));
       },
       "joint_names.insert(joint.name).second", 114, "There are two joints with the name \"eye\"."},
      {revolute([](Joint& j) { j.child_frame = "base"; }), "is_new || place->second != kNone", 117,
       "Joint \"elbow\" carries the base frame \"base\"."},
      {[](auto& b) {
         b.addFrame("eye", "base", Pose3::Identity());
         b.addJoint(MakeJoint("j", JointType::kFixed, "base", "eye"));
       },
       "is_new", 119, "Frame \"eye\" is carried by two joints, \"eye\" and \"j\"."},
      {revolute([](Joint& j) { j.parent_frame = "arm"; }), "parent != carrier.end()", 127,
       "Joint \"elbow\" is attached to frame \"arm\", which no joint carries."},
      {[](auto& b) {
         b.addFrame("eye", "base", Pose3::Identity());
         b.addJoint(MakeJoint("j1", JointType::kFixed, "b", "a"));
         b.addJoint(MakeJoint("j2", JointType::kFixed, "a", "b"));
       },
       connected_condition, 176,
       "Joint \"j1\" belongs to a cycle or hangs on one: frame \"a\" is not connected to the base frame "
       "\"base\"."},
      {revolute([](Joint& j) { j.limits.reset(); }), "joint.limits.has_value()", 40,
       "Joint \"elbow\" has no limits; a revolute or prismatic joint needs them."},
      {revolute([](Joint& j) {
         j.type = JointType::kPrismatic;
         j.limits.reset();
       }),
       "joint.limits.has_value()", 40,
       "Joint \"elbow\" has no limits; a revolute or prismatic joint needs them."},
      {revolute([&](Joint& j) {
         j.type = JointType::kContinuous;
         j.limits = JointLimits{0.0, nan};
       }),
       limits_condition, 43, "Joint \"elbow\" has limits [0, nan] that are not finite."},
      {revolute([](Joint& j) {
         j.limits = JointLimits{1.5, 1.0};
       }),
       "limits.min <= limits.max", 46, "Joint \"elbow\" has the lower limit 1.5 above its upper limit 1."},
      {revolute([&](Joint& j) { j.default_value = nan; }), default_condition, 54,
       "Joint \"elbow\" has the default value nan outside its limits [-1, 2]."},
      {revolute([&](Joint& j) {
         j.type = JointType::kContinuous;
         j.limits.reset();
         j.default_value = inf;
       }),
       "std::isfinite(value)", 57, "Joint \"elbow\" has the default value inf, which is not finite."},
      {[](auto& b) {
         b.addCollisionSphere("arm", {0, 0, 0}, 1.0);
       },
       "frame_indices.count(frame_name) != 0", 184,
       "A collision sphere is attached to frame \"arm\", which does not exist."},
      {[&](auto& b) {
         b.addCollisionSphere("base", {0, 0, nan}, 1.0);
       },
       center_condition, 187,
       "A collision sphere of frame \"base\" has the center [0 0 nan], which is not finite."},
      {[&](auto& b) {
         b.addCollisionSphere("base", {0, 0, 0}, inf);
       },
       radius_condition, 190,
       "A collision sphere of frame \"base\" has the radius inf; it must be positive and finite."},
      {revolute([&](Joint& j) { j.held_value = nan; }),
       "!joint.held_value || std::isfinite(*joint.held_value)", 71,
       "Joint \"elbow\" is held at the value nan, which is not finite."},
      {revolute([](Joint& j) {
         j.mimic = Joint::Mimic{"elbow", 1.0, 0.0};
       }),
       "followed != data.coordinate_names.end()", 183,
       "Joint \"elbow\" follows joint \"elbow\", which is no coordinate."},
      {[](auto& b) { b.addCollisionPair("base", "arm"); }, "frame_indices.count(frame) != 0", 258,
       "A collision pair names frame \"arm\", which does not exist."},
      {[](auto& b) { b.addCollisionPair("base", "base"); }, "frame_a != frame_b", 261,
       "A collision pair names frame \"base\" twice."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    RobotDescriptionBuilder builder("base");
    c.add(builder);
    testing::ExpectFatal([&] { builder.build(); }, c.condition,
                         "kinematics/interface/robot_description_builder", c.line, c.message);
  }
  testing::ExpectFatal([] { RobotDescriptionBuilder("").build(); }, "!base_frame_.empty()",
                       "kinematics/interface/robot_description_builder", 105, "The base frame has no name.");
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
