#include <cmath>

#include "kavo/formats/rotation_internal.h"
#include "kavo/kinematics/sin_cos_internal.h"

namespace kavo::formats {

namespace {

constexpr double kHalfPi = 1.5707963267948966;
constexpr double kRounded = 1e-10;
// Beyond it the multiples of the double next to pi/2 are not those of pi/2 any more.
constexpr double kMaxQuarterTurns = 1e5;

struct HalfAngle {
  double sin;
  double cos;
};

HalfAngle HalfAngleOf(double angle) {
  const double quarter_turns = std::nearbyint(angle / kHalfPi);
  if (std::fabs(quarter_turns) <= kMaxQuarterTurns &&
      std::fabs(angle - quarter_turns * kHalfPi) <= kRounded) {
    // Multiples of an eighth of a turn.
    const double root = std::sqrt(0.5);
    const double sines[] = {0.0, root, 1.0, root, 0.0, -root, -1.0, -root};
    const auto eighth = static_cast<unsigned>(static_cast<int>(quarter_turns)) % 8;
    return {sines[eighth], sines[(eighth + 2) % 8]};
  }
  HalfAngle half;
  kinematics::internal::SinCos(0.5 * angle, &half.sin, &half.cos);
  return half;
}

}  // namespace

Eigen::Quaterniond RotationFromRpy(const Eigen::Vector3d& rpy) {
  const HalfAngle roll = HalfAngleOf(rpy[0]);
  const HalfAngle pitch = HalfAngleOf(rpy[1]);
  const HalfAngle yaw = HalfAngleOf(rpy[2]);
  return {roll.cos * pitch.cos * yaw.cos + roll.sin * pitch.sin * yaw.sin,
          roll.sin * pitch.cos * yaw.cos - roll.cos * pitch.sin * yaw.sin,
          roll.cos * pitch.sin * yaw.cos + roll.sin * pitch.cos * yaw.sin,
          roll.cos * pitch.cos * yaw.sin - roll.sin * pitch.sin * yaw.cos};
}

}  // namespace kavo::formats
