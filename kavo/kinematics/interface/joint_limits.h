#pragma once

namespace kavo::kinematics {

//! Closed interval of one c-space coordinate: radians for revolute and continuous joints, metres for
//! prismatic ones.
struct JointLimits {
  double min = 0.0;
  double max = 0.0;
};

}  // namespace kavo::kinematics
