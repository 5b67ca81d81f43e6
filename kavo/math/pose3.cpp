#include "kavo/math/pose3.h"

#include <climits>
#include <cmath>

#include "kavo/math/rigid_transform.h"

// Written out by coordinate: the order of the sums, and so every last bit, is the same on every target.
// Eigen's own quaternion kernels differ between instruction sets.

namespace kavo {

Pose3::Pose3(const Eigen::Quaterniond& rotation, const Eigen::Vector3d& translation)
    : translation_(translation) {
  double x = rotation.x();
  double y = rotation.y();
  double z = rotation.z();
  double w = rotation.w();
  const auto squared_norm = [&] { return x * x + y * y + z * z + w * w; };
  // Where squares would overflow or vanish, lengths of about one by a power of two, which changes no digit.
  if (!(squared_norm() > 1e-280 && squared_norm() < 1e280)) {
    const int exponent =
        std::ilogb(std::fmax(std::fmax(std::fabs(x), std::fabs(y)), std::fmax(std::fabs(z), std::fabs(w))));
    if (exponent != FP_ILOGB0 && exponent != FP_ILOGBNAN && exponent != INT_MAX) {
      for (double* const coefficient : {&x, &y, &z, &w}) {
        *coefficient = std::ldexp(*coefficient, -exponent);
      }
    }
  }
  const double norm = std::sqrt(squared_norm());
  rotation_.x() = x / norm;
  rotation_.y() = y / norm;
  rotation_.z() = z / norm;
  rotation_.w() = w / norm;
}

Pose3 Pose3::FromTranslation(const Eigen::Vector3d& translation) {
  Pose3 pose;
  pose.translation_ = translation;
  return pose;
}

Pose3 Pose3::FromRotation(const Eigen::Quaterniond& rotation) { return {rotation, Eigen::Vector3d::Zero()}; }

Pose3 Pose3::FromMatrix(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& translation) {
  return {Eigen::Quaterniond(rotation), translation};
}

Eigen::Matrix3d Pose3::matrix() const {
  const double x = rotation_.x();
  const double y = rotation_.y();
  const double z = rotation_.z();
  const double w = rotation_.w();
  Eigen::Matrix3d m;
  m << 1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y - w * z), 2.0 * (x * z + w * y),  //
      2.0 * (x * y + w * z), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z - w * x),   //
      2.0 * (x * z - w * y), 2.0 * (y * z + w * x), 1.0 - 2.0 * (x * x + y * y);
  return m;
}

Pose3 Pose3::inverse() const {
  Pose3 result = FromRotation(rotation_.conjugate());
  result.translation_ = -(result * translation_);
  return result;
}

bool Pose3::isFinite() const {
  return std::isfinite(rotation_.x()) && std::isfinite(rotation_.y()) && std::isfinite(rotation_.z()) &&
         std::isfinite(rotation_.w()) && std::isfinite(translation_.x()) && std::isfinite(translation_.y()) &&
         std::isfinite(translation_.z());
}

Pose3 operator*(const Pose3& a, const Pose3& b) {
  const Eigen::Quaterniond p = a.rotation();
  const Eigen::Quaterniond q = b.rotation();
  const Eigen::Quaterniond product(p.w() * q.w() - p.x() * q.x() - p.y() * q.y() - p.z() * q.z(),
                                   p.w() * q.x() + p.x() * q.w() + p.y() * q.z() - p.z() * q.y(),
                                   p.w() * q.y() - p.x() * q.z() + p.y() * q.w() + p.z() * q.x(),
                                   p.w() * q.z() + p.x() * q.y() - p.y() * q.x() + p.z() * q.w());
  return {product, a * b.translation()};
}

Eigen::Vector3d operator*(const Pose3& pose, const Eigen::Vector3d& point) {
  return math::RigidTransform(pose) * point;
}

}  // namespace kavo
