#pragma once

#include <Eigen/Core>
#include <vector>

#include "kavo/motion_planning/environment/environment.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/motion_planning/util/stop_condition.h"
#include "kavo/util/export.h"

namespace kavo::planning {

//! The work that paths are shortened with unless asked for otherwise.
inline constexpr int kDefaultEffort = 1;

//! How `ShortenByMotions` works.
struct MotionShorteningOptions {
  //! Work to be spent; nothing is done without.
  int effort = kDefaultEffort;
  //! See `Environment::IsValidMotion`; 0 stands for a 32nd of the longest motion of the path.
  double resolution = 0.0;
  //! Asked before every motion.
  StopCondition stop_condition;
};

//! Shortens a path of motions, each of which is valid, into another one.
//! \param path At least one configuration; otherwise a fatal error.
KAVO_EXPORT ShortenedPath ShortenByMotions(std::vector<Eigen::VectorXd> path, const Environment& environment,
                                           const MotionShorteningOptions& options = {});

//! The waypoints of a path and even divisions between them, no farther apart than `step_size` (Euclidean,
//! positive; otherwise a fatal error) but for rounding.
KAVO_EXPORT std::vector<Eigen::VectorXd> DivideEvenly(const std::vector<Eigen::VectorXd>& path,
                                                      double step_size);

}  // namespace kavo::planning
