#pragma once

#include <Eigen/Core>
#include <vector>

#include "apps/kavo/progress.h"
#include "apps/kavo/situation.h"
#include "kavo/motion_planning/util/path_check.h"

namespace kavo::command {

//! Checks a path apart from any planner, until a signal comes.
planning::PathCheck CheckAlong(const std::vector<Eigen::VectorXd>& path, const Situation& situation,
                               double step_size, Progress& progress);

}  // namespace kavo::command
