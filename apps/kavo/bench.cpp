// kavo bench: the problems of a folder, and a table of how they went.

#include <CLI/CLI.hpp>
#include <cstddef>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/bench_problems.h"
#include "apps/kavo/bench_report.h"
#include "apps/kavo/bench_run.h"
#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/input_rules.h"
#include "apps/kavo/output_file.h"
#include "apps/kavo/parameters.h"
#include "apps/kavo/provenance.h"
#include "apps/kavo/robot_options.h"

namespace kavo::command {

namespace {

struct BenchOptions {
  RobotOptions robot;
  InputRules rules;
  PlannerSettings planner;
  BenchBounds bounds;
  std::string directory;
  std::vector<std::string> families;
  int num_repeats = 1;
  int num_jobs = 1;
  std::optional<std::string> json_file;
};

int Bench(const BenchOptions& options) {
  Situations situations(options.robot.Load(), options.rules);
  const formats::LoadedRobot& robot = situations.Robot();
  PlannerSettings settings = options.planner;
  settings.SetDefault("task_space_frame_name", robot.tip_frame);
  settings.Load(robot.description);
  if (settings.Seed() > std::numeric_limits<int>::max() - options.num_repeats) {
    throw UnusableInput("the seed leaves no room for the repeats");
  }
  const std::vector<Problem> problems = ReadProblems(options.directory, options.families, situations);
  std::vector<std::pair<std::string, std::string>> files = options.robot.Files();
  files.emplace_back("config", options.planner.File());
  std::vector<std::pair<std::string, std::string>> inputs = files;
  for (const Problem& problem : problems) {
    inputs.emplace_back("scene", problem.scene_file);
    inputs.emplace_back("request", problem.request_file);
  }
  OutputFile json_file("--json", options.json_file, inputs);
  const std::vector<BenchRun> runs =
      RunProblems(problems, settings, options.bounds, options.num_repeats, options.num_jobs);
  const std::size_t num_wanted = problems.size() * static_cast<std::size_t>(options.num_repeats);
  if (json_file.IsStandardOutput()) {
    std::cout << BenchJson(problems, runs, num_wanted, robot, settings, HashFiles(files));
  } else {
    std::cout << BenchTables(problems, runs, num_wanted) << std::flush;
  }
  if (json_file.IsFile()) {
    json_file.Write(BenchJson(problems, runs, num_wanted, robot, settings, HashFiles(files)));
  }
  return kDone;
}

}  // namespace

void AddBenchCommand(CLI::App& app, Run& run) {
  const auto options = std::make_shared<BenchOptions>();
  CLI::App* bench = app.add_subcommand("bench", "Plan all problems of a folder and tabulate how it went");
  options->robot.AddOptions(*bench);
  bench
      ->add_option("-p,--problems", options->directory,
                   "Folder of families with files sceneNAME.yaml and requestNAME.yaml, or one such family")
      ->type_name("DIR")
      ->group("Problems")
      ->required();
  bench->add_option("--family", options->families, "Only this family; may be repeated")
      ->type_name("NAME")
      ->group("Problems")
      ->allow_extra_args(false);
  bench
      ->add_option("--repeat", options->num_repeats,
                   "Plan each problem so many times, each time with the next seed")
      ->type_name("N")
      ->group("Problems")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  bench
      ->add_option("-j,--jobs", options->num_jobs,
                   "Threads, with a planner each. The answers are the same for any number; times are not, as "
                   "threads compete for the machine")
      ->type_name("N")
      ->group("Problems")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str();
  options->rules.AddOptions(*bench);
  bench
      ->add_option("--time-limit", options->bounds.seconds,
                   "Stop each problem after this time; goes before that of its request")
      ->type_name("SECONDS")
      ->group("Problems")
      ->check(CheckPositive);
  bench
      ->add_flag("--request-effort", options->bounds.by_requests,
                 "Let allowed_planning_time and num_planning_attempts of the requests count")
      ->group("Problems");
  options->planner.AddOptions(*bench);
  bench
      ->add_option("--json", options->json_file,
                   "Write every run as JSON, with its path; - is standard output, instead of the tables")
      ->type_name("FILE")
      ->group("Output");
  bench->footer(
      "Every run has a planner of its own. Its time is that of one query, search and shortening, without\n"
      "the making of the planner; the statistics are over all runs whose start and goal are valid, solved\n"
      "or not. The share of solved ones is of these runs as well. A bad path is one that was found but is\n"
      "not free at a tenth of step_size; below the tables stands which of its edges is at fault.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo bench --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf \\\n"
      "             --group arm --problems examples/own_robot\n"
      "  kavo bench --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf \\\n"
      "             --group arm --problems examples/own_robot --repeat 10 --set step_size=0.05");
  bench->callback([options, &run] { run = [options] { return Bench(*options); }; });
}

}  // namespace kavo::command
