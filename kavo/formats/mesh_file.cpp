#include "kavo/formats/mesh_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "kavo/formats/assimp_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/ply_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

// In small letters and without the dot.
std::string EndingOf(const std::string& file) {
  const std::size_t dot = file.find_last_of("./");
  std::string ending = dot == std::string::npos || file[dot] == '/' ? "" : file.substr(dot + 1);
  for (char& c : ending) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return ending;
}

}  // namespace

std::shared_ptr<const TriangleMesh> ParseMesh(const std::string& content, const std::string& file,
                                              const Eigen::Vector3d& scale) {
  KAVO_CHECK(std::isfinite(scale[0]) && std::isfinite(scale[1]) && std::isfinite(scale[2]) &&
                 scale[0] != 0.0 && scale[1] != 0.0 && scale[2] != 0.0,
             "formats/mesh_file", 30)
      << "A mesh is to be scaled by [" << scale.transpose() << "]; each has to be finite and not zero.";
  const std::string ending = EndingOf(file);
  const auto fail = [&](const std::string& found, const std::string& expected) {
    throw FileError(file, 0, "found " + found + ", expected " + expected);
  };
  Surface surface;
  if (ending == "ply") {
    surface = ParsePly(content, file, kMaxMeshTriangles);
  } else if (ending == "stl" || ending == "obj" || ending == "dae") {
    surface = ReadByAssimp(content, file, ending);
  } else {
    fail("the ending " + Quoted(ending), "a mesh in a file that ends in .stl, .obj, .dae or .ply");
  }
  for (std::size_t i = 0; i < surface.vertices.size(); ++i) {
    Eigen::Vector3d& vertex = surface.vertices[i];
    vertex = vertex.cwiseProduct(scale);
    if (!IsPlace(vertex)) {
      fail("vertex " + std::to_string(i) + " at [" + NumberText(vertex[0]) + ", " + NumberText(vertex[1]) +
               ", " + NumberText(vertex[2]) + "]",
           "finite coordinates");
    }
  }
  std::shared_ptr<const TriangleMesh> mesh = MakeMesh(surface);
  if (!mesh) {
    fail("no triangle", "at least one, with three different corners");
  }
  return mesh;
}

std::shared_ptr<const TriangleMesh> ReadMesh(const std::string& file, const Eigen::Vector3d& scale) {
  return ParseMesh(ReadFile(file, kMaxMeshSize), file, scale);
}

}  // namespace kavo::formats
