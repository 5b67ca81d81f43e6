#pragma once

#include <Eigen/Core>
#include <set>
#include <string>

#include "kavo/formats/scene.h"
#include "kavo/world/world.h"
#include "tests/fuzz/fuzzer.h"

namespace kavo::testing {

//! A scene that was read has to be fit for a world, and every id has to be there once.
inline void PlaceScene(const formats::Scene& scene) {
  World world;
  const std::size_t num_obstacles = formats::AddToWorld(scene, world).size();
  Require(num_obstacles == world.numObstacles());
  const WorldView view = world.view();
  Require(view.nearestObstacle(Eigen::Vector3d::Zero()).has_value() == (num_obstacles > 0));
  view.inCollision(Eigen::Vector3d::Ones(), 0.1);
  std::set<std::string> ids;
  for (const formats::SceneObject& object : scene.objects) {
    Require(ids.insert(object.id).second);
  }
}

}  // namespace kavo::testing
