#include "kavo/world/shapes/inside_grid_internal.h"

#include <algorithm>
#include <cmath>

namespace kavo::internal {

InsideGrid::InsideGrid(const Bounds& bounds, double num_cells) {
  double sides[3];
  double magnitude = 0.0;
  for (int axis = 0; axis < 3; ++axis) {
    low_[axis] = bounds.low[axis];
    sides[axis] = bounds.high[axis] - bounds.low[axis];
    magnitude += std::max(std::fabs(bounds.low[axis]), std::fabs(bounds.high[axis]));
  }
  // Halved until there are enough cells: a flat box has few in one direction.
  size_ = std::max({sides[0], sides[1], sides[2]});
  const auto count_along = [&](int axis) { return std::floor(sides[axis] / size_) + 1.0; };
  for (int i = 0; i < 30 && count_along(0) * count_along(1) * count_along(2) < num_cells / 4.0; ++i) {
    size_ *= 0.5;
  }
  for (int axis = 0; axis < 3; ++axis) {
    counts_[axis] = static_cast<std::size_t>(count_along(axis));
  }
  slack_ = magnitude * 0x1p-16;
  sides_.assign(counts_[0] * counts_[1] * counts_[2], Side::kOutside);
}

std::array<std::size_t, 3> InsideGrid::cellOf(const double* point, double shift) const {
  std::array<std::size_t, 3> cell{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double place = std::floor((point[axis] + shift - low_[axis]) / size_);
    cell[axis] =
        static_cast<std::size_t>(std::min(std::max(place, 0.0), static_cast<double>(counts_[axis]) - 1.0));
  }
  return cell;
}

std::array<double, 3> InsideGrid::middleOf(const std::array<std::size_t, 3>& cell) const {
  std::array<double, 3> middle{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    middle[axis] = low_[axis] + (static_cast<double>(cell[axis]) + 0.5) * size_;
  }
  return middle;
}

}  // namespace kavo::internal
