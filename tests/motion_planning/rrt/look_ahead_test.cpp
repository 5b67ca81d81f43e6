#include "kavo/motion_planning/rrt/look_ahead_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/rrt/jt_rrt.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"
#include "tests/world/random_scene.h"

namespace kavo::planning {
namespace {

using Path = std::vector<Eigen::VectorXd>;

// A robot environment that is asked about one configuration at a time, and so never ahead.
class OneAtATime : public RobotEnvironment {
 public:
  explicit OneAtATime(std::shared_ptr<RobotEnvironment> inner) : inner_(std::move(inner)) {}

  int CSpaceDimension() const override { return inner_->CSpaceDimension(); }
  const kinematics::ConfigurationLimits& CSpaceCoordLimits() const override {
    return inner_->CSpaceCoordLimits();
  }
  const DistanceMetric& CSpaceDistanceMetric() const override { return inner_->CSpaceDistanceMetric(); }
  bool IsValidConfiguration(const Eigen::VectorXd& q) const override {
    return inner_->IsValidConfiguration(q);
  }
  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    return inner_->SampleConfiguration();
  }
  Eigen::Vector3d TaskSpacePosition(const Eigen::VectorXd& q) const override {
    return inner_->TaskSpacePosition(q);
  }
  void GetTaskSpacePositionJacobian(const Eigen::VectorXd& q, Eigen::MatrixXd& jacobian) const override {
    inner_->GetTaskSpacePositionJacobian(q, jacobian);
  }
  std::optional<Eigen::Vector3d> SampleTaskSpace() const override { return inner_->SampleTaskSpace(); }
  void UpdateWorldView() override { inner_->UpdateWorldView(); }
  void SetBasePose(const Pose3& base_pose) override { inner_->SetBasePose(base_pose); }
  Statistics GetStatistics() const override { return inner_->GetStatistics(); }
  std::optional<ConfigurationFault> FindFault(const Eigen::VectorXd& q) const override {
    return inner_->FindFault(q);
  }

 private:
  std::shared_ptr<RobotEnvironment> inner_;
};

// What a search leaves behind.
struct Outcome {
  bool found = false;
  Path path;
  Path shortened;
  Path nodes;
  // Where the random sequence stands afterwards.
  Eigen::VectorXd next_sample;
};

void Finish(RRT& planner, const std::shared_ptr<RobotEnvironment>& environment, const Eigen::VectorXd& start,
            const Eigen::VectorXd& target, const StopCondition& stop_condition, Outcome* outcome) {
  planner.SetStopCondition(stop_condition);
  const auto nodes = planner.TryToFindPath(start, target);
  outcome->nodes = planner.GetAllValidatedConfigurations();
  outcome->found = nodes.has_value();
  if (nodes) {
    outcome->path = ConvertToConfigurations(*nodes);
    outcome->shortened = ShortCircuitPath(outcome->path, environment, 0.1, 20, 7);
  }
  outcome->next_sample = environment->SampleConfiguration().value_or(Eigen::VectorXd());
}

Outcome Search(const std::shared_ptr<RobotEnvironment>& environment, bool to_position,
               const Eigen::VectorXd& start, const Eigen::VectorXd& target,
               const StopCondition& stop_condition) {
  Outcome outcome;
  std::unique_ptr<Tree> trees[] = {
      CreateBasicTree(7, environment->CSpaceDistanceMetric(), true),
      CreateBasicTree(to_position ? 3 : 7, to_position ? L2Norm : environment->CSpaceDistanceMetric(),
                      to_position)};
  if (to_position) {
    Finish(*CreateJtRRT({0.1, {0.05, 0.05, 0.05}, 1e-3, 0.4, 0.1, 60, false, 3}, environment, trees[0],
                        trees[1]),
           environment, start, target, stop_condition, &outcome);
  } else {
    trees[0] = CreateBasicTree(7, environment->CSpaceDistanceMetric(), false);
    Finish(*CreateRRTConnect({0.1, 60, 0.5}, environment, trees[0], trees[1]), environment, start, target,
           stop_condition, &outcome);
  }
  return outcome;
}

// In every other pair of rounds an obstacle comes up in the middle of the search.
TEST(LookAheadTest, ChangesNoBitOfAnySearch) {
  const testing::LogCapture quiet;
  const auto description = LoadFrankaRobotDescription();
  int num_found[2] = {0, 0};
  for (int round = 0; round < 500; ++round) {
    Eigen::VectorXd weights = Eigen::VectorXd::Ones(7);
    if (round % 4 == 3) {
      weights[2] = 3.0;
    }
    const bool to_position = round % 2 == 1;
    Outcome outcomes[2];
    for (const bool ahead : {false, true}) {
      test::RandomScene scene(static_cast<std::uint32_t>(round));
      World world;
      for (int i = 0; i < 6; ++i) {
        world.add(scene.bounded(i % 4, 0.4), scene.pose(0.9));
      }
      WorldView view = world.view();
      RobotEnvironmentConfig config(description.get(), view, weights, 1000, round + 1, round + 2);
      config.SetTaskSpaceLimits({Eigen::Vector3d::Constant(-1.0), Eigen::Vector3d::Constant(1.0)});
      int num_left = round % 4 < 2 ? round % 50 : -1;
      const StopCondition edit_once = [&] {
        if (num_left-- == 0) {
          world.add(scene.bounded(round % 4, 0.4), scene.pose(0.9));
          view.update();
        }
        return false;
      };
      std::shared_ptr<RobotEnvironment> environment = CreateRobotEnvironment(config);
      if (!ahead) {
        environment = std::make_shared<OneAtATime>(environment);
      }
      const auto start = environment->SampleConfiguration();
      const auto goal = environment->SampleConfiguration();
      if (start && goal) {
        const Eigen::VectorXd target =
            to_position ? Eigen::VectorXd(environment->TaskSpacePosition(*goal)) : *goal;
        outcomes[ahead ? 1 : 0] = Search(environment, to_position, *start, target, edit_once);
      }
    }
    ASSERT_EQ(outcomes[0].found, outcomes[1].found) << round;
    ASSERT_EQ(outcomes[0].nodes, outcomes[1].nodes) << round;
    ASSERT_EQ(outcomes[0].path, outcomes[1].path) << round;
    ASSERT_EQ(outcomes[0].shortened, outcomes[1].shortened) << round;
    ASSERT_EQ(outcomes[0].next_sample, outcomes[1].next_sample) << round;
    num_found[to_position ? 1 : 0] += outcomes[0].found ? 1 : 0;
  }
  // The comparison is worth something only if searches end both ways.
  for (const int found : num_found) {
    EXPECT_GT(found, 50);
    EXPECT_LT(found, 250);
  }
}

// Where a walk along 0, 1, 2 and so on is ended by itself, by an obstacle, or by both.
TEST(LookAheadTest, WalksLikeAPlainLoopWhateverItAsksAtOnce) {
  for (const int num_at_once : {0, 1, 2, 4, 5, 8}) {
    double obstacle = 0.0;
    const testing::ScriptedEnvironment environment(
        1, {}, [&](const Eigen::VectorXd& q) { return q[0] < obstacle; }, num_at_once);
    // Kept from walk to walk, as planners keep it.
    internal::LookAhead look_ahead(environment);
    for (obstacle = 0.0; obstacle <= 20.0; ++obstacle) {
      for (double last = 0.0; last <= 20.0; ++last) {
        const auto advance = [last](Eigen::VectorXd& q) {
          q[0] += 1.0;
          return q[0] <= last;
        };
        environment.questions.clear();
        Eigen::VectorXd q = testing::Vec({0.0});
        double num_visited = 0.0;
        look_ahead.Start();
        while (look_ahead.IsValid(q, advance)) {
          ASSERT_EQ(q[0], num_visited++);
          if (!look_ahead.Next(q, advance)) {
            break;
          }
        }
        ASSERT_EQ(num_visited, std::min(obstacle, last + 1.0)) << num_at_once;
        // Each is asked about once, in order, and none without need where one is asked about at a time.
        const auto num_questions = static_cast<double>(environment.questions.size());
        ASSERT_EQ(environment.questions.back()[0], num_questions - 1.0);
        ASSERT_LE(num_questions, std::min(obstacle, last) + 1.0) << num_at_once;
      }
    }
  }
}

}  // namespace
}  // namespace kavo::planning
