#include <cmath>
#include <iostream>

#include "kavo/math/bounding_sphere.h"
#include "kavo/math/pose3.h"

int main() {
  const kavo::Pose3 shift = kavo::Pose3::FromTranslation({1.0, 0.0, 0.0});
  const Eigen::Vector3d moved = shift * shift * Eigen::Vector3d(0.0, 1.0, 0.0);
  const auto sphere = kavo::math::ComputeBoundingSphere({{{0.0, 0.0, 0.0}, 1.0}, {{4.0, 0.0, 0.0}, 1.0}});
  const bool is_good = moved == Eigen::Vector3d(2.0, 1.0, 0.0) && std::abs(sphere.radius - 3.0) < 1e-9;
  std::cout << sphere.center.transpose() << ", " << sphere.radius << "\n";
  return is_good ? 0 : 1;
}
