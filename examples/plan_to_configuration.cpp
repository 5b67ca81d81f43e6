// Plans a collision-free path of the Franka arm to a configuration.

#include <cstdlib>
#include <iostream>
#include <memory>

#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/world/world.h"

int main() {
  // A table, and a wall between the arm's left and its right.
  kavo::World world;
  world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.05}), "table");
  world.add(kavo::BoxObstacle{{0.4, 0.05, 0.5}}, kavo::Pose3::FromTranslation({0.6, 0.0, 0.2}), "wall");

  const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
  const auto planner = kavo::CreateMotionPlanner(robot, world.view());

  // Radians, one for each joint: reaching out to the right and to the left of the wall.
  Eigen::VectorXd start(7);
  start << -0.6, 0.5, 0.0, -2.0, 0.0, 2.5, 0.8;
  Eigen::VectorXd goal(7);
  goal << 0.6, 0.5, 0.0, -2.0, 0.0, 2.5, 0.8;

  const auto results = planner->planToCSpaceTarget(start, goal, true);
  const kavo::QueryReport report = planner->queryReport();
  if (!results.path_found) {
    std::cerr << "No path: " << ToString(report.status) << "\n";
    return EXIT_FAILURE;
  }
  std::cout << "Found in " << (report.search_seconds + report.shortening_seconds) * 1000.0 << " ms; "
            << results.interpolated_path.size() << " points for the controller. Waypoints:\n";
  for (const Eigen::VectorXd& q : results.path) {
    std::cout << "  " << q.transpose() << "\n";
  }
  return EXIT_SUCCESS;
}
