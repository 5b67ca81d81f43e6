#pragma once

#include <Eigen/Core>

#include "kavo/math/pose3.h"

namespace kavo::math {

//! A rigid transform x -> R x + t with R as a matrix: twelve doubles instead of the seven of `Pose3`, and
//! half the work for each composition or point. Hot loops compute in this form; `Pose3` is the form to store
//! and pass around.
//!
//! Invariant: R is a proper rotation to rounding. Sums run in coordinate order on every target.
struct RigidTransform {
  Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();  //!< R
  Eigen::Vector3d translation = Eigen::Vector3d::Zero();   //!< t, metres

  //! The identity transform.
  RigidTransform() = default;
  //! From a proper rotation matrix (not checked) and a translation, metres.
  RigidTransform(const Eigen::Matrix3d& rotation_in, const Eigen::Vector3d& translation_in)
      : rotation(rotation_in), translation(translation_in) {}
  //! The same transform as a pose.
  explicit RigidTransform(const Pose3& pose) : rotation(pose.matrix()), translation(pose.translation()) {}

  //! The same transform as a pose, its rotation a unit quaternion.
  Pose3 pose() const { return Pose3::FromMatrix(rotation, translation); }
};

//! R v, without the translation.
inline Eigen::Vector3d Rotate(const Eigen::Matrix3d& rotation, const Eigen::Vector3d& v) {
  return {rotation(0, 0) * v[0] + rotation(0, 1) * v[1] + rotation(0, 2) * v[2],
          rotation(1, 0) * v[0] + rotation(1, 1) * v[1] + rotation(1, 2) * v[2],
          rotation(2, 0) * v[0] + rotation(2, 1) * v[1] + rotation(2, 2) * v[2]};
}

//! The transformed point.
inline Eigen::Vector3d operator*(const RigidTransform& transform, const Eigen::Vector3d& point) {
  const Eigen::Vector3d rotated = Rotate(transform.rotation, point);
  return {rotated[0] + transform.translation[0], rotated[1] + transform.translation[1],
          rotated[2] + transform.translation[2]};
}

//! Composition: applies `b` first, then `a`.
inline RigidTransform operator*(const RigidTransform& a, const RigidTransform& b) {
  RigidTransform product;
  for (int column = 0; column < 3; ++column) {
    product.rotation.col(column) = Rotate(a.rotation, b.rotation.col(column));
  }
  product.translation = a * b.translation;
  return product;
}

}  // namespace kavo::math
