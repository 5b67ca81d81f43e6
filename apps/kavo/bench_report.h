#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "apps/kavo/bench_run.h"
#include "kavo/formats/result_file.h"

namespace kavo::command {

//! The tables for a reader. Of one planner: a row for each family and one for all of them. Of several: a row
//! for each planner, and below it what times the first one's it is.
//! \param num_wanted How many runs there were to be: of fewer it says that the work was stopped.
std::string BenchTables(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs,
                        const std::vector<planning::CSpacePlanner>& planners, std::size_t num_wanted);

//! What runs came from, as it goes into a file.
struct BenchOrigin {
  //! Of the whole command.
  std::vector<std::string> arguments;
  std::vector<formats::InputFile> files;
  const formats::LoadedRobot& robot;
  const PlannerSettings& settings;
  //! None unless what it takes to draw the runs is wanted: the robot, and the scenes.
  std::optional<formats::RobotDrawing> drawing;
};

//! Every run as JSON, with its path.
std::string BenchJson(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs,
                      const std::vector<planning::CSpacePlanner>& planners, std::size_t num_wanted,
                      const BenchOrigin& origin);

}  // namespace kavo::command
