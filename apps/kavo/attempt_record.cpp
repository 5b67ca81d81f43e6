#include "apps/kavo/attempt_record.h"

#include <cstddef>
#include <utility>
#include <variant>

#include "apps/kavo/close_look.h"
#include "kavo/formats/robot_drawing.h"
#include "kavo/formats/scene_drawing.h"

namespace kavo::command {

namespace {

// What came of the only stage there is, by a planner that knows of none.
StagedResults::Part OnlyPart(const Attempt& attempt) {
  StagedResults::Part part;
  if (attempt.results.path_found) {
    part.last = attempt.results.path.size() - 1;
    part.goal = 0;
  }
  part.report = attempt.report;
  return part;
}

// That a goal is about, or that one would be.
std::string FrameOfInterest(const Attempt& attempt) {
  const std::vector<Stage>& stages = attempt.query.stages;
  for (auto stage = stages.rbegin(); stage != stages.rend(); ++stage) {
    if (const auto* const pose = std::get_if<PoseGoal>(&stage->goals.front())) {
      return pose->frame;
    }
  }
  return attempt.config.task_space_frame_name;
}

}  // namespace

QueryReport TotalOf(const std::vector<StagedResults::Part>& parts) {
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

std::vector<std::pair<std::string, planning::ParameterValue>> AllSettings(
    const planning::MotionPlannerConfig& config) {
  std::vector<std::pair<std::string, planning::ParameterValue>> settings;
  for (const planning::Parameter& parameter : planning::Parameters()) {
    settings.emplace_back(parameter.name, parameter.value(config));
  }
  return settings;
}

formats::PlanRecord RecordOf(const Attempt& attempt, const Situation& situation, std::string explanation,
                             std::optional<formats::TrajectoryRecord> trajectory, const StopCondition& stop) {
  formats::PlanRecord record;
  record.robot = situation.robot->name;
  record.robot_model = formats::DrawRobot(*situation.robot, situation.held);
  record.robot_model.tip_frame = FrameOfInterest(attempt);
  record.scene = formats::DrawScene(situation.world, situation.base_pose);
  record.held_joints = HeldJoints(*situation.robot);
  record.joint_names = JointNames(*situation.robot->description);
  record.start = attempt.query.start;
  record.stages = attempt.query.stages;
  record.parts = attempt.parts.empty() ? std::vector{OnlyPart(attempt)} : attempt.parts;
  record.settings = AllSettings(attempt.config);
  record.seed = attempt.config.seed;
  record.found = attempt.results.path_found;
  record.status = ToString(attempt.report.status);
  record.path = attempt.results.path;
  record.interpolated_path = attempt.results.interpolated_path;
  record.statistics = attempt.report;
  record.explanation = std::move(explanation);
  if (attempt.check) {
    record.check = attempt.check->record;
  }
  record.trajectory = std::move(trajectory);
  record.searches = attempt.searches;
  record.inspections = InspectAttempt(attempt, situation, stop);
  record.profile = ProfileOf(attempt, situation, record.trajectory, stop);
  return record;
}

}  // namespace kavo::command
