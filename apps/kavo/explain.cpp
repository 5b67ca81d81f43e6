#include "apps/kavo/explain.h"

#include <algorithm>
#include <vector>

#include "apps/kavo/text.h"
#include "kavo/math/sphere.h"
#include "kavo/motion_planning/environment/robot_environment_config.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"

namespace kavo::command {

namespace {

std::string Quoted(const std::string& name) { return "'" + Printable(name) + "'"; }

std::string Obstacle(const std::string& name) {
  return name.empty() ? "an obstacle without a name" : Quoted(name);
}

bool IsOfLine(const QueryReport& report) { return report.planner == "line"; }

bool IsOfMotions(const QueryReport& report) {
  return report.planner == ToString(planning::CSpacePlanner::kBiRrt) || IsOfLine(report);
}

// How places along a path are told.
struct Segments {
  std::size_t count;
  // When they begin and end; empty for a path without time.
  const std::vector<double>& times;
};

// "on segment 2 of 3 at 45 %", "at 1.2 s".
std::string Where(const planning::PathPlace& place, const Segments& segments) {
  if (segments.count == 0) {
    return "at the only configuration";
  }
  if (!segments.times.empty()) {
    const double begin = segments.times[place.segment];
    return "at " + Number(begin + place.fraction * (segments.times[place.segment + 1] - begin)) + " s";
  }
  return "on segment " + std::to_string(place.segment + 1) + " of " + std::to_string(segments.count) +
         " at " + Number(place.fraction * 100.0, 3) + " %";
}

std::string Bad(const char* what, const planning::PathCheck::Bad& bad, const RobotDescription& robot,
                const Segments& segments) {
  return std::string("  ") + what + ": " + Where(bad.place, segments) + ", " +
         Configuration(bad.place.configuration) + "\n    " + Explain(bad.fault, robot) + "\n";
}

// The smallest distances along a path, in lines.
template <typename Found>
std::string Nearest(const Found& found, const RobotDescription& robot, const Segments& segments) {
  std::string text;
  if (found.clearance) {
    text += "  smallest clearance: " + Distance(found.clearance->distance) + " between frame " +
            Quoted(found.clearance->frame) + " and " + Obstacle(found.clearance->obstacle_name) + ", " +
            Where(found.clearance->place, segments) + "\n";
  }
  if (found.self_clearance) {
    text += "  smallest clearance from itself: " + Distance(found.self_clearance->distance) +
            " between frames " + Quoted(found.self_clearance->frames[0]) + " and " +
            Quoted(found.self_clearance->frames[1]) + ", " + Where(found.self_clearance->place, segments) +
            "\n";
  }
  if (found.limit_margin) {
    text += "  nearest to a limit: joint " + Quoted(robot.cSpaceCoordName(found.limit_margin->coordinate)) +
            ", " + Number(found.limit_margin->distance, 3) + " from it, " +
            Where(found.limit_margin->place, segments) + "\n";
  }
  return text;
}

}  // namespace

std::string Explain(const planning::ConfigurationFault& fault, const RobotDescription& robot) {
  if (fault.limit) {
    const auto& [coordinate, value, lower, upper] = *fault.limit;
    return "joint " + Quoted(robot.cSpaceCoordName(coordinate)) + " is at " + Number(value) +
           ", outside its limits " + Number(lower) + " and " + Number(upper);
  }
  if (fault.contact) {
    const planning::ConfigurationFault::Contact& contact = *fault.contact;
    return "frame " + Quoted(contact.frame) +
           (contact.depth < 0.0 ? " is " + Distance(-contact.depth) + " from "
                                : " reaches " + Distance(contact.depth) + " into ") +
           Obstacle(contact.obstacle_name) + " (its sphere " + std::to_string(contact.sphere + 1) +
           " of radius " + Number(contact.radius, 3) + " m at " + Configuration(contact.center) + ")";
  }
  if (fault.self_contact) {
    const planning::ConfigurationFault::SelfContact& contact = *fault.self_contact;
    const std::string frames = "frames " + Quoted(contact.frames[0]) + " and " + Quoted(contact.frames[1]);
    return contact.depth < 0.0
               ? frames + " are " + Distance(-contact.depth) + " apart"
               : "the robot touches itself: " + frames + " overlap by " + Distance(contact.depth);
  }
  if (fault.unplaced_frame) {
    return "frame " + Quoted(*fault.unplaced_frame) + " is placed where no number is finite";
  }
  return "it is not valid";
}

std::string ExplainWork(const QueryReport& report) {
  const bool is_of_motions = IsOfMotions(report);
  std::string text = std::to_string(report.num_iterations) + (IsOfLine(report) ? " waypoints, "
                                                              : is_of_motions  ? " samples, "
                                                                               : " extensions, ");
  if (report.num_nodes.size() == 2) {
    text += std::to_string(report.num_nodes[0]) + " and " + std::to_string(report.num_nodes[1]) + " nodes, ";
  }
  if (!is_of_motions) {
    return text + std::to_string(report.num_validity_checks) + " configurations checked";
  }
  return text + std::to_string(report.num_motions) + " motions checked by " +
         std::to_string(report.num_placements) + " placements";
}

std::string ExplainNearest(const RobotDescription& robot, const WorldView& world_view,
                           const Eigen::VectorXd& q) {
  const planning::PathCheck check = planning::CheckPath(robot, world_view, {q}, 1.0);
  if (check.self_clearance &&
      !(check.clearance && check.clearance->distance < check.self_clearance->distance)) {
    return "frames " + Quoted(check.self_clearance->frames[0]) + " and " +
           Quoted(check.self_clearance->frames[1]) + " are " + Distance(check.self_clearance->distance) +
           " apart";
  }
  if (!check.clearance) {
    return "nothing is near";
  }
  const planning::PathCheck::Clearance& clearance = *check.clearance;
  const planning::RobotEnvironmentConfig config(&robot, world_view, Eigen::VectorXd::Ones(q.size()), 1, 1, 1);
  const Pose3 pose = config.Kinematics()->pose(q, config.Kinematics()->frame(clearance.frame));
  const std::vector<math::Sphere> spheres = config.CollisionSpheres(clearance.frame);
  const auto gap = [&](const math::Sphere& sphere) {
    return world_view.nearestObstacle(pose * sphere.center)->distance - sphere.radius;
  };
  const auto nearest =
      std::min_element(spheres.begin(), spheres.end(),
                       [&gap](const math::Sphere& a, const math::Sphere& b) { return gap(a) < gap(b); });
  return "frame " + Quoted(clearance.frame) + " is " + Distance(clearance.distance) + " from " +
         Obstacle(clearance.obstacle_name) + " (its sphere " + std::to_string(nearest - spheres.begin() + 1) +
         " of radius " + Number(nearest->radius, 3) + " m at " + Configuration(pose * nearest->center) + ")";
}

std::string ExplainFailure(const QueryReport& report, const RobotDescription& robot) {
  using planning::SearchStatus;
  const bool is_invalid_start = report.status == SearchStatus::kInvalidStart;
  if (is_invalid_start || report.status == SearchStatus::kInvalidTarget) {
    const std::string advice = report.fault && report.fault->self_contact
                                   ? "  if they may touch: disable their pair in the SRDF ('kavo pairs' "
                                     "works out those that cannot touch "
                                     "or always do), or give --no-self-collision\n"
                                   : "";
    // Of goals each has reasons of its own.
    const std::string what = is_invalid_start          ? "the start is not valid\n"
                             : report.goals.size() > 1 ? "no goal is valid\n"
                                                       : "the goal is not valid\n";
    const std::string why = report.fault           ? Explain(*report.fault, robot)
                            : report.goals.empty() ? "the position is not finite"
                                                   : "";
    return "no path: " + what + (why.empty() ? "" : "  " + why + "\n") + advice;
  }
  if (report.status == SearchStatus::kStartTooClose || report.status == SearchStatus::kTargetTooClose) {
    return std::string("no path: the ") + (report.status == SearchStatus::kStartTooClose ? "start" : "goal") +
           " is valid, but nearer to a contact than " + report.planner + " can prove a motion\n";
  }
  std::string text = std::string("no path: ") + ToString(report.status) + "\n";
  if (report.status == SearchStatus::kNodesSpent) {
    text += "  the trees hold as many nodes as the setting 'max_nodes' allows\n";
  } else if (report.status == SearchStatus::kIterationsSpent) {
    text += "  the setting 'max_iterations' allows no more\n";
  }
  text += "  " + report.planner + " for " + Time(report.search_seconds) + ": " + ExplainWork(report) + "\n";
  // Those of a sequence of its own, a planner of motions counts above.
  if (report.num_samples_drawn > 0 || !IsOfMotions(report)) {
    text += "  " + std::to_string(report.num_samples_drawn) + " samples drawn, " +
            std::to_string(report.num_samples_rejected) + " of them rejected\n";
  }
  return text;
}

std::string Explain(const planning::PathCheck& check, const RobotDescription& robot, const Scope& scope,
                    std::size_t num_segments, double step_size) {
  std::string text = check.IsValid()   ? scope.Verdict(false) + " at all "
                     : check.first_bad ? "NOT valid at " + std::to_string(check.num_bad) + " of "
                                       : "STOPPED before the end, nothing found in the first ";
  text += std::to_string(check.num_configurations) + " configurations, " + Number(step_size) +
          " apart or nearer\n  self-collision: " + scope.SelfCollision() + "\n";
  if (check.first_bad) {
    text += Bad("first bad", *check.first_bad, robot, {num_segments, {}});
  }
  return text + Nearest(check, robot, {num_segments, {}});
}

std::string Explain(const planning::PathProof& proof, const RobotDescription& robot, const Scope& scope,
                    std::size_t num_segments, const planning::PathProofOptions& options,
                    const std::vector<double>& times) {
  using Verdict = planning::PathProof::Verdict;
  std::string text;
  if (proof.IsFree()) {
    text = scope.Verdict(true) + " at every configuration" +
           (scope.has_spheres ? ", sphere by sphere; clearances within " + Distance(options.tolerance) : "");
  } else if (proof.verdict == Verdict::kStopped) {
    text = "STOPPED before the end of the proof, nothing found until then";
  } else {
    text = std::string("NOT proven free: ") + (proof.verdict == Verdict::kTooNear
                                                   ? "comes nearer than " + Distance(options.least_clearance)
                                                   : ToString(proof.verdict));
  }
  text += proof.verdict == Verdict::kBeyondLimits ? "; nothing else was looked at\n"
                                                  : "\n  self-collision: " + scope.SelfCollision() + "\n";
  if (proof.bad) {
    text += Bad("bad", *proof.bad, robot, {num_segments, times});
  }
  return text + Nearest(proof, robot, {num_segments, times});
}

}  // namespace kavo::command
