#include "kavo/motion_planning/interface/goal.h"

#include <algorithm>
#include <cmath>

#include "kavo/kinematics/angle_internal.h"
#include "kavo/math/constants_internal.h"

namespace kavo {

namespace {

using kinematics::internal::Angle;

double Norm(const Eigen::Vector3d& v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

// How far a point is outside of a solid, in the solid's own frame.
struct Outside {
  Eigen::Vector3d point;

  double operator()(const SphereObstacle& sphere) const { return std::max(Norm(point) - sphere.radius, 0.0); }
  double operator()(const BoxObstacle& box) const {
    return Norm((point.cwiseAbs() - 0.5 * box.size).cwiseMax(0.0));
  }
  double operator()(const CylinderObstacle& cylinder) const {
    const double from_axis = std::sqrt(point[0] * point[0] + point[1] * point[1]);
    return Norm({std::max(from_axis - cylinder.radius, 0.0),
                 std::max(std::fabs(point[2]) - 0.5 * cylinder.height, 0.0), 0.0});
  }
};

// Of a position, which is `off` in the coordinates of the goal's pose.
double PositionError(const PoseGoal& goal, const Eigen::Vector3d& position, Eigen::Vector3d off) {
  if (goal.regions.empty()) {
    for (Eigen::Index i = 0; i < 3; ++i) {
      off[i] = goal.free_translations[static_cast<std::size_t>(i)] ? 0.0 : off[i];
    }
    return Norm(off);
  }
  double least = math::kInf;
  for (const PoseGoal::Region& region : goal.regions) {
    least = std::min(least, std::visit(Outside{region.pose.inverse() * position}, region.shape));
  }
  return least;
}

// How far the worst of the turns about x, y and z that make a rotation is beyond its tolerance.
double BeyondTolerances(const Eigen::Quaterniond& rotation, const PoseGoal::AxisTolerances& tolerances) {
  const auto beyond = [&](const Eigen::Vector3d& turns) {
    return std::max(0.0, (turns.cwiseAbs() - tolerances.angles).maxCoeff());
  };
  if (tolerances.parameterization == PoseGoal::AxisTolerances::Parameterization::kRotationVector) {
    const Eigen::Vector3d axis = rotation.vec();
    const double sine = Norm(axis);
    return beyond(sine > 0.0 ? Eigen::Vector3d(axis * (2.0 * Angle(sine, rotation.w()) / sine))
                             : Eigen::Vector3d(Eigen::Vector3d::Zero()));
  }
  const Eigen::Matrix3d r = Pose3::FromRotation(rotation).matrix();
  const Eigen::Vector3d turns(Angle(-r(1, 2), r(2, 2)),
                              Angle(r(0, 2), std::sqrt(r(1, 2) * r(1, 2) + r(2, 2) * r(2, 2))),
                              Angle(-r(0, 1), r(0, 0)));
  // The same rotation is half a turn more about x, pi less the turn about y, and half a turn more about z.
  return std::min(beyond(turns), beyond(math::kPi - turns.cwiseAbs().array()));
}

double OrientationError(const PoseGoal& goal, const Pose3& off_goal) {
  Eigen::Quaterniond off = off_goal.rotation();
  if (off.w() < 0.0) {
    off.coeffs() = -off.coeffs();
  }
  if (goal.axis_tolerances) {
    return BeyondTolerances(off, *goal.axis_tolerances);
  }
  Eigen::Vector3d sines = off.vec();
  for (Eigen::Index i = 0; i < 3; ++i) {
    sines[i] = goal.free_rotations[static_cast<std::size_t>(i)] ? 0.0 : sines[i];
  }
  const double sine = Norm(sines);
  return 2.0 * Angle(sine, std::sqrt(std::max(0.0, 1.0 - sine * sine)));
}

}  // namespace

PoseError ErrorOf(const PoseGoal& goal, const Pose3& tool) {
  const Pose3 off = goal.pose.inverse() * tool;
  return {PositionError(goal, tool.translation(), off.translation()), OrientationError(goal, off)};
}

}  // namespace kavo
