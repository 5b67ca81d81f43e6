#pragma once

#include <string>
#include <vector>

#include "kavo/util/export.h"
#include "kavo/world/shapes/octree.h"

namespace kavo::formats {

//! How an octree of occupied, free and unknown space is taken.
struct OctreeFileOptions {
  //! Whether what the tree does not know counts as occupied, within the smallest box around all that it
  //! knows.
  bool unknown_is_occupied = false;
};

//! Reads an octree of OctoMap: a binary tree (`.bt`) or a full one (`.ot`, of type OcTree, ColorOcTree or
//! OcTreeStamped), told apart by the first line. Metres, in the frame of the file.
//!
//! A leaf is occupied when it is more likely to be so than not; one that stands for many of the finest cells
//! stays one cell. Leaves in space come in the order of the file, unknown ones after them.
//!
//! Throws `FileError` for a file that cannot be read, is damaged, goes on behind its tree, is deeper than 16
//! levels or makes more than 10 000 000 cells.
//! \return The occupied cells; may be empty.
KAVO_EXPORT std::vector<Octree::Cell> ReadOctree(const std::string& file,
                                                 const OctreeFileOptions& options = {});

//! The same from the bytes of a file, with a name for its errors.
KAVO_EXPORT std::vector<Octree::Cell> ParseOctree(const std::string& bytes, const std::string& file,
                                                  const OctreeFileOptions& options = {});

}  // namespace kavo::formats
