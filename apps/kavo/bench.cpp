// kavo bench: the problems of a folder, and a table of how they went.

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/kavo/bench_files.h"
#include "apps/kavo/bench_problems.h"
#include "apps/kavo/bench_report.h"
#include "apps/kavo/bench_run.h"
#include "apps/kavo/command.h"
#include "apps/kavo/help.h"
#include "apps/kavo/input_rules.h"
#include "apps/kavo/parameters.h"
#include "apps/kavo/provenance.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/text.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

constexpr double kMostShards = 1e6;

struct BenchOptions {
  RobotOptions robot;
  InputRules rules;
  PlannerSettings planner;
  BenchPlan plan;
  std::string compared;
  std::string directory;
  std::vector<std::string> families;
  BenchFileOptions files;
  bool keeps_plans = false;
  std::string shard;
  // Of the whole command.
  std::vector<std::string> arguments;
};

// Those that are compared, or the one of the settings.
std::vector<planning::CSpacePlanner> Planners(const BenchOptions& options, const PlannerSettings& settings) {
  if (options.compared.empty()) {
    return {settings.Config().planner};
  }
  std::vector<planning::CSpacePlanner> planners;
  for (const std::string& name : Split(options.compared, ',')) {
    planners.push_back(ParsePlanner("--compare", name));
  }
  return planners;
}

void AddMeshes(const std::vector<std::string>& names,
               std::vector<std::pair<std::string, std::string>>& files) {
  for (const std::string& name : names) {
    files.emplace_back("mesh", name);
  }
}

// "2/8" is the second of eight.
void ReadShard(const std::string& text, BenchPlan& plan) {
  const std::vector<std::string> parts = Split(text, '/');
  const auto number = [&parts](std::size_t i) {
    return i < parts.size() ? util::ParseNumber(parts[i]).value_or(0.0) : 0.0;
  };
  const double part = number(0);
  const double all = number(1);
  if (parts.size() != 2 || part != std::floor(part) || all != std::floor(all) || part < 1.0 || part > all ||
      all > kMostShards) {
    throw UnusableInput("--shard " + text + ": expected the number of a part and how many there are, as 2/8");
  }
  plan.shard = static_cast<std::size_t>(part) - 1;
  plan.num_shards = static_cast<std::size_t>(all);
}

int Bench(const BenchOptions& options) {
  options.files.Check();
  if (options.keeps_plans && !options.files.html_file && !options.files.json_file) {
    throw UnusableInput("--keep-plans is for --html and --json");
  }
  BenchPlan plan = options.plan;
  if (!options.shard.empty()) {
    ReadShard(options.shard, plan);
    if (!options.files.json_file || options.files.html_file) {
      throw UnusableInput("--shard is for --json; 'kavo merge' makes the page of all parts");
    }
  }
  const SceneOptions no_more;
  Situations situations(options.robot.Load(options.rules.AllowsUncovered()), options.rules, no_more);
  const formats::LoadedRobot& robot = situations.Robot();
  PlannerSettings settings = options.planner;
  settings.SetDefault("task_space_frame_name", robot.tip_frame);
  settings.Load(robot.description);
  plan.planners = Planners(options, settings);
  if (settings.Seed() > std::numeric_limits<int>::max() - plan.num_repeats) {
    throw UnusableInput("the seed leaves no room for the repeats");
  }
  const std::vector<Problem> problems = ReadProblems(options.directory, options.families, situations);
  std::vector<std::pair<std::string, std::string>> inputs = options.robot.Files();
  for (auto& file : MeshFiles(robot)) {
    inputs.push_back(std::move(file));
  }
  inputs.emplace_back("config", options.planner.File());
  for (const Problem& problem : problems) {
    inputs.emplace_back("scene", problem.scene_file);
    inputs.emplace_back("request", problem.request_file);
    AddMeshes(problem.situation.mesh_files, inputs);
  }
  BenchFiles files(options.files, inputs);
  const std::vector<BenchRun> runs = RunProblems(problems, settings, plan);
  const std::size_t num_wanted =
      problems.size() * static_cast<std::size_t>(plan.num_repeats) * plan.planners.size();
  std::string json;
  if (files.AreWanted()) {
    std::optional<formats::RobotDrawing> drawing;
    if (options.keeps_plans) {
      drawing = formats::DrawRobot(robot);
      AddMeshes(drawing->mesh_files, inputs);
    }
    json = BenchJson(problems, runs, plan.planners, num_wanted,
                     {options.arguments, HashFiles(inputs), robot, settings, std::move(drawing)});
  }
  files.Write(json, options.shard.empty() ? BenchTables(problems, runs, plan.planners, num_wanted) : "");
  return kDone;
}

}  // namespace

void AddBenchCommand(CLI::App& app, Run& run, const std::vector<std::string>& arguments) {
  const auto options = std::make_shared<BenchOptions>();
  options->arguments = arguments;
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
      ->add_option("--repeat", options->plan.num_repeats,
                   "Plan each problem so many times, each time with the next seed")
      ->type_name("N")
      ->group("Problems")
      ->check(CLI::Range(1, 1000000))
      ->capture_default_str();
  bench
      ->add_option("-j,--jobs", options->plan.num_jobs,
                   "Threads, with a planner each. The answers are the same for any number; times are not, as "
                   "threads compete for the machine")
      ->type_name("N")
      ->group("Problems")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str();
  bench
      ->add_option(
          "--shard", options->shard,
          "Only this part of the problems and repeats, such as 2/8, for --json; 'kavo merge' joins all "
          "parts")
      ->type_name("K/N")
      ->group("Problems");
  options->rules.AddOptions(*bench);
  bench
      ->add_option("--time-limit", options->plan.seconds,
                   "Stop each problem after this time; goes before that of its request")
      ->type_name("SECONDS")
      ->group("Problems")
      ->check(CheckPositive);
  bench
      ->add_flag("--request-effort", options->plan.by_requests,
                 "Let allowed_planning_time and num_planning_attempts of the requests count")
      ->group("Problems");
  CLI::Option* planner = options->planner.AddOptions(*bench);
  bench
      ->add_option("--compare", options->compared,
                   "Run these planners, with commas between them, on each problem in turns, and print them "
                   "side by side with ratios to the first")
      ->type_name("NAMES")
      ->group("Planner")
      ->excludes(planner);
  bench
      ->add_option("--check-step", options->plan.check_step,
                   "Distance of the configurations at which found paths are looked at besides their proof; "
                   "0.001 for paths of bi_rrt, a tenth of step_size for others, unless given")
      ->type_name("STEP")
      ->group("Output")
      ->check(CheckPositive);
  options->files.AddOptions(*bench);
  bench
      ->add_flag("--keep-plans", options->keeps_plans,
                 "Put robot and scenes into --json and --html too, so that each run can be looked at")
      ->group("Output");
  bench->footer(
      "Every run has a planner of its own. Its time is that of one query, search and shortening, without\n"
      "the making of the planner; times are over all runs whose start and goal are valid, solved or not,\n"
      "and so is the share of solved ones. Found paths are looked at between some hundred queries, apart\n"
      "from what planned them: \"bad\" are those that are not free where they are sampled, \"unproven\"\n"
      "those that cannot be proven free everywhere. Below the tables stands which edges of sampled\n"
      "planners are bad.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo bench --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf \\\n"
      "             --group arm --problems examples/own_robot\n"
      "  kavo bench --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf \\\n"
      "             --group arm --problems examples/own_robot --repeat 10 \\\n"
      "             --compare bi_rrt,rrt_connect");
  bench->callback([options, &run] { run = [options] { return Bench(*options); }; });
}

}  // namespace kavo::command
