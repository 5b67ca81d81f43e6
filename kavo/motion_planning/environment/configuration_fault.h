#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <string>

#include "kavo/world/world_view.h"

namespace kavo::planning {

//! Why a configuration of a robot is not valid.
struct ConfigurationFault {
  //! A coordinate beyond its closed range, or one that is not finite.
  struct Limit {
    std::size_t coordinate;
    double value;
    double lower;
    double upper;
  };

  //! A collision sphere of the robot that touches an obstacle.
  struct Contact {
    std::string frame;
    //! Index among the spheres of the frame.
    std::size_t sphere;
    //! Centre in the world, and radius. Metres.
    Eigen::Vector3d center;
    double radius;
    ObstacleHandle obstacle;
    //! How far the sphere reaches into the obstacle; zero where it just touches. Metres.
    double depth;
  };

  //! The first coordinate that breaks its limits. With one, contacts are not looked for.
  std::optional<Limit> limit;
  //! The deepest contact.
  std::optional<Contact> contact;
};

}  // namespace kavo::planning
