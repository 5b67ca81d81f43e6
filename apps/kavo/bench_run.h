#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/bench_problems.h"
#include "apps/kavo/parameters.h"
#include "kavo/motion_planning/interface/query_report.h"

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
  //! Index of the problem.
  std::size_t problem = 0;
  int seed = 0;
  QueryReport report;
  //! Why the start or goal is not valid, for a reader.
  std::string fault;
  bool found = false;
  //! Empty if none was found.
  std::vector<Eigen::VectorXd> path;
  double length = 0.0;
  //! Of a path: whether it is free at a tenth of the step, and if not, where it first is not, and how deep
  //! the robot gets into anything along the path (metres; zero where it is only beyond a limit).
  bool passes_check = false;
  Edge first_bad_edge = Edge::kShort;
  double depth = 0.0;
  //! Not if a signal came before its end.
  bool is_done = false;

  bool HasValidEnds() const {
    return report.status != planning::SearchStatus::kInvalidStart &&
           report.status != planning::SearchStatus::kInvalidTarget;
  }
  double Seconds() const { return report.search_seconds + report.shortening_seconds; }
};

//! What bounds a run.
struct BenchBounds {
  //! Seconds for each problem; without them, as long as it takes.
  std::optional<double> seconds;
  //! Whether what the requests say of time (unless there are seconds above) and attempts counts.
  bool by_requests = false;
};

//! Runs every problem `num_repeats` times, repeat k with the seed of the settings plus k, each with a planner
//! of its own. The runs are in the order of problems, then repeats, whatever the number of jobs; those that
//! ended before a signal came.
//! \param num_jobs Number of threads.
std::vector<BenchRun> RunProblems(const std::vector<Problem>& problems, const PlannerSettings& settings,
                                  const BenchBounds& bounds, int num_repeats, int num_jobs);

}  // namespace kavo::command
