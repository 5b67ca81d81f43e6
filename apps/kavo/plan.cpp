// kavo plan: one query, from a request file or from options.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "apps/kavo/ask.h"
#include "apps/kavo/attempt_record.h"
#include "apps/kavo/attempts.h"
#include "apps/kavo/close_look.h"
#include "apps/kavo/command.h"
#include "apps/kavo/explain_attempt.h"
#include "apps/kavo/help.h"
#include "apps/kavo/input_rules.h"
#include "apps/kavo/interrupt.h"
#include "apps/kavo/output_file.h"
#include "apps/kavo/page.h"
#include "apps/kavo/parameters.h"
#include "apps/kavo/path_checking.h"
#include "apps/kavo/plan_attempt.h"
#include "apps/kavo/progress.h"
#include "apps/kavo/provenance.h"
#include "apps/kavo/query_options.h"
#include "apps/kavo/robot_options.h"
#include "apps/kavo/scene_options.h"
#include "apps/kavo/situations.h"
#include "apps/kavo/text.h"
#include "apps/kavo/trajectory_options.h"
#include "kavo/formats/request.h"
#include "kavo/formats/result_file.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/util/log.h"
#include "kavo/util/parse_number.h"

namespace kavo::command {

namespace {

// Below it the check of a path of some radians takes minutes.
constexpr double kLeastCheckStep = 1e-6;
// Below it an interpolated path would fill the memory.
constexpr double kLeastStepInterpolated = 1e-4;

struct PlanOptions {
  RobotOptions robot;
  SceneOptions scene;
  InputRules rules;
  PlannerSettings planner;
  TrajectoryOptions trajectory;
  std::string request_file;
  QueryOptions query;
  std::optional<std::string> json_file;
  std::optional<std::string> csv_file;
  std::optional<std::string> html_file;
  std::optional<std::size_t> num_tree_nodes;
  std::optional<double> check_step;
  std::optional<int> num_more_seeds;
  std::optional<double> time_limit;
  bool is_unchecked = false;
  bool quiet = false;
  bool verbose = false;
  // Of the whole command.
  std::vector<std::string> arguments;

  // The files that are read: what each is, and its name.
  std::vector<std::pair<std::string, std::string>> Inputs() const {
    std::vector<std::pair<std::string, std::string>> inputs = robot.Files();
    const std::vector<std::pair<std::string, std::string>> of_scene = scene.Files();
    inputs.insert(inputs.end(), of_scene.begin(), of_scene.end());
    const std::vector<std::pair<std::string, std::string>> of_trajectory = trajectory.Files();
    inputs.insert(inputs.end(), of_trajectory.begin(), of_trajectory.end());
    inputs.emplace_back("request", request_file);
    inputs.emplace_back("config", planner.File());
    return inputs;
  }
};

// Sets the threshold of the log while it lives: what the planner warns about, the answer explains.
class Silence {
 public:
  explicit Silence(LogLevel level)
      : threshold_(std::exchange(util::log_level_threshold, static_cast<int>(level))) {}
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() { util::log_level_threshold = threshold_; }

 private:
  int threshold_;
};

class Planning {
 public:
  explicit Planning(const PlanOptions& options)
      : options_(options),
        json_file_("--json", options.json_file, options.Inputs()),
        csv_file_("--csv", options.csv_file, options.Inputs()),
        html_file_("--html", options.html_file, options.Inputs()),
        trajectory_(options.trajectory, options.Inputs()),
        settings_(options.planner),
        situations_(options.robot.Load(options.rules.AllowsUncovered()), options.rules, options.scene),
        seconds_(options.time_limit) {
    if (json_file_.IsSameAs(csv_file_)) {
      throw UnusableInput("--json and --csv cannot both be written to " + *options.csv_file);
    }
    for (const OutputFile* const other : {&json_file_, &csv_file_}) {
      if (trajectory_.File().IsSameAs(*other) ||
          (trajectory_.File().IsStandardOutput() && other->IsStandardOutput())) {
        throw UnusableInput("--trajectory cannot be written where --json or --csv is");
      }
    }
    for (const OutputFile* const other :
         std::initializer_list<const OutputFile*>{&json_file_, &csv_file_, &trajectory_.File()}) {
      if (html_file_.IsSameAs(*other)) {
        throw UnusableInput("--html cannot be written where --json, --csv or --trajectory is");
      }
    }
    std::vector<Stage> stages;
    if (options_.request_file.empty()) {
      situation_ =
          situations_.Read(options_.scene.SceneFiles(), nullptr, options_.query.Start(situations_.Robot()));
      stages = options_.query.Stages(situations_, situation_);
    } else {
      const formats::Request request =
          formats::ReadRequest(options_.request_file, options_.scene.FileOptions(options_.robot.Packages()));
      situation_ = situations_.Read(options_.scene.SceneFiles(), &request);
      stages = {{situations_.GoalsOf(request, situation_)}};
      num_attempts_ = request.num_planning_attempts;
      if (!seconds_) {
        seconds_ = request.allowed_planning_time;
      }
      velocity_scaling_ = request.velocity_scaling;
      acceleration_scaling_ = request.acceleration_scaling;
    }
    options_.rules.Admit(trajectory_.Unhonoured(), situation_.scope);
    settings_.SetDefault("task_space_frame_name", situation_.robot->tip_frame);
    settings_.Load(situation_.robot->description);
    MakeQueries(std::move(stages));
  }

  int Run() {
    const Attempt attempt = TryAll();
    if (attempt.results.path_found && attempt.IsGood() && trajectory_.IsWanted()) {
      made_trajectory_ = trajectory_.Make(attempt.results.path, EndsOfStages(attempt), situation_,
                                          velocity_scaling_, acceleration_scaling_,
                                          attempt.check && !options_.check_step, situations_.GetNotes());
    }
    if (IsRecorded()) {
      const formats::PlanRecord record = Record(attempt);
      if (const std::vector<std::string>& faults = record.robot_model.faults;
          html_file_.IsWanted() && !faults.empty()) {
        situations_.GetNotes().Say("not drawn: " + std::to_string(faults.size()) +
                                   " of the robot's shapes: " + faults.front());
      }
      json_ = formats::ToJson(record);
    }
    Print(attempt);
    WriteFiles(attempt);
    return attempt.IsGood() && (!made_trajectory_ || HasGoodTrajectory()) ? kDone : kNoPath;
  }

 private:
  // Whether the query and its answer go into a file as a whole.
  bool IsRecorded() const { return json_file_.IsWanted() || html_file_.IsWanted(); }

  bool HasGoodTrajectory() const { return made_trajectory_ && made_trajectory_->is_good; }

  // Waypoints at which something is done before the robot goes on.
  static std::vector<std::size_t> EndsOfStages(const Attempt& attempt) {
    std::vector<std::size_t> ends;
    for (std::size_t i = 0; i + 1 < attempt.parts.size(); ++i) {
      ends.push_back(attempt.parts[i].last);
    }
    return ends;
  }

  // One for all, but where planners of one goal are asked: then one for each goal.
  void MakeQueries(std::vector<Stage> stages) {
    for (Stage& stage : stages) {
      for (Goal& goal : stage.goals) {
        auto* const pose = std::get_if<PoseGoal>(&goal);
        if (pose != nullptr) {
          pose->frame = pose->frame.empty() ? settings_.TaskSpaceFrame() : pose->frame;
        }
        if (settings_.IsForPositions() && !(pose != nullptr && pose->IsPosition() && stages.size() == 1)) {
          throw UnusableInput(
              "--planner jt_rrt plans to positions, not to a configuration, a pose or in stages");
        }
      }
    }
    if (stages.size() == 1 && !stages.front().line &&
        settings_.Config().planner != planning::CSpacePlanner::kBiRrt) {
      for (const Goal& goal : stages.front().goals) {
        const auto* const pose = std::get_if<PoseGoal>(&goal);
        if (pose != nullptr && pose->IsPosition() && pose->position_tolerance) {
          throw UnusableInput(
              "--position-tolerance is not for jt_rrt: --set "
              "task_space_planning_params/x_target_final_tolerance=M says how near it is to get");
        }
        queries_.push_back({situation_.start, {{{WithoutTolerances(goal)}}}});
      }
    } else {
      queries_ = {{situation_.start, std::move(stages)}};
    }
    if (settings_.Config().planner != planning::CSpacePlanner::kBiRrt &&
        std::any_of(queries_.begin(), queries_.end(),
                    [](const Query& query) { return NeedsMotions(query); })) {
      situations_.GetNotes().Say("poses, lines and stages are for bi_rrt, which plans here in place of " +
                                 std::string(ToString(settings_.Config().planner)));
    }
  }

  Attempt TryAll() {
    const Stoppable stoppable;
    std::optional<Attempt> best;
    const Attempts attempts(seconds_, settings_.Seed(),
                            std::max(options_.num_more_seeds.value_or(0) + 1, num_attempts_));
    for (const Query& query : queries_) {
      const Attempt attempt = Try(query, attempts);
      Keep(attempt, best);
      if (attempt.IsGood() || Signal() != 0 || attempt.report.status == planning::SearchStatus::kStopped) {
        break;
      }
      if (&query != &queries_.back() && !options_.quiet) {
        std::cerr << "kavo: goal " << (&query - queries_.data()) + 1 << " of " << queries_.size() << ": "
                  << (attempt.results.path_found ? "the path fails the check"
                                                 : ToString(attempt.report.status))
                  << "; trying the next\n";
      }
    }
    return *std::move(best);
  }

  // A path that fails the check says more than that none was found.
  static void Keep(const Attempt& attempt, std::optional<Attempt>& best) {
    if (!best || attempt.results.path_found || !best->results.path_found) {
      best = attempt;
    }
  }

  // With the first seed, or with the first of the next ones: as many as the request says until there is a
  // path, as many as the options say until one passes the check.
  Attempt Try(const Query& query, const Attempts& attempts) {
    std::optional<Attempt> best;
    for (int i = 0;; ++i) {
      const Attempt attempt = TryOnce(query, attempts.Seed(i), StepSizeOf(i), attempts.Stop());
      Keep(attempt, best);
      const bool is_hopeless = IsHopeless(attempt);
      const bool is_enough = attempt.results.path_found && i >= options_.num_more_seeds.value_or(0);
      if (attempt.IsGood() || is_hopeless || is_enough || !attempts.MayTry(i + 1)) {
        return *std::move(best);
      }
      if (!options_.quiet) {
        std::cerr << "kavo: seed " << attempt.config.seed << ": "
                  << (attempt.results.path_found ? "the path fails the check"
                                                 : ToString(attempt.report.status))
                  << "; trying the next seed"
                  << (StepSizeOf(i + 1) < StepSizeOf(i) ? " and half the step_size" : "") << "\n";
      }
    }
  }

  // Whether no seed can change how a query ended. On a line from the start none counts.
  static bool IsHopeless(const Attempt& attempt) {
    using planning::SearchStatus;
    const SearchStatus status = attempt.report.status;
    return status == SearchStatus::kInvalidStart || status == SearchStatus::kInvalidTarget ||
           status == SearchStatus::kStartTooClose || status == SearchStatus::kTargetTooClose ||
           status == SearchStatus::kUnreachableTarget ||
           (status == SearchStatus::kLineEndsEarly && attempt.parts.size() == 1);
  }

  // A path that passes between the points of one check is found out by the next, finer one: every second try
  // of those that the options ask for halves the step, down to a 64th.
  double StepSizeOf(int i) const {
    const int num_halvings = std::min((std::min(i, options_.num_more_seeds.value_or(0)) + 1) / 2, 6);
    return std::ldexp(settings_.StepSize(), -num_halvings);
  }

  Attempt TryOnce(const Query& query, int seed, double step_size, const StopCondition& stop) {
    const Silence silence(options_.verbose ? LogLevel::kInfo : LogLevel::kError);
    Attempt attempt{settings_.With(seed, step_size), query, {}, {}, {}, {}, {}};
    const auto planner =
        CreateMotionPlanner(attempt.config, situation_.robot->description, situation_.world.view());
    Progress progress(options_.quiet);
    planner->setStopCondition([&] {
      progress.ShowTime("planning");
      return stop();
    });
    if (IsRecorded()) {
      const std::size_t num_nodes =
          options_.num_tree_nodes.value_or(html_file_.IsWanted() ? kNumNodesShown : 0);
      planner->setSearchObserver([&attempt, num_nodes](const SearchRecord& search) {
        attempt.searches.push_back(Thinned(search, num_nodes));
      });
    }
    const bool interpolates = step_size >= kLeastStepInterpolated;
    if (!interpolates && IsRecorded()) {
      situations_.GetNotes().Say("the interpolated path is left out: step_size is below " +
                                 Number(kLeastStepInterpolated));
    }
    auto answer = Ask(*planner, attempt.config, query, interpolates);
    attempt.results = std::move(answer.results);
    attempt.report = std::move(answer.report);
    attempt.parts = std::move(answer.parts);
    if (attempt.results.path_found && !options_.is_unchecked) {
      attempt.check =
          CheckAlong(attempt.results.path, situation_, options_.check_step, progress.Watch("checking"));
    }
    return attempt;
  }

  // To standard output, whatever becomes of the files.
  void Print(const Attempt& attempt) const {
    const bool found = attempt.results.path_found;
    const bool is_csv = csv_file_.IsStandardOutput() || options_.quiet;
    if (trajectory_.File().IsStandardOutput()) {
      std::cout << (HasGoodTrajectory() ? made_trajectory_->contents : "");
    } else if (json_file_.IsStandardOutput()) {
      std::cout << json_;
    } else if (!is_csv) {
      std::cout << Explanation(attempt);
    } else if (found) {
      std::cout << formats::ToCsv(JointNames(Robot()), attempt.results.path);
    }
    if ((is_csv || json_file_.IsStandardOutput() || trajectory_.File().IsStandardOutput()) &&
        !attempt.IsGood() && !options_.quiet) {
      std::cerr << (found ? "kavo: the path fails the check\n" : Explanation(attempt));
    }
    std::cout.flush();
  }

  void WriteFiles(const Attempt& attempt) {
    std::string failures;
    const auto write = [&](OutputFile& file, const std::string& text) {
      try {
        file.Write(text);
      } catch (const UnusableInput& failure) {
        failures += (failures.empty() ? "" : "; ") + std::string(failure.what());
      }
    };
    if (json_file_.IsFile()) {
      write(json_file_, json_);
    }
    if (html_file_.IsFile()) {
      write(html_file_, MakePage(json_, "--html"));
    }
    if (csv_file_.IsFile() && attempt.results.path_found) {
      write(csv_file_, formats::ToCsv(JointNames(Robot()), attempt.results.path));
    }
    if (trajectory_.File().IsFile() && HasGoodTrajectory()) {
      write(trajectory_.File(), made_trajectory_->contents);
    }
    if (!failures.empty()) {
      throw UnusableInput(failures);
    }
  }

  // What is printed of an attempt.
  std::string Explanation(const Attempt& attempt) const {
    if (!attempt.results.path_found) {
      return ExplainNoPath(attempt, situation_, options_.scene.CutMargin().has_value());
    }
    std::string trajectory;
    if (trajectory_.IsWanted()) {
      trajectory =
          made_trajectory_ ? made_trajectory_->text : "trajectory: none, since the path fails the check\n";
    }
    return ExplainPath(attempt, situation_, trajectory, !options_.num_more_seeds);
  }

  formats::PlanRecord Record(const Attempt& attempt) const {
    std::optional<formats::TrajectoryRecord> trajectory;
    if (made_trajectory_) {
      trajectory = made_trajectory_->record;
    }
    formats::PlanRecord record = RecordOf(attempt, situation_, Explanation(attempt), std::move(trajectory),
                                          [] { return Signal() != 0; });
    record.version = Version();
    record.arguments = options_.arguments;
    std::vector<std::pair<std::string, std::string>> files = options_.Inputs();
    for (auto& file : MeshFiles(*situation_.robot)) {
      files.push_back(std::move(file));
    }
    std::vector<std::string> meshes = record.robot_model.mesh_files;
    meshes.insert(meshes.end(), situation_.mesh_files.begin(), situation_.mesh_files.end());
    for (const std::string& file : meshes) {
      files.emplace_back("mesh", file);
    }
    record.files = HashFiles(files);
    return record;
  }

  const RobotDescription& Robot() const { return *situation_.robot->description; }

  const PlanOptions& options_;
  // Opened before any work.
  OutputFile json_file_;
  OutputFile csv_file_;
  OutputFile html_file_;
  TrajectoryMaker trajectory_;
  PlannerSettings settings_;
  Situations situations_;
  Situation situation_;
  // For everything together.
  std::optional<double> seconds_;
  int num_attempts_ = 1;
  // Of the path that is the answer, where one is wanted.
  std::optional<MadeTrajectory> made_trajectory_;
  // The record, where one is wanted.
  std::string json_;
  // Of the request.
  std::optional<double> velocity_scaling_;
  std::optional<double> acceleration_scaling_;
  std::vector<Query> queries_;
};

int Plan(const PlanOptions& options) {
  if (options.json_file == "-" && options.csv_file == "-") {
    throw UnusableInput("--json - and --csv - cannot both have the standard output");
  }
  if (options.request_file.empty() && !options.query.IsComplete()) {
    throw UnusableInput(
        "what to plan? Give --request FILE, or --start with --goal, --target, --pose or --line");
  }
  CheckPageFile(options.html_file);
  if (options.quiet) {
    util::log_level_threshold = static_cast<int>(LogLevel::kError);
  } else if (options.verbose) {
    util::log_level_threshold = static_cast<int>(LogLevel::kInfo);
  }
  return Planning(options).Run();
}

void AddQueryOptions(CLI::App& plan, PlanOptions& options) {
  const std::string group = "Query";
  CLI::Option* request =
      plan.add_option(
              "--request", options.request_file,
              "Motion-plan request (YAML). Its goals are tried in order until a path passes the check")
          ->type_name("FILE")
          ->group(group);
  options.query.AddOptions(plan, request);
  plan.add_option("--time-limit", options.time_limit,
                  "Stop planning after this time, all goals and seeds together; goes before the request's "
                  "allowed_planning_time")
      ->type_name("SECONDS")
      ->group(group)
      ->check(CheckPositive);
}

void AddCheckOptions(CLI::App& plan, PlanOptions& options) {
  plan.add_option("--check-step", options.check_step,
                  "Check configurations at this distance apart from the planner, instead of proving that "
                  "nothing is touched anywhere on the path; at least 1e-06")
      ->type_name("STEP")
      ->group("Check")
      ->check([](const std::string& text) {
        return util::ParseNumber(text).value_or(0.0) >= kLeastCheckStep
                   ? ""
                   : text + " is not a number of at least " + Number(kLeastCheckStep);
      });
  CLI::Option* unchecked = plan.add_flag("--no-check", options.is_unchecked,
                                         "Neither prove nor check the path apart from the planner")
                               ->group("Check");
  plan.add_option(
          "--verify", options.num_more_seeds,
          "Where no path is found or the path fails the check, plan again with the next seed, and every "
          "second time with half the step_size, up to N more times")
      ->type_name("[N]")
      ->group("Check")
      ->expected(0, 1)
      ->default_str("10")
      ->check(CLI::Range(0, 1000000))
      ->excludes(unchecked);
}

void AddOutputOptions(CLI::App& plan, PlanOptions& options) {
  plan.add_option("--json", options.json_file,
                  "Write everything as JSON: query, settings, path, statistics, check; - is standard output")
      ->type_name("FILE")
      ->group("Output");
  plan.add_option("--csv", options.csv_file,
                  "Write the waypoints as CSV, a line of joint names first; - is standard output")
      ->type_name("FILE")
      ->group("Output");
  plan.add_option("--html", options.html_file,
                  "Write a page for a browser, one file that needs nothing else: robot, obstacles, motion, "
                  "search, plots and all that there is to say")
      ->type_name("FILE")
      ->group("Output");
  plan.add_option(
          "--trees", options.num_tree_nodes,
          "How many nodes of each search tree go into --json and --html, evenly left out of more; 2000 "
          "with --html, else none, unless given")
      ->type_name("N")
      ->group("Output")
      ->check(CLI::Range(0, 100000000));
  CLI::Option* quiet = plan.add_flag("-q,--quiet", options.quiet,
                                     "Print the waypoints as CSV and nothing else, not even warnings")
                           ->group("Output");
  plan.add_flag("-v,--verbose", options.verbose, "Show notices of the library too")
      ->excludes(quiet)
      ->group("Output");
}

}  // namespace

void AddPlanCommand(CLI::App& app, Run& run, const std::vector<std::string>& arguments) {
  const auto options = std::make_shared<PlanOptions>();
  options->arguments = arguments;
  CLI::App* plan = app.add_subcommand("plan", "Plan one path and check it");
  options->robot.AddOptions(*plan);
  options->scene.AddOptions(*plan);
  options->rules.AddOptions(*plan);
  AddQueryOptions(*plan, *options);
  options->planner.AddOptions(*plan);
  AddCheckOptions(*plan, *options);
  options->trajectory.AddOptions(*plan);
  AddOutputOptions(*plan, *options);
  plan->footer(
      "Prints the waypoints, what the search cost, and whether the path is proven free, apart from the\n"
      "planner: no sphere touches anything anywhere on it; or why there is no path. The exit status is 0\n"
      "for a path that passes this check, 1 without one, 2 for input that cannot be used.\n\n"
      "Examples, with the files of the source tree:\n"
      "  kavo plan --robot franka --scene examples/scene.yaml --start default \\\n"
      "            --goal 0,0.05,0,-1.815,0,3.436,0.7854\n"
      "  kavo plan --robot franka --scene examples/scene.yaml --start default \\\n"
      "            --target 0.5,0.2,0.4 --frame tool\n"
      "  kavo plan --robot franka --scene examples/scene.yaml --start default --frame tool --free-axis z \\\n"
      "            --pose 0.4,0.3,0.5,1,0,0,0 --then line=0.4,0.3,0.4 --then line=0.4,0.3,0.5 \\\n"
      "            --then goal=default\n"
      "  kavo plan --robot examples/own_robot/arm.urdf --srdf examples/own_robot/arm.srdf --group arm \\\n"
      "            --scene examples/own_robot/scene.yaml --request examples/own_robot/request.yaml \\\n"
      "            --verify --json plan.json");
  plan->callback([options, &run] { run = [options] { return Plan(*options); }; });
}

}  // namespace kavo::command
