#include "apps/kavo/path_checking.h"

#include <cstddef>
#include <set>
#include <string>

#include "apps/kavo/explain.h"
#include "apps/kavo/text.h"
#include "kavo/motion_planning/trajectory/sample_limits.h"
#include "kavo/motion_planning/util/path_proof.h"

namespace kavo::command {

namespace {

formats::PathCheck RecordFor(const Scope& scope) {
  formats::PathCheck record;
  record.ignored = scope.Ignored();
  record.uncovered_links = scope.uncovered_links;
  if (scope.cover) {
    record.cover_tolerance = scope.cover->tolerance;
  }
  record.num_self_collision_pairs = scope.num_self_collision_pairs;
  return record;
}

template <class Found>
void NoteClearances(const Found& found, CheckedPath& checked) {
  if (found.clearance) {
    checked.record.clearance = found.clearance->distance;
    checked.nearest.push_back(found.clearance->place);
  }
  if (found.self_clearance) {
    checked.record.self_clearance = found.self_clearance->distance;
    checked.nearest.push_back(found.self_clearance->place);
  }
}

// \param prove Makes the proof, with options.
// \param times As `Explain` takes them.
template <class Prove>
CheckedPath CheckByProof(const Prove& prove, const Situation& situation, std::size_t num_segments,
                         const std::vector<double>& times) {
  const RobotDescription& robot = *situation.robot->description;
  const planning::PathProofOptions options;
  const planning::PathProof proof = prove(options);
  CheckedPath checked;
  checked.record = RecordFor(situation.scope);
  checked.record.passed = proof.IsFree();
  checked.record.verdict = proof.IsFree() ? situation.scope.Verdict(true) : ToString(proof.verdict);
  checked.record.tolerance = options.tolerance;
  checked.record.num_configurations = proof.num_placements;
  if (proof.bad) {
    checked.record.fault = Explain(proof.bad->fault, robot);
    checked.bad = proof.bad->place;
  }
  NoteClearances(proof, checked);
  checked.text = Explain(proof, robot, situation.scope, num_segments, options, times);
  return checked;
}

// "velocity between samples: 101 % of its limit, joint 'elbow' at 1.2 of 1.19 at 0.3 s", in a line.
std::string Explain(const planning::RatePeak& peak, const RobotDescription& robot) {
  return std::string("  ") + (peak.is_acceleration ? "acceleration " : "velocity ") +
         (peak.is_interpolated ? "between samples: " : "at samples: ") + (peak.IsBeyond() ? "BEYOND, " : "") +
         Number(100.0 * peak.value / peak.limit, 4) + " % of its limit, joint '" +
         Printable(robot.cSpaceCoordName(peak.coordinate)) + "' with " + Number(peak.value, 4) + " of " +
         Number(peak.limit, 4) + " at " + Number(peak.time) + " s\n";
}

std::string ExplainUnknown(const char* what, const Eigen::VectorXd& limits) {
  const auto num_unknown = limits.size() - limits.array().isFinite().count();
  return num_unknown == 0
             ? ""
             : std::string("  ") + what + ": no limit is known of " + std::to_string(num_unknown) + " of " +
                   std::to_string(limits.size()) + " joints\n";
}

}  // namespace

CheckedPath CheckAlong(const std::vector<Eigen::VectorXd>& path, const Situation& situation,
                       const std::optional<double>& step_size, const StopCondition& stop) {
  const RobotDescription& robot = *situation.robot->description;
  if (!step_size) {
    return CheckByProof(
        [&](const planning::PathProofOptions& options) {
          return planning::ProvePath(robot, situation.world.view(), path, options, stop);
        },
        situation, path.size() - 1, {});
  }
  CheckedPath checked;
  formats::PathCheck& record = checked.record;
  record = RecordFor(situation.scope);
  const planning::PathCheck check =
      planning::CheckPath(robot, situation.world.view(), path, *step_size, stop);
  record.passed = check.IsValid();
  record.verdict = check.IsValid() ? situation.scope.Verdict(false) : "not valid";
  record.step = *step_size;
  record.num_configurations = check.num_configurations;
  if (check.first_bad) {
    record.fault = Explain(check.first_bad->fault, robot);
    checked.bad = check.first_bad->place;
  }
  NoteClearances(check, checked);
  checked.text = Explain(check, robot, situation.scope, path.size() - 1, *step_size);
  return checked;
}

CheckedPath CheckSamples(const std::vector<planning::Trajectory::State>& samples,
                         planning::SampleInterpolation interpolation, const planning::MotionLimits& limits,
                         const Situation& situation, const StopCondition& stop) {
  const RobotDescription& robot = *situation.robot->description;
  std::vector<Eigen::MatrixXd> pieces;
  std::vector<double> times;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    times.push_back(samples[i].time);
    if (i > 0) {
      pieces.push_back(planning::InterpolationCurve(samples[i - 1], samples[i], interpolation));
    }
  }
  if (pieces.empty()) {
    pieces.emplace_back(samples.front().position);
  }
  CheckedPath checked = CheckByProof(
      [&](const planning::PathProofOptions& options) {
        return planning::ProveCurves(robot, situation.world.view(), pieces, options, stop);
      },
      situation, samples.size() - 1, times);
  std::set<std::string> beyond;
  for (const planning::RatePeak& peak : planning::FindRatePeaks(samples, interpolation, limits)) {
    if (peak.IsBeyond()) {
      beyond.insert(peak.is_acceleration ? "acceleration" : "velocity");
    }
    checked.text += Explain(peak, robot);
  }
  checked.text +=
      ExplainUnknown("velocity", limits.velocity) + ExplainUnknown("acceleration", limits.acceleration);
  if (!beyond.empty()) {
    const std::string what = "within limits of " + Join({beyond.begin(), beyond.end()}, " and ");
    checked.text = "NOT " + what + "; " + checked.text;
    if (checked.record.passed) {
      checked.record.passed = false;
      checked.record.verdict = "not " + what;
    }
  }
  return checked;
}

}  // namespace kavo::command
