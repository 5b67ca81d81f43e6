#include <nlohmann/json.hpp>
#include <utility>
#include <variant>

#include "kavo/formats/json_internal.h"
#include "kavo/formats/result_file.h"
#include "kavo/formats/result_json_internal.h"

namespace kavo::formats {

namespace {

using Json = ResultJson;

Json RegionToJson(const PoseGoal::Region& region) {
  struct ToJson {
    Json operator()(const BoxObstacle& box) const { return {{"box", ToArray(box.size)}}; }
    Json operator()(const SphereObstacle& sphere) const { return {{"sphere", {{"radius", sphere.radius}}}}; }
    Json operator()(const CylinderObstacle& cylinder) const {
      return {{"cylinder", {{"radius", cylinder.radius}, {"height", cylinder.height}}}};
    }
  };
  Json json = std::visit(ToJson(), region.shape);
  json.update(PoseToJson(region.pose));
  return json;
}

Json GoalToJson(const Eigen::VectorXd& configuration) { return ToArray(configuration); }
Json GoalToJson(const PoseGoal& goal) {
  Json json = {{"frame", goal.frame}, {"position", ToArray(goal.pose.translation())}};
  if (goal.IsPosition() && goal.position_tolerance) {
    json["position_tolerance"] = *goal.position_tolerance;
  } else if (!goal.IsPosition()) {
    json.update(PoseToJson(goal.pose));
    json["position_tolerance"] = ToJsonOrNull(goal.position_tolerance);
    json["orientation_tolerance"] = ToJsonOrNull(goal.orientation_tolerance);
    json["tool"] = PoseToJson(goal.tool);
    json["free_translations"] = goal.free_translations;
    json["free_rotations"] = goal.free_rotations;
    for (const PoseGoal::Region& region : goal.regions) {
      json["regions"].push_back(RegionToJson(region));
    }
    if (goal.axis_tolerances) {
      const bool is_euler =
          goal.axis_tolerances->parameterization == PoseGoal::AxisTolerances::Parameterization::kEulerAngles;
      json["axis_tolerances"] = {{"angles", ToArray(goal.axis_tolerances->angles)},
                                 {"parameterization", is_euler ? "euler_angles" : "rotation_vector"}};
    }
  }
  return json;
}
Json GoalToJson(const ConfigurationGoal& goal) {
  return {{"configuration", ToArray(goal.configuration)},
          {"below", ToArray(goal.below)},
          {"above", ToArray(goal.above)}};
}
Json GoalToJson(const Goal& goal) {
  return std::visit([](const auto& either) { return GoalToJson(either); }, goal);
}

// The goal that was reached in the last stage, or the first one of it.
Json TargetToJson(const PlanRecord& record) {
  if (record.stages.empty() || record.stages.back().goals.empty()) {
    return {};
  }
  const bool is_reached = record.parts.size() == record.stages.size() && record.parts.back().goal;
  return GoalToJson(record.stages.back().goals[is_reached ? *record.parts.back().goal : 0]);
}

Json FaultToJson(const planning::ConfigurationFault& fault) {
  if (fault.limit) {
    return {{"coordinate", fault.limit->coordinate}};
  }
  if (fault.contact) {
    return {{"frame", fault.contact->frame}, {"obstacle", fault.contact->obstacle_name}};
  }
  if (fault.self_contact) {
    return {{"frames", fault.self_contact->frames}};
  }
  return {};
}

Json NearestToJson(const NearestPose& nearest) {
  return {{"configuration", ToArray(nearest.q)},
          {"position_error", nearest.position_error},
          {"orientation_error", nearest.orientation_error},
          {"coordinates_at_limits", nearest.coordinates_at_limits}};
}

// What became of a goal: why it was of no use, if it was of none.
Json GoalReportToJson(const GoalReport& report) {
  return {{"num_configurations", report.num_configurations},
          {"num_rejected", report.num_rejected},
          {"num_not_accepted", report.num_not_accepted},
          {"num_restarts", report.num_restarts},
          {"is_too_close", report.is_too_close},
          {"nearest", report.nearest ? NearestToJson(*report.nearest) : Json()},
          {"fault", report.fault ? FaultToJson(*report.fault) : Json()}};
}

Json LineToJson(const planning::LineMotion& line) {
  return {{"end", planning::ToString(line.end)},
          {"fraction", line.fraction},
          {"deviation", line.deviation},
          {"angle", line.angle}};
}

// \param part Null for a stage that was not come to.
Json StageToJson(const Stage& stage, const StagedResults::Part* part) {
  const auto goal_to_json = [](const Goal& goal) { return GoalToJson(goal); };
  Json json = {{"kind", stage.line ? "line" : "free"}, {"goals", ToArray(stage.goals, goal_to_json)}};
  if (part == nullptr) {
    json.update({{"goal", nullptr},
                 {"first_waypoint", nullptr},
                 {"last_waypoint", nullptr},
                 {"status", nullptr},
                 {"goal_reports", Json::array()},
                 {"line", nullptr}});
  } else {
    json.update({{"goal", ToJsonOrNull(part->goal)},
                 {"first_waypoint", part->first},
                 {"last_waypoint", part->last},
                 {"status", planning::ToString(part->report.status)},
                 {"goal_reports", ToArray(part->report.goals, GoalReportToJson)},
                 {"line", part->line ? LineToJson(*part->line) : Json()}});
  }
  return json;
}

Json StatisticsToJson(const QueryReport& report) {
  return {{"search", planning::ToString(report.status)},
          {"num_iterations", report.num_iterations},
          {"num_nodes", report.num_nodes},
          {"num_validity_checks", report.num_validity_checks},
          {"num_samples_drawn", report.num_samples_drawn},
          {"num_samples_rejected", report.num_samples_rejected},
          {"planner", report.planner},
          {"num_motions", report.num_motions},
          {"num_placements", report.num_placements},
          {"num_divisions", report.num_divisions},
          {"num_raw_waypoints", report.num_raw_waypoints},
          {"raw_length", report.raw_length},
          {"search_seconds", report.search_seconds},
          {"shortening_seconds", report.shortening_seconds},
          {"was_shortening_stopped", report.was_shortening_stopped},
          {"first_invalid_interpolated", ToJsonOrNull(report.first_invalid_interpolated)}};
}

Json CheckToJson(const PlanRecord::Check& check) {
  return {{"passed", check.passed},
          {"verdict", check.verdict},
          {"ignored", check.ignored},
          {"uncovered_links", check.uncovered_links},
          {"cover_tolerance", ToJsonOrNull(check.cover_tolerance)},
          {"self_collision_pairs", check.num_self_collision_pairs},
          {"step", ToJsonOrNull(check.step)},
          {"num_configurations", check.num_configurations},
          {"fault", check.fault},
          {"clearance", ToJsonOrNull(check.clearance)},
          {"self_clearance", ToJsonOrNull(check.self_clearance)},
          {"tolerance", ToJsonOrNull(check.tolerance)}};
}

Json TrajectoryToJson(const TrajectoryRecord& trajectory) {
  const planning::MotionLimits& limits = trajectory.limits;
  return {{"duration", trajectory.duration},
          {"period", trajectory.period},
          {"num_samples", trajectory.num_samples},
          {"waypoint_times", trajectory.waypoint_times},
          {"blend_deviation", trajectory.blend_deviation},
          {"num_blends", trajectory.num_blends},
          {"num_tightened", trajectory.num_tightened},
          {"num_stops", trajectory.num_stops},
          {"verdict", trajectory.verdict},
          {"cubic_deviation", trajectory.cubic_deviation},
          {"quintic_deviation", trajectory.quintic_deviation},
          {"velocity_limits", ToArray(limits.velocity)},
          {"acceleration_limits", ToArray(limits.acceleration)},
          {"jerk_limits", limits.jerk ? ToArray(*limits.jerk) : Json()},
          {"samples",
           {{"times", trajectory.samples.times},
            {"positions", ToArray(trajectory.samples.positions)},
            {"velocities", ToArray(trajectory.samples.velocities)},
            {"accelerations", ToArray(trajectory.samples.accelerations)}}}};
}

Json TreeToJson(const SearchDrawing::Tree& drawing) {
  constexpr double kScale = 1e6;
  const auto node_to_json = [](const Eigen::VectorXd& q) {
    return ToArray(q.unaryExpr([](double value) { return Rounded(value, kScale); }));
  };
  const SearchTree& tree = drawing.tree;
  return {{"root", tree.root == SearchTree::Root::kStart ? "start" : "goal"},
          {"num_nodes", drawing.num_nodes},
          {"nodes", ToArray(tree.nodes, node_to_json)},
          {"parents", ToArray(tree.parents, ToJsonOrNull<std::size_t>)}};
}

Json SearchToJson(const SearchDrawing& search) {
  return {{"planner", search.planner},
          {"raw_path", ToArray(search.raw_path)},
          {"trees", ToArray(search.trees, TreeToJson)}};
}

Json ContactToJson(const ContactRecord& contact) {
  return {{"frame", contact.frame},
          {"sphere", contact.sphere},
          {"obstacle", ToJsonOrNull(contact.obstacle)},
          {"obstacle_index", ToJsonOrNull(contact.obstacle_index)},
          {"other_frame", ToJsonOrNull(contact.other_frame)},
          {"other_sphere", ToJsonOrNull(contact.other_sphere)},
          {"depth", contact.depth}};
}

const char* ToString(InspectionRecord::What what) {
  switch (what) {
    case InspectionRecord::What::kStart:
      return "start";
    case InspectionRecord::What::kGoal:
      return "goal";
    case InspectionRecord::What::kFault:
      return "fault";
    default:
      return "nearest";
  }
}

Json InspectionToJson(const InspectionRecord& inspection) {
  const auto limit_to_json = [](const InspectionRecord::Limit& limit) -> Json {
    return {{"coordinate", limit.coordinate},
            {"value", limit.value},
            {"lower", limit.lower},
            {"upper", limit.upper}};
  };
  return {{"what", ToString(inspection.what)},
          {"goal", ToJsonOrNull(inspection.goal)},
          {"configuration", ToArray(inspection.configuration)},
          {"clearance", ToJsonOrNull(inspection.clearance)},
          {"self_clearance", ToJsonOrNull(inspection.self_clearance)},
          {"contacts", ToArray(inspection.contacts, ContactToJson)},
          {"limits", ToArray(inspection.limits, limit_to_json)}};
}

Json ProfileToJson(const ProfileRecord& profile) {
  const auto contacts_to_json = [](const ProfileRecord::Contacts& contacts) -> Json {
    return {{"sample", contacts.sample}, {"contacts", ToArray(contacts.contacts, ContactToJson)}};
  };
  const auto nearest_to_json = [](const ProfileRecord::Nearest& nearest) {
    return nearest ? Json::array({nearest->first, nearest->second}) : Json();
  };
  return {{"unit", profile.is_in_seconds ? "seconds" : "waypoints"},
          {"at", profile.at},
          {"clearance", ToArray(profile.clearance, ToJsonOrNull<double>)},
          {"nearest", ToArray(profile.nearest, nearest_to_json)},
          {"self_clearance", ToArray(profile.self_clearance, ToJsonOrNull<double>)},
          {"self_nearest", ToArray(profile.self_nearest, nearest_to_json)},
          {"contacts", ToArray(profile.contacts, contacts_to_json)}};
}

}  // namespace

Json ToArray(const std::vector<Eigen::VectorXd>& path) {
  return ToArray(path, [](const Eigen::VectorXd& q) { return ToArray(q); });
}

Json PoseToJson(const Pose3& pose) {
  return {{"position", ToArray(pose.translation())},
          {"orientation", ToArray(Eigen::VectorXd(pose.rotation().coeffs()))}};
}

Json FilesToJson(const std::vector<InputFile>& files) {
  return ToArray(files, [](const InputFile& file) -> Json {
    return {{"role", file.role},
            {"name", file.name},
            {"sha256", file.sha256.empty() ? Json() : Json(file.sha256)}};
  });
}

Json SettingsToJson(const std::vector<std::pair<std::string, PlanRecord::Setting>>& settings) {
  Json json = Json::object();
  for (const auto& [name, setting] : settings) {
    json[name] = std::visit([](const auto& value) { return Json(value); }, setting);
  }
  return json;
}

Json StagesToJson(const std::vector<Stage>& stages, const std::vector<StagedResults::Part>& parts) {
  Json json = Json::array();
  for (std::size_t i = 0; i < stages.size(); ++i) {
    json.push_back(StageToJson(stages[i], i < parts.size() ? &parts[i] : nullptr));
  }
  return json;
}

std::string ToJson(const PlanRecord& record) {
  return JsonText({{"format", kPlanFormat},
                   {"format_version", kFormatVersion},
                   {"version", record.version},
                   {"arguments", record.arguments},
                   {"files", FilesToJson(record.files)},
                   {"robot", record.robot},
                   {"robot_model", RobotToJson(record.robot_model)},
                   {"scene", SceneToJson(record.scene)},
                   {"joint_names", record.joint_names},
                   {"held_joints", record.held_joints},
                   {"start", ToArray(record.start)},
                   {"target", TargetToJson(record)},
                   {"stages", StagesToJson(record.stages, record.parts)},
                   {"settings", SettingsToJson(record.settings)},
                   {"seed", record.seed},
                   {"found", record.found},
                   {"status", record.status},
                   {"explanation", record.explanation},
                   {"path", ToArray(record.path)},
                   {"interpolated_path", ToArray(record.interpolated_path)},
                   {"statistics", StatisticsToJson(record.statistics)},
                   {"check", record.check ? CheckToJson(*record.check) : Json()},
                   {"trajectory", record.trajectory ? TrajectoryToJson(*record.trajectory) : Json()},
                   {"searches", ToArray(record.searches, SearchToJson)},
                   {"inspections", ToArray(record.inspections, InspectionToJson)},
                   {"profile", record.profile ? ProfileToJson(*record.profile) : Json()}});
}

}  // namespace kavo::formats
