#pragma once

#include <cstddef>
#include <string>

#include "kavo/formats/surface_internal.h"

namespace kavo::formats {

//! From a PLY file, ASCII or binary of either byte order: x, y and z of each `vertex`, in the order of the
//! file, and `vertex_indices` or `vertex_index` of each `face`. Other elements and properties are passed
//! over.
//!
//! It is read here and not by a library, because those at hand take the counts in its header and in its
//! lists for granted: a small file makes them ask for any amount of memory.
//!
//! Throws `FileError` for what is no PLY, for a file that ends before all that it announces, for a number
//! that is none, for an index without a vertex, and for more triangles than allowed.
//! \param file Name for errors.
Surface ParsePly(const std::string& content, const std::string& file, std::size_t max_triangles);

}  // namespace kavo::formats
