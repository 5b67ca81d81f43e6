#include "kavo/kinematics/interface/robot_variants.h"

#include <gmock/gmock.h>

#include <limits>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/util/fatal_error.h"

namespace kavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// A base, an upper and a lower arm with a fixed hand, which collide with one another but for neighbours.
std::shared_ptr<RobotDescription> Arm() {
  Joint shoulder;
  shoulder.name = "shoulder";
  shoulder.type = JointType::kRevolute;
  shoulder.parent_frame = "base";
  shoulder.child_frame = "upper";
  shoulder.limits = kinematics::JointLimits{-2.0, 2.0};
  Joint elbow = shoulder;
  elbow.name = "elbow";
  elbow.parent_frame = "upper";
  elbow.child_frame = "lower";
  elbow.origin = Pose3::FromTranslation({0.5, 0.0, 0.0});
  return RobotDescriptionBuilder("base")
      .addJoint(shoulder)
      .addJoint(elbow)
      .addFrame("hand", "lower", Pose3::FromTranslation({0.4, 0.0, 0.1}))
      .addCollisionSphere("base", {0.0, 0.0, 0.0}, 0.1)
      .addCollisionSphere("upper", {0.2, 0.0, 0.0}, 0.1)
      .addCollisionSphere("hand", {0.0, 0.0, 0.0}, 0.1)
      .addCollisionPair("base", "hand")
      .build();
}

const CollisionModel& CollisionOf(const RobotDescription& robot) {
  return dynamic_cast<const RobotDescriptionInternal&>(robot).collision();
}

TEST(RobotVariantsTest, WhatIsAttachedGoesAlongUntilItIsDetached) {
  const auto arm = Arm();
  const Pose3 in_hand(Eigen::Quaterniond(0.8, 0.0, 0.6, 0.0), {0.0, 0.2, 0.0});
  const Pose3 on_stick = Pose3::FromTranslation({0.0, 0.0, 0.3});
  const auto one = WithAttached(*arm, {"stick", "hand", in_hand, {{{0.0, 0.0, 0.1}, 0.02}}, {"upper"}});
  const auto two = WithAttached(*one, {"flag", "stick", on_stick, {{{0.0, 0.0, 0.0}, 0.05}}, {}});
  EXPECT_EQ(LastOwnFrame(*two), "hand");
  EXPECT_THAT(CollisionOf(*two).frames, ElementsAre("base", "upper", "hand", "stick", "flag"));
  EXPECT_THAT(CollisionOf(*two).pairs, ElementsAre(Pair("base", "hand"), Pair("base", "stick"),
                                                   Pair("base", "flag"), Pair("upper", "flag")));

  const Eigen::Vector2d q(0.3, -0.7);
  const auto kinematics = two->kinematics();
  const Pose3 hand = kinematics->pose(q, kinematics->frame("hand"));
  const Eigen::Vector3d tip(0.1, 0.2, 0.3);
  const Eigen::Vector3d expected = hand * (in_hand * (on_stick * tip));
  EXPECT_LT((kinematics->pose(q, kinematics->frame("flag")) * tip - expected).norm(), 1e-15);

  // The other one, which was given in its frame, stays where it is.
  const auto other = WithoutAttached(*two, "stick");
  EXPECT_THAT(CollisionOf(*other).frames, ElementsAre("base", "upper", "hand", "flag"));
  EXPECT_THAT(CollisionOf(*other).pairs,
              ElementsAre(Pair("base", "hand"), Pair("base", "flag"), Pair("upper", "flag")));
  const auto other_kinematics = other->kinematics();
  EXPECT_EQ(other_kinematics->pose(q, other_kinematics->frame("flag")) * tip,
            kinematics->pose(q, kinematics->frame("flag")) * tip);
  EXPECT_EQ(other_kinematics->positionJacobian(q, other_kinematics->frame("flag")),
            kinematics->positionJacobian(q, kinematics->frame("flag")));

  const auto none = WithoutAttached(*other, "flag");
  EXPECT_THAT(AttachedBodies(*none), IsEmpty());
  EXPECT_EQ(none->kinematics()->frameNames(), arm->kinematics()->frameNames());
  EXPECT_THAT(CollisionOf(*none).pairs, ElementsAre(Pair("base", "hand")));
  // A robot that may touch itself may touch what it holds.
  EXPECT_THAT(
      CollisionOf(*WithAttached(*WithCollisionPairs(*arm, {}), {"b", "hand", {}, {{{0, 0, 0}, 1}}, {}}))
          .pairs,
      IsEmpty());
}

TEST(RobotVariantsTest, RefusesWhatCannotBe) {
  const auto arm = Arm();
  const std::vector<math::Sphere> ball = {{{0.0, 0.0, 0.0}, 0.1}};
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const AttachedBody& body :
       {AttachedBody{"", "hand", {}, ball, {}}, AttachedBody{"hand", "hand", {}, ball, {}},
        AttachedBody{"ball", "claw", {}, ball, {}}, AttachedBody{"ball", "hand", {}, ball, {"claw"}},
        AttachedBody{"ball", "hand", Pose3::FromTranslation({nan, 0.0, 0.0}), ball, {}},
        AttachedBody{"ball", "hand", {}, {{{0.0, 0.0, 0.0}, 0.0}}, {}}}) {
    EXPECT_THROW(WithAttached(*arm, body), util::FatalError) << body.name << " on " << body.frame;
  }
  // The hand is the robot's own.
  EXPECT_THROW(WithoutAttached(*arm, "hand"), util::FatalError);
  EXPECT_THROW(WithContactRules(*arm, {{{"hand", -0.01}}, {}}), util::FatalError);
  EXPECT_THROW(WithContactRules(*arm, {{{"claw", 0.01}}, {}}), util::FatalError);
  EXPECT_THROW(WithContactRules(*arm, {{}, {{"claw", {"table"}}}}), util::FatalError);
}

TEST(RobotVariantsTest, PairsTakeThePlaceOfARobotsOwn) {
  const auto arm = Arm();
  const auto with_pairs = WithCollisionPairs(*arm, {{"hand", "upper"}, {"upper", "hand"}});
  EXPECT_THAT(CollisionOf(*with_pairs).pairs, ElementsAre(Pair("hand", "upper")));
  EXPECT_THROW(WithCollisionPairs(*arm, {{"hand", "hand"}}), util::FatalError);
  EXPECT_THROW(WithCollisionPairs(*arm, {{"hand", "claw"}}), util::FatalError);
}

}  // namespace
}  // namespace kavo
