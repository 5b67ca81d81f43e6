#pragma once

#include <string>
#include <vector>

#include "kavo/formats/trajectory_file.h"
#include "kavo/motion_planning/trajectory/trajectory.h"

namespace kavo::command {

//! States of a trajectory as they go into a file.
formats::TrajectorySamples SamplesOf(const std::vector<planning::Trajectory::State>& states,
                                     std::vector<std::string> joint_names);

}  // namespace kavo::command
