#include <array>
#include <cmath>
#include <cstdint>
#include <set>
#include <utility>

#include "kavo/formats/file_error.h"
#include "kavo/formats/link_looks_internal.h"
#include "kavo/formats/mesh_file.h"
#include "kavo/formats/resource.h"
#include "kavo/formats/surface_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/urdf_internal.h"
#include "kavo/formats/xml_internal.h"
#include "kavo/math/constants_internal.h"

namespace kavo::formats {

namespace {

using Element = XmlFile::Element;
using Triangle = TriangleMesh::Triangle;

// A surface of revolution about z.
// \param profile Radius and height from one end to the other; a radius of zero is a point.
std::shared_ptr<const TriangleMesh> Revolve(const std::vector<Eigen::Vector2d>& profile) {
  constexpr std::uint32_t kNumSides = 24;
  std::vector<Eigen::Vector3d> vertices;
  std::vector<Triangle> triangles;
  for (std::uint32_t ring = 0; ring < profile.size(); ++ring) {
    for (std::uint32_t side = 0; side < kNumSides; ++side) {
      const double angle = math::kTwoPi * side / kNumSides;
      vertices.emplace_back(profile[ring][0] * std::cos(angle), profile[ring][0] * std::sin(angle),
                            profile[ring][1]);
      if (ring > 0) {
        const std::uint32_t begin = (ring - 1) * kNumSides;
        const std::uint32_t next = (side + 1) % kNumSides;
        triangles.push_back({begin + side, begin + next, begin + kNumSides + next});
        triangles.push_back({begin + side, begin + kNumSides + next, begin + kNumSides + side});
      }
    }
  }
  return std::make_shared<TriangleMesh>(vertices, triangles);
}

std::shared_ptr<const TriangleMesh> Ball(double radius) {
  constexpr int kNumRings = 12;
  std::vector<Eigen::Vector2d> profile;
  for (int i = 0; i <= kNumRings; ++i) {
    const double angle = math::kPi * i / kNumRings;
    // At the ends just a point.
    const double share = i == 0 || i == kNumRings ? 0.0 : std::sin(angle);
    profile.emplace_back(radius * share, -radius * std::cos(angle));
  }
  return Revolve(profile);
}

std::shared_ptr<const TriangleMesh> Cylinder(double radius, double length) {
  const double end = length / 2.0;
  return Revolve({{0.0, -end}, {radius, -end}, {radius, end}, {0.0, end}});
}

std::shared_ptr<const TriangleMesh> Box(const Eigen::Vector3d& size) {
  return MakeMesh(SurfaceOf({-size / 2.0, size / 2.0}));
}

class Reader {
 public:
  explicit Reader(const LoadedRobot::Origin& origin)
      : origin_(origin), xml_(origin.urdf.text, origin.urdf.file, "robot") {}

  RobotLooks Read() {
    for (const Element* link : XmlFile::children(xml_.root(), "link")) {
      RobotLooks::Link& looks = looks_.links[xml_.attribute(*link, "name")];
      if (!ReadParts(*link, "visual", looks.visuals)) {
        looks.visuals.clear();
      }
      ReadParts(*link, "collision", looks.collisions);
    }
    return std::move(looks_);
  }

 private:
  // Whether it was all that there is.
  bool ReadParts(const Element& link, const char* kind, std::vector<RobotLooks::Part>& parts) {
    bool is_whole = true;
    for (const Element* element : XmlFile::children(link, kind)) {
      try {
        parts.push_back(ReadPart(*element));
      } catch (const FileError& fault) {
        is_whole = false;
        looks_.faults.emplace_back(fault.what());
      }
    }
    return is_whole;
  }

  double Length(const Element& shape, const char* name) const {
    return CheckedLength(shape, xml_.number(shape, name));
  }

  double CheckedLength(const Element& shape, double length) const {
    if (length <= 0.0 || length > kLargestLength) {
      xml_.fail(shape, "the length " + NumberText(length), "positive lengths up to 1e30");
    }
    return length;
  }

  [[noreturn]] void FailAtShape(const Element& element, const std::string& kind) const {
    xml_.fail(element, "shape " + Quoted(kind), "a sphere, box, cylinder or mesh");
  }

  RobotLooks::Part ReadPart(const Element& element) {
    const Element* const geometry = element.FirstChildElement("geometry");
    const Element* const shape = geometry == nullptr ? nullptr : geometry->FirstChildElement();
    const std::string kind = shape == nullptr ? "" : shape->Name();
    RobotLooks::Part part{ReadOrigin(xml_, element), kind, nullptr};
    if (shape == nullptr) {
      FailAtShape(element, kind);
    }
    if (kind == "sphere") {
      part.mesh = Ball(Length(*shape, "radius"));
    } else if (kind == "cylinder") {
      part.mesh = Cylinder(Length(*shape, "radius"), Length(*shape, "length"));
    } else if (kind == "box") {
      const Eigen::Vector3d size = xml_.vector(*shape, "size");
      for (const double length : size) {
        CheckedLength(*shape, length);
      }
      part.mesh = Box(size);
    } else if (kind == "mesh") {
      part.name = xml_.attribute(*shape, "filename");
      part.mesh = ReadMeshOnce(*shape, part.name);
    } else {
      FailAtShape(element, kind);
    }
    return part;
  }

  std::shared_ptr<const TriangleMesh> ReadMeshOnce(const Element& shape, const std::string& name) {
    const Eigen::Vector3d scale =
        shape.Attribute("scale") == nullptr ? Eigen::Vector3d(1.0, 1.0, 1.0) : xml_.vector(shape, "scale");
    if ((scale.array() == 0.0).any()) {
      xml_.fail(shape, "a mesh scaled by 0", "factors that are not zero");
    }
    const std::string file = FindResource(name, origin_.urdf.file, shape.GetLineNum(), origin_.packages);
    auto& mesh = meshes_[{file, {scale[0], scale[1], scale[2]}}];
    if (!mesh) {
      mesh = ReadMesh(file, scale);
      if (known_files_.insert(file).second) {
        looks_.mesh_files.push_back(file);
      }
    }
    return mesh;
  }

  const LoadedRobot::Origin& origin_;
  XmlFile xml_;
  RobotLooks looks_;
  std::set<std::string> known_files_;
  // By file and scale.
  std::map<std::pair<std::string, std::array<double, 3>>, std::shared_ptr<const TriangleMesh>> meshes_;
};

}  // namespace

RobotLooks ReadLooks(const LoadedRobot::Origin& origin) { return Reader(origin).Read(); }

}  // namespace kavo::formats
