#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/bench_problems.h"
#include "apps/kavo/parameters.h"
#include "kavo/motion_planning/interface/motion_planner_config.h"
#include "kavo/motion_planning/interface/query_report.h"
#include "kavo/motion_planning/util/path_proof.h"

namespace kavo::command {

//! Which edge of a path a bad configuration is on, by why the planner did not see it.
enum class Edge {
  //! Shorter than a step: never checked.
  kShort,
  //! Longer, but not free at points a step apart either: the connection of the two trees, never checked.
  kConnection,
  //! Free at points a step apart: something reaches in between two of them.
  kBetween,
};

//! "short", "connection", "between".
const char* ToString(Edge edge);

//! One query and what came of it.
struct BenchRun {
  //! Index of the problem, of the repeat, and of the planner among those that are compared.
  std::size_t problem = 0;
  std::size_t repeat = 0;
  std::size_t planner = 0;
  //! Of the last attempt.
  int seed = 0;
  QueryReport report;
  //! Why the start or goal is not valid or too close to a contact, for a reader.
  std::string fault;
  bool found = false;
  //! Empty if none was found.
  std::vector<Eigen::VectorXd> path;
  double length = 0.0;
  //! Of a path: what its proof says.
  std::optional<planning::PathProof::Verdict> verdict;
  //! Of a path: whether it is free where it was sampled, and if not, where it first is not, and how deep
  //! the robot gets into anything along the path (metres; zero where it is only beyond a limit).
  double check_step = 0.0;
  bool passes_check = false;
  Edge first_bad_edge = Edge::kShort;
  double depth = 0.0;
  //! Not if a signal came before its end.
  bool is_done = false;

  bool HasValidEnds() const {
    return report.status != planning::SearchStatus::kInvalidStart &&
           report.status != planning::SearchStatus::kInvalidTarget;
  }
  //! Whether every motion of the path was proven while it was planned.
  bool IsOfMotions() const { return report.planner == ToString(planning::CSpacePlanner::kBiRrt); }
  double Seconds() const { return report.search_seconds + report.shortening_seconds; }
};

//! How every problem is run.
struct BenchPlan {
  //! One or several, which take turns problem by problem.
  std::vector<planning::CSpacePlanner> planners;
  //! Times, repeat k with the seed of the settings plus k.
  int num_repeats = 1;
  //! Threads.
  int num_jobs = 1;
  //! Of the problems and their repeats, counted through, only every `num_shards`-th, from number `shard`.
  std::size_t shard = 0;
  std::size_t num_shards = 1;
  //! Distance at which found paths are sampled; a default for each planner without it.
  std::optional<double> check_step;
  //! Seconds for each problem; without them, as long as it takes.
  std::optional<double> seconds;
  //! Whether what the requests say of time (unless there are seconds above) and attempts counts.
  bool by_requests = false;
};

//! Runs every problem, each time with a planner of its own, and now and then looks at all paths found since.
//! The runs are in the order of problems, then repeats, then planners, whatever the number of jobs; those
//! that ended before a signal came.
std::vector<BenchRun> RunProblems(const std::vector<Problem>& problems, const PlannerSettings& settings,
                                  const BenchPlan& plan);

}  // namespace kavo::command
