#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/allowed_collisions_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/robot_state_internal.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/scene_internal.h"
#include "kavo/formats/scene_object_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"

namespace kavo::formats {

namespace {

class SceneYamlReader {
 public:
  SceneYamlReader(const std::string& file, const SceneFileOptions& options)
      : file_(file), options_(options) {}

  Scene read(const std::string& text) {
    const YamlValue root(text, file_);
    root.warnOfOtherKeys(
        {"name", "robot_state", "robot_model_name", "fixed_frame_transforms", "allowed_collision_matrix",
         "link_padding", "link_scale", "object_colors", "world", "is_diff", "collision_objects", "octomap"},
        "a scene", said_);
    Scene scene;
    scene.file = file_;
    if (const std::optional<YamlValue> name = root.find("name")) {
      scene.name = name->text();
    }
    const std::optional<YamlValue> state = root.find("robot_state");
    if (state) {
      scene.joint_state = ReadJointState(*state);
      scene.base_pose = ReadBasePose(*state).value_or(Pose3());
    }
    readPadding(root, scene);
    findScales(root);
    if (const std::optional<YamlValue> matrix = root.find("allowed_collision_matrix")) {
      scene.allowed_collisions = ReadAllowedCollisions(*matrix);
    }
    std::map<std::string, Pose3> frames;
    for (const YamlValue& fixed : root.elements("fixed_frame_transforms")) {
      frames[fixed.get("child_frame_id").text()] = fixed.get("transform").pose("translation", "rotation");
    }
    SceneObjectReader objects(std::move(frames), scene.base_pose, options_);
    if (state) {
      scene.attached = objects.readAttached(*state);
    }

    SceneBuilder builder(std::move(scene));
    const YamlValue world = root.find("world").value_or(root);
    for (const YamlValue& object : world.elements("collision_objects")) {
      builder.add(objects.read(object));
    }
    if (const std::optional<YamlValue> octomap = world.find("octomap")) {
      if (std::optional<SceneObject> object = objects.readOctomap(*octomap)) {
        builder.add(*std::move(object));
      }
    }
    scene = builder.finish(file_);
    TakeAttached(scene, scene.attached);
    for (const AttachedObject& attached : scene.attached) {
      if (attached.object.parts.empty()) {
        throw FileError(file_, attached.object.line,
                        "found attached object " + Quoted(attached.object.id) +
                            " without a shape, expected one, or an object of that id in the scene");
      }
    }
    scene.unhonoured = std::move(unhonoured_);
    return scene;
  }

 private:
  static void readPadding(const YamlValue& root, Scene& scene) {
    for (const YamlValue& entry : root.elements("link_padding")) {
      const YamlValue padding = entry.get("padding");
      const double metres = padding.number();
      if (metres < 0.0) {
        padding.fail("a padding of at least zero");
      }
      scene.link_padding[entry.get("link_name").text()] = metres;
    }
  }

  // What is not neutral is not honoured.
  void findScales(const YamlValue& root) {
    for (const YamlValue& entry : root.elements("link_scale")) {
      const YamlValue scale = entry.get("scale");
      if (scale.number() != 1.0) {
        unhonoured_.push_back(scale.unhonoured(
            Unhonoured::Kind::kLinkScale,
            "link_scale " + scale.text() + " of link " + Quoted(entry.get("link_name").text())));
      }
    }
  }

  std::string file_;
  const SceneFileOptions& options_;
  // Keys that were warned of.
  std::set<std::string> said_;
  std::vector<Unhonoured> unhonoured_;
};

}  // namespace

Scene ParseSceneYaml(const std::string& text, const std::string& file, const SceneFileOptions& options) {
  return SceneYamlReader(file, options).read(text);
}

}  // namespace kavo::formats
