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
  //! Rounds over the path; nothing is done without. The first one leaves gains below a thirtieth of the
  //! path's length alone, each further one those below half of that. For each of them 128 motions at most are
  //! asked for.
  int effort = kDefaultEffort;
  //! See `Environment::IsValidMotion`; 0 stands for a 32nd of the longest motion of the path.
  double resolution = 0.0;
  //! Asked before every motion.
  StopCondition stop_condition;
};

//! Shortens a path of valid motions. A round of it
//!
//! * goes straight from each waypoint to the last one that a motion leads to. In periodic coordinates it goes
//!   the short way round where it can, and all that follows is turned: the path then ends at its end but for
//!   whole turns;
//! * takes some of the coordinates, halved until it is valid, straight along the whole path, and single ones
//!   along parts of it, while the others stay as they are (partial short cuts; Geraerts and Overmars,
//!   "Creating high-quality paths for motion planning", 2007);
//! * draws waypoints half way towards the straight line between their neighbours, and cuts corners that are
//!   left from the middle of the one motion to the middle of the other.
//!
//! Every motion of the result was found valid by `Environment::IsValidMotion`, from and to just the numbers
//! that the path has, or is one of the path as it came. The path never gets longer (Euclidean, in c-space);
//! its start stays. Equal input gives equal output.
//! \param path At least one configuration of the environment's dimension; otherwise a fatal error.
KAVO_EXPORT ShortenedPath ShortenByMotions(std::vector<Eigen::VectorXd> path, const Environment& environment,
                                           const MotionShorteningOptions& options = {});

//! The waypoints of a path and even divisions between them, no farther apart than `step_size` (Euclidean,
//! positive; otherwise a fatal error) but for rounding.
KAVO_EXPORT std::vector<Eigen::VectorXd> DivideEvenly(const std::vector<Eigen::VectorXd>& path,
                                                      double step_size);

}  // namespace kavo::planning
