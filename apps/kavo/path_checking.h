#pragma once

#include <Eigen/Core>
#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/situation.h"
#include "kavo/formats/result_file.h"
#include "kavo/motion_planning/trajectory/motion_limits.h"
#include "kavo/motion_planning/trajectory/sample_interpolation.h"
#include "kavo/motion_planning/trajectory/trajectory.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::command {

//! What a look at a path apart from any planner has found.
struct CheckedPath {
  //! In lines, for a reader.
  std::string text;
  //! For a file.
  formats::PathCheck record;
  //! Where it fails: at its first bad configuration, or the worst one that a proof found.
  std::optional<planning::PathPlace> bad;
  //! Where it is nearest to an obstacle, and to itself.
  std::vector<planning::PathPlace> nearest;
};

//! Proves a path, or with a step size checks configurations no farther apart than it.
CheckedPath CheckAlong(const std::vector<Eigen::VectorXd>& path, const Situation& situation,
                       const std::optional<double>& step_size, const StopCondition& stop);

//! Proves what a controller runs that interpolates samples, and looks at how fast it goes.
//! \param samples Ascending in time, see `planning::FindRatePeaks`.
//! \param limits Infinite where none is known.
CheckedPath CheckSamples(const std::vector<planning::Trajectory::State>& samples,
                         planning::SampleInterpolation interpolation, const planning::MotionLimits& limits,
                         const Situation& situation, const StopCondition& stop);

}  // namespace kavo::command
