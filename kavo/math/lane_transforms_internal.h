#pragma once

#include <cstddef>

namespace kavo::math {

//! Number of placements that are computed at once.
inline constexpr std::size_t kNumLanes = 8;

//! One frame in several placements, one to a lane of wide vectors, in single precision: where it is to within
//! a stated error. Column 3 of a placement is its translation (metres), the others are its rotation.
//!
//! Row by row, because row r of a composed transform needs no other row of the carrying one.
struct alignas(64) LaneTransforms {
  //! Distance between two rows.
  static constexpr std::size_t kRow = 4 * kNumLanes;

  //! The lanes of an entry; row 0 to 2, column 0 to 3.
  float* at(std::size_t row, std::size_t column) { return entries + row * kRow + column * kNumLanes; }
  const float* at(std::size_t row, std::size_t column) const {
    return entries + row * kRow + column * kNumLanes;
  }

  float entries[3 * kRow];
  //! No coordinate of the translation is larger in any lane.
  float reach = 0.0f;
  //! A point of the frame is placed to within `shift_error` + `turn_error` * (|x| + |y| + |z|) of where it
  //! is (metres).
  float shift_error = 0.0f;
  float turn_error = 0.0f;
};

}  // namespace kavo::math
