#include "kavo/kinematics/interface/joint_limits.h"

#include <limits>

#include "kavo/math/constants_internal.h"

namespace kavo::kinematics {

bool JointLimits::isUnlimited() const {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  return min == -kInfinity && max == kInfinity;
}

JointLimits JointLimits::samplingRange() const {
  return isUnlimited() ? JointLimits{-math::kPi, math::kPi} : *this;
}

}  // namespace kavo::kinematics
