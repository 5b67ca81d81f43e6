#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "kavo/formats/allowed_collisions_internal.h"
#include "kavo/formats/robot_state_internal.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/scene_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/yaml_value_internal.h"

namespace kavo::formats {

namespace {

using Kind = Unhonoured::Kind;

class SceneYamlReader {
 public:
  explicit SceneYamlReader(const std::string& file) : file_(file) {}

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
    if (const std::optional<YamlValue> state = root.find("robot_state")) {
      scene.joint_state = ReadJointState(*state);
      scene.base_pose = ReadBasePose(*state).value_or(Pose3());
      FindAttachedObjects(*state, unhonoured_);
    }
    readMargins(root, "link_padding", Kind::kLinkPadding, 0.0);
    readMargins(root, "link_scale", Kind::kLinkScale, 1.0);
    if (const std::optional<YamlValue> matrix = root.find("allowed_collision_matrix")) {
      scene.allowed_collisions = ReadAllowedCollisions(*matrix);
    }
    base_pose_ = scene.base_pose;
    for (const YamlValue& fixed : root.elements("fixed_frame_transforms")) {
      frames_[fixed.get("child_frame_id").text()] = fixed.get("transform").pose("translation", "rotation");
    }
    // Without an entry of its own the world is where it is.
    frames_.emplace("world", Pose3());

    SceneBuilder builder(std::move(scene));
    const YamlValue world = root.find("world").value_or(root);
    for (const YamlValue& object : world.elements("collision_objects")) {
      builder.add(readObject(object));
    }
    if (const std::optional<YamlValue> octomap = world.find("octomap"); octomap && HasCells(*octomap)) {
      unhonoured_.push_back(octomap->unhonoured(Kind::kOctomap, "an octomap"));
    }
    scene = builder.finish(file_);
    scene.unhonoured = std::move(unhonoured_);
    return scene;
  }

 private:
  Scene::Object readObject(const YamlValue& value) {
    Scene::Object object;
    object.id = value.get("id").text();
    value.warnOfOtherKeys(
        {"id", "header", "pose", "type", "primitives", "primitive_poses", "meshes", "mesh_poses", "planes",
         "plane_poses", "subframe_names", "subframe_poses", "operation"},
        "an object", said_);
    checkOperation(value, object.id);
    object.line = value.line();
    if (const std::vector<YamlValue> meshes = value.elements("meshes"); !meshes.empty()) {
      unhonoured_.push_back(
          meshes.front().unhonoured(Kind::kMeshes, "a mesh in object " + Quoted(object.id)));
    }
    Pose3 object_pose = framePose(value, object.frame);
    if (const std::optional<YamlValue> pose = value.find("pose")) {
      object_pose = object_pose * pose->pose("position", "orientation");
    }

    const std::vector<YamlValue> primitives = value.elements("primitives");
    const std::vector<Pose3> poses = readPoses(value, "primitive", primitives.size());
    for (std::size_t i = 0; i < primitives.size(); ++i) {
      if (const std::optional<ObstacleShape> shape = readPrimitive(primitives[i], object.id)) {
        object.parts.push_back({*shape, object_pose * poses[i]});
        checkPlace(primitives[i], object.parts.back().pose);
      }
    }

    const std::vector<YamlValue> planes = value.elements("planes");
    const std::vector<Pose3> plane_poses = readPoses(value, "plane", planes.size());
    for (std::size_t i = 0; i < planes.size(); ++i) {
      object.parts.push_back({HalfSpaceObstacle{}, object_pose * plane_poses[i] * readPlane(planes[i])});
      checkPlace(planes[i], object.parts.back().pose);
    }
    return object;
  }

  static void checkOperation(const YamlValue& object, const std::string& id) {
    const std::optional<YamlValue> operation = object.find("operation");
    if (!operation) {
      return;
    }
    const std::string text = operation->text();
    if (text != "0" && text != "add") {
      operation->fail("operation " + Quoted(text) + " of object " + Quoted(id), "\"add\" or 0");
    }
  }

  // The pose of the frame in which an object is given; a frame that the file does not define goes to `frame`.
  Pose3 framePose(const YamlValue& object, std::string& frame) const {
    const std::string name = ReadFrameName(object);
    if (name.empty()) {
      return {};
    }
    const auto found = frames_.find(name);
    if (found == frames_.end()) {
      frame = name;
      return {};
    }
    return found->second;
  }

  // Padding or scale of links: what is not neutral is not honoured.
  void readMargins(const YamlValue& root, const char* key, Kind kind, double neutral) {
    for (const YamlValue& entry : root.elements(key)) {
      const YamlValue margin = entry.get(kind == Kind::kLinkPadding ? "padding" : "scale");
      if (margin.number() != neutral) {
        unhonoured_.push_back(margin.unhonoured(kind, std::string(key) + " " + margin.text() + " of link " +
                                                          Quoted(entry.get("link_name").text())));
      }
    }
  }

  // An octomap stands under its own name once more, beside a header.
  static bool HasCells(const YamlValue& octomap) {
    const std::optional<YamlValue> data = octomap.find("octomap").value_or(octomap).find("data");
    return data && (!data->isSequence() || !data->elements().empty());
  }

  // The poses of the `num` solids of one kind: the identity if there are none at all.
  static std::vector<Pose3> readPoses(const YamlValue& object, const std::string& kind, std::size_t num) {
    const std::string key = kind + "_poses";
    const std::vector<YamlValue> values = object.elements(key.c_str());
    if (values.empty()) {
      return std::vector<Pose3>(num);
    }
    if (values.size() != num) {
      values.front().fail(std::to_string(values.size()) + " `" + key + "`",
                          std::to_string(num) + ", one for each " + kind);
    }
    std::vector<Pose3> poses;
    poses.reserve(num);
    for (const YamlValue& value : values) {
      poses.push_back(value.pose("position", "orientation"));
    }
    return poses;
  }

  // None for one that is left out.
  std::optional<ObstacleShape> readPrimitive(const YamlValue& primitive, const std::string& id) {
    // By name, or by the number of the message.
    static const std::map<std::string, std::string> kNameOfType = {
        {"1", "box"}, {"2", "sphere"}, {"3", "cylinder"}, {"4", "cone"}};
    const YamlValue type = primitive.get("type");
    const auto numbered = kNameOfType.find(type.text());
    const std::string name = numbered == kNameOfType.end() ? type.text() : numbered->second;
    if (name == "cone") {
      unhonoured_.push_back(type.unhonoured(Kind::kCones, "a cone in object " + Quoted(id)));
      return std::nullopt;
    }
    const std::optional<std::size_t> num_sizes = NumSizes(name);
    if (!num_sizes) {
      type.fail("shape " + Quoted(name) + " in object " + Quoted(id), kExpectedShapes);
    }
    const YamlValue dimensions = primitive.get("dimensions");
    std::vector<YamlValue> elements = dimensions.elements();
    if (elements.size() != *num_sizes) {
      dimensions.fail(name == "box"      ? "the dimensions [x, y, z] of a box"
                      : name == "sphere" ? "the dimensions [radius] of a sphere"
                                         : "the dimensions [height, radius] of a cylinder");
    }
    std::array<double, 3> sizes{};
    for (std::size_t i = 0; i < *num_sizes; ++i) {
      sizes[i] = elements[i].number();
      if (sizes[i] <= 0.0) {
        elements[i].fail("a positive size");
      }
    }
    if (name == "cylinder") {
      std::swap(sizes[0], sizes[1]);
    }
    return MakeShape(name, sizes);
  }

  static Pose3 readPlane(const YamlValue& plane) {
    const YamlValue coefficients = plane.get("coef");
    const std::vector<YamlValue> elements = coefficients.elements();
    if (elements.size() != 4) {
      coefficients.fail("the coefficients [a, b, c, d] of a plane");
    }
    std::array<double, 4> values{};
    for (std::size_t i = 0; i < 4; ++i) {
      values[i] = elements[i].number();
    }
    const std::optional<Pose3> pose = PlanePose(values);
    if (!pose) {
      coefficients.fail("a plane with normal zero", "a normal with a direction");
    }
    return *pose;
  }

  void checkPlace(const YamlValue& solid, const Pose3& pose) const {
    if (!CanBePlaced(pose, base_pose_)) {
      solid.fail("a pose that is out of range", kExpectedPlace);
    }
  }

  std::string file_;
  Pose3 base_pose_;
  std::map<std::string, Pose3> frames_;
  // Keys that were warned of.
  std::set<std::string> said_;
  std::vector<Unhonoured> unhonoured_;
};

}  // namespace

Scene ParseSceneYaml(const std::string& text, const std::string& file) {
  return SceneYamlReader(file).read(text);
}

}  // namespace kavo::formats
