#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace kavo::math {

//! A joint on the way to a point of a robot, and how far it moves that point at most.
struct JointReach {
  //! Index of the joint among those of the robot.
  std::uint32_t joint = 0;
  bool turns = true;
  //! Of a turning joint the largest distance of the point from its axis, of a sliding one the displacement
  //! per unit. Metres, rounded up.
  float reach = 0.0f;
};

//! The joints on the way from a frame to a point, those next to the frame first.
using JointReaches = std::vector<JointReach>;

//! How fast a point moves at most, and how fast its velocity changes, while a robot goes from one
//! configuration to another in one unit of time. Metres.
struct MotionBound {
  float speed = 0.0f;
  float acceleration = 0.0f;

  //! How much a ball of a radius has to be enlarged for its place at two times `spacing` apart to enclose
  //! all of it in between.
  //!
  //! Between the two its centre stays within acceleration * spacing^2 / 8 of the chord, which is no longer
  //! than speed * spacing, and every point within r of a chord of length l lies within
  //! sqrt(r^2 + (l / 2)^2) of one of its ends.
  template <typename Float>
  Float enlarged(Float radius, Float spacing) const {
    const Float half = Float(0.5) * spacing * static_cast<Float>(speed);
    return std::sqrt(radius * radius + half * half) +
           Float(0.125) * spacing * spacing * static_cast<Float>(acceleration);
  }
};

//! The bounds for a point, added to those that are there.
//!
//! The speed is the sum of what all joints give. Of the acceleration a pair of joints gives the product of
//! their rates times the reach of the one that is farther along, counted in both orders, where the nearer
//! one turns; the axis of a sliding joint does not turn with what it carries.
//! \param rates How fast each joint of the robot goes at most (radians or metres), not negative, rounded up.
inline void AddMotion(const JointReaches& joints, const float* rates, MotionBound& bound) {
  float turned = 0.0f;
  for (const JointReach& joint : joints) {
    const float rate = rates[joint.joint];
    // Of an endless slide too, while it stands.
    if (rate > 0.0f) {
      const float speed = rate * joint.reach;
      bound.speed += speed;
      bound.acceleration += speed * (2.0f * turned + (joint.turns ? rate : 0.0f));
      turned += joint.turns ? rate : 0.0f;
    }
  }
}

//! What is added where the robot does not go straight in c-space: each joint then gives the change of its
//! rate times its reach.
//! \param bends How fast the rate of each joint changes at most, not negative, rounded up.
inline void AddBend(const JointReaches& joints, const float* bends, MotionBound& bound) {
  for (const JointReach& joint : joints) {
    if (bends[joint.joint] > 0.0f) {
      bound.acceleration += bends[joint.joint] * joint.reach;
    }
  }
}

}  // namespace kavo::math
