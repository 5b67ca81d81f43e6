#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kavo/formats/octree_file.h"

namespace kavo::formats {

//! A tree as OctoMap writes it, behind a header or in a message.
struct OctreeData {
  //! "OcTree" and so on.
  std::string type;
  //! Whether nodes say only occupied, free or unknown.
  bool is_binary = false;
  //! Edge of the smallest cells (metres).
  double resolution = 0.0;
  std::string_view bytes;
  //! Where it comes from, for errors.
  std::string file;
  int line = 0;
};

//! The occupied cells, as `ReadOctree` gives them.
std::vector<Octree::Cell> DecodeOctree(const OctreeData& data, const OctreeFileOptions& options);

}  // namespace kavo::formats
