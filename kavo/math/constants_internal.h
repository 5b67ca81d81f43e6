#pragma once

#include <limits>

namespace kavo::math {

inline constexpr double kPi = 3.141592653589793;
inline constexpr double kTwoPi = 2.0 * kPi;
inline constexpr double kInf = std::numeric_limits<double>::infinity();
inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

}  // namespace kavo::math
