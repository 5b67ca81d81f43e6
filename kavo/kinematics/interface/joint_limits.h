#pragma once

#include "kavo/util/export.h"

namespace kavo::kinematics {

//! Closed interval of one c-space coordinate: radians for revolute and continuous joints, metres for
//! prismatic ones. From minus to plus infinity for a joint without limits.
struct KAVO_EXPORT JointLimits {
  double min = 0.0;  //!< Radians or metres.
  double max = 0.0;  //!< Radians or metres.

  //! Whether the bounds are minus and plus infinity.
  bool isUnlimited() const;

  //! Where random values come from: [-pi, pi] for a joint without limits.
  JointLimits samplingRange() const;
};

}  // namespace kavo::kinematics
