#pragma once

#include <cstddef>

namespace kavo::math {

//! Number of placements that are computed at once.
inline constexpr std::size_t kNumLanes = 8;

//! One frame in several placements, one to a lane of wide vectors. Column 3 of a placement is its translation
//! (metres), the others are its rotation.
//!
//! Row by row, because row r of a composed transform needs no other row of the carrying one.
struct alignas(64) LaneTransforms {
  //! Distance between two rows.
  static constexpr std::size_t kRow = 4 * kNumLanes;

  //! The lanes of an entry; row 0 to 2, column 0 to 3.
  double* at(std::size_t row, std::size_t column) { return entries + row * kRow + column * kNumLanes; }
  const double* at(std::size_t row, std::size_t column) const {
    return entries + row * kRow + column * kNumLanes;
  }

  double entries[3 * kRow];
};

}  // namespace kavo::math
