#pragma once

#include <string>
#include <vector>

#include "kavo/formats/drawn_shape.h"
#include "kavo/math/pose3.h"
#include "kavo/util/export.h"
#include "kavo/world/world.h"

namespace kavo::formats {

//! All that it takes to draw what stands around a robot, as values.
struct SceneDrawing {
  //! An obstacle of the world.
  struct Obstacle {
    //! As the world has it; may be empty.
    std::string name;
    //! Relative to the robot's base.
    Pose3 pose;
    //! By which it is grown in every check, metres.
    double padding = 0.0;
    //! Whether it is looked at at all.
    bool enabled = true;
    //! Given in its own frame.
    DrawnShape shape;
  };

  //! Of the robot's base in the world of the files.
  Pose3 base_pose;
  //! As the world has them.
  std::vector<Obstacle> obstacles;
};

//! The drawing of a world in the frame of the robot's base. In all, there are no more than 20 000 triangles
//! of meshes (or twelve for each), 20 000 points of clouds and 4 000 cells of octrees, fewer than they have
//! where these are more: points are left out evenly, cells joined to larger ones.
//!
//! @code
//! kavo::World world;
//! world.add(kavo::SphereObstacle{0.1}, kavo::Pose3::FromTranslation({0.4, 0.0, 0.3}), "ball");
//! const kavo::formats::SceneDrawing drawing = kavo::formats::DrawScene(world);
//! assert(drawing.obstacles.front().name == "ball");
//! @endcode
KAVO_EXPORT SceneDrawing DrawScene(const World& world, const Pose3& base_pose = {});

}  // namespace kavo::formats
