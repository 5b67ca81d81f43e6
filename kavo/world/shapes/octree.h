#pragma once

#include <Eigen/Core>
#include <memory>
#include <vector>

#include "kavo/util/export.h"

namespace kavo {

namespace internal {
class CellTree;
}  // namespace internal

//! The occupied cells of an octree: cubes along the axes of its frame. Immutable: instances are shared
//! between all that stands for the same cells, through a `std::shared_ptr<const Octree>`.
//!
//! Cells may have any size and place; that they come from an octree matters to nobody.
//!
//! @code
//! const kavo::Octree octree({{{0.05, 0.05, 0.05}, 0.1}, {{0.2, 0.2, 0.2}, 0.2}});
//! assert(octree.cells().size() == 2);
//! @endcode
class KAVO_EXPORT Octree {
 public:
  //! An occupied cube.
  struct Cell {
    //! In the frame of the octree, metres.
    Eigen::Vector3d center;
    //! Length of an edge.
    double size;
  };

  //! \param cells At least one. A place that is not finite, a size that is not positive and finite, and either
  //!     beyond 1e30 are fatal errors.
  explicit Octree(std::vector<Cell> cells);

  //! In the order given.
  const std::vector<Cell>& cells() const;

  //! For queries; shared by all copies.
  const std::shared_ptr<const internal::CellTree>& tree() const { return tree_; }

 private:
  std::shared_ptr<const internal::CellTree> tree_;
};

}  // namespace kavo
