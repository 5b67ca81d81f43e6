#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kavo/formats/file_error.h"
#include "kavo/formats/scene.h"
#include "kavo/formats/scene_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

constexpr std::string_view kBlank = " \t\r";

std::vector<std::string_view> Tokens(std::string_view text) {
  std::vector<std::string_view> tokens;
  for (std::size_t begin = text.find_first_not_of(kBlank); begin != std::string_view::npos;
       begin = text.find_first_not_of(kBlank)) {
    text.remove_prefix(begin);
    tokens.push_back(text.substr(0, text.find_first_of(kBlank)));
    text.remove_prefix(tokens.back().size());
  }
  return tokens;
}

class SceneTextReader {
 public:
  SceneTextReader(std::string_view text, const std::string& file) : rest_(text), file_(file) {}

  Scene read() {
    Scene scene;
    scene.name = std::string(readLine());
    scene.file = file_;
    SceneBuilder builder(std::move(scene));
    while (nextLine("\"*\" and the id of an object, or \".\"") != ".") {
      if (line_.front() != '*' || Trimmed(line_.substr(1)).empty()) {
        fail("\"*\" and the id of an object, or \".\"");
      }
      builder.add(readObject(std::string(Trimmed(line_.substr(1)))));
    }
    scene = builder.finish(file_);
    scene.unhonoured = std::move(unhonoured_);
    return scene;
  }

 private:
  Scene::Object readObject(std::string id) {
    Scene::Object object;
    object.id = std::move(id);
    object.line = line_number_;
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

  void readShape(const Pose3& object_pose, Scene::Object& object) {
    const std::string name(nextLine("a shape"));
    const int line = line_number_;
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
      unhonoured_.push_back(
          {Unhonoured::Kind::kMeshes, "a mesh in object " + Quoted(object.id), file_, line});
      skipMesh();
    } else if (name == "cone") {
      unhonoured_.push_back({Unhonoured::Kind::kCones, "a cone in object " + Quoted(object.id), file_, line});
      nextLine("the radius and the length of a cone");
      numbers<2>("the radius and the length of a cone");
    } else {
      fail("shape " + Quoted(name) + " in object " + Quoted(object.id), kExpectedShapes);
    }
    const Pose3 pose = object_pose * readPose() * shape_pose;
    if (!CanBePlaced(pose, Pose3())) {
      throw FileError(file_, line,
                      std::string("found a pose that is out of range, expected ") + kExpectedPlace);
    }
    if (shape) {
      object.parts.push_back({*shape, pose});
    }
    nextLine("a colour r g b a");
    numbers<4>("a colour r g b a");
  }

  // The numbers of vertices and triangles, and a line for each of them.
  void skipMesh() {
    const std::string expected = "the numbers of vertices and triangles of a mesh";
    nextLine(expected);
    const std::array<double, 2> counts = numbers<2>(expected);
    for (double lines = counts[0] + counts[1]; lines > 0.0; --lines) {
      nextLine("a vertex or a triangle of a mesh");
      numbers<3>("a vertex or a triangle of a mesh");
    }
  }

  ObstacleShape readSizes(const std::string& name, std::size_t num_sizes) const {
    const std::string expected = name == "box"      ? "the sizes x y z of a box"
                                 : name == "sphere" ? "the radius of a sphere"
                                                    : "the radius and the length of a cylinder";
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

  std::string_view readLine() {
    const std::size_t end = rest_.find('\n');
    line_ = Trimmed(rest_.substr(0, end));
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    ++line_number_;
    return line_;
  }

  // The next line that is not blank becomes the current one.
  std::string_view nextLine(const std::string& expected) {
    do {
      if (rest_.empty()) {
        throw FileError(file_, line_number_, "found the end of the file, expected " + expected);
      }
    } while (readLine().empty());
    return line_;
  }

  [[noreturn]] void fail(const std::string& expected) const { fail(Quoted(line_), expected); }
  [[noreturn]] void fail(const std::string& found, const std::string& expected) const {
    throw FileError(file_, line_number_, "found " + found + ", expected " + expected);
  }

  std::string_view rest_;
  std::string file_;
  // The current line without blanks at its ends.
  std::string_view line_;
  int line_number_ = 0;
  std::vector<Unhonoured> unhonoured_;
};

}  // namespace

Scene ParseSceneText(const std::string& text, const std::string& file) {
  return SceneTextReader(text, file).read();
}

}  // namespace kavo::formats
