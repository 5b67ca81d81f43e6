#include "kavo/world/world.h"

int main() {
  kavo::World world;
  world.add(kavo::BoxObstacle{{1.0, 1.0, 1.0}}, kavo::Pose3::FromTranslation({2.0, 0.0, 0.0}), "box");
  return world.view().nearestObstacle({1.25, 0.0, 0.0})->distance == 0.25 ? 0 : 1;
}
