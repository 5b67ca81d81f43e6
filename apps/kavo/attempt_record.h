#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/plan_attempt.h"
#include "apps/kavo/situation.h"
#include "kavo/formats/plan_record.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/parameters.h"
#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::command {

//! Of all stages: how the last one ended, with the work of all.
QueryReport TotalOf(const std::vector<StagedResults::Part>& parts);

//! Every setting by name, in the order of `planning::Parameters()`.
std::vector<std::pair<std::string, planning::ParameterValue>> AllSettings(
    const planning::MotionPlannerConfig& config);

//! All that there is to say of an attempt, drawings and a close look included. What made it and the files
//! that it comes from are left to the caller: version, arguments and files.
//! \param explanation What a reader is told of it.
//! \param stop Asked during the close look, which then ends where it got.
formats::PlanRecord RecordOf(const Attempt& attempt, const Situation& situation, std::string explanation,
                             std::optional<formats::TrajectoryRecord> trajectory, const StopCondition& stop);

}  // namespace kavo::command
