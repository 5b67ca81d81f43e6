#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

#include "kavo/world/obstacle.h"
#include "kavo/world/shapes/octree.h"

namespace kavo::formats {

// Shapes as they are drawn: for the eye, not for an answer. Metres, in the frame of what has the shape.

//! Triangles of a surface.
struct DrawnMesh {
  std::vector<Eigen::Vector3d> vertices;  //!< In the frame of the shape, metres.
  //! Indices of vertices.
  std::vector<std::array<std::uint32_t, 3>> triangles;
  //! Of the surface itself: of what was thinned, more than there are here.
  std::size_t num_triangles = 0;
};

//! Points of a cloud.
struct DrawnPoints {
  std::vector<Eigen::Vector3d> points;  //!< In the frame of the shape, metres.
  //! Of the ball around each point, the largest of all.
  double radius = 0.0;
  //! Of the cloud itself.
  std::size_t num_points = 0;
};

//! Cells of an octree.
struct DrawnCells {
  std::vector<Octree::Cell> cells;  //!< In the frame of the shape, metres.
  //! Of the octree itself.
  std::size_t num_cells = 0;
};

//! A shape as it is drawn: solids as they are, what has many parts thinned.
using DrawnShape = std::variant<SphereObstacle, BoxObstacle, CylinderObstacle, CapsuleObstacle,
                                HalfSpaceObstacle, ConeObstacle, DrawnMesh, DrawnPoints, DrawnCells>;

}  // namespace kavo::formats
