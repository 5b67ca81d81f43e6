#include "bindings/python/records.h"

#include <map>
#include <string>

namespace kavo::python {

namespace {

using planning::ConfigurationFault;
using planning::PathCheck;

py::tuple Both(const std::string (&frames)[2]) { return py::make_tuple(frames[0], frames[1]); }

std::uint64_t IdOf(const ObstacleHandle& obstacle) { return obstacle.id(); }

py::array_t<std::int64_t> ParentArray(const SearchTree& tree) {
  py::array_t<std::int64_t> parents(static_cast<py::ssize_t>(tree.parents.size()));
  std::int64_t* out = parents.mutable_data();
  for (const std::optional<std::size_t>& parent : tree.parents) {
    *out++ = parent ? static_cast<std::int64_t>(*parent) : -1;
  }
  return parents;
}

}  // namespace

py::handle RecordClass(const char* name) {
  // Never taken down: at exit the interpreter may be gone before it.
  static auto* const classes = new std::map<std::string, py::object>();
  py::object& known = (*classes)[name];
  if (!known) {
    known = py::module_::import("kavo.records").attr(name);
  }
  return known;
}

py::object ToRecord(const ConfigurationFault::Limit& limit) {
  return MakeRecord("LimitFault", limit.coordinate, limit.value, limit.lower, limit.upper);
}

py::object ToRecord(const ConfigurationFault::Contact& contact) {
  return MakeRecord("Contact", contact.frame, contact.sphere, contact.center, contact.radius,
                    IdOf(contact.obstacle), contact.obstacle_name, contact.depth);
}

py::object ToRecord(const ConfigurationFault::SelfContact& contact) {
  return MakeRecord("SelfContact", Both(contact.frames),
                    py::make_tuple(contact.spheres[0], contact.spheres[1]), contact.depth);
}

py::object ToRecord(const ConfigurationFault& fault) {
  return MakeRecord("Fault", fault.limit, fault.contact, fault.self_contact, fault.unplaced_frame);
}

py::object ToRecord(const NearestPose& nearest) {
  return MakeRecord("NearestPose", nearest.q, nearest.position_error, nearest.orientation_error,
                    nearest.coordinates_at_limits);
}

py::object ToRecord(const GoalReport& report) {
  return MakeRecord("GoalReport", report.num_configurations, report.num_rejected, report.num_not_accepted,
                    report.num_restarts, report.fault, report.is_too_close, report.refused, report.nearest);
}

py::object ToRecord(const QueryReport& report) {
  return MakeRecord("QueryReport", planning::ToString(report.status), report.fault, report.num_iterations,
                    report.num_nodes, report.num_validity_checks, report.num_samples_drawn,
                    report.num_samples_rejected, report.num_raw_waypoints, report.raw_length,
                    report.search_seconds, report.shortening_seconds, report.was_shortening_stopped,
                    report.first_invalid_interpolated, report.planner, report.num_motions,
                    report.num_placements, report.num_divisions, report.goals);
}

py::object ToRecord(const planning::PathPlace& place) {
  return MakeRecord("PathPlace", place.segment, place.fraction, place.configuration);
}

py::object ToRecord(const PathCheck::Bad& bad) { return MakeRecord("BadPlace", bad.place, bad.fault); }

py::object ToRecord(const PathCheck::Clearance& clearance) {
  return MakeRecord("Clearance", clearance.distance, clearance.frame, IdOf(clearance.obstacle),
                    clearance.obstacle_name, clearance.place);
}

py::object ToRecord(const PathCheck::SelfClearance& clearance) {
  return MakeRecord("SelfClearance", clearance.distance, Both(clearance.frames), clearance.place);
}

py::object ToRecord(const PathCheck::LimitMargin& margin) {
  return MakeRecord("LimitMargin", margin.distance, margin.coordinate, margin.place);
}

py::object ToRecord(const PathCheck& check) {
  return MakeRecord("PathCheck", check.IsValid(), check.num_configurations, check.num_bad, check.first_bad,
                    check.clearance, check.self_clearance, check.limit_margin, check.was_stopped);
}

py::object ToRecord(const planning::PathProof& proof) {
  return MakeRecord("PathProof", planning::ToString(proof.verdict), proof.bad, proof.clearance,
                    proof.self_clearance, proof.limit_margin, proof.num_placements);
}

py::object ToRecord(const planning::MotionLimits& limits) {
  return MakeRecord("MotionLimits", limits.velocity, limits.acceleration, limits.jerk);
}

py::object ToRecord(const planning::LineMotion& line, Eigen::Index dimension) {
  return MakeRecord("LineMotion", planning::ToString(line.end), ToArray(line.path, dimension), line.fraction,
                    line.deviation, line.angle, line.fault, line.blocked, line.nearest, line.jumping);
}

py::object ToRecord(const StagedResults& results, Eigen::Index dimension) {
  py::list parts;
  for (const StagedResults::Part& part : results.parts) {
    const py::object line = part.line ? ToRecord(*part.line, dimension) : py::none();
    const py::object ahead =
        part.ahead ? MakeRecord("StageAhead", part.ahead->stage, ToRecord(part.ahead->line, dimension))
                   : py::none();
    parts.append(MakeRecord("StagePart", part.first, part.last, part.goal, part.report, line, ahead));
  }
  return MakeRecord("StagedPlan", results.path_found, ToArray(results.path, dimension), parts);
}

py::object ToRecord(const SearchRecord& search, Eigen::Index dimension) {
  py::list trees;
  for (const SearchTree& tree : search.trees) {
    trees.append(MakeRecord("SearchTree", tree.root == SearchTree::Root::kStart ? "start" : "goal",
                            ToArray(tree.nodes, dimension), ParentArray(tree)));
  }
  return MakeRecord("Search", search.planner, trees, ToArray(search.raw_path, dimension));
}

py::object ToRecord(const InverseKinematicsResult& result, Eigen::Index dimension) {
  return MakeRecord("InverseKinematicsResult", ToArray(result.solutions, dimension), result.nearest,
                    result.num_restarts, result.num_filtered);
}

}  // namespace kavo::python
