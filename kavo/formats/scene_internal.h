#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "kavo/formats/scene.h"
#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"

namespace kavo::formats {

//! Collects what both forms of scene have in common.
class SceneBuilder {
 public:
  //! \param scene What is known before the objects: name, joints and base.
  explicit SceneBuilder(Scene scene) : scene_(std::move(scene)) {}

  //! An object with an id that came before takes the place of the former one. Throws `FileError` at the
  //! object that is one too many.
  void add(SceneObject object);

  //! The scene, with a warning if it has no obstacle.
  Scene finish(const std::string& file);

 private:
  // Objects, and their solids; an alias may repeat many of them in few bytes.
  static constexpr std::size_t kMaxObjects = 1'000'000;

  Scene scene_;
  std::size_t num_solids_ = 0;
  std::map<std::string, std::size_t> index_of_id_;
};

//! For messages.
inline constexpr char kExpectedShapes[] = "a box, a sphere, a cylinder, a cone, a plane or a mesh";
inline constexpr char kExpectedPlace[] = "one that does not overflow";

//! The name of the object that an octree without one stands for, as in allowed collision matrices.
inline constexpr char kOctomapId[] = "<octomap>";

//! How many sizes a box, a sphere, a cylinder or a cone has; none for another name.
std::optional<std::size_t> NumSizes(const std::string& name);

//! A box, a sphere, a cylinder or a cone of positive sizes: x, y, z; radius; radius, height.
ObstacleShape MakeShape(const std::string& name, const std::array<double, 3>& sizes);

//! The half-space a x + b y + c z + d <= 0 as the pose of a `HalfSpaceObstacle`; none if the normal is zero.
std::optional<Pose3> PlanePose(const std::array<double, 4>& coefficients);

//! Whether the pose can be used in the world and relative to the robot base: sums of large numbers may
//! overflow.
bool CanBePlaced(const Pose3& pose, const Pose3& base_pose);

}  // namespace kavo::formats
