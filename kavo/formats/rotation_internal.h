#pragma once

#include <Eigen/Core>
#include <Eigen/Geometry>

namespace kavo::formats {

//! Rz(yaw) Ry(pitch) Rx(roll) as a unit quaternion.
//!
//! An angle within 1e-10 of a multiple of pi/2 counts as that multiple: it is one that was rounded when it
//! was written. The matrix of a rotation that is made of such angles alone is exact to 1e-15, so that
//! kinematics recognises a quarter turn.
//! \param rpy Roll, pitch, yaw; radians.
Eigen::Quaterniond RotationFromRpy(const Eigen::Vector3d& rpy);

}  // namespace kavo::formats
