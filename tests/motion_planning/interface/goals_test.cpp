#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "kavo/motion_planning/interface/goal.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/util/configuration_inspection.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/fatal_error.h"
#include "kavo/world/world.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo {
namespace {

using planning::LineMotion;
using planning::SearchStatus;
using testing::Vec;
using AxisTolerances = PoseGoal::AxisTolerances;

Eigen::Quaterniond Turn(double angle, const Eigen::Vector3d& axis) {
  return Eigen::Quaterniond(Eigen::AngleAxisd(angle, axis.normalized()));
}

TEST(PoseGoalTest, ErrorsAreWhatIsLeftOfThePose) {
  const auto x = Eigen::Vector3d::UnitX();
  const auto y = Eigen::Vector3d::UnitY();
  const auto z = Eigen::Vector3d::UnitZ();
  const Pose3 place(Turn(0.7, {1, 2, 3}), {0.1, 0.2, 0.3});
  const struct {
    const char* what;
    std::function<void(PoseGoal&)> edit;
    // Where the tool is, seen from the goal.
    Pose3 tool;
    double position;
    double orientation;
  } cases[] = {
      {"both", [](PoseGoal&) {}, {Turn(0.3, x), {0.3, 0, 0.4}}, 0.5, 0.3},
      {"the short way", [](PoseGoal&) {}, {Turn(2 * M_PI - 0.3, x), {0, 0, 0}}, 0.0, 0.3},
      {"free translation",
       [](PoseGoal& g) { g.free_translations[0] = true; },
       {Turn(0, x), {9, 0, 0.4}},
       0.4,
       0},
      {"free axis",
       [](PoseGoal& g) { g.free_rotations[2] = true; },
       {Turn(0.2, y) * Turn(2.5, z), {0, 0, 0}},
       0,
       0.2},
      {"free orientation",
       [](PoseGoal& g) { g = PoseGoal::Position("", g.pose.translation()); },
       {Turn(3, x), {0, 0.2, 0}},
       0.2,
       0},
      {"inside of a region",
       [&](PoseGoal& g) {
         g.regions = {{BoxObstacle{{1, 1, 1}}, place}};
       },
       {Turn(0, x), {0.4, 0.4, -0.4}},
       0,
       0},
      {"beside the nearer region",
       [&](PoseGoal& g) {
         g.regions = {{SphereObstacle{0.1}, place}, {CylinderObstacle{0.2, 1.0}, place}};
       },
       {Turn(0, x), {0.5, 0, 0.9}},
       0.5,
       0},
      {"Euler angles",
       [](PoseGoal& g) {
         g.axis_tolerances = {{{0.1, 0.4, 4.0}}};
       },
       {Turn(0.15, x) * Turn(-0.3, y) * Turn(3.0, z), {0, 0, 0}},
       0,
       0.05},
      {"Euler angles beyond a quarter turn",
       [](PoseGoal& g) {
         g.axis_tolerances = {{{0.1, 4.0, 0.1}}};
       },
       {Turn(2.5, y) * Turn(-0.3, z), {0, 0, 0}},
       0,
       0.2},
      {"rotation vector",
       [](PoseGoal& g) {
         g.axis_tolerances = {{{0.1, 0.4, 4.0}, AxisTolerances::Parameterization::kRotationVector}};
       },
       {Turn(0.5, {3, 0, 4}), {0, 0, 0}},
       0,
       0.2},
  };
  for (const auto& c : cases) {
    PoseGoal goal;
    goal.pose = place;
    c.edit(goal);
    const PoseError error = ErrorOf(goal, place * c.tool);
    EXPECT_NEAR(error.position, c.position, 1e-12) << c.what;
    EXPECT_NEAR(error.orientation, c.orientation, 1e-12) << c.what;
  }
}

// The arm above a floor, with a ball beside it.
class GoalsTest : public ::testing::Test {
 protected:
  GoalsTest() {
    world_.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0, 0, -0.06}), "floor");
    world_.add(SphereObstacle{0.15}, Pose3::FromTranslation({0.5, -0.3, 0.3}), "ball");
    planner_ = CreateMotionPlanner(robot_, world_.view());
  }

  Pose3 ToolAt(const Eigen::VectorXd& q) const { return kinematics_->pose(q, kinematics_->frame("tool")); }

  PoseGoal Down(double x, double y, double z) const {
    PoseGoal goal;
    goal.pose = Pose3(Eigen::Quaterniond(0, 1, 0, 0), {x, y, z});
    return goal;
  }

  void ExpectProven(const std::vector<Eigen::VectorXd>& path) const {
    EXPECT_EQ(planning::ProvePath(*robot_, world_.view(), path).verdict, planning::PathProof::Verdict::kFree);
  }

  testing::LogCapture log_{static_cast<int>(LogLevel::kWarning)};
  std::shared_ptr<RobotDescription> robot_ = LoadFrankaRobotDescription();
  std::unique_ptr<Kinematics> kinematics_ = robot_->kinematics();
  World world_;
  std::unique_ptr<MotionPlanner> planner_;
  Eigen::VectorXd start_ = robot_->defaultCSpaceConfiguration();
};

TEST_F(GoalsTest, PathsEndWithinWhatAGoalAllowsAndNotAlwaysInTheSamePlaceOfIt) {
  std::vector<PoseGoal> goals(8, Down(0.45, 0.25, 0.35));
  goals[1].free_rotations[2] = true;
  goals[2].regions = {{BoxObstacle{{0.3, 0.01, 0.2}}, Pose3(Turn(0.5, {0, 0, 1}), {0.45, 0.25, 0.35})},
                      {SphereObstacle{0.05}, Pose3::FromTranslation({0.4, 0.0, 0.5})}};
  goals[3].axis_tolerances = {{{0.3, 0.01, 4.0}}};
  goals[4].axis_tolerances = {{{0.2, 0.3, 0.4}, AxisTolerances::Parameterization::kRotationVector}};
  goals[5].tool = Pose3(Turn(0.4, {1, 1, 0}), {0, 0.05, 0.1});
  goals[5].position_tolerance = 0.02;
  goals[5].orientation_tolerance = 0.2;
  // Inverse kinematics frees another turn about y than this one between turns about x and z.
  goals[6].pose = goals[6].pose * Pose3::FromRotation(Turn(2.5, {0, 1, 0}));
  goals[6].axis_tolerances = {{{0.3, 4.0, 0.3}}};
  goals[7].axis_tolerances = {{{4.0, 4.0, 0.001}}};
  for (const PoseGoal& goal : goals) {
    std::vector<PoseError> errors;
    PoseGoal some = goal;
    // All but the configurations that turn up first, so that more are drawn.
    some.accepts = [&](const Eigen::VectorXd& q) {
      errors.push_back(ErrorOf(goal, ToolAt(q) * goal.tool));
      return errors.size() > 8;
    };
    const auto results = planner_->planToPose(start_, some, true);
    ASSERT_TRUE(results.path_found);
    ExpectProven(results.path);
    EXPECT_EQ(results.interpolated_path.back(), results.path.back());
    EXPECT_EQ(planner_->queryReport().goals.at(0).num_not_accepted, 8u);
    double spread = 0.0;
    for (const PoseError& error : errors) {
      EXPECT_LE(error.position, goal.position_tolerance.value_or(1e-4));
      EXPECT_LE(error.orientation, goal.axis_tolerances ? 0.0 : goal.orientation_tolerance.value_or(1e-3));
      spread = std::max(spread, error.position + error.orientation);
    }
    if (goal.position_tolerance) {
      EXPECT_GT(spread, 0.01);
    }
  }
}

TEST_F(GoalsTest, TakesTheRobotAsItIsAndAllOfTheTolerance) {
  PoseGoal goal = Down(0.45, 0.25, 0.3);
  goal.frame = "stick";
  for (const double length : {0.1, 0.2}) {
    planner_->attach({"stick",
                      "tool",
                      Pose3::FromTranslation({0, 0, length}),
                      {{SphereObstacle{0.01}, Pose3()}},
                      {},
                      {},
                      {}});
    const auto results = planner_->planToPose(start_, goal, false);
    ASSERT_TRUE(results.path_found);
    EXPECT_NEAR(ToolAt(results.path.back()).translation()[2], 0.3 + length, 1e-4);
    planner_->detach("stick");
  }
  // Beside the plane that the arm moves in.
  const std::shared_ptr<RobotDescription> planar = LoadThreeLinkArmRobotDescription();
  PoseGoal beside = PoseGoal::Position("", {1.5, 0.5, 0.05});
  beside.position_tolerance = 0.06;
  const World nothing;
  const auto in_plane = CreateMotionPlanner(planar, nothing.view());
  EXPECT_TRUE(in_plane->planToPose(planar->defaultCSpaceConfiguration(), beside, false).path_found);
}

TEST_F(GoalsTest, SaysWhichGoalWasReachedAndWhyOthersWereNot) {
  const Eigen::VectorXd beyond = Eigen::VectorXd::Zero(7);
  Eigen::VectorXd other = start_;
  other[0] += 0.8;
  const std::vector<Goal> goals = {beyond, Down(0.5, -0.3, 0.3), Down(2.0, 0, 0.4), Down(0.4, 0.2, 0.4),
                                   other};
  const auto results = planner_->planToGoals(start_, goals, false);
  ASSERT_TRUE(results.path_found);
  ExpectProven(results.path);
  ASSERT_TRUE(results.goal == 3u || results.goal == 4u);
  const QueryReport report = planner_->queryReport();
  ASSERT_EQ(report.goals.size(), goals.size());
  EXPECT_EQ(report.goals[0].fault->limit->coordinate, 3u);
  EXPECT_EQ(report.goals[1].fault->contact->obstacle_name, "ball");
  const auto inspections =
      planning::InspectConfigurations(*robot_, world_.view(), {*report.goals[1].refused});
  EXPECT_EQ(inspections[0].Fault()->contact->obstacle_name, "ball");
  EXPECT_GT(report.goals[1].num_rejected, 0u);
  EXPECT_NEAR(report.goals[2].nearest->position_error, 2.0 - 0.85, 0.2);
  EXPECT_EQ(report.goals[4].num_configurations, 1u);
  EXPECT_TRUE(log_.messages(LogLevel::kWarning).empty());

  const struct {
    std::vector<Goal> goals;
    SearchStatus status;
  } cases[] = {
      {{goals[0], goals[1]}, SearchStatus::kInvalidTarget},
      {{goals[2]}, SearchStatus::kUnreachableTarget},
      {{goals[1], goals[2]}, SearchStatus::kInvalidTarget},
      {{start_}, SearchStatus::kFound},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(planner_->planToGoals(start_, c.goals, false).path_found, c.status == SearchStatus::kFound);
    EXPECT_EQ(planner_->queryReport().status, c.status);
  }
  // Within the floor as it is aimed at, but not all that is tolerated.
  Eigen::VectorXd low = start_;
  low[1] = 1.1;
  const Eigen::VectorXd below = Eigen::VectorXd::Zero(7);
  Eigen::VectorXd above = below;
  above[3] = 2.0;
  const auto in_range = planner_->planToGoals(start_, {ConfigurationGoal{low, below, above}}, false);
  ASSERT_TRUE(in_range.path_found);
  const Eigen::VectorXd off = in_range.path.back() - low;
  EXPECT_TRUE(off[3] > 0.0 && off[3] <= 2.0) << off.transpose();
  EXPECT_EQ(off.norm(), off[3]);
  EXPECT_FALSE(planner_->planToGoals(start_, {ConfigurationGoal{low, below, below}}, false).path_found);
  planner_->setStopCondition([] { return true; });
  planner_->planToGoals(start_, goals, false);
  EXPECT_EQ(planner_->queryReport().status, SearchStatus::kStopped);
  planner_->setStopCondition({});

  PoseGoal bad = Down(0.4, 0.2, 0.4);
  bad.position_tolerance = 0.0;
  for (const std::vector<Goal>& refused : {std::vector<Goal>(), {Vec({1, 2})}, {bad}}) {
    EXPECT_THROW(planner_->planToGoals(start_, refused, false), util::FatalError);
  }
}

TEST_F(GoalsTest, LinesKeepTheToolAsNearAsTheySay) {
  const Pose3 from = ToolAt(start_);
  PoseGoal goal;
  goal.pose =
      Pose3(Turn(0.6, {0, 1, 1}) * from.rotation(), from.translation() + Eigen::Vector3d(0.1, 0.25, -0.1));
  for (const double step : {0.005, 0.1}) {
    planning::LineOptions options;
    options.step = step;
    options.angle_step = 10.0 * step;
    options.max_deviation = step / 5.0;
    const LineMotion line = planner_->planLine(start_, goal, options);
    ASSERT_TRUE(line.IsComplete()) << ToString(line.end);
    ExpectProven(line.path);
    const auto off_line = [&](const Pose3& tool) {
      const Eigen::Vector3d way = goal.pose.translation() - from.translation();
      const double along = way.dot(tool.translation() - from.translation()) / way.squaredNorm();
      const double position = (tool.translation() - from.translation() - along * way).norm();
      return std::pair(position,
                       tool.rotation().angularDistance(from.rotation().slerp(along, goal.pose.rotation())));
    };
    double farthest = 0.0;
    double most_turned = 0.0;
    for (std::size_t i = 1; i < line.path.size(); ++i) {
      for (double t = 0.0; t <= 1.0; t += 0.1) {
        const Eigen::VectorXd q = line.path[i - 1] + t * (line.path[i] - line.path[i - 1]);
        const auto [position, angle] = off_line(ToolAt(q));
        farthest = std::max(farthest, position);
        most_turned = std::max(most_turned, angle);
      }
      EXPECT_LE((line.path[i] - line.path[i - 1]).cwiseAbs().maxCoeff(), options.max_joint_step);
    }
    EXPECT_LE(farthest, line.deviation);
    EXPECT_LE(most_turned, line.angle);
    EXPECT_LE(line.deviation, options.max_deviation);
    EXPECT_GT(farthest, 0.01 * line.deviation);
    EXPECT_LT((ToolAt(line.path.back()).translation() - goal.pose.translation()).norm(), 1e-5);
  }
}

TEST_F(GoalsTest, LinesThatEndEarlySayWhereAndWhy) {
  const Eigen::Vector3d tool = ToolAt(start_).translation();
  const auto to = [&](const Eigen::Vector3d& position) {
    // In the orientation that it has.
    PoseGoal goal = PoseGoal::Position("tool", position);
    goal.tool = Pose3::FromRotation(Turn(0.4, {1, 2, 0}));
    return planner_->planLine(start_, goal, {});
  };
  const LineMotion into_floor = to({tool[0], tool[1], -0.2});
  EXPECT_EQ(into_floor.end, LineMotion::End::kContact);
  EXPECT_EQ(into_floor.fault->contact->obstacle_name, "floor");
  EXPECT_FALSE(planning::InspectConfigurations(*robot_, world_.view(), {*into_floor.blocked})[0].IsValid());
  EXPECT_NEAR(ToolAt(into_floor.path.back()).rotation().angularDistance(ToolAt(start_).rotation()), 0.0,
              2e-4);
  const LineMotion too_far = to({1.2, tool[1], tool[2]});
  EXPECT_EQ(planner_->queryReport().status, SearchStatus::kLineEndsEarly);
  EXPECT_EQ(too_far.end, LineMotion::End::kUnreachable);
  EXPECT_TRUE(too_far.nearest);
  for (const LineMotion& line : {into_floor, too_far}) {
    EXPECT_GT(line.fraction, 0.2);
    EXPECT_LT(line.fraction, 0.99);
    ExpectProven(line.path);
  }
  EXPECT_EQ(planner_->planLine(Eigen::VectorXd::Zero(7), Down(0, 0, 1), {}).end,
            LineMotion::End::kInvalidStart);
}

TEST_F(GoalsTest, StagesEndWhereTheLinesAfterThemCanBegin) {
  const planning::LineOptions line;
  const PoseGoal beside = Down(0.45, 0.3, 0.4);
  const PoseGoal at = Down(0.45, 0.3, 0.1);
  const auto results = planner_->planStages(start_, {{{beside}}, {{at}, line}, {{beside}, line}, {{start_}}});
  ASSERT_TRUE(results.path_found);
  ASSERT_EQ(results.parts.size(), 4u);
  ExpectProven(results.path);
  EXPECT_EQ(results.path.front(), start_);
  EXPECT_EQ(results.path.back(), start_);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(results.parts[i].first, i == 0 ? 0 : results.parts[i - 1].last);
  }
  const Eigen::VectorXd& grasp = results.path[results.parts[1].last];
  EXPECT_LT(ErrorOf(at, ToolAt(grasp)).position, 1e-5);

  // Above the ball and on beside it, but from there not back through it to where a line from above could go.
  planning::LineOptions coarse;
  coarse.step = coarse.max_deviation = 0.05;
  coarse.angle_step = coarse.max_angle = 0.2;
  coarse.max_joint_step = 0.5;
  const auto past = planner_->planStages(
      start_,
      {{{Down(0.45, -0.3, 0.6)}}, {{Down(0.45, 0.1, 0.25)}, coarse}, {{Down(0.45, -0.3, 0.48)}, coarse}});
  ASSERT_EQ(past.parts.size(), 1u);
  ASSERT_TRUE(past.parts[0].ahead);
  EXPECT_EQ(past.parts[0].ahead->stage, 2u);
  EXPECT_EQ(past.parts[0].ahead->line.end, LineMotion::End::kContact);

  // Beside the ball, but not on through it: no configuration leads on.
  const auto none = planner_->planStages(start_, {{{Down(0.5, 0.1, 0.3)}}, {{Down(0.5, -0.3, 0.3)}, line}});
  EXPECT_FALSE(none.path_found);
  ASSERT_EQ(none.parts.size(), 1u);
  EXPECT_GT(none.parts[0].report.goals.at(0).num_not_accepted, 0u);
  EXPECT_EQ(none.parts[0].report.status, SearchStatus::kInvalidTarget);
}

}  // namespace
}  // namespace kavo
