#include "kavo/formats/point_cloud_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/formats/files.h"
#include "tests/support/fatal.h"
#include "tests/support/log_capture.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using ::kavo::testing::FileErrorOf;
using ::kavo::testing::LogCapture;
using ::kavo::testing::RandomVec;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// The bytes of numbers, of this type and in little-endian order (as the machines that build this are).
template <typename Number>
std::string Bytes(const std::vector<double>& numbers, bool is_big_endian = false) {
  std::string bytes;
  for (const double value : numbers) {
    const auto number = static_cast<Number>(value);
    std::string one(sizeof(number), '\0');
    std::memcpy(one.data(), &number, sizeof(number));
    bytes += is_big_endian ? std::string(one.rbegin(), one.rend()) : one;
  }
  return bytes;
}

TEST(PointCloudFile, EveryFormGivesTheSamePoints) {
  const std::vector<Eigen::Vector3d> expected = {{1, 2, -3}, {0.5, 0.25, 0}, {1, 2, -3}};
  const auto floats = [](const std::vector<double>& numbers) { return Bytes<float>(numbers); };
  const std::string pcd = "# .PCD v0.7 - Point Cloud Data file format\nVERSION 0.7\n";
  const std::string ends = "VIEWPOINT 0 0 0 1 0 0 0\n";
  // Literal runs, and repeats of four bytes from twelve before and of three from one before.
  const std::string repeat = {'\x40', '\x0B'};
  const auto column = [&](double a, double b) { return '\x0B' + floats({a, b, kNan}) + repeat; };
  const std::string zeros = {'\x00', '\x00', '\x20', '\x00'};
  const std::string compressed =
      column(1, 0.5) + column(2, 0.25) + '\x03' + floats({-3}) + zeros + '\x03' + floats({kNan}) + repeat;
  const std::string ply = "ply\nformat ";
  const std::string vertex = "element vertex 4\nproperty double x\n";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"text", "1 2 -3\n# a comment\n\n0.5\t.25 0 77 88 // colour\nnan 0 0\n+1,2;-3e0"},
      {"text with names of columns", "Z,intensity,X,Y\n-3,7,1,2\n0,7,.5,.25\n0,7,inf,0\n-3,7,1,2\n"},
      {"PCD in text, other fields between",
       pcd + "FIELDS rgb z y x n\nSIZE 4 4 4 4 4\nTYPE U F F F F\nCOUNT 1 1 1 1 2\nWIDTH 2\nHEIGHT 2\n" +
           ends + "POINTS 4\nDATA ascii\n7 -3 2 1 0 0\n7 0 0.25 0.5 0 0\n7 nan nan nan 0 0\n7 -3 2 1 0 0\n"},
      {"binary PCD, doubles and whole numbers, without the comment",
       "VERSION 0.7\nFIELDS _ x y z\nSIZE 1 8 8 2\nTYPE U F F I\nCOUNT 3 1 1 1\nWIDTH 4\nHEIGHT 1\nDATA "
       "binary\n" +
           ("abc" + Bytes<double>({1, 2}) + Bytes<std::int16_t>({-3})) +
           ("abc" + Bytes<double>({0.5, 0.25}) + Bytes<std::int16_t>({0})) +
           ("abc" + Bytes<double>({kNan, 2}) + Bytes<std::int16_t>({9})) +
           ("abc" + Bytes<double>({1, 2}) + Bytes<std::int16_t>({-3})) + "behind"},
      {"compressed PCD, column by column, without what keeps fields aligned",
       pcd + "FIELDS x y _ z\nSIZE 4 4 1 4\nTYPE F F U F\nCOUNT 1 1 4 1\nPOINTS 4\nDATA binary_compressed\n" +
           Bytes<std::uint32_t>({static_cast<double>(compressed.size()), 48}) + compressed + "behind"},
      {"text in PLY, a list before the coordinates",
       ply + "ascii 1.0\ncomment x\nelement face 1\nproperty list uchar int vertex_indices\n" + vertex +
           "property list uchar float w\nproperty float y\nproperty float z\nend_header\n3 0 1 2\n1 0 2 -3\n"
           "0.5 2 8 9 .25 0\n1 0 inf 0\n1 0 2 -3\n"},
      {"little-endian PLY", ply + "binary_little_endian 1.0\n" + vertex +
                                "property float y\nproperty uchar red\nproperty float z\n"
                                "end_header\n" +
                                (Bytes<double>({1}) + floats({2}) + "r" + floats({-3})) +
                                (Bytes<double>({0.5}) + floats({0.25}) + "r" + floats({0})) +
                                (Bytes<double>({0.5}) + floats({kNan}) + "r" + floats({0})) +
                                (Bytes<double>({1}) + floats({2}) + "r" + floats({-3}))},
      {"big-endian PLY behind faces and an element without properties",
       ply +
           "binary_big_endian 1.0\r\nelement face 2\r\nproperty list ushort int vertex_indices\r\n"
           "element nothing 99999999999\r\nelement camera 2\r\nproperty short a\r\n" +
           vertex + "property float y\r\nproperty float z\r\nend_header\r\n" +
           Bytes<std::uint16_t>({1}, true) + Bytes<std::int32_t>({3}, true) +
           Bytes<std::uint16_t>({0}, true) + "caca" + Bytes<double>({1}, true) + Bytes<float>({2, -3}, true) +
           Bytes<double>({0.5}, true) + Bytes<float>({0.25, 0}, true) + Bytes<double>({kNan}, true) +
           Bytes<float>({0.25, 0}, true) + Bytes<double>({1}, true) + Bytes<float>({2, -3}, true)},
  };
  const LogCapture log;
  for (const auto& [name, bytes] : cases) {
    LoadedPointCloud loaded;
    ASSERT_NO_THROW(loaded = ParsePointCloud(bytes, "c", {0.5, {}})) << name;
    EXPECT_EQ(loaded.cloud->points(), expected) << name;
    EXPECT_EQ(loaded.cloud->radius(2), 0.5) << name;
    EXPECT_EQ(loaded.num_points, 3u) << name;
    EXPECT_EQ(loaded.num_not_finite, 1u) << name;
  }
  EXPECT_THAT(log.warnings(), IsEmpty());
}

TEST(PointCloudFile, TheBallsOfVoxelsHoldThoseOfAllPoints) {
  std::mt19937 engine(3);
  std::vector<Eigen::Vector3d> points;
  std::string text;
  std::set<std::array<int, 3>> voxels;
  for (int i = 0; i < 2000; ++i) {
    points.emplace_back(RandomVec(engine, 3, -1, 1));
    std::array<int, 3> voxel;
    for (int axis = 0; axis < 3; ++axis) {
      text += std::to_string(points.back()[axis]) + " ";
      points.back()[axis] = std::stod(std::to_string(points.back()[axis]));
      voxel[static_cast<std::size_t>(axis)] = static_cast<int>(std::floor(points.back()[axis] / 0.25));
    }
    voxels.insert(voxel);
    text += "\n";
  }
  const PointCloud cloud = *ParsePointCloud(text, "c", {0.01, 0.25}).cloud;
  EXPECT_EQ(cloud.points().size(), voxels.size());
  double largest = 0.0;
  for (const Eigen::Vector3d& point : points) {
    double outside = 1.0;
    for (std::size_t i = 0; i < cloud.points().size(); ++i) {
      outside = std::min(outside, (point - cloud.points()[i]).norm() + 0.01 - cloud.radius(i));
    }
    EXPECT_LT(outside, 1e-12) << point.transpose();
  }
  for (std::size_t i = 0; i < cloud.points().size(); ++i) {
    largest = std::max(largest, cloud.radius(i));
  }
  // No larger than what holds a voxel and a radius around it.
  EXPECT_LT(largest, 0.25 * std::sqrt(0.75) + 0.01);
  // A point alone in its voxel stays what it is.
  const PointCloud alone = *ParsePointCloud("0.1 0.1 0.1\n-0.1 0.1 0.1", "c", {0.01, 0.25}).cloud;
  EXPECT_THAT(alone.points(), ElementsAre(Eigen::Vector3d(0.1, 0.1, 0.1), Eigen::Vector3d(-0.1, 0.1, 0.1)));
  EXPECT_EQ(alone.radius(1), 0.01);

  const LogCapture log;
  EXPECT_THROW(ParsePointCloud("0 0 0", "c", {-1.0, {}}), util::FatalError);
  EXPECT_THROW(ParsePointCloud("0 0 0", "c", {0.0, 0.0}), util::FatalError);
}

TEST(PointCloudFile, AViewpointIsSaidNotToBeApplied) {
  const LogCapture log;
  const std::string head = "VERSION .7\nFIELDS x y z\nWIDTH 1\nHEIGHT 1\nVIEWPOINT ";
  const auto cloud = ParsePointCloud(head + "0 0 1 1 0 0 0\nDATA ascii\n1 2 3\n", "c").cloud;
  EXPECT_EQ(cloud->points()[0], Eigen::Vector3d(1, 2, 3));
  EXPECT_THAT(log.warnings(), ElementsAre("c:5: the VIEWPOINT is where the sensor stood, and is not applied: "
                                          "the points are taken as they are."));
}

TEST(PointCloudFile, PlyIsAMeshWhenItHasFaces) {
  const testing::Folder folder;
  const std::string head = "ply\nformat ascii 1.0\nelement vertex 0\n";
  EXPECT_TRUE(IsPlyMesh(folder.Write("a", head + "element face 1\nend_header\n")));
  EXPECT_FALSE(IsPlyMesh(folder.Write("b", head + "element face 0\nend_header\nelement face 1\n")));
  EXPECT_FALSE(IsPlyMesh(folder.Write("c", head + "end_header\nelement face 1\n")));
}

TEST(PointCloudFile, FaultsAreNamedWithTheirLine) {
  const LogCapture quiet;
  testing::ExpectFaults("point_cloud", [](const std::string& text) { ParsePointCloud(text, "c"); });
  // Compressed data that ends early, repeats what was not there, or gives another size.
  const std::string head =
      "VERSION .7\nFIELDS x y z\nSIZE 1 1 1\nTYPE U U U\nPOINTS 1\nDATA binary_compressed\n";
  for (const std::string& data :
       {std::string("\x02"
                    "ab",
                    3),
        std::string("\x20\x00", 2), std::string("\x60", 1), std::string("\xE0\x01", 2),
        std::string("\x00"
                    "a\x20\x01",
                    4),
        std::string("\x01"
                    "ab",
                    3),
        std::string("\x03"
                    "abcd",
                    5)}) {
    EXPECT_EQ(
        FileErrorOf([&] {
          ParsePointCloud(head + Bytes<std::uint32_t>({static_cast<double>(data.size()), 3}) + data, "c");
        }),
        "c:6: found compressed data that is damaged, expected data by LZF");
  }
}

}  // namespace
}  // namespace kavo::formats
