#include <iostream>

#include "kavo/world/world.h"

int main() {
  kavo::World world;
  const kavo::WorldView before = world.view();
  world.add(kavo::BoxObstacle{{1.0, 1.0, 1.0}}, kavo::Pose3::FromTranslation({2.0, 0.0, 0.0}), "box");
  const kavo::WorldView after = world.view();
  const Eigen::Vector3d point(1.25, 0.0, 0.0);
  const auto nearest = after.nearestObstacle(point);
  std::cout << "distance " << (nearest ? nearest->distance : -1.0) << "\n";
  const bool is_good = !before.inCollision(point, 0.5) && after.inCollision(point, 0.5) && nearest &&
                       world.name(nearest->obstacle) == "box" && nearest->distance == 0.25;
  return is_good ? 0 : 1;
}
