#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kavo/world/shapes/triangle_mesh.h"

namespace kavo::formats {

//! The largest coordinate and size of what meshes, clouds and octrees are made of (metres).
inline constexpr double kLargestLength = 1e30;

//! Whether a point is finite and no farther out than that: sensors write the largest number where they saw
//! nothing.
inline bool IsPlace(const Eigen::Vector3d& point) {
  return std::fabs(point.x()) <= kLargestLength && std::fabs(point.y()) <= kLargestLength &&
         std::fabs(point.z()) <= kLargestLength;
}

//! What a file says about a surface, or about a cloud: then there are no triangles.
struct Surface {
  //! May be NaN or infinite: clouds have such points where the sensor saw nothing.
  std::vector<Eigen::Vector3d> vertices;
  //! Indices of vertices.
  std::vector<std::array<std::uint32_t, 3>> triangles;

  //! Adds the triangles of a polygon: one less than two for each corner, whose edges are those of the polygon
  //! and others twice, so that no hole comes to be. Where the polygon does not run through itself and is
  //! about flat, nothing lies outside it (ears are cut off; Meisters, 1975). Other polygons are fans.
  //! \param corners Indices of vertices; fewer than three add nothing.
  void addPolygon(const std::vector<std::uint32_t>& corners);
};

//! The six sides of a box, facing outwards.
Surface SurfaceOf(const Eigen::AlignedBox3d& box);

//! The mesh of a surface whose vertices are all places; null if none of its triangles has three different
//! corners.
std::shared_ptr<const TriangleMesh> MakeMesh(const Surface& surface);

}  // namespace kavo::formats
