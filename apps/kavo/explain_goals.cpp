#include "apps/kavo/explain_goals.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <variant>

#include "apps/kavo/explain.h"
#include "apps/kavo/reach.h"
#include "apps/kavo/text.h"
#include "kavo/kinematics/interface/inverse_kinematics.h"
#include "kavo/motion_planning/interface/query_report.h"

namespace kavo::command {

namespace {

std::string Angle(double radians) { return Number(radians * 180.0 / M_PI, 3) + " degrees"; }

std::string Percent(double fraction) { return Number(std::floor(1000.0 * fraction) / 10.0, 3) + " %"; }

// What is less than anybody could measure is not told apart.
std::string SmallDistance(double metres) { return metres < 1e-6 ? "less than 0.001 mm" : Distance(metres); }
std::string SmallAngle(double radians) { return radians < 1e-5 ? "less than 0.001 degrees" : Angle(radians); }

std::string ExplainFault(const std::optional<planning::ConfigurationFault>& fault,
                         const RobotDescription& robot) {
  return fault ? Explain(*fault, robot) : "it is too near to a contact to prove a motion";
}

// Whether a goal asks for just one position of its frame.
bool HasPosition(const PoseGoal& goal) {
  return goal.free_translations == std::array{false, false, false} && goal.regions.empty() &&
         goal.tool.translation().isZero(0.0);
}

}  // namespace

std::string Describe(const Goal& goal) {
  if (const auto* q = std::get_if<Eigen::VectorXd>(&goal)) {
    return "configuration " + Configuration(*q);
  }
  if (const auto* range = std::get_if<ConfigurationGoal>(&goal)) {
    return "configuration " + Configuration(range->configuration) + " within tolerances";
  }
  const PoseGoal& pose = std::get<PoseGoal>(goal);
  return (pose.IsPosition() ? "position " : "pose ") + Configuration(pose.pose.translation()) +
         " of frame '" + Printable(pose.frame) + "'";
}

std::string Explain(const GoalReport& report, const Goal& goal, const RobotDescription& robot) {
  if (report.num_configurations > 0) {
    return {};
  }
  if (report.nearest) {
    const PoseGoal& pose = std::get<PoseGoal>(goal);
    const Reach reach = FindReach(robot, pose.frame);
    const double distance = (pose.pose.translation() - reach.center).norm();
    return distance > reach.distance && HasPosition(pose)
               ? ExplainReach(reach, distance, pose.frame) + ": out of reach"
               : "no configuration was found in " + std::to_string(report.num_restarts) + " tries, " +
                     kavo::Explain(robot, *report.nearest);
  }
  std::string text;
  if (report.num_rejected > 1) {
    text = "of " + std::to_string(report.num_rejected) + " configurations none is valid, in the first ";
  }
  if (report.num_not_accepted > 0) {
    return "from none of " + std::to_string(report.num_not_accepted) +
           " valid configurations can the lines that follow be gone";
  }
  if (report.fault || report.is_too_close) {
    return text + ExplainFault(report.fault, robot);
  }
  // None where the query ended before the goal had its turn.
  return report.num_restarts == 0 ? ""
                                  : "what was found in " + std::to_string(report.num_restarts) +
                                        " tries is not within the tolerances";
}

std::string Explain(const planning::LineMotion& line, const RobotDescription& robot) {
  using End = planning::LineMotion::End;
  const std::string where = "after " + Percent(line.fraction) + " of the line ";
  switch (line.end) {
    case End::kComplete:
      return "within " + Distance(line.deviation) + " and " + Angle(line.angle) + " of the line";
    case End::kInvalidStart:
      return "its start is not valid: " + ExplainFault(line.fault, robot);
    case End::kUnreachable:
      return where + "the frame gets no farther: at the next waypoint, " +
             (line.nearest ? kavo::Explain(robot, *line.nearest) : std::string());
    case End::kJump:
      return where + "joint '" + Printable(robot.cSpaceCoordName(line.jumping.value_or(0))) +
             "' would have to jump";
    case End::kContact:
      return where + "something is in the way: " + ExplainFault(line.fault, robot);
    case End::kAstray:
      return where + "the frame would stray from it between any two waypoints, most by joint '" +
             Printable(robot.cSpaceCoordName(line.jumping.value_or(0))) + "'";
    case End::kStopped:
      break;
  }
  return where + "it was stopped";
}

std::string ExplainEnd(const PoseGoal& goal, const Eigen::VectorXd& q, const RobotDescription& robot) {
  const auto kinematics = robot.kinematics();
  const PoseError error = ErrorOf(goal, kinematics->pose(q, kinematics->frame(goal.frame)) * goal.tool);
  return "frame '" + Printable(goal.frame) + "' ends " + SmallDistance(error.position) +
         (goal.IsPosition() ? " from the target"
                            : " and " + SmallAngle(error.orientation) + " from the pose");
}

std::string ExplainStages(const Query& query, const std::vector<StagedResults::Part>& parts,
                          const std::vector<Eigen::VectorXd>& path, const RobotDescription& robot) {
  std::string text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const StagedResults::Part& part = parts[i];
    const std::vector<Goal>& goals = query.stages[i].goals;
    std::string line;
    if (goals.size() > 1) {
      line = part.goal ? "goal " + std::to_string(*part.goal + 1) + " of " + std::to_string(goals.size()) +
                             " reached: " + Describe(goals[*part.goal])
                       : "none of " + std::to_string(goals.size()) + " goals reached";
    } else if (query.stages.size() > 1 || part.line) {
      line = (part.line ? "line to " : "to ") + Describe(goals.front());
    }
    if (part.line) {
      line += ": " + Explain(*part.line, robot);
    } else if (!part.goal && !line.empty()) {
      line += std::string(": ") + ToString(part.report.status);
    }
    if (part.goal && !path.empty() && std::holds_alternative<PoseGoal>(goals[*part.goal])) {
      line += (line.empty() ? "" : "; ") +
              ExplainEnd(std::get<PoseGoal>(goals[*part.goal]), path[part.last], robot);
    }
    if (query.stages.size() > 1) {
      line = "stage " + std::to_string(i + 1) + " of " + std::to_string(query.stages.size()) +
             (path.empty() ? ", "
                           : ", waypoints " + std::to_string(part.first + 1) + " to " +
                                 std::to_string(part.last + 1) + ", ") +
             line;
    }
    text += line.empty() ? "" : line + "\n";
    for (std::size_t k = 0; k < part.report.goals.size(); ++k) {
      if (const std::string why = Explain(part.report.goals[k], goals[k], robot); !why.empty()) {
        text += "  " + (goals.size() > 1 ? "goal " + std::to_string(k + 1) + " left out: " : "") + why + "\n";
      }
    }
    if (part.ahead) {
      text += "  the one that got farthest, in stage " + std::to_string(part.ahead->stage + 1) + ": " +
              Explain(part.ahead->line, robot) + "\n";
    }
  }
  return text;
}

}  // namespace kavo::command
