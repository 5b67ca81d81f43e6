#pragma once

#include <random>

#include "kavo/math/pose3.h"
#include "kavo/world/obstacle.h"

namespace kavo::test {

//! Random obstacles and places. The same on every machine, which the standard distributions are not.
class RandomScene {
 public:
  explicit RandomScene(std::uint32_t seed) : engine_(seed) {}

  double uniform(double low, double high) {
    return low + (high - low) * (static_cast<double>(engine_()) * 0x1p-32);
  }

  int integer(int low, int high) {
    return low + static_cast<int>(engine_() % static_cast<std::uint32_t>(high - low + 1));
  }

  Eigen::Vector3d point(double reach) {
    const double x = uniform(-reach, reach);
    const double y = uniform(-reach, reach);
    return {x, y, uniform(-reach, reach)};
  }

  //! A multiple of an eighth of `reach` in each coordinate.
  Eigen::Vector3d gridPoint(double reach) { return (8.0 * point(1.0)).array().round() * reach / 8.0; }

  Pose3 pose(double reach) {
    const Eigen::Vector3d position = point(reach);
    const Eigen::Vector3d axis = point(1.0);
    return Pose3(Eigen::Quaterniond(uniform(-1.0, 1.0), axis[0], axis[1], axis[2]), position);
  }

  //! A sphere, box, cylinder or capsule (0 to 3) with sizes between a tenth of `size` and `size`.
  ObstacleShape bounded(int kind, double size) {
    const double a = uniform(0.1 * size, size);
    const double b = uniform(0.1 * size, size);
    switch (kind) {
      case 0:
        return SphereObstacle{0.5 * a};
      case 1:
        return BoxObstacle{{a, b, uniform(0.1 * size, size)}};
      case 2:
        return CylinderObstacle{0.5 * a, b};
      default:
        return CapsuleObstacle{0.5 * a, b};
    }
  }

 private:
  std::mt19937 engine_;
};

}  // namespace kavo::test
