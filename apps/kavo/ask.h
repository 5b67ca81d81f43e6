#pragma once

#include <vector>

#include "apps/kavo/situation.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/stage.h"

namespace kavo::command {

//! What a planner makes of a query.
struct Answer {
  MotionPlanner::Results results;
  //! Of several stages: of the last one, with the work of all.
  QueryReport report;
  //! What came of the stages; empty for one with one goal that a planner of one goal was asked for.
  std::vector<StagedResults::Part> parts;
};

//! What a planner of one goal takes instead of a configuration with tolerances: the configuration.
Goal WithoutTolerances(const Goal& goal);

//! Whether a query is for the planner of motions alone.
bool NeedsMotions(const Query& query);

//! Asks the planner in the way that suits the query. One configuration, and one position unless the planner
//! is that of motions, is what a planner of one goal is asked for, in the way that the settings say; all else
//! is for the planner of motions.
//! \param config The settings of the planner.
//! \param interpolates Whether the answer is to hold an interpolated path too.
Answer Ask(MotionPlanner& planner, const planning::MotionPlannerConfig& config, const Query& query,
           bool interpolates);

}  // namespace kavo::command
