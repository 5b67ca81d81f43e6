#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <string>

#include "kavo/world/world_view.h"

namespace kavo::planning {

//! Why a configuration of a robot is not valid.
struct ConfigurationFault {
  //! A coordinate beyond its closed range, or one that is not finite: its index, its value and the range.
  //! Radians, or metres for a prismatic joint.
  struct Limit {
    std::size_t coordinate;  //!< Index, from 0.
    double value;            //!< Perhaps not finite.
    double lower;            //!< Least value allowed.
    double upper;            //!< Greatest value allowed.
  };

  //! A collision sphere of the robot that touches an obstacle.
  struct Contact {
    //! The frame that carries the sphere.
    std::string frame;
    //! Index among the spheres of the frame.
    std::size_t sphere;
    //! Centre in the world, metres.
    Eigen::Vector3d center;
    //! With the padding of the frame, metres.
    double radius;
    //! The obstacle that it reaches deepest into.
    ObstacleHandle obstacle;
    //! Its name, also once it was removed from the world.
    std::string obstacle_name;
    //! How far the sphere reaches into the obstacle; zero where it just touches, negative where a proof
    //! found it too near to tell. Metres.
    double depth;
  };

  //! Two collision spheres of the robot that touch each other, of frames that must not.
  struct SelfContact {
    //! The frames that carry the spheres.
    std::string frames[2];
    //! Index among the spheres of each frame.
    std::size_t spheres[2];
    //! How far the spheres overlap, likewise. Metres.
    double depth;
  };

  //! The first coordinate that breaks its limits. With one, contacts are not looked for.
  std::optional<Limit> limit;
  //! The deepest contact with an obstacle.
  std::optional<Contact> contact;
  //! Without a contact with an obstacle: the deepest one of the robot with itself.
  std::optional<SelfContact> self_contact;
  //! Without any of these: a frame with a sphere whose place is not a finite number.
  std::optional<std::string> unplaced_frame;
};

}  // namespace kavo::planning
