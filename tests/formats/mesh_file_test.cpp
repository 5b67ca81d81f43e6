#include "kavo/formats/mesh_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <vector>

#include "kavo/util/fatal_error.h"
#include "tests/formats/files.h"

namespace kavo::formats {
namespace {

using testing::FileErrorOf;
using ::testing::HasSubstr;

#ifdef KAVO_WITH_ASSIMP
constexpr bool kHasAssimp = true;
#else
constexpr bool kHasAssimp = false;
#endif

// Whether this build reads the forms that assimp does.
bool IsRead(const std::string& file) { return kHasAssimp || file.find(".ply") != std::string::npos; }

// The prism over an L of two by two squares of one unit, less one: eight of its faces have four corners and
// two have six, of which one points inwards.
const std::vector<Eigen::Vector3d> kCorners = {{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1, 1, 0},
                                               {1, 2, 0}, {0, 2, 0}, {0, 0, 3}, {2, 0, 3},
                                               {2, 1, 3}, {1, 1, 3}, {1, 2, 3}, {0, 2, 3}};
const std::vector<std::vector<int>> kFaces = {{3, 2, 1, 0, 5, 4}, {8, 9, 10, 11, 6, 7}, {0, 1, 7, 6},
                                              {1, 2, 8, 7},       {2, 3, 9, 8},         {3, 4, 10, 9},
                                              {4, 5, 11, 10},     {5, 0, 6, 11}};

std::string Text(const Eigen::Vector3d& v) {
  std::ostringstream out;
  out << v[0] << " " << v[1] << " " << v[2];
  return out.str();
}

std::vector<std::array<int, 3>> Fans() {
  std::vector<std::array<int, 3>> triangles;
  for (const std::vector<int>& face : kFaces) {
    for (std::size_t i = 2; i < face.size(); ++i) {
      triangles.push_back({face[0], face[i - 1], face[i]});
    }
  }
  return triangles;
}

std::string AsciiStl() {
  std::string text = "solid pri\xc3\x9fma\n";
  for (const auto& triangle : Fans()) {
    text += "facet normal 0 0 0\nouter loop\n";
    for (const int corner : triangle) {
      text += "vertex " + Text(kCorners[static_cast<std::size_t>(corner)]) + "\n";
    }
    text += "endloop\nendfacet\n";
  }
  return text + "endsolid pri\xc3\x9fma\n";
}

template <typename Number>
std::string Bytes(Number number, bool big_endian = false) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return big_endian ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
}

std::string BinaryStl() {
  std::string bytes = "solid, though it is binary";
  bytes.resize(80, ' ');
  bytes += Bytes(static_cast<std::uint32_t>(Fans().size()));
  for (const auto& triangle : Fans()) {
    bytes += std::string(12, '\0');
    for (const int corner : triangle) {
      for (const double x : kCorners[static_cast<std::size_t>(corner)]) {
        bytes += Bytes(static_cast<float>(x));
      }
    }
    bytes += std::string(2, '\0');
  }
  return bytes;
}

// \param begin Number of the first vertex in faces; negative ones count from the last one.
std::string Obj(int begin) {
  std::string text = "mtllib none.mtl\no prism\n";
  for (const Eigen::Vector3d& corner : kCorners) {
    text += "v " + Text(corner) + "\n";
  }
  text += "vn 0 0 1\nusemtl none\n";
  for (const std::vector<int>& face : kFaces) {
    text += "f";
    for (const int corner : face) {
      text += " " + std::to_string(corner + begin) + "//1";
    }
    text += "\n";
  }
  return text;
}

// In millimetres, of which a node in a node makes the double; its faces are polygons.
std::string Dae(const std::string& up_axis) {
  std::string positions;
  for (const Eigen::Vector3d& corner : kCorners) {
    positions += Text(500 * corner - 10 * Eigen::Vector3d::UnitX()) + " ";
  }
  std::string counts;
  std::string indices;
  for (const std::vector<int>& face : kFaces) {
    counts += std::to_string(face.size()) + " ";
    for (const int corner : face) {
      indices += std::to_string(corner) + " ";
    }
  }
  return "<COLLADA xmlns='http://www.collada.org/2005/11/COLLADASchema' version='1.4.1'>"
         "<asset><unit name='millimeter' meter='0.001'/><up_axis>" +
         up_axis +
         "</up_axis></asset><library_geometries><geometry id='g'><mesh><source id='s'><float_array id='a' "
         "count='36'>" +
         positions +
         "</float_array><technique_common><accessor source='#a' count='12' stride='3'><param name='X' "
         "type='float'/><param name='Y' type='float'/><param name='Z' type='float'/></accessor>"
         "</technique_common></source><vertices id='v'><input semantic='POSITION' source='#s'/></vertices>"
         "<polylist count='8'><input semantic='VERTEX' source='#v' offset='0'/><vcount>" +
         counts + "</vcount><p>" + indices +
         "</p></polylist></mesh></geometry></library_geometries><library_visual_scenes><visual_scene id='c'>"
         "<node id='m'><scale>2 2 2</scale><node id='n'><translate>10 0 0</translate>"
         "<instance_geometry url='#g'/></node></node></visual_scene></library_visual_scenes>"
         "<scene><instance_visual_scene url='#c'/></scene></COLLADA>";
}

std::string Ply(const std::string& format) {
  std::string content = "ply\r\nformat " + format +
                        " 1.0\r\ncomment of somebody\r\nelement vertex 12\r\nproperty double x\r\n"
                        "property uchar red\r\nproperty double y\r\nproperty double z\r\n"
                        "element face 8\r\nproperty list uchar float weights\r\n"
                        "property list ushort int vertex_indices\r\nend_header\r\n";
  const bool is_ascii = format == "ascii";
  const bool is_big = format == "binary_big_endian";
  const auto add = [&](auto number) {
    std::ostringstream text;
    text << +number << " ";
    content += is_ascii ? text.str() : Bytes(number, is_big);
  };
  for (const Eigen::Vector3d& corner : kCorners) {
    add(corner[0]);
    add(static_cast<std::uint8_t>(7));
    add(corner[1]);
    add(corner[2]);
  }
  for (const std::vector<int>& face : kFaces) {
    add(static_cast<std::uint8_t>(1));
    add(0.5f);
    add(static_cast<std::uint16_t>(face.size()));
    for (const int corner : face) {
      add(static_cast<std::int32_t>(corner));
    }
  }
  return content;
}

TEST(MeshFile, OneShapeInEveryForm) {
  const struct {
    std::string file;
    std::string content;
    // The fan of one cap lies partly outside it.
    double area;
  } cases[] = {
      {"a.stl", AsciiStl(), 31.0},
      {"b.STL", BinaryStl(), 31.0},
      {"c.obj", Obj(1), 30.0},
      {"d.obj", Obj(-12), 30.0},
      {"e.dae", Dae("Y_UP"), 30.0},
      {"f.dae", Dae("Z_UP"), 30.0},
      {"g.ply", Ply("ascii"), 30.0},
      {"h.ply", Ply("binary_little_endian"), 30.0},
      {"i.ply", Ply("binary_big_endian"), 30.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    if (!IsRead(c.file)) {
      continue;  // Refused, as the faults below are.
    }
    const auto mesh = ParseMesh(c.content, c.file);
    EXPECT_EQ(mesh->triangles().size(), 20u);
    EXPECT_TRUE(mesh->isClosed());
    EXPECT_EQ(mesh->numPieces(), 1u);
    std::vector<Eigen::Vector3d> missing = kCorners;
    for (const Eigen::Vector3d& vertex : mesh->vertices()) {
      missing.erase(std::remove_if(missing.begin(), missing.end(),
                                   [&](const auto& corner) { return (corner - vertex).norm() < 1e-6; }),
                    missing.end());
    }
    EXPECT_TRUE(missing.empty());
    double area = 0.0;
    double volume = 0.0;
    for (const TriangleMesh::Triangle& t : mesh->triangles()) {
      const Eigen::Vector3d& a = mesh->vertices()[t[0]];
      const Eigen::Vector3d& b = mesh->vertices()[t[1]];
      const Eigen::Vector3d& d = mesh->vertices()[t[2]];
      area += 0.5 * (b - a).cross(d - a).norm();
      volume += a.dot(b.cross(d)) / 6.0;
    }
    EXPECT_NEAR(area, c.area, 1e-4);
    EXPECT_NEAR(volume, 9.0, 1e-4);
  }
  const auto scaled = ParseMesh(Ply("ascii"), "a.ply", {0.5, -1.0, 2.0});
  EXPECT_EQ(scaled->vertices()[0], Eigen::Vector3d(0.5, -1.0, 0.0));
  EXPECT_THROW(ParseMesh(Ply("ascii"), "a.ply", {1.0, 0.0, 1.0}), util::FatalError);
}

TEST(MeshFile, Faults) {
  const std::string header =
      "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
      "property float z\nelement face 1\nproperty list uint uint vertex_index\n"
      "end_header\n";
  const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  std::string giant = BinaryStl();
  giant.replace(80, 4, Bytes(std::uint32_t{20000000}));
  const struct {
    std::string file;
    std::string content;
    std::string message;
  } cases[] = {
      {"a.glb", "", "a.glb: found the ending \"glb\", expected a mesh in a file that ends in .stl, .obj, "},
      {"a", "", "a: found the ending \"\""},
      {"a.stl", "", "a.stl: found what assimp refuses ("},
      {"a.stl", "\x80", "a.stl: found what assimp refuses ("},
      {"a.stl", giant, "a.stl: found no triangle"},
      {"a.stl", replaced(AsciiStl(), "vertex 2", "vertex nan"), "expected finite coordinates"},
      {"a.obj", "v 0 0 0\nv 1 0 0\nl 1 2\n", "a.obj: found "},
      {"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 4\n", "a.obj: found "},
      {"a.obj", "v 0 0 0\nv 1 0 0\nv 0 0 0\nf 1 2 3\n",
       "a.obj: found no triangle, expected at least one, with three different corners"},
      {"a.dae", "<COLLADA/>", "a.dae: found what assimp refuses ("},
      {"a.dae", replaced(Dae("Z_UP"), "count='36'", "count='999999999'"),
       "a.dae:1: found an array of less than it counts, expected as many as its `count`"},
      {"a.dae", replaced(Dae("Z_UP"), "count='12'", "count='13'"),
       "an accessor that reaches beyond its array"},
      {"a.dae", replaced(Dae("Z_UP"), "count='8'", "count='999999999'"),
       "more primitives than indices for them"},
      {"a.dae", replaced(Dae("Z_UP"), "<vcount>6", "<vcount>999999999"),
       "polygons of more corners than there"},
      {"a.dae", replaced(Dae("Z_UP"), "offset='0'", "offset='99999999'"), "found an input that cannot be"},
      {"a.dae", replaced(Dae("Z_UP"), "<p>3", "<p>-3"), "indices, expected those of whole primitives"},
      {"a.dae", replaced(Dae("Z_UP"), "<scale>", "<instance_node url='#n'/><instance_node url='#m'/><scale>"),
       "a.dae:1: found a node that contains itself, expected a tree"},
      {"a.ply", "plyx\n", "a.ply:1: found no \"ply\" at the beginning, expected a PLY file"},
      {"a.ply", replaced(header, "ascii", "utf8"), "a.ply:9: found a header without a known format"},
      {"a.ply", replaced(header, "float x", "float w"), "a.ply:10: found vertices without x, y and z"},
      {"a.ply", replaced(header, "float x", "real x"), "a.ply:4: found \"real\", expected the type"},
      {"a.ply", replaced(header, "vertex 3", "vertex 99999999999"),
       "a.ply: found the end of the file, expected all elements that the header announces"},
      {"a.ply", header + "0 0 0 1 0 0 0 1 0 4000000000 0 1 2", "a.ply: found the end of the file"},
      {"a.ply", header + "0 0 0\n1 0 0\n0 1 0\n3 0 1 3", "a.ply: found a face with vertex 3 of 3, expected"},
      {"a.ply", header + "0 0 0\n1 0 0\n0 1 0\n3 0 1 -1", "a.ply:13: found a list with -1, expected"},
      {"a.ply", header + "0 0 0\n1 0 0\n0 1 z\n3 0 1 2", "a.ply:12: found \"z\", expected a number"},
      {"a.ply", header + "0 0 0\n1 0 0\n0 1 1e999\n3 0 1 2", "found vertex 2 at [0, 1, nan], expected"},
      {"a.ply", header + "0 0 0\n1 0 0\n0 1 0\n0", "a.ply: found no triangle"},
  };
  for (const auto& c : cases) {
    const bool is_known = c.file.size() == 5 && c.file != "a.glb";
    EXPECT_THAT(
        FileErrorOf([&] { ParseMesh(c.content, c.file); }),
        HasSubstr(is_known && !IsRead(c.file) ? "which this build cannot read, expected .ply" : c.message));
  }
  EXPECT_EQ(FileErrorOf([] { ReadMesh("no/such.stl"); }), "no/such.stl: cannot be read");
}

}  // namespace
}  // namespace kavo::formats
