#include "kavo/formats/scene_drawing.h"

#include <utility>

#include "kavo/formats/drawn_shape_internal.h"

namespace kavo::formats {

SceneDrawing DrawScene(const World& world, const Pose3& base_pose) {
  SceneDrawing drawing;
  drawing.base_pose = base_pose;
  std::vector<ObstacleShape> shapes;
  for (const World::Obstacle& obstacle : world.describe()) {
    drawing.obstacles.push_back({obstacle.name, obstacle.pose, obstacle.padding, obstacle.is_enabled, {}});
    shapes.push_back(obstacle.shape);
  }
  std::vector<DrawnShape> drawn = DrawShapes(shapes);
  for (std::size_t i = 0; i < drawn.size(); ++i) {
    drawing.obstacles[i].shape = std::move(drawn[i]);
  }
  return drawing;
}

}  // namespace kavo::formats
