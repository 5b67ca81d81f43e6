#include "apps/kavo/explain_attempt.h"

#include <cstddef>
#include <variant>
#include <vector>

#include "apps/kavo/explain.h"
#include "apps/kavo/explain_goals.h"
#include "apps/kavo/reach.h"
#include "apps/kavo/text.h"
#include "kavo/motion_planning/rrt/search_status.h"
#include "kavo/world/obstacle.h"

namespace kavo::command {

namespace {

// Whether a fault is a contact with a point cloud or an octree.
bool TouchesWhatWasSeen(const QueryReport& report, const World& world) {
  if (!report.fault || !report.fault->contact) {
    return false;
  }
  const ObstacleShape shape = world.shape(report.fault->contact->obstacle);
  return std::holds_alternative<PointCloudObstacle>(shape) || std::holds_alternative<OctreeObstacle>(shape);
}

}  // namespace

std::string ExplainPath(const Attempt& attempt, const Situation& situation, const std::string& trajectory,
                        bool says_verify) {
  const RobotDescription& robot = *situation.robot->description;
  const std::vector<Eigen::VectorXd>& path = attempt.results.path;
  const QueryReport& report = attempt.report;
  std::string text = HeldJointsText(*situation.robot) + "path found: " + std::to_string(path.size()) +
                     " waypoints, length " + Number(Length(path), 4) + " (before shortening " +
                     std::to_string(report.num_raw_waypoints) + " waypoints, length " +
                     Number(report.raw_length, 4) + ")\n  " + Printable(Join(JointNames(robot), ",")) + "\n";
  for (const Eigen::VectorXd& q : path) {
    text += "  " + Configuration(q) + "\n";
  }
  const Goal& goal = attempt.query.stages.back().goals.front();
  if (!attempt.parts.empty()) {
    text += ExplainStages(attempt.query, attempt.parts, path, robot);
  } else if (const auto* pose = std::get_if<PoseGoal>(&goal)) {
    text += ExplainEnd(*pose, path.back(), robot) + "\n";
  } else if ((path.back() - std::get<Eigen::VectorXd>(goal)).norm() > 1.0) {
    text += "the path ends at the goal but for whole turns of joints without limits\n";
  }
  text += "time: search " + Time(report.search_seconds) + ", shortening " + Time(report.shortening_seconds) +
          "; " + report.planner + ", seed " + std::to_string(attempt.config.seed) + ", " +
          ExplainWork(report) + "\n";
  if (report.was_shortening_stopped) {
    text += "shortening was stopped: the path is as short as it was by then\n";
  }
  if (report.first_invalid_interpolated) {
    text += "interpolated path: NOT valid at its configuration " +
            std::to_string(*report.first_invalid_interpolated + 1) + " of " +
            std::to_string(attempt.results.interpolated_path.size()) + "\n";
  }
  text += trajectory + "check: " + (attempt.check ? attempt.check->text : "none\n");
  if (attempt.check && !attempt.check->record.fault.empty() && says_verify) {
    text += "Try --verify, which plans with other seeds and smaller steps until a path passes.\n";
  }
  return text;
}

std::string ExplainNoPath(const Attempt& attempt, const Situation& situation, bool is_robot_cut_out) {
  const RobotDescription& robot = *situation.robot->description;
  const WorldView world_view = situation.world.view();
  std::string text = HeldJointsText(*situation.robot) + ExplainFailure(attempt.report, robot);
  if (attempt.report.status == planning::SearchStatus::kInvalidStart && !is_robot_cut_out &&
      TouchesWhatWasSeen(attempt.report, situation.world)) {
    text += "  if that is the robot itself, as a sensor saw it: --ignore-robot cuts it out\n";
  }
  if (attempt.report.status == planning::SearchStatus::kStartTooClose) {
    text += "  " + ExplainNearest(robot, world_view, attempt.query.start) + "\n";
  }
  if (!attempt.parts.empty()) {
    return text + ExplainStages(attempt.query, attempt.parts, {}, robot);
  }
  const Goal& goal = attempt.query.stages.front().goals.front();
  const auto* const target = std::get_if<PoseGoal>(&goal);
  if (attempt.report.status == planning::SearchStatus::kTargetTooClose) {
    text += "  " + ExplainNearest(robot, world_view, std::get<Eigen::VectorXd>(goal)) + "\n";
  }
  if (target != nullptr && attempt.report.status == planning::SearchStatus::kIterationsSpent) {
    const Reach reach = FindReach(robot, target->frame);
    const double distance = (target->pose.translation() - reach.center).norm();
    text += "  " + ExplainReach(reach, distance, target->frame) +
            (distance > reach.distance
                 ? ": out of reach\n"
                 : "\nA zone of 0.03 around the target is found far sooner than the default: --set "
                   "task_space_planning_params/x_target_zone_tolerance=0.03,0.03,0.03\n");
  }
  return text;
}

}  // namespace kavo::command
