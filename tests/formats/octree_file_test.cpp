#include "kavo/formats/octree_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/formats/files.h"
#include "tests/support/vectors.h"

namespace kavo::formats {
namespace {

using ::kavo::testing::FileErrorOf;
using ::kavo::testing::RandomVec;

const std::string kBinaryHead =
    "# Octomap OcTree binary file\n# a comment\nid OcTree\nsize 3\nres 0.5\ndata\n";

// The state of each child as bits, eight of them.
std::string BinaryNode(const std::vector<unsigned>& states) {
  unsigned bits = 0;
  for (std::size_t i = 0; i < states.size(); ++i) {
    bits |= states[i] << (2 * i);
  }
  return {static_cast<char>(bits & 255U), static_cast<char>(bits >> 8)};
}

std::string FullNode(float log_odds, unsigned children, const std::string& more = "") {
  return std::string(reinterpret_cast<const char*>(&log_odds), sizeof(log_odds)) + more +
         static_cast<char>(children);
}

constexpr unsigned kFree = 1;
constexpr unsigned kOccupied = 2;
constexpr unsigned kParent = 3;

// With edge 32768 along each axis: a free eighth, an occupied one, and one with two parts of its own.
std::string BinaryTree() {
  return kBinaryHead + BinaryNode({kFree, 0, 0, kOccupied, 0, 0, 0, kParent}) +
         BinaryNode({kOccupied, kFree, 0, 0, 0, 0, 0, 0});
}

void ExpectCells(const std::vector<Octree::Cell>& cells,
                 const std::vector<std::pair<Eigen::Vector3d, double>>& expected) {
  ASSERT_EQ(cells.size(), expected.size());
  for (std::size_t i = 0; i < cells.size(); ++i) {
    EXPECT_EQ(cells[i].center, expected[i].first) << i;
    EXPECT_EQ(cells[i].size, expected[i].second) << i;
  }
}

TEST(OctreeFile, OccupiedLeavesAreCellsOfTheirOwnSize) {
  ExpectCells(ParseOctree(BinaryTree(), "o"), {{{8192, 8192, -8192}, 16384}, {{4096, 4096, 4096}, 8192}});

  // Down the first children to the smallest cell there is, and in its last parent one that is even.
  const std::string head = "# Octomap OcTree file\nid ColorOcTree\nres 0.25\ndata\n";
  std::string tree = head;
  for (int depth = 0; depth < 16; ++depth) {
    tree += FullNode(9, depth == 15 ? 3 : 1, "rgb");
  }
  const std::string leaves = FullNode(-0.5, 0, "rgb") + FullNode(0, 0, "rgb");
  ExpectCells(ParseOctree(tree + leaves, "o"), {{{-8191.625, -8191.875, -8191.875}, 0.25}});
  ExpectCells(ParseOctree(head, "o"), {});

  EXPECT_EQ(FileErrorOf([&] { ParseOctree(tree + leaves + "x", "o"); }),
            "o: found 1 bytes behind the octree, expected none");
  EXPECT_EQ(FileErrorOf([&] { ParseOctree(tree + FullNode(0, 1, "rgb") + leaves, "o"); }),
            "o: found an octree of more than 16 levels, expected fewer");
  EXPECT_EQ(FileErrorOf([&] { ParseOctree(head + FullNode(std::nanf(""), 0, "rgb"), "o"); }),
            "o: found a leaf that is neither free nor occupied, expected a number");
}

TEST(OctreeFile, UnknownSpaceFillsTheBoxAroundWhatIsKnown) {
  const std::vector<Octree::Cell> cells = ParseOctree(BinaryTree(), "o", {true});
  std::mt19937 engine(5);
  const auto is_inside = [](const Octree::Cell& cell, const Eigen::Vector3d& point) {
    return (point - cell.center).cwiseAbs().maxCoeff() <= 0.5 * cell.size;
  };
  const std::vector<Octree::Cell> free = {{{-8192, -8192, -8192}, 16384}, {{12288, 4096, 4096}, 8192}};
  const Eigen::Vector3d min(-16384, -16384, -16384);
  const Eigen::Vector3d max(16384, 16384, 8192);
  for (int i = 0; i < 2000; ++i) {
    const Eigen::Vector3d point = RandomVec(engine, 3, -16384, 16384);
    int num = 0;
    for (const std::vector<Octree::Cell>* all : {&cells, &free}) {
      for (const Octree::Cell& cell : *all) {
        num += is_inside(cell, point) ? 1 : 0;
      }
    }
    EXPECT_EQ(num, point.z() < max.z() ? 1 : 0) << point.transpose();
  }
  EXPECT_EQ(cells[0].center, Eigen::Vector3d(8192, 8192, -8192));
}

TEST(OctreeFile, FaultsAreNamed) {
  testing::ExpectFaults("octree", [](const std::string& text) { ParseOctree(text, "o"); });
  // Few bytes, but the box around the smallest cells next to those in opposite corners fits no larger ones.
  std::string tree = kBinaryHead + BinaryNode({kParent, 0, 0, 0, 0, 0, 0, kParent});
  for (const std::size_t corner : {0U, 7U}) {
    for (int depth = 1; depth < 16; ++depth) {
      std::vector<unsigned> states(8);
      states[depth == 15 ? 7 - corner : corner] = depth == 15 ? kFree : kParent;
      tree += BinaryNode(states);
    }
  }
  EXPECT_EQ(ParseOctree(tree, "o").size(), 0u);
  EXPECT_EQ(FileErrorOf([&] { ParseOctree(tree, "o", {true}); }),
            "o: found more than 10000000 cells, expected fewer");
}

}  // namespace
}  // namespace kavo::formats
