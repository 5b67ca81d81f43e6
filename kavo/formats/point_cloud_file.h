#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "kavo/util/export.h"
#include "kavo/world/shapes/point_cloud.h"

namespace kavo::formats {

//! What becomes of the points of a file. Metres.
struct PointCloudOptions {
  //! Of each point; from zero to 1e30 (anything else is a fatal error).
  double radius = 0.0;
  //! With a value (positive and finite, anything else is a fatal error), all points in one cell of a grid of
  //! this edge become one: the middle of the smallest box around them, with a radius that holds the balls of
  //! all of them. What is clear of these balls is clear of every point of the file.
  std::optional<double> voxel_size;
};

//! A point cloud from a file.
struct LoadedPointCloud {
  //! In the frame of the file; in the order of the file, voxels in that of their first points.
  std::shared_ptr<const PointCloud> cloud;
  //! Points that are not finite or beyond 1e30, as sensors write them where they see nothing: left out.
  std::size_t num_not_finite = 0;
  //! Finite points before those of one voxel became one.
  std::size_t num_points = 0;
};

//! Reads a point cloud: PCD (ascii, binary or binary_compressed), PLY (ascii or binary; its vertices), or
//! text of a point in each line. Which of them it is, is told by its first line. Metres.
//!
//! Fields of PCD and properties of PLY may come in any order and be of any type; those other than x, y and z
//! are passed over. The VIEWPOINT of PCD says where the sensor stood: it is not applied, and one that is not
//! the origin is warned about. A line of text has x, y and z, with blanks, commas or semicolons between them,
//! and may go on with other columns; what follows # or // is passed over. A first line that names the columns
//! says which are x, y and z.
//!
//! Throws `FileError` for a file that cannot be read, does not have one of these forms, claims more points
//! than it has bytes for (without making room for them) or has no point that is finite.
KAVO_EXPORT LoadedPointCloud ReadPointCloud(const std::string& file, const PointCloudOptions& options = {});

//! The same from the bytes of a file, with a name for its errors.
KAVO_EXPORT LoadedPointCloud ParsePointCloud(const std::string& bytes, const std::string& file,
                                             const PointCloudOptions& options = {});

//! Whether the header of a PLY file announces faces: then it is a mesh. Throws `FileError` for a file that
//! cannot be read.
KAVO_EXPORT bool IsPlyMesh(const std::string& file);

}  // namespace kavo::formats
