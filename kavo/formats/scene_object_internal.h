#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/scene_file_options.h"
#include "kavo/formats/scene_object.h"
#include "kavo/formats/yaml_value_internal.h"
#include "kavo/math/pose3.h"
#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

//! A box, sphere, cylinder or cone.
//! \param owner What it belongs to, for errors: `object "o"`.
ObstacleShape ReadPrimitive(const YamlValue& primitive, const std::string& owner);

//! Reads the objects of a scene and those that a robot state has attached: messages in YAML.
class SceneObjectReader {
 public:
  //! \param frames That the file defines, in the world; the world itself may be missing.
  SceneObjectReader(std::map<std::string, Pose3> frames, const Pose3& base_pose,
                    const SceneFileOptions& options)
      : frames_(std::move(frames)), base_pose_(base_pose), options_(options) {
    // Without an entry of its own the world is where it is.
    frames_.emplace("world", Pose3());
  }

  //! An element of `collision_objects`.
  SceneObject read(const YamlValue& value);

  //! The elements of `attached_collision_objects`. One whose header names no frame is in that of its link;
  //! one without a shape is to be found by its id in a scene.
  std::vector<AttachedObject> readAttached(const YamlValue& robot_state);

  //! What stands under `octomap`; none without data.
  std::optional<SceneObject> readOctomap(const YamlValue& octomap);

 private:
  // The pose of the frame in which something is given; a frame that the file does not define goes to `frame`.
  Pose3 framePose(const std::string& name, std::string& frame) const;
  SceneObject readIn(const std::string& frame_name, const YamlValue& value);
  void add(const YamlValue& solid, ObstacleShape shape, const Pose3& pose, SceneObject& object) const;
  std::shared_ptr<const TriangleMesh> readMesh(const YamlValue& value, SceneObject& object);
  std::shared_ptr<const TriangleMesh> readMeshFile(const YamlValue& resource, const YamlValue& value,
                                                   SceneObject& object);
  void countTriangles(const YamlValue& mesh, std::size_t num_triangles);

  std::map<std::string, Pose3> frames_;
  Pose3 base_pose_;
  const SceneFileOptions& options_;
  // Keys that were warned of.
  std::set<std::string> said_;
  std::size_t num_triangles_ = 0;
  // By file and scale.
  std::map<std::pair<std::string, std::array<double, 3>>, std::shared_ptr<const TriangleMesh>> mesh_files_;
};

}  // namespace kavo::formats
