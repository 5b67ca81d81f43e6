#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "apps/kavo/plan_attempt.h"
#include "apps/kavo/situation.h"
#include "kavo/formats/plan_record.h"
#include "kavo/motion_planning/interface/search_record.h"
#include "kavo/motion_planning/util/stop_condition.h"

namespace kavo::command {

//! Of each search tree, on a page.
constexpr std::size_t kNumNodesShown = 2000;

//! The search with no more than so many nodes of each tree beside its roots; others are evenly left out: a
//! node hangs on the nearest one towards the root that is left.
formats::SearchDrawing Thinned(const SearchRecord& search, std::size_t max_nodes);

//! What is to be seen of an attempt at rest: its start, the goals of the stage that was tried last as far as
//! configurations of them are known, where a line ended early, and what the check of the path complains of.
std::vector<formats::InspectionRecord> InspectAttempt(const Attempt& attempt, const Situation& situation,
                                                      const StopCondition& stop);

//! How near the robot comes to things on the path of an attempt, or on the trajectory made of it; as far as
//! it got before it was stopped. None without a path.
std::optional<formats::ProfileRecord> ProfileOf(const Attempt& attempt, const Situation& situation,
                                                const std::optional<formats::TrajectoryRecord>& trajectory,
                                                const StopCondition& stop);

}  // namespace kavo::command
