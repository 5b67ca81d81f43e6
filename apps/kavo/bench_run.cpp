#include "apps/kavo/bench_run.h"

#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "apps/kavo/attempts.h"
#include "apps/kavo/explain.h"
#include "apps/kavo/interrupt.h"
#include "apps/kavo/progress.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/util/path_check.h"
#include "kavo/motion_planning/util/smoothing.h"
#include "kavo/util/log.h"

namespace kavo::command {

namespace {

Edge Classify(const RobotDescription& robot, const WorldView& world_view, double step_size,
              const Eigen::VectorXd& from, const Eigen::VectorXd& to) {
  if (Length({from, to}) < step_size) {
    return Edge::kShort;
  }
  const Eigen::VectorXd weights = Eigen::VectorXd::Ones(from.size());
  const std::shared_ptr<planning::Environment> environment = planning::CreateRobotEnvironment(
      planning::RobotEnvironmentConfig(&robot, world_view, weights, 1, 1, 1));
  // Short cuts are checked from either end.
  const bool is_free = planning::IsValidPath(environment, step_size, from, to) ||
                       planning::IsValidPath(environment, step_size, to, from);
  return is_free ? Edge::kBetween : Edge::kConnection;
}

void Check(const RobotDescription& robot, const WorldView& world_view, double step_size,
           const std::vector<Eigen::VectorXd>& path, BenchRun& run) {
  const planning::PathCheck check = planning::CheckPath(robot, world_view, path, step_size / 10.0);
  run.passes_check = check.IsValid();
  if (check.first_bad && path.size() > 1) {
    const std::size_t segment = check.first_bad->place.segment;
    run.first_bad_edge = Classify(robot, world_view, step_size, path[segment], path[segment + 1]);
    run.depth = std::max({0.0, check.clearance ? -check.clearance->distance : 0.0,
                          check.self_clearance ? -check.self_clearance->distance : 0.0});
  }
}

MotionPlanner::Results Ask(MotionPlanner& planner, const Query& query) {
  if (const auto* target = std::get_if<formats::PlanRecord::PositionTarget>(&query.target)) {
    planner.setParam("task_space_frame_name", target->frame);
    return planner.planToTaskSpaceTarget(query.start, target->position, false);
  }
  return planner.planToCSpaceTarget(query.start, std::get<Eigen::VectorXd>(query.target), false);
}

void RunOnce(const Problem& problem, const PlannerSettings& settings, const BenchBounds& bounds,
             BenchRun& run) {
  // Every failure is in the result; a hundred warnings would not help. Threads come from a pool, so that the
  // threshold has to be put back.
  const int threshold = std::exchange(util::log_level_threshold, -1);
  const World& world = problem.situation.world;
  const std::shared_ptr<RobotDescription> robot = problem.situation.robot->description;
  const Attempts attempts(bounds.seconds       ? bounds.seconds
                          : bounds.by_requests ? problem.allowed_seconds
                                               : std::nullopt,
                          run.seed, bounds.by_requests ? problem.num_attempts : 1);
  MotionPlanner::Results results;
  for (int attempt = 0; attempts.MayTry(attempt); ++attempt) {
    run.seed = attempts.Seed(attempt);
    const auto planner =
        CreateMotionPlanner(settings.With(run.seed, settings.StepSize()), robot, world.view());
    planner->setStopCondition(attempts.Stop());
    results = Ask(*planner, problem.query);
    run.report = planner->queryReport();
    if (results.path_found || !run.HasValidEnds()) {
      break;
    }
  }
  if (run.report.fault) {
    run.fault = Explain(*run.report.fault, *robot);
  }
  run.found = results.path_found;
  if (run.found) {
    run.path = results.path;
    run.length = Length(results.path);
    Check(*robot, world.view(), settings.StepSize(), results.path, run);
  }
  run.is_done = Signal() == 0;
  util::log_level_threshold = threshold;
}

}  // namespace

const char* ToString(Edge edge) {
  switch (edge) {
    case Edge::kShort:
      return "short";
    case Edge::kConnection:
      return "connection";
    case Edge::kBetween:
      return "between";
  }
  return "unknown";
}

std::vector<BenchRun> RunProblems(const std::vector<Problem>& problems, const PlannerSettings& settings,
                                  const BenchBounds& bounds, int num_repeats, int num_jobs) {
  const Stoppable stoppable;
  const auto repeats = static_cast<std::size_t>(num_repeats);
  std::vector<BenchRun> runs(problems.size() * repeats);
  Progress progress(false);
  std::atomic<std::size_t> num_done{0};
  const tbb::global_control limit(tbb::global_control::max_allowed_parallelism,
                                  static_cast<std::size_t>(num_jobs));
  tbb::parallel_for(std::size_t{0}, runs.size(), [&](std::size_t i) {
    if (Signal() != 0) {
      return;
    }
    BenchRun& run = runs[i];
    run.problem = i / repeats;
    run.seed = settings.Seed() + static_cast<int>(i % repeats);
    RunOnce(problems[run.problem], settings, bounds, run);
    progress.ShowPart(++num_done, runs.size());
  });
  runs.erase(std::remove_if(runs.begin(), runs.end(), [](const BenchRun& run) { return !run.is_done; }),
             runs.end());
  return runs;
}

}  // namespace kavo::command
