#pragma once

#include <cstddef>
#include <vector>

#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/trajectory/sample_interpolation.h"
#include "kavo/motion_planning/trajectory/trajectory.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! Where a coordinate uses most of a limit of velocity or acceleration.
struct RatePeak {
  //! Whether the limit is one of acceleration, else of velocity.
  bool is_acceleration = false;
  //! Whether it is of what a controller runs between samples rather than of a sample.
  bool is_interpolated = false;
  //! Index, from 0.
  std::size_t coordinate = 0;
  //! Seconds.
  double time = 0.0;
  //! Absolute; radians or metres per second, or second squared.
  double value = 0.0;
  //! As it was given; in the unit of the value.
  double limit = 0.0;
  //! What is allowed there: the limit at a sample, and more where it is interpolated, see `FindRatePeaks`.
  double allowed = 0.0;

  //! To within rounding, which a trajectory that uses all of its limits needs. Between samples that of times
  //! to nanoseconds counts.
  bool IsBeyond() const { return !(value <= allowed * (is_interpolated ? 1.0 + 1e-3 : 1.0 + 1e-6)); }
};

//! How much of its limits a sampled motion uses at most: in the velocities of samples, the velocities between
//! them, the accelerations of samples and those between, each to within a billionth. Of samples only what the
//! interpolation uses is looked at. What has no limit anywhere (infinity), and what there is none of, is left
//! out.
//!
//! Between samples, an interpolation may well exceed what the motion does that was sampled. So it is only
//! beyond limits where it exceeds what any motion within limits would give: of the acceleration 5/3 of the
//! limit for a cubic and 2.08 of it for a quintic, of the velocity by more than 0.26 and 0.36 of what the
//! limit of acceleration gives in the time between the samples (and by no more than its limit again). These
//! are the integrals of the absolute weights with which the acceleration of the motion enters. Straight
//! interpolation has the mean velocity of the motion, and its change from one sample to the next over half
//! the time of both is a mean of the acceleration: both keep the limits themselves.
//! \param samples Of finite numbers, ascending in time, each later than the one before, with what the
//!     interpolation uses in it; otherwise a fatal error.
//! \param limits Positive, perhaps infinite, one for each coordinate; otherwise a fatal error. A jerk is not looked
//!     at.
KAVO_EXPORT std::vector<RatePeak> FindRatePeaks(const std::vector<Trajectory::State>& samples,
                                                SampleInterpolation interpolation,
                                                const MotionLimits& limits);

}  // namespace kavo::planning
