#include "kavo/formats/point_cloud_file.h"

#include "tests/fuzz/fuzzer.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return kavo::testing::FuzzReader(data, size, [](const std::string& bytes) {
    const auto plain = kavo::formats::ParsePointCloud(bytes, "input");
    kavo::testing::Require(plain.cloud->points().size() == plain.num_points);
    const auto voxels = kavo::formats::ParsePointCloud(bytes, "input", {0.01, 0.1});
    kavo::testing::Require(voxels.cloud->points().size() <= plain.num_points);
  });
}
