#include "kavo/motion_planning/interface/attached_object.h"

#include <gmock/gmock.h>

#include <string>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/fatal_error.h"

namespace kavo {
namespace {

using planning::SearchStatus;
using testing::IsEmpty;

class AttachedObjectTest : public testing::TestWithParam<std::string> {
 protected:
  AttachedObjectTest() {
    const auto kinematics = robot_->kinematics();
    const auto tool = kinematics->frame("tool");
    world_.add(BoxObstacle{{0.1, 0.1, 0.1}}, kinematics->pose(start_, tool) * beyond_tool_, "box");
    // Where the box would be at the target, but nothing of the arm.
    world_.add(SphereObstacle{0.02}, kinematics->pose(target_, tool) * beyond_tool_, "pin");
    planner_ = CreateMotionPlanner(robot_, world_.view());
    planner_->setParam("planner", GetParam());
  }

  bool isFound(const Eigen::VectorXd& target) {
    const MotionPlanner::Results results = planner_->planToCSpaceTarget(start_, target, false);
    return results.path_found &&
           planning::ProvePath(*planner_->robot(), world_.view(), results.path).IsFree();
  }

  std::shared_ptr<RobotDescription> robot_ = LoadThreeLinkArmRobotDescription();
  Eigen::VectorXd start_ = Eigen::Vector3d(-0.4, 0.1, 0.2);
  Eigen::VectorXd target_ = Eigen::Vector3d(1.2, -0.2, -0.3);
  Eigen::VectorXd aside_ = Eigen::Vector3d(0.4, 0.3, -0.3);
  Pose3 beyond_tool_ = Pose3::FromTranslation({0.5, 0.0, 0.0});
  World world_;
  std::unique_ptr<MotionPlanner> planner_;
};

TEST_P(AttachedObjectTest, IsCarriedFromTheWorldAndBack) {
  EXPECT_TRUE(isFound(target_));
  AttachFromWorld(*planner_, world_, "box", "tool", start_);
  EXPECT_EQ(world_.numObstacles(), 1u);
  EXPECT_TRUE(isFound(aside_));
  EXPECT_FALSE(isFound(target_));
  const QueryReport report = planner_->queryReport();
  EXPECT_EQ(report.status, SearchStatus::kInvalidTarget);
  ASSERT_TRUE(report.fault && report.fault->contact);
  EXPECT_EQ(report.fault->contact->frame, "box");
  EXPECT_EQ(report.fault->contact->obstacle_name, "pin");

  // Settings that build everything anew keep what is held.
  planner_->setParam("seed", 5);
  EXPECT_FALSE(isFound(target_));
  const std::vector<ObstacleHandle> placed = DetachIntoWorld(*planner_, world_, "box", aside_);
  EXPECT_THAT(AttachedBodies(*planner_->robot()), IsEmpty());
  ASSERT_EQ(placed.size(), 1u);
  const auto kinematics = robot_->kinematics();
  const Pose3 expected = kinematics->pose(aside_, kinematics->frame("tool")) * beyond_tool_;
  EXPECT_LT((world_.pose(placed[0]).translation() - expected.translation()).norm(), 1e-12);
  EXPECT_EQ(world_.name(placed[0]), "box");
  EXPECT_TRUE(isFound(target_));
}

TEST_P(AttachedObjectTest, MayTouchWhatItIsAllowedTo) {
  AttachFromWorld(*planner_, world_, "box", "tool", start_, {}, {"pin"});
  EXPECT_TRUE(isFound(target_));
}

TEST_P(AttachedObjectTest, IsRefusedWithoutAChange) {
  const std::vector<CoverPart> ball = {{SphereObstacle{0.1}, Pose3()}};
  const AttachedObject good = {"ball", "tool", beyond_tool_, ball, {}, {}, {}};
  for (const auto& spoil :
       std::vector<void (*)(AttachedObject&)>{[](AttachedObject& object) { object.name = "pin"; },
                                              [](AttachedObject& object) { object.name = "link2"; },
                                              [](AttachedObject& object) { object.frame = "claw"; },
                                              [](AttachedObject& object) { object.parts.clear(); },
                                              [](AttachedObject& object) {
                                                object.parts.push_back({HalfSpaceObstacle{}, Pose3()});
                                              }}) {
    AttachedObject object = good;
    spoil(object);
    EXPECT_THROW(planner_->attach(object), util::FatalError);
  }
  EXPECT_THROW(AttachFromWorld(*planner_, world_, "box", "claw", start_), util::FatalError);
  EXPECT_THROW(AttachFromWorld(*planner_, world_, "cup", "tool", start_), util::FatalError);
  EXPECT_THROW(planner_->detach("ball"), util::FatalError);
  EXPECT_EQ(world_.numObstacles(), 2u);
  EXPECT_THAT(AttachedBodies(*planner_->robot()), IsEmpty());
  EXPECT_TRUE(isFound(target_));
  // The box is there again.
  EXPECT_TRUE(world_.view().inCollision(world_.pose(world_.obstacles().front()).translation(), 0.0));
}

TEST_P(AttachedObjectTest, LeavesRandomChoicesAlone) {
  const auto other = CreateMotionPlanner(robot_, world_.view());
  other->setParam("planner", GetParam());
  EXPECT_EQ(planner_->planToCSpaceTarget(start_, target_, false).path,
            other->planToCSpaceTarget(start_, target_, false).path);
  planner_->attach({"ball", "tool", beyond_tool_, {{SphereObstacle{0.1}, Pose3()}}, {}, {}, {}});
  const AttachedObject detached = planner_->detach("ball");
  EXPECT_EQ(detached.parts.size(), 1u);
  EXPECT_EQ(planner_->planToCSpaceTarget(aside_, start_, false).path,
            other->planToCSpaceTarget(aside_, start_, false).path);
}

INSTANTIATE_TEST_SUITE_P(EachPlanner, AttachedObjectTest, testing::Values("rrt_connect", "bi_rrt"),
                         [](const auto& name) { return name.param; });

}  // namespace
}  // namespace kavo
