#pragma once

#include <Eigen/Core>
#include <string>

#include "kavo/kinematics/interface/robot_description.h"

namespace kavo::command {

//! How far a frame can get.
struct Reach {
  //! A point that does not move with the robot: the first joint on the way to the frame. Metres, in the base
  //! frame, as below.
  Eigen::Vector3d center;
  //! The frame is never farther from it.
  double distance;
};

//! From the distances between the joints that carry the frame.
Reach FindReach(const RobotDescription& robot, const std::string& frame);

//! "the target is 2 m from the first joint; frame 'hand' gets no farther from there than 1 m".
std::string ExplainReach(const Reach& reach, double distance, const std::string& frame);

//! The largest distance of the frame from a point among random configurations within the limits; the same in
//! every call.
double SampleReach(const RobotDescription& robot, const std::string& frame, const Eigen::Vector3d& center);

}  // namespace kavo::command
