#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/bench_problems.h"
#include "apps/kavo/bench_run.h"

namespace kavo::command {

//! Puts the parts of one benchmark together: their runs, in the order in which 'kavo bench' has them.
//! \param parts At least one, each with the name of its file. Throws `UnusableInput` for those that are not of
//!     the same problems, settings and so on, and for a run that is there twice.
nlohmann::ordered_json JoinBenches(const std::vector<std::pair<std::string, nlohmann::ordered_json>>& parts);

//! What tables tell of a benchmark.
struct BenchDocument {
  //! Of each only the family, the name and what its verdicts do not hold for.
  std::vector<Problem> problems;
  std::vector<BenchRun> runs;
  std::vector<planning::CSpacePlanner> planners;
  std::size_t num_wanted = 0;
};

//! \param name For the error, `UnusableInput`, where it is not as 'kavo bench' writes it.
BenchDocument ReadBench(const nlohmann::ordered_json& document, const std::string& name);

}  // namespace kavo::command
