#include "apps/kavo/ask.h"

#include <utility>
#include <variant>

#include "kavo/motion_planning/util/motion_shortening.h"

namespace kavo::command {

namespace {

QueryReport Total(const std::vector<StagedResults::Part>& parts) {
  QueryReport total = parts.back().report;
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    const QueryReport& report = parts[i].report;
    total.num_iterations += report.num_iterations;
    total.num_validity_checks += report.num_validity_checks;
    total.num_motions += report.num_motions;
    total.num_placements += report.num_placements;
    total.num_divisions += report.num_divisions;
    // The last waypoint of the one is the first of the next.
    total.num_raw_waypoints += report.num_raw_waypoints - 1;
    total.raw_length += report.raw_length;
    total.search_seconds += report.search_seconds;
    total.shortening_seconds += report.shortening_seconds;
    total.was_shortening_stopped = total.was_shortening_stopped || report.was_shortening_stopped;
  }
  total.num_nodes.clear();
  return total;
}

}  // namespace

Goal WithoutTolerances(const Goal& goal) {
  const auto* const range = std::get_if<ConfigurationGoal>(&goal);
  return range != nullptr ? Goal(range->configuration) : goal;
}

bool NeedsMotions(const Query& query) {
  const Stage& first = query.stages.front();
  const auto* const pose = std::get_if<PoseGoal>(&first.goals.front());
  return query.stages.size() > 1 || first.line || first.goals.size() > 1 ||
         (pose != nullptr && !pose->IsPosition());
}

Answer Ask(MotionPlanner& planner, const planning::MotionPlannerConfig& config, const Query& query,
           bool interpolates) {
  const Stage& first = query.stages.front();
  if (query.stages.size() > 1 || first.line) {
    StagedResults staged = planner.planStages(query.start, query.stages);
    Answer answer;
    answer.parts = std::move(staged.parts);
    answer.report = Total(answer.parts);
    if (staged.path_found) {
      answer.results.path_found = true;
      answer.results.path = std::move(staged.path);
      if (interpolates) {
        answer.results.interpolated_path = planning::DivideEvenly(answer.results.path, config.step_size);
      }
    }
    return answer;
  }
  if (first.goals.size() == 1) {
    if (const auto* q = std::get_if<Eigen::VectorXd>(&first.goals.front())) {
      MotionPlanner::Results results = planner.planToCSpaceTarget(query.start, *q, interpolates);
      return {std::move(results), planner.queryReport(), {}};
    }
    const auto* const pose = std::get_if<PoseGoal>(&first.goals.front());
    if (pose != nullptr && pose->IsPosition() && config.planner != planning::CSpacePlanner::kBiRrt) {
      planner.setParam("task_space_frame_name", pose->frame);
      MotionPlanner::Results results =
          planner.planToTaskSpaceTarget(query.start, pose->pose.translation(), interpolates);
      return {std::move(results), planner.queryReport(), {}};
    }
  }
  MotionPlanner::Results results = planner.planToGoals(query.start, first.goals, interpolates);
  Answer answer{std::move(results), planner.queryReport(), {}};
  StagedResults::Part part;
  part.last = answer.results.path_found ? answer.results.path.size() - 1 : 0;
  part.goal = answer.results.goal;
  part.report = answer.report;
  answer.parts.push_back(std::move(part));
  return answer;
}

}  // namespace kavo::command
