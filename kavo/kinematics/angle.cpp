#include <cmath>

#include "kavo/kinematics/angle_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"
#include "kavo/math/constants_internal.h"

namespace kavo::kinematics::internal {

double Angle(double y, double x) {
  const double largest = std::fmax(std::fabs(x), std::fabs(y));
  if (largest == 0.0) {
    return 0.0;
  }
  // Scaled by a power of two, which rounds nothing but what does not count, so that the square of the length
  // neither overflows nor vanishes.
  const int exponent = std::ilogb(largest);
  const double u = std::scalbn(x, -exponent);
  const double v = std::scalbn(y, -exponent);
  if (!std::isfinite(u) || !std::isfinite(v)) {
    return std::nan("");
  }
  const double length = std::sqrt(u * u + v * v);
  // A hundredth off at first; each step leaves about a third of the cube of what is left: sin(angle - guess).
  const double ratio = std::fmin(std::fabs(u), std::fabs(v)) / std::fmax(std::fabs(u), std::fabs(v));
  double angle = ratio * (1.0584 - 0.273 * ratio);
  angle = std::fabs(v) > std::fabs(u) ? 0.5 * math::kPi - angle : angle;
  angle = u < 0.0 ? math::kPi - angle : angle;
  angle = v < 0.0 ? -angle : angle;
  for (int i = 0; i < 3; ++i) {
    double sin = 0.0;
    double cos = 0.0;
    SinCos(angle, &sin, &cos);
    angle += (v * cos - u * sin) / length;
  }
  return std::fmin(angle, math::kPi);
}

}  // namespace kavo::kinematics::internal
