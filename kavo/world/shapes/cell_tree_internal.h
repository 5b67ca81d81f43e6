#pragma once

#include <vector>

#include "kavo/world/shapes/compound_internal.h"
#include "kavo/world/shapes/octree.h"

namespace kavo::internal {

//! Cubes along the axes, ready for queries. The signed distance is the least of those to the cubes: inside of
//! several that touch it is the depth in the one where that is largest.
class CellTree final : public Compound {
 public:
  explicit CellTree(std::vector<Octree::Cell> cells);

  double signedDistance(const double* point, Interior interior) const override;
  bool touches(const double* point, double radius, double padding, Interior interior) const override;

  const std::vector<Octree::Cell>& cells() const { return cells_; }

 private:
  double distance(std::uint32_t place, const double* point) const;

  std::vector<Octree::Cell> cells_;
};

}  // namespace kavo::internal
