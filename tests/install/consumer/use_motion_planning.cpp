#include <iostream>
#include <memory>

#include "kavo/kavo.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/rrt/rrt_connect.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/tree/distance_metrics.h"

int main() {
  using namespace kavo::planning;

  const kavo::World world;
  const auto environment = CreateRobotEnvironment(
      BuildThreeLinkRobotEnvironmentConfig(world.view(), Eigen::Vector3d::Ones(), 100, 1));
  std::unique_ptr<Tree> start_tree = CreateBasicTree(3, L2Norm, false);
  std::unique_ptr<Tree> goal_tree = CreateBasicTree(3, L2Norm, false);
  const auto planner = CreateRRTConnect({0.1, 1000, 0.5}, environment, start_tree, goal_tree);
  const auto path = planner->TryToFindPath(Eigen::Vector3d::Zero(), Eigen::Vector3d(0.5, 0.5, 0.5));
  std::cout << (path ? path->size() : 0) << " waypoints\n";
  return path && path->back()->Configuration() == Eigen::Vector3d(0.5, 0.5, 0.5) ? 0 : 1;
}
