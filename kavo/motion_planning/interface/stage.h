#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <optional>
#include <vector>

#include "kavo/motion_planning/interface/goal.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/util/line_motion.h"

namespace kavo {

//! One of the stages of a motion, such as the way to an object, the approach and the retreat.
struct Stage {
  //! Where the stage is to end: in any one of these.
  std::vector<Goal> goals;
  //! Engaged: the tool goes there on a line, see `MotionPlanner::planLine`; just one goal then, a pose.
  std::optional<planning::LineOptions> line = std::nullopt;
};

//! A motion of several stages.
struct StagedResults {
  //! A line after a stage that cannot be gone from where the stage might end.
  struct Ahead {
    //! Of all stages, from 0.
    std::size_t stage = 0;
    //! How it went; its path is left out.
    planning::LineMotion line;
  };
  //! What became of one stage.
  struct Part {
    //! Index of its first waypoint in the path: the last one of the part before.
    std::size_t first = 0;
    //! Index of its last waypoint.
    std::size_t last = 0;
    //! Which of the goals was reached, if one was.
    std::optional<std::size_t> goal;
    //! Of the query that the stage was.
    QueryReport report;
    //! Of a line how it went; its path is left out.
    std::optional<planning::LineMotion> line;
    //! Of a stage that was not done, where a configuration that it might have ended in was not taken for the
    //! lines after it: the one that got farthest on these.
    std::optional<Ahead> ahead;
  };

  //! Whether all stages are done.
  bool path_found = false;
  //! Waypoints, start first, of the parts that were found, and of a line as far as it goes. Every motion is
  //! proven free.
  std::vector<Eigen::VectorXd> path;
  //! In the order of the stages; the last one is where it failed, if it did.
  std::vector<Part> parts;
};

}  // namespace kavo
