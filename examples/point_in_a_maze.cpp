// Takes a point through a maze of boxes: three walls across a room, each with a gap on the other side.

#include <cstdlib>
#include <iostream>

#include "kavo/motion_planning/environment/basic_3d_environment.h"
#include "kavo/motion_planning/rrt/find_path.h"
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

  // Steps of 10 cm, 10 000 of them at most, half of them towards random points.
  const RRTConnectConfig config(0.1, 10000, 0.5);
  const FoundPath found =
      FindPath(environment, config, Eigen::Vector3d(0.5, -0.5, 0.5), Eigen::Vector3d(3.5, -0.5, 0.5));
  if (!found) {
    std::cerr << "No path: " << ToString(found.status) << "\n";
    return EXIT_FAILURE;
  }
  std::cout << "Path through the maze: " << found.num_raw_waypoints << " waypoints, " << found.path.size()
            << " after shortening (" << found.num_nodes << " nodes in the trees).\n";
  for (const Eigen::VectorXd& waypoint : found.path) {
    std::cout << "  " << waypoint.transpose() << "\n";
  }
  return EXIT_SUCCESS;
}
