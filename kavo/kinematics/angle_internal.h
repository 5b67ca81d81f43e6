#pragma once

#include "kavo/util/export.h"

namespace kavo::kinematics::internal {

//! The angle of a direction in the plane from the x axis, in (-pi, pi]; radians. To some units in the last
//! place, and the same bits everywhere: what the system's own routine does not promise. Zero for no
//! direction, NaN for one that is not finite.
KAVO_EXPORT double Angle(double y, double x);

}  // namespace kavo::kinematics::internal
