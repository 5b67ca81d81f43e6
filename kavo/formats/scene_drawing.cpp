#include "kavo/formats/scene_drawing.h"

#include <utility>

#include "kavo/formats/drawn_shape_internal.h"

namespace kavo::formats {

SceneDrawing DrawScene(const World& world, const Pose3& base_pose) {
  SceneDrawing drawing;
  drawing.base_pose = base_pose;
  std::vector<ObstacleShape> shapes;
  for (const ObstacleHandle obstacle : world.obstacles()) {
    drawing.obstacles.push_back(
        {world.name(obstacle), world.pose(obstacle), world.padding(obstacle), world.isEnabled(obstacle), {}});
    shapes.push_back(world.shape(obstacle));
  }
  std::vector<DrawnShape> drawn = DrawShapes(shapes);
  for (std::size_t i = 0; i < drawn.size(); ++i) {
    drawing.obstacles[i].shape = std::move(drawn[i]);
  }
  return drawing;
}

}  // namespace kavo::formats
