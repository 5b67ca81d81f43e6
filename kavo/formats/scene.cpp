#include "kavo/formats/scene.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>
#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/scene_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

// No YAML document has an unindented line that starts like this: a star would have to be followed by the name
// of an anchor.
bool IsSceneText(std::string_view text) {
  text.remove_prefix(std::min(text.find('\n'), text.size()));
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string_view::npos || text[begin - 1] != '\n') {
    return false;
  }
  text.remove_prefix(begin);
  const std::string_view token = text.substr(0, text.find_first_of(" \t\r\n"));
  return token == "*" || token == ".";
}

}  // namespace

Scene ReadScene(const std::string& file, const SceneFileOptions& options) {
  return ParseScene(ReadTextFile(file, kMaxSceneSize), file, options);
}

Scene ParseScene(const std::string& text, const std::string& file, const SceneFileOptions& options) {
  return IsSceneText(text) ? ParseSceneText(text, file, options) : ParseSceneYaml(text, file, options);
}

void TakeAttached(Scene& scene, std::vector<AttachedObject>& attached) {
  std::map<std::string, SceneObject*> by_id;
  for (AttachedObject& one : attached) {
    by_id[one.object.id] = &one.object;
  }
  std::vector<SceneObject> left;
  for (SceneObject& object : scene.objects) {
    const auto found = by_id.find(object.id);
    if (found == by_id.end()) {
      left.push_back(std::move(object));
    } else if (found->second->parts.empty()) {
      *found->second = std::move(object);
    }
  }
  scene.objects = std::move(left);
}

std::vector<ObstacleHandle> AddToWorld(const Scene& scene, World& world, const FramePoses& frames) {
  const Pose3 base_from_world = scene.base_pose.inverse();
  // All poses before the first obstacle: an object that cannot be placed leaves the world as it was.
  std::vector<Pose3> poses;
  for (const SceneObject& object : scene.objects) {
    Pose3 base_from_object = base_from_world;
    if (!object.frame.empty()) {
      const auto frame = frames.find(object.frame);
      if (frame == frames.end()) {
        throw FileError(scene.file, object.line,
                        "found object " + Quoted(object.id) + " in frame " + Quoted(object.frame) +
                            ", expected the world, a frame of this file or one of the robot");
      }
      base_from_object = frame->second;
    }
    for (const SceneObject::Part& part : object.parts) {
      poses.push_back(base_from_object * part.pose);
      if (!poses.back().isFinite()) {
        throw FileError(scene.file, object.line,
                        std::string("found a pose that is out of range, expected ") + kExpectedPlace);
      }
    }
  }
  std::vector<ObstacleHandle> handles;
  handles.reserve(poses.size());
  for (const SceneObject& object : scene.objects) {
    for (const SceneObject::Part& part : object.parts) {
      handles.push_back(world.add(part.shape, poses[handles.size()], object.id));
    }
  }
  return handles;
}

void SceneBuilder::add(SceneObject object) {
  num_solids_ += object.parts.size();
  if (num_solids_ > kMaxObjects || scene_.objects.size() == kMaxObjects) {
    throw FileError(scene_.file, object.line,
                    "found more than " + std::to_string(kMaxObjects) + " objects or solids, expected fewer");
  }
  const auto [found, is_new] = index_of_id_.emplace(object.id, scene_.objects.size());
  if (is_new) {
    scene_.objects.push_back(std::move(object));
  } else {
    scene_.objects[found->second] = std::move(object);
  }
}

Scene SceneBuilder::finish(const std::string& file) {
  const bool has_obstacle = std::any_of(scene_.objects.begin(), scene_.objects.end(),
                                        [](const SceneObject& object) { return !object.parts.empty(); });
  if (!has_obstacle) {
    KAVO_LOG(LogLevel::kWarning) << file << ": The scene has no obstacle.";
  }
  return std::move(scene_);
}

std::optional<std::size_t> NumSizes(const std::string& name) {
  if (name == "box") {
    return 3;
  }
  if (name == "sphere") {
    return 1;
  }
  if (name == "cylinder" || name == "cone") {
    return 2;
  }
  return std::nullopt;
}

ObstacleShape MakeShape(const std::string& name, const std::array<double, 3>& sizes) {
  if (name == "box") {
    return BoxObstacle{{sizes[0], sizes[1], sizes[2]}};
  }
  if (name == "sphere") {
    return SphereObstacle{sizes[0]};
  }
  if (name == "cone") {
    return ConeObstacle{sizes[0], sizes[1]};
  }
  return CylinderObstacle{sizes[0], sizes[1]};
}

std::optional<Pose3> PlanePose(const std::array<double, 4>& coefficients) {
  const double scale =
      std::max({std::fabs(coefficients[0]), std::fabs(coefficients[1]), std::fabs(coefficients[2])});
  if (scale == 0.0) {
    return std::nullopt;
  }
  // Scaled first: squares of very large or small numbers are lost.
  const Eigen::Vector3d scaled(coefficients[0] / scale, coefficients[1] / scale, coefficients[2] / scale);
  const double length =
      std::sqrt(scaled.x() * scaled.x() + scaled.y() * scaled.y() + scaled.z() * scaled.z());
  const Eigen::Vector3d normal(scaled.x() / length, scaled.y() / length, scaled.z() / length);
  const double offset = -(coefficients[3] / scale / length);
  // The shortest turn of the z axis to a vector in the upper half, which is never close to the opposite of z.
  const double sign = normal.z() < 0.0 ? -1.0 : 1.0;
  const Pose3 upward = Pose3::FromRotation(
      Eigen::Quaterniond(1.0 + sign * normal.z(), -sign * normal.y(), sign * normal.x(), 0.0));
  const Pose3 half_turn = Pose3::FromRotation(Eigen::Quaterniond(0.0, 1.0, 0.0, 0.0));
  return Pose3((sign < 0.0 ? upward * half_turn : upward).rotation(),
               {offset * normal.x(), offset * normal.y(), offset * normal.z()});
}

bool CanBePlaced(const Pose3& pose, const Pose3& base_pose) {
  return pose.isFinite() && (base_pose.inverse() * pose).isFinite();
}

}  // namespace kavo::formats
