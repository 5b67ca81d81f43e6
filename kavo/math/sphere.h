#pragma once

#include <Eigen/Core>

namespace kavo::math {

//! A ball. The frame of the centre is stated by whoever holds the sphere. Metres.
struct Sphere {
  Eigen::Vector3d center = Eigen::Vector3d::Zero();  //!< Metres.
  double radius = 0.0;                               //!< Metres.
};

}  // namespace kavo::math
