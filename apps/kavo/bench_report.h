#pragma once

#include <string>
#include <vector>

#include "apps/kavo/bench_run.h"

namespace kavo::command {

//! The tables for a reader: one row for each family and one for all of them.
std::string BenchTables(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs);

//! Every run as JSON.
std::string BenchJson(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs,
                      const formats::LoadedRobot& robot, const PlannerSettings& settings);

}  // namespace kavo::command
