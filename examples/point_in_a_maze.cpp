// Takes a point through a maze of boxes: three walls across a room, each with a gap on the other side.

#include <cstdlib>
#include <iostream>
#include <memory>

#include "kavo/motion_planning/environment/basic_3d_environment.h"
#include "kavo/motion_planning/rrt/basic_rrt.h"
#include "kavo/motion_planning/tree/basic_tree.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/world/world.h"

int main() {
  using namespace kavo::planning;

  // A room of 4 x 2 x 1 m. Each wall is 1.5 m wide and leaves a gap of half a metre at one side.
  kavo::World world;
  const double walls[][2] = {{1.0, -0.25}, {2.0, 0.25}, {3.0, -0.25}};
  for (const auto& [x, y] : walls) {
    world.add(kavo::BoxObstacle{{0.1, 1.5, 1.0}}, kavo::Pose3::FromTranslation({x, y, 0.5}), "wall");
  }
  const kavo::kinematics::ConfigurationLimits room(Eigen::Vector3d(0.0, -1.0, 0.0),
                                                   Eigen::Vector3d(4.0, 1.0, 1.0));
  const auto environment = CreateBasic3dEnvironment({world.view(), room, 100, 1});

  const double step = 0.1;
  const Eigen::VectorXd start = Eigen::Vector3d(0.5, -0.5, 0.5);
  const Eigen::VectorXd goal = Eigen::Vector3d(3.5, -0.5, 0.5);
  std::unique_ptr<Tree> tree = CreateBasicTree(3, environment->CSpaceDistanceMetric(), false);
  const auto planner =
      CreateBasicRRT({Eigen::Vector3d::Constant(step), step, 10000, false}, environment, tree);
  const auto nodes = planner->TryToFindPath(start, goal);
  if (!nodes) {
    std::cerr << "No path found.\n";
    return EXIT_FAILURE;
  }

  const auto path = ShortCircuitPath(ConvertToConfigurations(*nodes), environment, step, 20, 1);
  std::cout << "Path through the maze: " << nodes->size() << " waypoints, " << path.size()
            << " after shortening (" << tree->NumNodes() << " nodes in the tree).\n";
  for (const Eigen::VectorXd& waypoint : path) {
    std::cout << "  " << waypoint.transpose() << "\n";
  }
  return EXIT_SUCCESS;
}
