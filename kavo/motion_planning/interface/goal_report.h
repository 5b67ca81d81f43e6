#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <optional>

#include "kavo/kinematics/interface/inverse_kinematics.h"
#include "kavo/motion_planning/environment/configuration_fault.h"

namespace kavo {

//! What became of one of several goals.
struct GoalReport {
  //! Configurations of it that the search could end in; none if it was of no use.
  std::uint64_t num_configurations = 0;
  //! Of a pose: configurations that have it and are not valid.
  std::uint64_t num_rejected = 0;
  //! Of a pose: valid configurations that have it and that `PoseGoal::accepts`, or a line that follows,
  //! refused.
  std::uint64_t num_not_accepted = 0;
  //! Of a pose: random restarts of inverse kinematics.
  std::uint64_t num_restarts = 0;
  //! Why it is of no use, if it is: what is wrong with the configuration, or with the first one that has the
  //! pose.
  std::optional<planning::ConfigurationFault> fault;
  //! Valid, but nearer to a contact than any motion to it can be proven.
  bool is_too_close = false;
  //! The configuration that either is said of.
  std::optional<Eigen::VectorXd> refused;
  //! No configuration has the pose: the nearest one.
  std::optional<NearestPose> nearest;
};

}  // namespace kavo
