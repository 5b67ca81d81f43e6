#include "kavo/kinematics/interface/joint_limits.h"

#include "kavo/math/constants_internal.h"

namespace kavo::kinematics {

bool JointLimits::isUnlimited() const { return min == -math::kInf && max == math::kInf; }

JointLimits JointLimits::samplingRange() const {
  return isUnlimited() ? JointLimits{-math::kPi, math::kPi} : *this;
}

}  // namespace kavo::kinematics
