#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace kavo::command {

//! What the program says to the shell.
enum ExitStatus : int {
  kDone = 0,
  //! No path, or one that is not valid.
  kNoPath = 1,
  //! A file, an option or a value that cannot be used.
  kUnusableInput = 2,
  kOutOfMemory = 3,
};

//! Ends the program with `kUnusableInput` and its text.
class UnusableInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

//! What a subcommand does once all options are parsed; gives the exit status.
using Run = std::function<int()>;

// Each adds one subcommand, which sets `run` when it is the one on the command line. Those that write what
// they did take the arguments of the program, without its name.
void AddPlanCommand(CLI::App& app, Run& run, const std::vector<std::string>& arguments);
void AddCheckCommand(CLI::App& app, Run& run);
void AddBenchCommand(CLI::App& app, Run& run, const std::vector<std::string>& arguments);
void AddMergeCommand(CLI::App& app, Run& run, const std::vector<std::string>& arguments);
void AddInfoCommand(CLI::App& app, Run& run);
void AddPairsCommand(CLI::App& app, Run& run);
void AddSpheresCommand(CLI::App& app, Run& run);
void AddViewCommand(CLI::App& app, Run& run);

}  // namespace kavo::command
