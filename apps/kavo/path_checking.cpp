#include "apps/kavo/path_checking.h"

#include "apps/kavo/explain.h"
#include "apps/kavo/interrupt.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/path_proof.h"

namespace kavo::command {

CheckedPath CheckAlong(const std::vector<Eigen::VectorXd>& path, const Situation& situation,
                       const std::optional<double>& step_size, Progress& progress) {
  const RobotDescription& robot = *situation.robot->description;
  const Scope& scope = situation.scope;
  const auto stop = [&] {
    progress.ShowTime("checking");
    return Signal() != 0;
  };
  CheckedPath checked;
  formats::PathCheck& record = checked.record;
  record.ignored = scope.Ignored();
  record.uncovered_links = scope.uncovered_links;
  if (scope.cover) {
    record.cover_tolerance = scope.cover->tolerance;
  }
  record.num_self_collision_pairs = scope.num_self_collision_pairs;
  const auto note_clearances = [&](const auto& found) {
    if (found.clearance) {
      record.clearance = found.clearance->distance;
    }
    if (found.self_clearance) {
      record.self_clearance = found.self_clearance->distance;
    }
  };
  if (step_size) {
    const planning::PathCheck check =
        planning::CheckPath(robot, situation.world.view(), path, *step_size, stop);
    record.passed = check.IsValid();
    record.verdict = check.IsValid() ? scope.Verdict(false) : "not valid";
    record.step = *step_size;
    record.num_configurations = check.num_configurations;
    record.fault = check.first_bad ? Explain(check.first_bad->fault, robot) : "";
    note_clearances(check);
    checked.text = Explain(check, robot, scope, path.size() - 1, *step_size);
  } else {
    const planning::PathProofOptions options;
    const planning::PathProof proof = planning::ProvePath(robot, situation.world.view(), path, options, stop);
    record.passed = proof.IsFree();
    record.verdict = proof.IsFree() ? scope.Verdict(true) : ToString(proof.verdict);
    record.tolerance = options.tolerance;
    record.num_configurations = proof.num_placements;
    record.fault = proof.bad ? Explain(proof.bad->fault, robot) : "";
    note_clearances(proof);
    checked.text = Explain(proof, robot, scope, path.size() - 1, options);
  }
  return checked;
}

}  // namespace kavo::command
