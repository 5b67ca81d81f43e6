#pragma once

#include <string>
#include <vector>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"

namespace kavo::formats {

//! Something among which a robot moves, as a file gives it. Metres.
struct SceneObject {
  //! One solid of an object.
  struct Part {
    //! Given in its own frame.
    ObstacleShape shape;
    //! In the frame of the object: the pose of the object and that of the solid in it are already composed.
    Pose3 pose;
  };

  //! What the file has under one id; may be empty.
  std::string id;
  //! The solids that it consists of. Empty only where a robot holds an object of a scene, known by its id.
  std::vector<Part> parts;
  //! A frame that the file does not define, such as a link of the robot; empty for the world.
  std::string frame;
  //! Line of the file.
  int line = 0;
  //! The files that its meshes came from.
  std::vector<std::string> mesh_files = {};
};

//! Something that a robot holds.
struct AttachedObject {
  //! Given in its own frame, which need not be that of the link: it is fixed where it is when the robot is in
  //! the state beside it.
  SceneObject object;
  //! Of the robot, to which it is fixed.
  std::string link;
  //! Other links that may touch it.
  std::vector<std::string> touch_links;
};

}  // namespace kavo::formats
