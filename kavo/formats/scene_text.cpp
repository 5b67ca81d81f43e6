#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kavo/formats/file_error.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/scene_internal.h"
#include "kavo/formats/surface_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/text_reader_internal.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

class SceneTextReader {
 public:
  SceneTextReader(std::string_view text, const std::string& file, const SceneFileOptions& options)
      : reader_(text, file), options_(options) {}

  Scene read() {
    Scene scene;
    scene.name = std::string(reader_.readLine());
    scene.file = reader_.file();
    SceneBuilder builder(std::move(scene));
    while (nextLine("\"*\" and the id of an object, or \".\"") != ".") {
      if (line_.front() != '*' || Trimmed(line_.substr(1)).empty()) {
        fail("\"*\" and the id of an object, or \".\"");
      }
      builder.add(readObject(std::string(Trimmed(line_.substr(1)))));
    }
    return builder.finish(reader_.file());
  }

 private:
  SceneObject readObject(std::string id) {
    SceneObject object;
    object.id = std::move(id);
    object.line = reader_.line();
    // Only the newer form has the pose of the object between its id and its shapes.
    nextLine("the number of shapes, or the position of the object");
    const bool has_pose = Tokens(line_).size() != 1;
    Pose3 object_pose;
    if (has_pose) {
      object_pose = readPose(numbers<3>("the number of shapes, or the position x y z of the object"));
      nextLine("the number of shapes");
    }
    // Counts are not trusted: there is no room made for what they announce.
    for (std::size_t num_shapes = count("the number of shapes"); num_shapes > 0; --num_shapes) {
      readShape(object_pose, object);
    }
    if (has_pose) {
      nextLine("the number of subframes");
      for (std::size_t num_frames = count("the number of subframes"); num_frames > 0; --num_frames) {
        nextLine("the name of a subframe");
        readPose();
      }
    }
    return object;
  }

  void readShape(const Pose3& object_pose, SceneObject& object) {
    const std::string name(nextLine("a shape"));
    const int line = reader_.line();
    Pose3 shape_pose;
    std::optional<ObstacleShape> shape;
    if (name == "plane") {
      nextLine("the coefficients a b c d of the plane");
      const std::optional<Pose3> pose = PlanePose(numbers<4>("the coefficients a b c d of the plane"));
      if (!pose) {
        fail("a plane with normal zero", "a normal with a direction");
      }
      shape = HalfSpaceObstacle{};
      shape_pose = *pose;
    } else if (const std::optional<std::size_t> num_sizes = NumSizes(name)) {
      nextLine("the sizes of the " + name);
      shape = readSizes(name, *num_sizes);
    } else if (name == "mesh") {
      shape = MeshObstacle{readMesh(), options_.mesh_interior};
    } else {
      fail("shape " + Quoted(name) + " in object " + Quoted(object.id), kExpectedShapes);
    }
    const Pose3 pose = object_pose * readPose() * shape_pose;
    if (!CanBePlaced(pose, Pose3())) {
      throw FileError(reader_.file(), line,
                      std::string("found a pose that is out of range, expected ") + kExpectedPlace);
    }
    object.parts.push_back({*std::move(shape), pose});
    nextLine("a colour r g b a");
    numbers<4>("a colour r g b a");
  }

  // The numbers of vertices and triangles, and a line for each of them.
  std::shared_ptr<const TriangleMesh> readMesh() {
    const std::string expected = "the numbers of vertices and triangles of a mesh";
    nextLine(expected);
    const std::array<double, 2> counts = numbers<2>(expected);
    Surface surface;
    for (double left = counts[0]; left > 0.0; --left) {
      nextLine("a vertex of a mesh");
      const std::array<double, 3> vertex = numbers<3>("a vertex of a mesh");
      surface.vertices.emplace_back(vertex[0], vertex[1], vertex[2]);
      if (!IsPlace(surface.vertices.back())) {
        fail("a vertex that is not beyond 1e30");
      }
    }
    for (double left = counts[1]; left > 0.0; --left) {
      nextLine("a triangle of a mesh");
      std::array<std::uint32_t, 3>& corners = surface.triangles.emplace_back();
      for (std::size_t i = 0; i < 3; ++i) {
        const double index = numbers<3>("a triangle of a mesh")[i];
        if (!(index >= 0.0 && index < static_cast<double>(surface.vertices.size())) ||
            index != std::floor(index)) {
          fail("three indices of vertices, counted from 0");
        }
        corners[i] = static_cast<std::uint32_t>(index);
      }
    }
    std::shared_ptr<const TriangleMesh> mesh = MakeMesh(surface);
    if (!mesh) {
      fail("a mesh without a triangle", "at least one, with three different corners");
    }
    return mesh;
  }

  ObstacleShape readSizes(const std::string& name, std::size_t num_sizes) const {
    const std::string expected = name == "box"      ? "the sizes x y z of a box"
                                 : name == "sphere" ? "the radius of a sphere"
                                                    : "the radius and the length of a " + name;
    const std::vector<std::string_view> tokens = Tokens(line_);
    if (tokens.size() != num_sizes) {
      fail(expected);
    }
    std::array<double, 3> sizes{};
    for (std::size_t i = 0; i < num_sizes; ++i) {
      const std::optional<double> size = util::ParseNumber(tokens[i]);
      if (!size || *size <= 0.0) {
        fail(Quoted(tokens[i]), expected + ", positive");
      }
      sizes[i] = *size;
    }
    return MakeShape(name, sizes);
  }

  // A line with the position and one with the quaternion; the former may have been read.
  Pose3 readPose() {
    nextLine("a position x y z");
    return readPose(numbers<3>("a position x y z"));
  }
  Pose3 readPose(const std::array<double, 3>& position) {
    nextLine("a quaternion x y z w");
    const std::array<double, 4> q = numbers<4>("a quaternion x y z w");
    const Eigen::Quaterniond quaternion(q[3], q[0], q[1], q[2]);
    if (const std::optional<std::string> fault = QuaternionFault(quaternion)) {
      fail(*fault, "unit length");
    }
    return {quaternion, {position[0], position[1], position[2]}};
  }

  // What stands in the current line.
  template <std::size_t size>
  std::array<double, size> numbers(const std::string& expected) const {
    const std::vector<std::string_view> tokens = Tokens(line_);
    if (tokens.size() != size) {
      fail(expected);
    }
    std::array<double, size> numbers{};
    for (std::size_t i = 0; i < size; ++i) {
      const std::optional<double> number = util::ParseNumber(tokens[i]);
      if (!number) {
        fail(expected);
      }
      numbers[i] = *number;
    }
    return numbers;
  }

  std::size_t count(const std::string& expected) const {
    std::size_t count = 0;
    const auto [stop, fault] = std::from_chars(line_.data(), line_.data() + line_.size(), count);
    if (fault != std::errc() || stop != line_.data() + line_.size()) {
      fail(expected);
    }
    return count;
  }

  // The next line that is not blank becomes the current one.
  std::string_view nextLine(const std::string& expected) {
    do {
      if (reader_.isAtEnd()) {
        reader_.fail("the end of the file", expected);
      }
      line_ = reader_.readLine();
    } while (line_.empty());
    return line_;
  }

  [[noreturn]] void fail(const std::string& expected) const { fail(Quoted(line_), expected); }
  [[noreturn]] void fail(const std::string& found, const std::string& expected) const {
    reader_.fail(found, expected);
  }

  TextReader reader_;
  // The current line without blanks at its ends.
  std::string_view line_;
  const SceneFileOptions& options_;
};

}  // namespace

Scene ParseSceneText(const std::string& text, const std::string& file, const SceneFileOptions& options) {
  return SceneTextReader(text, file, options).read();
}

}  // namespace kavo::formats
