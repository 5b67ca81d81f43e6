#include "kavo/motion_planning/trajectory/motion_limits.h"

#include <algorithm>
#include <cmath>

#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/trajectory/motion_limits";

bool IsUsable(const Eigen::VectorXd& limits, Eigen::Index num_coordinates) {
  return limits.size() == num_coordinates &&
         (limits.array() >= kLeastMotionLimit && limits.array() <= kGreatestMotionLimit).all();
}

}  // namespace

MotionLimits DefaultMotionLimits(const RobotDescription& robot) {
  const auto num_coordinates = static_cast<Eigen::Index>(robot.numCSpaceCoords());
  MotionLimits limits;
  limits.velocity = Eigen::VectorXd::Constant(num_coordinates, kDefaultTurningVelocity);
  limits.acceleration = Eigen::VectorXd::Constant(num_coordinates, kDefaultTurningAcceleration);
  limits.jerk = Eigen::VectorXd::Constant(num_coordinates, kDefaultTurningJerk);
  for (const Eigen::Index i : ExtractSlidingCoordinates(&robot)) {
    limits.velocity[i] = kDefaultSlidingVelocity;
    limits.acceleration[i] = kDefaultSlidingAcceleration;
    (*limits.jerk)[i] = kDefaultSlidingJerk;
  }
  return limits;
}

MotionLimits WithDefaults(const MotionLimits& known, const RobotDescription& robot) {
  MotionLimits limits = DefaultMotionLimits(robot);
  const auto take = [](const Eigen::VectorXd& from, Eigen::VectorXd& to) {
    KAVO_CHECK(from.size() == to.size(), kFile, 30)
        << "Expected limits of " << to.size() << " coordinates, got " << from.size() << ".";
    for (Eigen::Index i = 0; i < to.size(); ++i) {
      if (!std::isinf(from[i])) {
        to[i] = std::min(from[i], kGreatestMotionLimit);
      }
    }
  };
  take(known.velocity, limits.velocity);
  take(known.acceleration, limits.acceleration);
  if (known.jerk) {
    take(*known.jerk, *limits.jerk);
  }
  return limits;
}

MotionLimits FrankaMotionLimits() {
  using Vector7 = Eigen::Matrix<double, 7, 1>;
  MotionLimits limits;
  limits.velocity = (Vector7() << 2.175, 2.175, 2.175, 2.175, 2.61, 2.61, 2.61).finished();
  limits.acceleration = (Vector7() << 15.0, 7.5, 10.0, 12.5, 15.0, 20.0, 20.0).finished();
  limits.jerk = (Vector7() << 7500.0, 3750.0, 5000.0, 6250.0, 7500.0, 10000.0, 10000.0).finished();
  return limits;
}

void ValidateMotionLimits(const MotionLimits& limits, Eigen::Index num_coordinates) {
  KAVO_CHECK(IsUsable(limits.velocity, num_coordinates), kFile, 10)
      << "Limits of velocity must be " << num_coordinates << " numbers from " << kLeastMotionLimit << " to "
      << kGreatestMotionLimit << ", got [" << limits.velocity.transpose() << "].";
  KAVO_CHECK(IsUsable(limits.acceleration, num_coordinates), kFile, 11)
      << "Limits of acceleration must be " << num_coordinates << " numbers from " << kLeastMotionLimit
      << " to " << kGreatestMotionLimit << ", got [" << limits.acceleration.transpose() << "].";
  KAVO_CHECK(!limits.jerk || IsUsable(*limits.jerk, num_coordinates), kFile, 12)
      << "Limits of jerk must be " << num_coordinates << " numbers from " << kLeastMotionLimit << " to "
      << kGreatestMotionLimit << ", got [" << limits.jerk->transpose() << "].";
}

}  // namespace kavo::planning
