#include <cmath>
#include <memory>

#include "kavo/formats/mesh_file.h"
#include "tests/fuzz/fuzzer.h"

// Where assimp refuses a file, it forgets what it had made of it until then.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libassimp\n"; }

// The first letter says which format the rest is in.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& text) {
    const std::string ending = text.empty() || text[0] == 's' ? ".stl"
                               : text[0] == 'o'               ? ".obj"
                               : text[0] == 'd'               ? ".dae"
                                                              : ".ply";
    const auto mesh = kavo::formats::ParseMesh(text.substr(text.empty() ? 0 : 1), "input" + ending);
    kavo::testing::Require(!mesh->triangles().empty());
    for (const Eigen::Vector3d& vertex : mesh->vertices()) {
      kavo::testing::Require(std::isfinite(vertex[0]) && std::isfinite(vertex[1]) &&
                             std::isfinite(vertex[2]));
    }
  });
}
