#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kavo::formats {

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

}  // namespace kavo::formats
