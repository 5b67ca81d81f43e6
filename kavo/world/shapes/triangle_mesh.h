#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kavo/util/export.h"

namespace kavo {

namespace internal {
class MeshTree;
}  // namespace internal

//! A surface made of triangles, such as the file of a CAD program holds. Immutable: instances are shared
//! between all that stands for the same shape, through a `std::shared_ptr<const TriangleMesh>`.
//!
//! Meshes are taken as they come: open, with holes, of several pieces that may run through each other, faces
//! turned over or repeated. Vertices at one place become one vertex, of equal triangles (whichever way they
//! face) one stays, and triangles with two corners at one place, which bound nothing, are left out.
//!
//! Triangles that share edges make a piece. A piece is closed when every edge of it has an even number of
//! triangles: then it has an inside, whichever way its triangles face.
//!
//! @code
//! const std::vector<Eigen::Vector3d> corners = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
//! const kavo::TriangleMesh tetrahedron(corners, {{0, 1, 2}, {0, 1, 3}, {0, 2, 3}, {1, 2, 3}});
//! assert(tetrahedron.isClosed());
//! const kavo::TriangleMesh without_floor(corners, {{0, 1, 3}, {0, 2, 3}, {1, 2, 3}});
//! assert(without_floor.numOpenEdges() == 3);
//! @endcode
class KAVO_EXPORT TriangleMesh {
 public:
  //! Indices of vertices.
  using Triangle = std::array<std::uint32_t, 3>;

  //! \param vertices Metres, in the frame of the mesh. One that is not finite, or beyond 1e30, is a fatal
  //!     error.
  //! \param triangles An index beyond the vertices is a fatal error, and so is a mesh of which no triangle
  //!     is left.
  TriangleMesh(const std::vector<Eigen::Vector3d>& vertices, const std::vector<Triangle>& triangles);

  //! Those that triangles use, in the order of their first use.
  const std::vector<Eigen::Vector3d>& vertices() const { return vertices_; }
  //! In the order given.
  const std::vector<Triangle>& triangles() const { return triangles_; }

  //! Of each triangle the piece that it belongs to: numbered from 0 on, in the order of their first
  //! triangles.
  const std::vector<std::uint32_t>& pieces() const { return pieces_; }
  //! At least one.
  std::size_t numPieces() const { return num_open_edges_.size(); }
  //! Whether no edge of it is open, so that it has an inside.
  bool isPieceClosed(std::size_t piece) const { return num_open_edges_[piece] == 0; }

  //! Whether all pieces are closed.
  bool isClosed() const { return numOpenEdges() == 0; }
  //! Edges with an odd number of triangles.
  std::size_t numOpenEdges() const;

  //! Distance from a point (frame of the mesh, metres) to the nearest triangle, inside and outside.
  double distance(const Eigen::Vector3d& point) const;

  //! Whether a point is inside of a closed piece. Points on the surface may be either.
  bool contains(const Eigen::Vector3d& point) const;

  //! For queries; shared by all copies.
  const std::shared_ptr<const internal::MeshTree>& tree() const { return tree_; }

 private:
  void findPieces();

  std::vector<Eigen::Vector3d> vertices_;
  std::vector<Triangle> triangles_;
  std::vector<std::uint32_t> pieces_;
  // Of each piece.
  std::vector<std::size_t> num_open_edges_;
  std::shared_ptr<const internal::MeshTree> tree_;
};

}  // namespace kavo
