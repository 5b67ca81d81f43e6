#include "apps/kavo/ask.h"

#include <utility>
#include <variant>

#include "apps/kavo/attempt_record.h"
#include "kavo/motion_planning/util/motion_shortening.h"

namespace kavo::command {

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
    answer.report = TotalOf(answer.parts);
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
