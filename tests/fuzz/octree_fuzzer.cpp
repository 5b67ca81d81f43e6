#include "kavo/formats/octree_file.h"

#include "tests/fuzz/fuzzer.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& bytes) {
    std::vector<kavo::Octree::Cell> cells = kavo::formats::ParseOctree(bytes, "input");
    const std::size_t num_with_unknown = kavo::formats::ParseOctree(bytes, "input", {true}).size();
    kavo::testing::Require(cells.size() <= num_with_unknown);
    if (!cells.empty()) {
      // Any cells that were read are fit for a world.
      kavo::Octree(std::move(cells));
    }
  });
}
