#pragma once

#include <array>

#include "kavo/math/pose3.h"
#include "kavo/util/export.h"

namespace kavo {

//! Where a frame is to be, and how exactly.
//!
//! A frame has the pose when what remains is within both tolerances. With C the pose of the tool (the pose of
//! the frame times `tool`), the remaining translation is that of `pose`^-1 C, of which the axes that count
//! make one Euclidean length. The remaining rotation is that of `pose`^-1 C, too: as a unit quaternion whose
//! real part is not negative, the part of its vector that counts is as long as the sine of half of the angle.
//! With one free axis this is the angle between the axis as it is and as it is to be. A tolerance above 1e-3
//! is room to move in: solutions are anywhere within it; up to that they are sought in the middle.
struct KAVO_EXPORT PoseTarget {
  //! Of the tool relative to the robot base.
  Pose3 pose;
  //! Of the tool in the frame; identity for the frame itself.
  Pose3 tool = Pose3();
  //! Metres; positive.
  double position_tolerance = 1e-5;
  //! Radians; positive. All of pi and more is no bound.
  double orientation_tolerance = 1e-4;
  //! Along which axes of `pose` the position counts. All false: it is free.
  std::array<bool, 3> position_counts{true, true, true};
  //! About which axes of `pose` the rotation counts: with z false the tool may be turned about the z axis.
  //! All false: it is free.
  std::array<bool, 3> rotation_counts{true, true, true};
};

}  // namespace kavo
