#include "kavo/formats/scene_drawing.h"

#include "kavo/formats/drawn_shape_internal.h"

namespace kavo::formats {

SceneDrawing DrawScene(const World& world, const Pose3& base_pose) {
  SceneDrawing drawing;
  drawing.base_pose = base_pose;
  for (const ObstacleHandle obstacle : world.obstacles()) {
    drawing.obstacles.push_back({world.name(obstacle), world.pose(obstacle), world.padding(obstacle),
                                 world.isEnabled(obstacle), DrawShape(world.shape(obstacle))});
  }
  return drawing;
}

}  // namespace kavo::formats
