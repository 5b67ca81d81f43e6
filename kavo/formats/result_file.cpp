#include "kavo/formats/result_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "kavo/formats/csv_internal.h"
#include "kavo/formats/file_error.h"
#include "kavo/formats/json_internal.h"
#include "kavo/formats/text_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::formats {

namespace {

// Keeps the order in which keys are added.
using Json = nlohmann::ordered_json;

template <typename Derived>
Json ToArray(const Eigen::DenseBase<Derived>& v) {
  Json array = Json::array();
  for (const double entry : v) {
    array.push_back(entry);
  }
  return array;
}

Json ToArray(const std::vector<Eigen::VectorXd>& path) {
  Json array = Json::array();
  for (const Eigen::VectorXd& q : path) {
    array.push_back(ToArray(q));
  }
  return array;
}

Json PoseToJson(const Pose3& pose) {
  return {{"position", ToArray(pose.translation())},
          {"orientation", ToArray(Eigen::VectorXd(pose.rotation().coeffs()))}};
}

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
  const auto number = [](const std::optional<double>& value) { return value ? Json(*value) : Json(); };
  if (goal.IsPosition() && goal.position_tolerance) {
    json["position_tolerance"] = *goal.position_tolerance;
  } else if (!goal.IsPosition()) {
    json.update(PoseToJson(goal.pose));
    json["position_tolerance"] = number(goal.position_tolerance);
    json["orientation_tolerance"] = number(goal.orientation_tolerance);
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

// What became of a goal: why it was of no use, if it was of none.
Json GoalReportToJson(const GoalReport& report) {
  Json json = {{"num_configurations", report.num_configurations},
               {"num_rejected", report.num_rejected},
               {"num_not_accepted", report.num_not_accepted},
               {"num_restarts", report.num_restarts},
               {"is_too_close", report.is_too_close}};
  if (report.nearest) {
    json["nearest"] = {{"configuration", ToArray(report.nearest->q)},
                       {"position_error", report.nearest->position_error},
                       {"orientation_error", report.nearest->orientation_error},
                       {"coordinates_at_limits", report.nearest->coordinates_at_limits}};
  }
  if (report.fault && report.fault->limit) {
    json["fault"] = {{"coordinate", report.fault->limit->coordinate}};
  } else if (report.fault && report.fault->contact) {
    json["fault"] = {{"frame", report.fault->contact->frame},
                     {"obstacle", report.fault->contact->obstacle_name}};
  } else if (report.fault && report.fault->self_contact) {
    json["fault"] = {{"frames", report.fault->self_contact->frames}};
  }
  return json;
}

Json StageToJson(const Stage& stage, const StagedResults::Part* part) {
  Json json = {{"kind", stage.line ? "line" : "free"}, {"goals", Json::array()}};
  for (const Goal& goal : stage.goals) {
    json["goals"].push_back(GoalToJson(goal));
  }
  if (part != nullptr) {
    json["goal"] = part->goal ? Json(*part->goal) : Json();
    json["first_waypoint"] = part->first;
    json["last_waypoint"] = part->last;
    json["status"] = planning::ToString(part->report.status);
    for (const GoalReport& report : part->report.goals) {
      json["goal_reports"].push_back(GoalReportToJson(report));
    }
    if (part->line) {
      json["line"] = {{"end", planning::ToString(part->line->end)},
                      {"fraction", part->line->fraction},
                      {"deviation", part->line->deviation},
                      {"angle", part->line->angle}};
    }
  }
  return json;
}

Json StagesToJson(const PlanRecord& record) {
  Json json;
  for (std::size_t i = 0; i < record.stages.size() && !record.parts.empty(); ++i) {
    json.push_back(StageToJson(record.stages[i], i < record.parts.size() ? &record.parts[i] : nullptr));
  }
  return json;
}

Json StatisticsToJson(const QueryReport& report) {
  Json json = {{"search", planning::ToString(report.status)},
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
               {"first_invalid_interpolated", nullptr}};
  if (report.first_invalid_interpolated) {
    json["first_invalid_interpolated"] = *report.first_invalid_interpolated;
  }
  return json;
}

Json NumberOrNull(const std::optional<double>& value) { return value ? Json(*value) : Json(); }

Json CheckToJson(const PlanRecord::Check& check) {
  return {{"passed", check.passed},
          {"verdict", check.verdict},
          {"ignored", check.ignored},
          {"uncovered_links", check.uncovered_links},
          {"cover_tolerance", NumberOrNull(check.cover_tolerance)},
          {"self_collision_pairs", check.num_self_collision_pairs},
          {"step", NumberOrNull(check.step)},
          {"num_configurations", check.num_configurations},
          {"fault", check.fault},
          {"clearance", NumberOrNull(check.clearance)},
          {"self_clearance", NumberOrNull(check.self_clearance)},
          {"tolerance", NumberOrNull(check.tolerance)}};
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
          {"jerk_limits", limits.jerk ? ToArray(*limits.jerk) : Json()}};
}

PathFile ParseJsonPath(const std::string& text, const std::string& file,
                       const std::optional<std::size_t>& run) {
  Json root;
  try {
    root = Json::parse(text);
  } catch (const Json::parse_error& error) {
    const std::size_t end = std::min(error.byte, text.size());
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n');
    throw FileError(file, static_cast<int>(line), std::string("found what is no JSON: ") + error.what());
  } catch (const Json::exception& error) {
    throw FileError(file, 0, std::string("found what is no JSON: ") + error.what());
  }
  const auto expect = [&file](bool holds, const std::string& found, const char* expected) {
    if (!holds) {
      throw FileError(file, 0, "found " + found + ", expected " + expected);
    }
  };
  // By reference: to copy what is nested deeply takes as deep a stack.
  const Json none;
  const auto value_of = [&none](const Json& object, const char* key) -> const Json& {
    const auto found = object.find(key);
    return found == object.end() ? none : *found;
  };
  const Json& runs = value_of(root, "runs");
  if (run) {
    expect(runs.is_array() && *run < runs.size() && runs[*run].is_object(),
           std::to_string(runs.size()) + " `runs`", ("one with the number " + std::to_string(*run)).c_str());
  } else {
    expect(runs.is_null(), std::to_string(runs.size()) + " `runs`", "one path; say which run is meant");
  }
  PathFile path;
  const Json& configurations = value_of(run ? runs[*run] : root, "path");
  expect(configurations.is_array() && !configurations.empty(), "no configuration under `path`",
         "at least one");
  const std::size_t num_coords = configurations[0].size();
  for (std::size_t i = 0; i < configurations.size(); ++i) {
    const Json& values = configurations[i];
    const std::string where = "configuration " + std::to_string(i) + " of `path`";
    expect(values.is_array() && !values.empty() && values.size() == num_coords,
           std::string(values.type_name()) + " of size " + std::to_string(values.size()) + " as " + where,
           "an array of numbers, as long as the others");
    Eigen::VectorXd& q = path.configurations.emplace_back(static_cast<Eigen::Index>(num_coords));
    for (std::size_t j = 0; j < num_coords; ++j) {
      expect(values[j].is_number(), std::string(values[j].type_name()) + " in " + where, "a number");
      q[static_cast<Eigen::Index>(j)] = values[j].get<double>();
    }
  }
  const Json& held_joints = value_of(run ? runs[*run] : root, "held_joints");
  expect(held_joints.is_object() || held_joints.is_null(), held_joints.type_name(),
         "an object as `held_joints`");
  for (const auto& [name, value] : held_joints.items()) {
    expect(value.is_number(), std::string(value.type_name()) + " in `held_joints`", "a number");
    path.held_joints[name] = value.get<double>();
  }
  const Json& names = value_of(root, "joint_names");
  if (names.empty()) {
    return path;
  }
  expect(names.is_array() && names.size() == num_coords,
         std::string(names.type_name()) + " of size " + std::to_string(names.size()) + " as `joint_names`",
         "one name for each coordinate");
  for (const Json& name : names) {
    expect(name.is_string(), std::string(name.type_name()) + " in `joint_names`", "a string");
    path.joint_names.push_back(name.get<std::string>());
  }
  return path;
}

}  // namespace

std::string ToJson(const PlanRecord& record) {
  Json files = Json::array();
  for (const InputFile& file : record.files) {
    files.push_back({{"role", file.role},
                     {"name", file.name},
                     {"sha256", file.sha256.empty() ? Json() : Json(file.sha256)}});
  }
  Json json = {{"version", record.version},
               {"files", files},
               {"robot", record.robot},
               {"joint_names", record.joint_names},
               {"held_joints", record.held_joints},
               {"start", ToArray(record.start)},
               {"target", TargetToJson(record)},
               {"stages", StagesToJson(record)},
               {"settings", Json::object()},
               {"seed", record.seed},
               {"found", record.found},
               {"status", record.status},
               {"path", ToArray(record.path)},
               {"interpolated_path", ToArray(record.interpolated_path)},
               {"statistics", StatisticsToJson(record.statistics)},
               {"check", record.check ? CheckToJson(*record.check) : Json()},
               {"trajectory", record.trajectory ? TrajectoryToJson(*record.trajectory) : Json()}};
  for (const auto& [name, setting] : record.settings) {
    json["settings"][name] = std::visit([](const auto& value) { return Json(value); }, setting);
  }
  return JsonText(json);
}

std::string ToCsv(const std::vector<std::string>& joint_names,
                  const std::vector<Eigen::VectorXd>& configurations) {
  for (const Eigen::VectorXd& q : configurations) {
    KAVO_CHECK(static_cast<std::size_t>(q.size()) == joint_names.size(), "formats/result_file", 140)
        << "A configuration must have one value for each joint name: expected " << joint_names.size()
        << ", got " << q.size() << ".";
  }
  return CsvText({joint_names, configurations});
}

void WriteJson(const PlanRecord& record, const std::string& file) { WriteTextFile(file, ToJson(record)); }

void WriteCsv(const std::vector<std::string>& joint_names, const std::vector<Eigen::VectorXd>& configurations,
              const std::string& file) {
  WriteTextFile(file, ToCsv(joint_names, configurations));
}

PathFile ReadPath(const std::string& file, const std::optional<std::size_t>& run) {
  return ParsePath(ReadTextFile(file, kMaxPathSize), file, run);
}

PathFile ParsePath(const std::string& text, const std::string& file, const std::optional<std::size_t>& run) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (run || (begin != std::string::npos && text[begin] == '{')) {
    return ParseJsonPath(text, file, run);
  }
  CsvTable table = ParseCsv(text, file);
  if (table.rows.empty()) {
    throw FileError(file, 0, "found no configuration, expected at least one");
  }
  return {std::move(table.names), std::move(table.rows), {}};
}

}  // namespace kavo::formats
