#pragma once

#include <Eigen/Core>
#include <variant>

namespace kavo {

//! A ball about the origin of the obstacle's frame. Metres, here and below.
struct SphereObstacle {
  double radius = 0.0;
};

//! A box centred on the origin of the obstacle's frame, sides along its axes.
struct BoxObstacle {
  //! Full side lengths along x, y, z.
  Eigen::Vector3d size = Eigen::Vector3d::Zero();
};

//! A solid cylinder about the z axis of the obstacle's frame, centred on its origin, with flat ends.
struct CylinderObstacle {
  double radius = 0.0;
  //! Distance between the flat ends.
  double height = 0.0;
};

//! All points within `radius` of a segment on the z axis of the obstacle's frame, centred on its origin.
struct CapsuleObstacle {
  double radius = 0.0;
  //! Length of the segment; the capsule is `height` + 2 `radius` long.
  double height = 0.0;
};

//! All points with z <= 0 in the obstacle's frame, such as the floor.
struct HalfSpaceObstacle {};

using ObstacleShape =
    std::variant<SphereObstacle, BoxObstacle, CylinderObstacle, CapsuleObstacle, HalfSpaceObstacle>;

}  // namespace kavo
