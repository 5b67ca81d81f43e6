#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kavo/world/bounds_tree_internal.h"

namespace kavo::internal {

//! A grid over a surface whose cells tell where it is not: all of a cell that the surface keeps clear of is
//! on one side of it.
class InsideGrid {
 public:
  enum class Side : std::uint8_t { kOutside, kInside, kUnknown };

  //! \param num_cells About.
  InsideGrid(const Bounds& bounds, double num_cells);

  //! Calls `is_near(middle, reach)` for the cells that meet a box: where it says that the surface comes
  //! within reach of the middle, the side is unknown.
  template <class IsNear>
  void mark(const Bounds& box, const IsNear& is_near) {
    const std::array<std::size_t, 3> low = cellOf(box.low, -slack_);
    const std::array<std::size_t, 3> high = cellOf(box.high, slack_);
    std::array<std::size_t, 3> cell{};
    for (cell[2] = low[2]; cell[2] <= high[2]; ++cell[2]) {
      for (cell[1] = low[1]; cell[1] <= high[1]; ++cell[1]) {
        for (cell[0] = low[0]; cell[0] <= high[0]; ++cell[0]) {
          Side& side = sides_[indexOf(cell)];
          if (side != Side::kUnknown && is_near(middleOf(cell), std::sqrt(0.75) * size_ + slack_)) {
            side = Side::kUnknown;
          }
        }
      }
    }
  }

  //! Calls `is_inside(middle)` for one cell of each row of those that are not marked.
  template <class IsInside>
  void fill(const IsInside& is_inside) {
    std::array<std::size_t, 3> cell{};
    for (cell[2] = 0; cell[2] < counts_[2]; ++cell[2]) {
      for (cell[1] = 0; cell[1] < counts_[1]; ++cell[1]) {
        Side before = Side::kUnknown;
        for (cell[0] = 0; cell[0] < counts_[0]; ++cell[0]) {
          Side& side = sides_[indexOf(cell)];
          if (side != Side::kUnknown) {
            side = before != Side::kUnknown           ? before
                   : is_inside(middleOf(cell).data()) ? Side::kInside
                                                      : Side::kOutside;
          }
          before = side;
        }
      }
    }
  }

  //! Calls `visit(middle, size)` for the cells that are not marked.
  template <class Visit>
  void visitUnmarked(const Visit& visit) const {
    std::array<std::size_t, 3> cell{};
    for (cell[2] = 0; cell[2] < counts_[2]; ++cell[2]) {
      for (cell[1] = 0; cell[1] < counts_[1]; ++cell[1]) {
        for (cell[0] = 0; cell[0] < counts_[0]; ++cell[0]) {
          if (sides_[indexOf(cell)] != Side::kUnknown) {
            visit(middleOf(cell), size_);
          }
        }
      }
    }
  }

  //! Of a point within the bounds.
  Side sideOf(const double* point) const { return sides_[indexOf(cellOf(point))]; }

 private:
  std::array<std::size_t, 3> cellOf(const double* point, double shift = 0.0) const;
  std::array<double, 3> middleOf(const std::array<std::size_t, 3>& cell) const;
  std::size_t indexOf(const std::array<std::size_t, 3>& cell) const {
    return (cell[2] * counts_[1] + cell[1]) * counts_[0] + cell[0];
  }

  double low_[3];
  double size_ = 0.0;
  // More than what rounding may do to a point.
  double slack_ = 0.0;
  std::size_t counts_[3];
  std::vector<Side> sides_;
};

}  // namespace kavo::internal
