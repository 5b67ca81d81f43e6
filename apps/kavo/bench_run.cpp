#include "apps/kavo/bench_run.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <future>
#include <memory>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "apps/kavo/ask.h"
#include "apps/kavo/attempts.h"
#include "apps/kavo/explain.h"
#include "apps/kavo/explain_goals.h"
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

// A path of points is as good as they are dense; one of proven motions should be free at whatever is looked
// at.
constexpr double kCheckStepOfMotions = 0.001;

void Check(const Problem& problem, double step_size, const std::optional<double>& check_step, BenchRun& run) {
  const RobotDescription& robot = *problem.situation.robot->description;
  const WorldView world_view = problem.situation.world.view();
  const std::vector<Eigen::VectorXd>& path = run.path;
  const StopCondition stop = [] { return Signal() != 0; };
  run.check_step = check_step.value_or(run.IsOfMotions() ? kCheckStepOfMotions : step_size / 10.0);
  run.verdict = planning::ProvePath(robot, world_view, path, {}, stop).verdict;
  const planning::PathCheck check = planning::CheckPath(robot, world_view, path, run.check_step, stop);
  run.is_done = !check.was_stopped && run.verdict != planning::PathProof::Verdict::kStopped;
  run.passes_check = check.IsValid();
  if (check.first_bad && path.size() > 1) {
    const std::size_t segment = check.first_bad->place.segment;
    run.first_bad_edge = Classify(robot, world_view, step_size, path[segment], path[segment + 1]);
    run.depth = std::max({0.0, check.clearance ? -check.clearance->distance : 0.0,
                          check.self_clearance ? -check.self_clearance->distance : 0.0});
  }
}

void RunOnce(const Problem& problem, const PlannerSettings& settings, const BenchPlan& plan, BenchRun& run) {
  const World& world = problem.situation.world;
  const std::shared_ptr<RobotDescription> robot = problem.situation.robot->description;
  const Attempts attempts(plan.seconds       ? plan.seconds
                          : plan.by_requests ? problem.allowed_seconds
                                             : std::nullopt,
                          run.seed, plan.by_requests ? problem.num_attempts : 1);
  MotionPlanner::Results results;
  for (int attempt = 0; attempts.MayTry(attempt); ++attempt) {
    run.seed = attempts.Seed(attempt);
    planning::MotionPlannerConfig config = settings.With(run.seed, settings.StepSize());
    config.planner = plan.planners[run.planner];
    const auto planner = CreateMotionPlanner(config, robot, world.view());
    planner->setStopCondition(attempts.Stop());
    Answer answer = Ask(*planner, config, problem.query, false);
    results = std::move(answer.results);
    run.report = std::move(answer.report);
    if (results.path_found || !run.HasValidEnds()) {
      break;
    }
  }
  const Goal& goal = problem.query.stages.front().goals.front();
  const auto* const q_goal = std::get_if<Eigen::VectorXd>(&goal);
  if (run.report.fault) {
    run.fault = Explain(*run.report.fault, *robot);
  } else if (run.report.status == planning::SearchStatus::kStartTooClose) {
    run.fault = ExplainNearest(*robot, world.view(), problem.query.start);
  } else if (run.report.status == planning::SearchStatus::kTargetTooClose && q_goal != nullptr) {
    run.fault = ExplainNearest(*robot, world.view(), *q_goal);
  } else if (!run.report.goals.empty()) {
    run.fault = Explain(run.report.goals.front(), goal, *robot);
  }
  run.found = results.path_found;
  if (run.found) {
    run.path = results.path;
    run.length = Length(results.path);
  }
  run.is_done = Signal() == 0;
}

// Calls `function(i)` for each number from `first` to before `last`, on several threads, until a signal
// comes. Nothing is logged: every failure is in a result, and a hundred warnings would not help.
template <typename Function>
void ForEach(int num_jobs, std::size_t first, std::size_t last, const Function& function) {
  std::atomic<std::size_t> next{first};
  const auto work = [&] {
    const int threshold = std::exchange(util::log_level_threshold, -1);
    for (std::size_t i = next++; i < last && Signal() == 0; i = next++) {
      function(i);
    }
    util::log_level_threshold = threshold;
  };
  std::vector<std::future<void>> others;
  for (int job = 1; job < num_jobs; ++job) {
    others.push_back(std::async(std::launch::async, work));
  }
  work();
  for (std::future<void>& other : others) {
    other.get();
  }
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
                                  const BenchPlan& plan) {
  const Stoppable stoppable;
  const auto repeats = static_cast<std::size_t>(plan.num_repeats);
  const std::size_t num_planners = plan.planners.size();
  const std::size_t num_all = problems.size() * repeats;
  const std::size_t num_turns = (num_all + plan.num_shards - plan.shard - 1) / plan.num_shards;
  std::vector<BenchRun> runs(num_turns * num_planners);
  Progress progress(false);
  std::atomic<std::size_t> num_done{0};
  const auto query = [&](std::size_t i) {
    const std::size_t number = i * plan.num_shards + plan.shard;
    for (std::size_t turn = 0; turn < num_planners; ++turn) {
      // The first one finds nothing of the problem in the caches: each is first in turn.
      const std::size_t planner = (number + turn) % num_planners;
      BenchRun& run = runs[i * num_planners + planner];
      run.problem = number / repeats;
      run.repeat = number % repeats;
      run.planner = planner;
      run.seed = settings.Seed() + static_cast<int>(run.repeat);
      RunOnce(problems[run.problem], settings, plan, run);
    }
  };
  const auto check = [&](std::size_t i) {
    BenchRun& run = runs[i];
    if (run.found) {
      Check(problems[run.problem], settings.StepSize(), plan.check_step, run);
    }
    progress.ShowPart(++num_done, runs.size());
  };
  // A check takes far longer than a query, and would leave nothing of use in the caches: there are ever more
  // queries between checks. Few at first, so that an early signal finds some that are complete.
  constexpr std::size_t kMostBetweenChecks = 256;
  std::size_t last = 0;
  for (std::size_t first = 0; first < num_turns; first = last) {
    last = std::min(num_turns, first + std::min(first + 1, kMostBetweenChecks));
    ForEach(plan.num_jobs, first, last, query);
    ForEach(plan.num_jobs, first * num_planners, last * num_planners, check);
  }
  runs.erase(std::remove_if(runs.begin(), runs.end(),
                            [](const BenchRun& run) { return !run.is_done || (run.found && !run.verdict); }),
             runs.end());
  return runs;
}

}  // namespace kavo::command
