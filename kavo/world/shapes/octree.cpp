#include "kavo/world/shapes/octree.h"

#include <cmath>
#include <utility>

#include "kavo/util/log_message.h"
#include "kavo/world/shapes/cell_tree_internal.h"
#include "kavo/world/solid_internal.h"

namespace kavo {

namespace internal {

namespace {

constexpr char kFile[] = "world/shapes/octree";

Bounds BoundsOf(const Octree::Cell& cell) {
  Bounds bounds{};
  for (int axis = 0; axis < 3; ++axis) {
    bounds.low[axis] = cell.center[axis] - 0.5 * cell.size;
    bounds.high[axis] = cell.center[axis] + 0.5 * cell.size;
  }
  return bounds;
}

}  // namespace

CellTree::CellTree(std::vector<Octree::Cell> cells)
    : Compound(Parts::kCubes, {cells.size(), [&cells](std::size_t i) { return BoundsOf(cells[i]); }}),
      cells_(std::move(cells)) {}

double CellTree::signedDistance(const double* point, Interior) const {
  return least(point, [&](std::uint32_t place) { return distance(place, point); });
}

bool CellTree::touches(const double* point, double radius, double padding, Interior) const {
  return tree().findOverlapping(boundsAround(point, radius + padding), [&](std::uint32_t place) {
    return distance(place, point) - padding <= radius;
  });
}

double CellTree::distance(std::uint32_t place, const double* point) const {
  const Octree::Cell& cell = cells_[tree().items[place]];
  const double half = 0.5 * cell.size;
  const double beyond[3] = {std::fabs(point[0] - cell.center[0]) - half,
                            std::fabs(point[1] - cell.center[1]) - half,
                            std::fabs(point[2] - cell.center[2]) - half};
  return DistanceFromBox(beyond);
}

}  // namespace internal

Octree::Octree(std::vector<Cell> cells) {
  KAVO_CHECK(!cells.empty(), internal::kFile, 60) << "An octree has no cells.";
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const auto& [center, size] = cells[i];
    KAVO_CHECK(center.cwiseAbs().maxCoeff() <= internal::Compound::kLargestLength && center.allFinite() &&
                   size > 0.0 && size <= internal::Compound::kLargestLength,
               internal::kFile, 63)
        << "Cell " << i << " of an octree, of size [" << size << "] at [" << center.transpose()
        << "], must have a positive size and be finite and not too far away.";
  }
  tree_ = std::make_shared<const internal::CellTree>(std::move(cells));
}

const std::vector<Octree::Cell>& Octree::cells() const { return tree_->cells(); }

}  // namespace kavo
