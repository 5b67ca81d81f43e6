#include "kavo/motion_planning/interface/search_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/world/world.h"

namespace kavo {
namespace {

TEST(SearchRecordTest, EachSearchIsShownWithItsTreesAndChangesNoAnswer) {
  const std::shared_ptr<RobotDescription> robot = LoadThreeLinkArmRobotDescription();
  World world;
  world.add(SphereObstacle{0.3}, Pose3::FromTranslation({1.7, 0.6, 0.0}), "ball");
  const Eigen::VectorXd start = Eigen::Vector3d(-0.4, 0.1, 0.2);
  const Eigen::VectorXd target = Eigen::Vector3d(1.7, -0.2, -0.3);
  const Eigen::VectorXd inside = Eigen::Vector3d(0.34, 0.0, 0.0);
  using Path = std::vector<Eigen::VectorXd>;
  const struct {
    const char* what;
    const char* planner;
    std::function<Path(MotionPlanner&)> plan;
    std::size_t num_trees;
  } cases[] = {
      {"rrt_connect", "rrt_connect",
       [&](MotionPlanner& planner) { return planner.planToCSpaceTarget(start, target, false).path; }, 2},
      {"bi_rrt", "bi_rrt",
       [&](MotionPlanner& planner) { return planner.planToGoals(start, {target}, false).path; }, 2},
      {"jt_rrt", "jt_rrt",
       [&](MotionPlanner& planner) {
         return planner.planToTaskSpaceTarget(start, {0.3, 1.2, 0.0}, false).path;
       },
       1},
      // Behind a query of the same planner, whose trees it must not show.
      {"an invalid target", "rrt_connect",
       [&](MotionPlanner& planner) { return planner.planToCSpaceTarget(start, inside, false).path; }, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const auto unobserved = CreateMotionPlanner(robot, world.view());
    const auto planner = CreateMotionPlanner(robot, world.view());
    for (MotionPlanner* const either : {unobserved.get(), planner.get()}) {
      either->planToCSpaceTarget(start, target, false);
    }
    std::vector<SearchRecord> searches;
    planner->setSearchObserver([&](const SearchRecord& search) { searches.push_back(search); });
    EXPECT_EQ(c.plan(*planner), c.plan(*unobserved));
    ASSERT_EQ(searches.size(), 1u);
    const SearchRecord& search = searches[0];
    EXPECT_EQ(search.planner, c.planner);
    EXPECT_EQ(search.raw_path.size(), planner->queryReport().num_raw_waypoints);
    ASSERT_EQ(search.trees.size(), c.num_trees);
    for (std::size_t i = 0; i < search.trees.size(); ++i) {
      const SearchTree& tree = search.trees[i];
      EXPECT_EQ(tree.root, i == 0 ? SearchTree::Root::kStart : SearchTree::Root::kGoal);
      EXPECT_EQ(tree.nodes.front(), i == 0 ? start : target);
      EXPECT_EQ(tree.nodes.size(), planner->queryReport().num_nodes[i]);
      ASSERT_EQ(tree.parents.size(), tree.nodes.size());
      for (std::size_t k = 0; k < tree.nodes.size(); ++k) {
        EXPECT_TRUE(k == 0 ? !tree.parents[k] : tree.parents[k] < k);
      }
    }
    // Each edge of the path is one of a tree, but for the one between them.
    std::size_t num_foreign = 0;
    for (std::size_t i = 1; i < search.raw_path.size(); ++i) {
      num_foreign += std::none_of(search.trees.begin(), search.trees.end(), [&](const SearchTree& tree) {
        for (std::size_t k = 1; k < tree.nodes.size(); ++k) {
          const Eigen::VectorXd& parent = tree.nodes[*tree.parents[k]];
          if ((parent == search.raw_path[i - 1] && tree.nodes[k] == search.raw_path[i]) ||
              (parent == search.raw_path[i] && tree.nodes[k] == search.raw_path[i - 1])) {
            return true;
          }
        }
        return false;
      });
    }
    EXPECT_LE(num_foreign, 1u);
  }
}

TEST(SearchRecordTest, EachStageIsASearchAndALineHasNoTrees) {
  const std::shared_ptr<RobotDescription> robot = LoadFrankaRobotDescription();
  World world;
  world.add(HalfSpaceObstacle{}, Pose3::FromTranslation({0.0, 0.0, -0.1}), "floor");
  const auto planner = CreateMotionPlanner(robot, world.view());
  std::vector<SearchRecord> searches;
  planner->setSearchObserver([&](const SearchRecord& search) { searches.push_back(search); });
  PoseGoal above;
  above.pose = Pose3(Eigen::Quaterniond(0.0, 1.0, 0.0, 0.0), {0.5, 0.2, 0.4});
  PoseGoal at = above;
  at.pose = Pose3(above.pose.rotation(), {0.5, 0.2, 0.3});
  const StagedResults results =
      planner->planStages(robot->defaultCSpaceConfiguration(), {{{above}}, {{at}, planning::LineOptions{}}});
  ASSERT_TRUE(results.path_found);
  ASSERT_EQ(searches.size(), 2u);
  EXPECT_EQ(searches[0].trees.size(), 2u);
  EXPECT_TRUE(searches[1].trees.empty());
  EXPECT_EQ(searches[1].raw_path.back(), results.path.back());
}

}  // namespace
}  // namespace kavo
