#include "kavo/formats/octree_file.h"

#include <Eigen/Core>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

#include "kavo/formats/binary_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/octree_internal.h"
#include "kavo/formats/surface_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/formats/text_reader_internal.h"
#include "kavo/util/parse_number.h"

namespace kavo::formats {

namespace {

// Levels below the root: it has 2^16 of the smallest cells along each axis.
constexpr int kDepth = 16;
constexpr std::size_t kMaxCells = 10'000'000;

// A cube of the grid of the smallest cells.
struct Cube {
  // Its least corner.
  std::array<std::int32_t, 3> corner{};
  std::int32_t edge = std::int32_t{1} << kDepth;

  // One of its eight parts, by the bits of the index.
  Cube child(unsigned index) const {
    Cube child{corner, edge / 2};
    for (unsigned axis = 0; axis < 3; ++axis) {
      child.corner[axis] += (index >> axis & 1U) != 0 ? child.edge : 0;
    }
    return child;
  }
};

// Goes through a tree by itself: liboctomap takes whatever it is given, as deep as the bytes like and beyond
// their end, and to have gone through them all first is to have read them.
class OctreeDecoder {
 public:
  OctreeDecoder(const OctreeData& data, const OctreeFileOptions& options)
      : data_(data), options_(options), rest_(data.bytes) {
    static const std::map<std::string_view, std::size_t> kPayloads = {
        {"OcTree", 4}, {"OcTreeStamped", 4}, {"ColorOcTree", 7}};
    const auto payload = kPayloads.find(data_.type);
    if (payload == kPayloads.end()) {
      fail("an octree of type " + Quoted(data_.type), "OcTree, ColorOcTree or OcTreeStamped");
    }
    payload_ = payload->second;
    // The product is the edge of the whole tree.
    if (!(data_.resolution > 0.0) || !(data_.resolution * (1 << kDepth) <= kLargestLength)) {
      fail("an octree of resolution " + NumberText(data_.resolution), "metres");
    }
  }

  std::vector<Octree::Cell> decode() {
    if (!rest_.empty()) {
      if (data_.is_binary) {
        readBinaryNode(Cube());
      } else {
        readFullNode(Cube());
      }
    }
    if (!rest_.empty()) {
      fail(std::to_string(rest_.size()) + " bytes behind the octree", "none");
    }
    for (const Cube& cube : unknown_) {
      addWithinKnown(cube);
    }
    return std::move(cells_);
  }

 private:
  std::string_view take(std::size_t num_bytes) {
    if (rest_.size() < num_bytes) {
      fail("the end of the data", "the rest of the octree");
    }
    const std::string_view bytes = rest_.substr(0, num_bytes);
    rest_.remove_prefix(num_bytes);
    return bytes;
  }

  void checkDepth(const Cube& parent) const {
    if (parent.edge == 1) {
      fail("an octree of more than " + std::to_string(kDepth) + " levels", "fewer");
    }
  }

  // Two bits for each child: unknown, free, occupied, or with children, which follow in the same order.
  void readBinaryNode(const Cube& cube) {
    checkDepth(cube);
    const auto bits = static_cast<unsigned>(LoadNumber(take(2).data(), NumberType::kUint16));
    if (bits == 0) {
      fail("a node that has neither children nor a state", "one of them");
    }
    for (unsigned index = 0; index < 8; ++index) {
      const Cube child = cube.child(index);
      switch (bits >> (2 * index) & 3U) {
        case 0:
          addUnknown(child);
          break;
        case 1:
          addLeaf(child, false);
          break;
        case 2:
          addLeaf(child, true);
          break;
        default:
          break;
      }
    }
    for (unsigned index = 0; index < 8; ++index) {
      if ((bits >> (2 * index) & 3U) == 3) {
        readBinaryNode(cube.child(index));
      }
    }
  }

  // The logarithm of the odds that it is occupied and what else the type has, then a bit for each child,
  // which follow depth first.
  void readFullNode(const Cube& cube) {
    const std::string_view node = take(payload_ + 1);
    const double log_odds = LoadNumber(node.data(), NumberType::kFloat32);
    const auto children = static_cast<unsigned char>(node.back());
    if (children == 0) {
      if (std::isnan(log_odds)) {
        fail("a leaf that is neither free nor occupied", "a number");
      }
      addLeaf(cube, log_odds >= 0.0);
      return;
    }
    checkDepth(cube);
    for (unsigned index = 0; index < 8; ++index) {
      if ((children >> index & 1U) != 0) {
        readFullNode(cube.child(index));
      } else {
        addUnknown(cube.child(index));
      }
    }
  }

  void addLeaf(const Cube& cube, bool is_occupied) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      known_min_[axis] = std::min(known_min_[axis], cube.corner[axis]);
      known_max_[axis] = std::max(known_max_[axis], cube.corner[axis] + cube.edge);
    }
    if (is_occupied) {
      addCell(cube);
    }
  }

  void addUnknown(const Cube& cube) {
    if (options_.unknown_is_occupied) {
      checkNumber(unknown_.size());
      unknown_.push_back(cube);
    }
  }

  // The part of a cube that is in the box around what is known.
  void addWithinKnown(const Cube& cube) {
    bool is_inside = true;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const std::int32_t end = cube.corner[axis] + cube.edge;
      if (end <= known_min_[axis] || cube.corner[axis] >= known_max_[axis]) {
        return;
      }
      is_inside = is_inside && cube.corner[axis] >= known_min_[axis] && end <= known_max_[axis];
    }
    if (is_inside) {
      addCell(cube);
      return;
    }
    for (unsigned index = 0; index < 8; ++index) {
      addWithinKnown(cube.child(index));
    }
  }

  void addCell(const Cube& cube) {
    checkNumber(cells_.size());
    // From the middle of the tree, which is the origin; exact but for the last product.
    const auto middle = [&](std::size_t axis) {
      return (cube.corner[axis] - (1 << (kDepth - 1)) + 0.5 * cube.edge) * data_.resolution;
    };
    cells_.push_back({{middle(0), middle(1), middle(2)}, cube.edge * data_.resolution});
  }

  void checkNumber(std::size_t num_cells) const {
    if (num_cells == kMaxCells) {
      fail("more than " + std::to_string(kMaxCells) + " cells", "fewer");
    }
  }

  [[noreturn]] void fail(const std::string& found, const std::string& expected) const {
    throw FileError(data_.file, data_.line, "found " + found + ", expected " + expected);
  }

  const OctreeData& data_;
  const OctreeFileOptions& options_;
  std::string_view rest_;
  // Bytes of a full node before those of its children.
  std::size_t payload_ = 0;
  std::vector<Octree::Cell> cells_;
  std::vector<Cube> unknown_;
  // The smallest box around all leaves.
  std::array<std::int32_t, 3> known_min_{1 << kDepth, 1 << kDepth, 1 << kDepth};
  std::array<std::int32_t, 3> known_max_{};
};

}  // namespace

std::vector<Octree::Cell> DecodeOctree(const OctreeData& data, const OctreeFileOptions& options) {
  return OctreeDecoder(data, options).decode();
}

std::vector<Octree::Cell> ReadOctree(const std::string& file, const OctreeFileOptions& options) {
  return ParseOctree(ReadFile(file, kMaxOctreeSize), file, options);
}

std::vector<Octree::Cell> ParseOctree(const std::string& bytes, const std::string& file,
                                      const OctreeFileOptions& options) {
  TextReader reader(bytes, file);
  const std::string_view first_line = reader.readLine();
  OctreeData data;
  data.file = file;
  data.is_binary = first_line == "# Octomap OcTree binary file";
  if (!data.is_binary && first_line != "# Octomap OcTree file") {
    reader.fail(Quoted(first_line), "\"# Octomap OcTree binary file\" or \"# Octomap OcTree file\"");
  }
  while (!reader.isAtEnd()) {
    const std::string_view line = reader.readLine();
    const std::vector<std::string_view> words = Tokens(line);
    if (line == "data") {
      data.bytes = reader.rest();
      return DecodeOctree(data, options);
    }
    if (words.size() == 2 && words[0] == "id") {
      data.type = std::string(words[1]);
    } else if (words.size() == 2 && words[0] == "res") {
      data.resolution = util::ParseNumber(words[1]).value_or(0.0);
    }
  }
  reader.fail("the end of the file", "a line \"data\"");
}

}  // namespace kavo::formats
