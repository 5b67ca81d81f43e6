#pragma once

#include <optional>
#include <vector>

#include "apps/kavo/path_checking.h"
#include "apps/kavo/situation.h"
#include "kavo/formats/plan_record.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/interface/stage.h"

namespace kavo::command {

//! One seed's try at one query.
struct Attempt {
  planning::MotionPlannerConfig config;
  Query query;
  MotionPlanner::Results results;
  std::vector<StagedResults::Part> parts;
  QueryReport report;
  //! Empty unless they are to be shown.
  std::vector<formats::SearchDrawing> searches;
  //! Empty without a path, and where none is wanted.
  std::optional<CheckedPath> check;

  bool IsGood() const { return results.path_found && (!check || check->record.passed); }
};

}  // namespace kavo::command
