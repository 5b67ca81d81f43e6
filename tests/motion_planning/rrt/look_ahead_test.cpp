#include "kavo/motion_planning/rrt/look_ahead_internal.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/world/world.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

// A cart takes steps of 0.1 along a rail. While it is at step 6 an obstacle comes or goes, before or behind
// it.
TEST(LookAheadTest, AsksAgainWhenTheWorldHasChanged) {
  RobotDescriptionBuilder builder("base");
  builder.addJoint({"rail", JointType::kPrismatic, "base", "cart", {}, {1.0, 0.0, 0.0}, {{0.0, 4.0}}});
  const auto description = builder.addCollisionSphere("cart", {0.0, 0.0, 0.0}, 0.01).build();
  const struct {
    double before;
    double after;
    int num_valid;
  } cases[] = {{9.0, 0.8, 8}, {0.8, 9.0, 31}, {0.9, 0.7, 7}, {9.0, 0.3, 31}, {9.0, 2.0, 20}};
  for (const auto& [before, after, num_valid] : cases) {
    World world;
    const ObstacleHandle ball = world.add(SphereObstacle{0.05}, Pose3::FromTranslation({before, 0.0, 0.0}));
    WorldView view = world.view();
    const auto environment = CreateRobotEnvironment({description.get(), view, testing::Vec({1.0}), 1, 1, 1});
    internal::LookAhead look_ahead(*environment);
    const auto advance = [](Eigen::VectorXd& q) {
      q[0] += 0.1;
      return q[0] < 3.05;
    };
    Eigen::VectorXd q = testing::Vec({0.0});
    int count = 0;
    look_ahead.Start();
    while (look_ahead.IsValid(q, advance)) {
      if (++count == 6) {
        world.move(ball, Pose3::FromTranslation({after, 0.0, 0.0}));
        view.update();
      }
      if (!look_ahead.Next(q, advance)) {
        break;
      }
    }
    EXPECT_EQ(count, num_valid) << before << " " << after;
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
