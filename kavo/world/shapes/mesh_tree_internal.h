#pragma once

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "kavo/util/export.h"
#include "kavo/world/shapes/compound_internal.h"
#include "kavo/world/shapes/inside_grid_internal.h"

namespace kavo {

class TriangleMesh;

}  // namespace kavo

namespace kavo::internal {

//! The triangles of a mesh, ready for queries.
class KAVO_EXPORT MeshTree final : public Compound {
 public:
  //! Three corners, those of lesser index in the mesh first: two triangles see an edge between them alike.
  using Corners = std::array<Eigen::Vector3d, 3>;

  //! The point of a mesh nearest to another.
  struct Nearest {
    double distance;
    //! Index in the mesh.
    std::uint32_t triangle;
    Eigen::Vector3d point;
  };

  explicit MeshTree(const TriangleMesh& mesh);

  double signedDistance(const double* point, Interior interior) const override;
  bool touches(const double* point, double radius, double padding, Interior interior) const override;

  //! The nearest triangle, the one that comes first in the mesh among those equally far.
  Nearest nearest(const Eigen::Vector3d& point) const;

  //! Whether a point is inside of a closed piece: where a ray from it crosses the piece an odd number of
  //! times. Rounding may tip it on the surface only, wherever the ray passes.
  bool contains(const double* point) const override;

  //! Cells of a grid that the surface keeps clear of, from the middle of which most of the six rays along the
  //! axes cross it an odd number of times.
  const Compound* filling() const override;

 private:
  template <class IsMarked>
  void mark(InsideGrid& grid, const IsMarked& is_marked) const;
  void fill() const;
  bool crossesOdd(const double* point) const;

  std::vector<Corners> corners_;
  // By place; of the pieces that are not closed none.
  std::vector<std::uint32_t> closed_pieces_;
  Bounds bounds_;
  // Of the closed pieces; empty without any.
  std::optional<InsideGrid> grid_;
  mutable std::once_flag filled_;
  mutable std::unique_ptr<const Compound> filling_;
};

//! The point of a triangle nearest to another, and how far it is.
struct NearInTriangle {
  Eigen::Vector3d point;
  double squared_distance;
};

//! The nearest of the three edges and, where the point is above the triangle, its plane. Distances to
//! triangles as narrow as rounding allows, or without any area, are as exact as others.
KAVO_INTERNAL_EXPORT NearInTriangle NearestInTriangle(const MeshTree::Corners& corners,
                                                      const Eigen::Vector3d& point);

}  // namespace kavo::internal
