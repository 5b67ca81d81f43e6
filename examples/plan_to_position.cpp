// Plans a collision-free path of the Franka arm to a position of its tool. The settings come from a file.
// Usage: plan_to_position PLANNER.yaml

#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>

#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/world/world.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: plan_to_position PLANNER.yaml\n";
    return 2;
  }
  kavo::World world;
  world.add(kavo::HalfSpaceObstacle{}, kavo::Pose3::FromTranslation({0.0, 0.0, -0.05}), "table");
  world.add(kavo::BoxObstacle{{0.4, 0.05, 0.5}}, kavo::Pose3::FromTranslation({0.6, 0.0, 0.2}), "wall");

  try {
    const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
    const auto planner = kavo::CreateMotionPlanner(argv[1], robot, world.view());
    // The last refinement takes over within 3 cm of the target.
    planner->setParam("task_space_planning_params/x_target_zone_tolerance",
                      Eigen::Vector3d(0.03, 0.03, 0.03));

    const Eigen::Vector3d target(0.5, 0.3, 0.3);
    const auto results = planner->planToTaskSpaceTarget(robot->defaultCSpaceConfiguration(), target, false);
    if (!results.path_found) {
      std::cerr << "No path: " << ToString(planner->queryReport().status) << "\n";
      return EXIT_FAILURE;
    }
    const auto kinematics = robot->kinematics();
    const Eigen::Vector3d tool = kinematics->position(results.path.back(), kinematics->frame("tool"));
    std::cout << "Path of " << results.path.size() << " waypoints; the tool ends at " << tool.transpose()
              << " m, " << (tool - target).norm() * 1000.0 << " mm from the target.\n";
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
