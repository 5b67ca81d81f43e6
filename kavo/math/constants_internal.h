#pragma once

namespace kavo::math {

inline constexpr double kPi = 3.141592653589793;

}  // namespace kavo::math
