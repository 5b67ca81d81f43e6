#include "kavo/formats/scene_object.h"

#include <array>
#include <cmath>
#include <cstdint>

#include "kavo/formats/file_error.h"
#include "kavo/formats/mesh_file.h"
#include "kavo/formats/octree_internal.h"
#include "kavo/formats/robot_state_internal.h"
#include "kavo/formats/scene_internal.h"
#include "kavo/formats/scene_object_internal.h"
#include "kavo/formats/surface_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/world/shapes/octree.h"

namespace kavo::formats {

namespace {

void CheckOperation(const YamlValue& object, const std::string& id) {
  const std::optional<YamlValue> operation = object.find("operation");
  if (!operation) {
    return;
  }
  const std::string text = operation->text();
  if (text != "0" && text != "add") {
    operation->fail("operation " + Quoted(text) + " of object " + Quoted(id), "\"add\" or 0");
  }
}

// The poses of the `num` solids of one kind: the identity if there are none at all.
std::vector<Pose3> ReadPoses(const YamlValue& object, const std::string& kind, std::size_t num) {
  const std::string key = kind + "_poses";
  const std::vector<YamlValue> values = object.elements(key);
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

Pose3 ReadPlane(const YamlValue& plane) {
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

// A whole number from `min` to `max`.
double ReadWhole(const YamlValue& value, double min, double max, const char* expected) {
  const double number = value.number();
  if (!(number >= min && number <= max) || number != std::floor(number)) {
    value.fail(expected);
  }
  return number;
}

Surface ReadSurface(const YamlValue& mesh) {
  Surface surface;
  for (const YamlValue& vertex : mesh.elements("vertices")) {
    surface.vertices.push_back(vertex.vector());
    if (!IsPlace(surface.vertices.back())) {
      vertex.fail("a vertex that is not beyond 1e30");
    }
  }
  for (const YamlValue& triangle : mesh.elements("triangles")) {
    const YamlValue indices = triangle.isSequence() ? triangle : triangle.get("vertex_indices");
    const std::vector<YamlValue> elements = indices.elements();
    if (elements.size() != 3) {
      indices.fail("the vertices of a triangle");
    }
    std::array<std::uint32_t, 3>& corners = surface.triangles.emplace_back();
    for (std::size_t i = 0; i < 3; ++i) {
      corners[i] = static_cast<std::uint32_t>(ReadWhole(elements[i], 0.0,
                                                        static_cast<double>(surface.vertices.size()) - 1.0,
                                                        "the index of a vertex, counted from 0"));
    }
  }
  return surface;
}

// One number for all axes, or one for each.
Eigen::Vector3d ReadScale(const YamlValue& mesh) {
  std::optional<YamlValue> value = mesh.find("scale");
  if (!value) {
    value = mesh.find("dimensions");
  }
  if (!value) {
    return Eigen::Vector3d::Ones();
  }
  Eigen::Vector3d scale = value->isScalar() ? Eigen::Vector3d::Constant(value->number()) : value->vector();
  if (scale.x() == 0.0 || scale.y() == 0.0 || scale.z() == 0.0) {
    value->fail("a scale of zero", "one by which something is left");
  }
  return scale;
}

}  // namespace

ObstacleShape ReadPrimitive(const YamlValue& primitive, const std::string& owner) {
  // By name, or by the number of the message.
  static const std::map<std::string, std::string> kNameOfType = {
      {"1", "box"}, {"2", "sphere"}, {"3", "cylinder"}, {"4", "cone"}};
  const YamlValue type = primitive.get("type");
  const auto numbered = kNameOfType.find(type.text());
  const std::string name = numbered == kNameOfType.end() ? type.text() : numbered->second;
  const std::optional<std::size_t> num_sizes = NumSizes(name);
  if (!num_sizes) {
    type.fail("shape " + Quoted(name) + " in " + owner, kExpectedShapes);
  }
  const YamlValue dimensions = primitive.get("dimensions");
  std::vector<YamlValue> elements = dimensions.elements();
  if (elements.size() != *num_sizes) {
    dimensions.fail(name == "box"      ? "the dimensions [x, y, z] of a box"
                    : name == "sphere" ? "the dimensions [radius] of a sphere"
                                       : "the dimensions [height, radius] of a " + name);
  }
  std::array<double, 3> sizes{};
  for (std::size_t i = 0; i < *num_sizes; ++i) {
    sizes[i] = elements[i].number();
    if (sizes[i] <= 0.0) {
      elements[i].fail("a positive size");
    }
  }
  if (*num_sizes == 2) {
    std::swap(sizes[0], sizes[1]);
  }
  return MakeShape(name, sizes);
}

SceneObject SceneObjectReader::read(const YamlValue& value) { return readIn(ReadFrameName(value), value); }

SceneObject SceneObjectReader::readIn(const std::string& frame_name, const YamlValue& value) {
  SceneObject object;
  object.id = value.get("id").text();
  value.warnOfOtherKeys(
      {"id", "header", "pose", "type", "primitives", "primitive_poses", "meshes", "mesh_poses", "planes",
       "plane_poses", "subframe_names", "subframe_poses", "operation"},
      "an object", said_);
  CheckOperation(value, object.id);
  object.line = value.line();
  Pose3 object_pose = framePose(frame_name, object.frame);
  if (const std::optional<YamlValue> pose = value.find("pose")) {
    object_pose = object_pose * pose->pose("position", "orientation");
  }

  const std::vector<YamlValue> primitives = value.elements("primitives");
  const std::vector<Pose3> poses = ReadPoses(value, "primitive", primitives.size());
  for (std::size_t i = 0; i < primitives.size(); ++i) {
    add(primitives[i], ReadPrimitive(primitives[i], "object " + Quoted(object.id)), object_pose * poses[i],
        object);
  }
  const std::vector<YamlValue> meshes = value.elements("meshes");
  const std::vector<Pose3> mesh_poses = ReadPoses(value, "mesh", meshes.size());
  for (std::size_t i = 0; i < meshes.size(); ++i) {
    add(meshes[i], MeshObstacle{readMesh(meshes[i], object), options_.mesh_interior},
        object_pose * mesh_poses[i], object);
  }
  const std::vector<YamlValue> planes = value.elements("planes");
  const std::vector<Pose3> plane_poses = ReadPoses(value, "plane", planes.size());
  for (std::size_t i = 0; i < planes.size(); ++i) {
    add(planes[i], HalfSpaceObstacle{}, object_pose * plane_poses[i] * ReadPlane(planes[i]), object);
  }
  return object;
}

std::vector<AttachedObject> SceneObjectReader::readAttached(const YamlValue& robot_state) {
  std::vector<AttachedObject> all;
  std::set<std::string> ids;
  for (const YamlValue& value : robot_state.elements("attached_collision_objects")) {
    AttachedObject attached;
    attached.link = value.get("link_name").text();
    const YamlValue object = value.get("object");
    const std::string frame = ReadFrameName(object);
    attached.object = readIn(frame.empty() ? attached.link : frame, object);
    for (const YamlValue& link : value.elements("touch_links")) {
      attached.touch_links.push_back(link.text());
    }
    if (!ids.insert(attached.object.id).second) {
      object.fail("attached object " + Quoted(attached.object.id) + " again", "each id once");
    }
    all.push_back(std::move(attached));
  }
  return all;
}

std::optional<SceneObject> SceneObjectReader::readOctomap(const YamlValue& octomap) {
  // It stands under its own name once more, beside a header.
  const YamlValue message = octomap.find("octomap").value_or(octomap);
  const std::vector<YamlValue> elements = message.elements("data");
  if (elements.empty()) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(elements.size());
  for (const YamlValue& element : elements) {
    // Bytes are given with or without a sign.
    bytes += static_cast<char>(static_cast<int>(ReadWhole(element, -128.0, 255.0, "a byte")));
  }
  OctreeData data;
  data.type = message.get("id").text();
  data.is_binary = message.get("binary").flag();
  data.resolution = message.get("resolution").number();
  data.bytes = bytes;
  data.file = octomap.file();
  data.line = message.line();
  SceneObject object;
  object.id = kOctomapId;
  object.line = octomap.line();
  const std::string frame = ReadFrameName(octomap);
  Pose3 pose = framePose(frame.empty() ? ReadFrameName(message) : frame, object.frame);
  if (const std::optional<YamlValue> origin = octomap.find("origin")) {
    pose = pose * origin->pose("position", "orientation");
  }
  std::vector<Octree::Cell> cells = DecodeOctree(data, options_.octrees);
  if (!cells.empty()) {
    add(octomap, OctreeObstacle{std::make_shared<const Octree>(std::move(cells))}, pose, object);
  }
  return object;
}

Pose3 SceneObjectReader::framePose(const std::string& name, std::string& frame) const {
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

void SceneObjectReader::add(const YamlValue& solid, ObstacleShape shape, const Pose3& pose,
                            SceneObject& object) const {
  if (!CanBePlaced(pose, base_pose_)) {
    solid.fail("a pose that is out of range", kExpectedPlace);
  }
  object.parts.push_back({std::move(shape), pose});
}

std::shared_ptr<const TriangleMesh> SceneObjectReader::readMesh(const YamlValue& value, SceneObject& object) {
  value.warnOfOtherKeys({"vertices", "triangles", "resource", "mesh_resource", "scale", "dimensions"},
                        "a mesh", said_);
  for (const char* key : {"resource", "mesh_resource"}) {
    if (const std::optional<YamlValue> resource = value.find(key)) {
      return readMeshFile(*resource, value, object);
    }
  }
  // An alias may repeat a large one in a few bytes.
  countTriangles(value, value.elements("triangles").size() + value.elements("vertices").size());
  std::shared_ptr<const TriangleMesh> mesh = MakeMesh(ReadSurface(value));
  if (!mesh) {
    value.fail("no triangle", "at least one, with three different corners");
  }
  return mesh;
}

std::shared_ptr<const TriangleMesh> SceneObjectReader::readMeshFile(const YamlValue& resource,
                                                                    const YamlValue& value,
                                                                    SceneObject& object) {
  const std::string file = FindResource(resource.text(), resource.file(), resource.line(), options_.packages);
  object.mesh_files.push_back(file);
  const Eigen::Vector3d scale = ReadScale(value);
  std::shared_ptr<const TriangleMesh>& mesh = mesh_files_[{file, {scale.x(), scale.y(), scale.z()}}];
  if (!mesh) {
    mesh = ReadMesh(file, scale);
    countTriangles(resource, mesh->triangles().size());
  }
  return mesh;
}

void SceneObjectReader::countTriangles(const YamlValue& mesh, std::size_t num_triangles) {
  constexpr std::size_t kMaxTriangles = 10'000'000;
  num_triangles_ += num_triangles;
  if (num_triangles_ > kMaxTriangles) {
    mesh.fail("more than " + std::to_string(kMaxTriangles) + " vertices and triangles of meshes", "fewer");
  }
}

}  // namespace kavo::formats
