#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kavo/motion_planning/environment/configuration_fault.h"
#include "kavo/motion_planning/interface/goal_report.h"
#include "kavo/motion_planning/rrt/search_status.h"

namespace kavo {

//! What the last query of a planner did, and why it found no path if it found none.
struct QueryReport {
  //! How it ended.
  planning::SearchStatus status = planning::SearchStatus::kNone;
  //! For an invalid start or target configuration: what is wrong with it.
  std::optional<planning::ConfigurationFault> fault;
  //! Extensions made.
  std::uint64_t num_iterations = 0;
  //! Nodes in each tree at the end: of the start and of the target, or of configurations and of positions.
  //! Empty where the query ended before the trees were started.
  std::vector<std::uint64_t> num_nodes;
  //! Configurations checked, searching and shortening.
  std::uint64_t num_validity_checks = 0;
  //! Random configurations and positions drawn.
  std::uint64_t num_samples_drawn = 0;
  //! Those of the random configurations that were not valid.
  std::uint64_t num_samples_rejected = 0;
  //! Waypoints of the path before it was shortened; zero where none was found.
  std::uint64_t num_raw_waypoints = 0;
  //! Euclidean length of that path in c-space; zero where none was found.
  double raw_length = 0.0;
  //! How long the search took, by the clock on the wall.
  double search_seconds = 0.0;
  //! How long shortening took, by the clock on the wall.
  double shortening_seconds = 0.0;
  //! Whether the stop condition ended the shortening of the path: it is as short as it was by then.
  bool was_shortening_stopped = false;
  //! The first configuration of `interpolated_path` that is not valid; empty if all are, if none was asked
  //! for, or if the stop condition came before one was found. Finding out counts nowhere above.
  std::optional<std::size_t> first_invalid_interpolated;
  //! What answered: "rrt_connect", "bi_rrt", "jt_rrt" or, along a line, "line"; empty before the first query.
  std::string planner;
  //! Whole motions checked, searching and shortening.
  std::uint64_t num_motions = 0;
  //! Placements of the robot that checking motions took.
  std::uint64_t num_placements = 0;
  //! How often a part of a motion had to be divided.
  std::uint64_t num_divisions = 0;
  //! Of `MotionPlanner::planToGoals`: what became of each goal.
  std::vector<GoalReport> goals;
};

}  // namespace kavo
