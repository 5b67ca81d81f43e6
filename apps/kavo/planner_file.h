#pragma once

#include <memory>
#include <string>

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"

namespace kavo::command {

//! What a planner file says.
struct PlannerFile {
  planning::MotionPlannerConfig config;
  //! Whether it says what answers queries to a configuration.
  bool names_planner;
};

//! The settings of a planner file. One that names them all is read as the library reads it; one that names
//! only some leaves the others as they are in `defaults`, and a warning names these. Throws `UnusableInput`
//! for a file that cannot be read, a key that is no setting and a value that cannot be used.
PlannerFile ReadPlannerFile(const std::string& file, const RobotDescription& robot,
                            const planning::MotionPlannerConfig& defaults);

}  // namespace kavo::command
