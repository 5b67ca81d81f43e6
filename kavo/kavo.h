#pragma once

// All that a program needs to plan for an arm: describe it, put up its obstacles, plan, check the path.
// Robots and scenes from files are in `kavo/formats`, the planners' parts for an environment of your own in
// `kavo/motion_planning`.

#include "kavo/kinematics/interface/robot_description.h"
#include "kavo/kinematics/interface/robot_description_builder.h"
#include "kavo/math/pose3.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/time_path.h"
#include "kavo/motion_planning/trajectory/blended_path.h"
#include "kavo/motion_planning/trajectory/jerk_limited.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/trajectory/sample_interpolation.h"
#include "kavo/motion_planning/trajectory/time_optimal.h"
#include "kavo/motion_planning/trajectory/trajectory.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/path_proof.h"
#include "kavo/util/fatal_error.h"
#include "kavo/util/log.h"
#include "kavo/world/world.h"
#include "kavo/world/world_view.h"
