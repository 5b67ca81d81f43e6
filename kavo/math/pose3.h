#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

#include "kavo/util/export.h"

namespace kavo {

//! A rigid transform of space: x -> R x + t, with R the rotation of a unit quaternion.
//!
//! Invariant: |rotation()| = 1 to rounding, or a coefficient is NaN. Seven doubles. Translations are
//! in metres; quaternion coefficients are stored x y z w (Eigen's constructor takes w first). What the
//! transform maps from and to is stated by whoever holds it.
//!
//! @code
//! const Eigen::Quaterniond quarter_turn(Eigen::AngleAxisd(M_PI / 2, Eigen::Vector3d::UnitZ()));
//! const kavo::Pose3 pose(quarter_turn, {1.0, 0.0, 0.5});
//! assert((pose * Eigen::Vector3d(2.0, 0.0, 0.0)).isApprox(Eigen::Vector3d(1.0, 2.0, 0.5)));
//! assert((pose.inverse() * pose).isFinite());
//! @endcode
class KAVO_EXPORT Pose3 {
 public:
  //! The identity transform.
  Pose3() : rotation_(1.0, 0.0, 0.0, 0.0), translation_(0.0, 0.0, 0.0) {}

  //! From a rotation and a translation. The quaternion is scaled to unit length; one that cannot be (zero,
  //! infinity, NaN) gives coefficients of which some are NaN. Nothing is an error here: see `isFinite`.
  Pose3(const Eigen::Quaterniond& rotation, const Eigen::Vector3d& translation);

  //! Leaves every point where it is.
  static Pose3 Identity() { return {}; }
  //! Moves by a vector, metres, without turning.
  static Pose3 FromTranslation(const Eigen::Vector3d& translation);
  //! Turns about the origin; the quaternion is scaled to unit length.
  static Pose3 FromRotation(const Eigen::Quaterniond& rotation);
  //! From a proper rotation matrix (not checked) and a translation.
  static Pose3 FromMatrix(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& translation);

  //! The unit quaternion R.
  Eigen::Quaterniond rotation() const { return rotation_; }
  //! The vector t, metres.
  const Eigen::Vector3d& translation() const { return translation_; }

  //! The rotation as a matrix; its columns are the axes of the transformed frame.
  Eigen::Matrix3d matrix() const;

  //! The transform that undoes this one, to rounding.
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
