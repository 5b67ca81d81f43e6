#pragma once

namespace kavo::math {

inline constexpr double kPi = 3.141592653589793;
inline constexpr double kTwoPi = 2.0 * kPi;

}  // namespace kavo::math
