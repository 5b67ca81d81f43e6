#pragma once

#include <Eigen/Core>
#include <vector>

#include "apps/kavo/progress.h"
#include "apps/kavo/situation.h"
#include "kavo/motion_planning/util/path_check.h"

namespace kavo::command {

//! Checks a path apart from any planner, until a signal comes. Throws `UnusableInput` if that would be so
//! many configurations that it would not end within hours.
//! \param option That gave the step, for the error.
planning::PathCheck CheckAlong(const std::vector<Eigen::VectorXd>& path, const Situation& situation,
                               double step_size, const char* option, Progress& progress);

}  // namespace kavo::command
