#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "kavo/util/export.h"

namespace kavo {

//! A rigid transform of space: x -> R x + t, with R the rotation of a unit quaternion.
//!
//! Invariant: |rotation()| = 1 to rounding. Seven doubles. Translations are in metres; quaternion
//! coefficients are stored x y z w.
class KAVO_EXPORT Pose3 {
 public:
  //! The identity transform.
  Pose3() : rotation_(1.0, 0.0, 0.0, 0.0), translation_(0.0, 0.0, 0.0) {}

  //! From a rotation and a translation. The quaternion is scaled to unit length; one that has none (zero,
  //! NaN) gives NaN coefficients.
  Pose3(const Eigen::Quaterniond& rotation, const Eigen::Vector3d& translation);

  static Pose3 Identity() { return {}; }
  static Pose3 FromTranslation(const Eigen::Vector3d& translation);
  static Pose3 FromRotation(const Eigen::Quaterniond& rotation);
  //! From a proper rotation matrix (not checked) and a translation.
  static Pose3 FromMatrix(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& translation);

  Eigen::Quaterniond rotation() const { return rotation_; }
  const Eigen::Vector3d& translation() const { return translation_; }

  //! The rotation as a matrix; its columns are the axes of the transformed frame.
  Eigen::Matrix3d matrix() const;

  //! The transform that undoes this one.
  Pose3 inverse() const;

  //! True when no coefficient is infinite or NaN.
  bool isFinite() const;

 private:
  Eigen::Quaternion<double, Eigen::DontAlign> rotation_;
  Eigen::Vector3d translation_;
};

//! Composition: applies `b` first, then `a`.
KAVO_EXPORT Pose3 operator*(const Pose3& a, const Pose3& b);

//! The transformed point.
KAVO_EXPORT Eigen::Vector3d operator*(const Pose3& pose, const Eigen::Vector3d& point);

}  // namespace kavo
