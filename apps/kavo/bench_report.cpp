#include "apps/kavo/bench_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>
#include <utility>

#include "apps/kavo/attempt_record.h"
#include "apps/kavo/provenance.h"
#include "apps/kavo/text.h"
#include "kavo/formats/json_internal.h"
#include "kavo/formats/result_json_internal.h"

namespace kavo::command {

namespace {

using Json = nlohmann::ordered_json;
using Runs = std::vector<const BenchRun*>;

// Between the two neighbours in order, linearly; of at least one value.
double Quantile(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  const double position = fraction * static_cast<double>(values.size() - 1);
  const auto below = static_cast<std::size_t>(position);
  const std::size_t above = std::min(below + 1, values.size() - 1);
  const double weight = position - static_cast<double>(below);
  return values[below] + weight * (values[above] - values[below]);
}

template <typename Value>
std::vector<double> Collect(const Runs& runs, Value&& value) {
  std::vector<double> values;
  for (const BenchRun* run : runs) {
    values.push_back(static_cast<double>(value(*run)));
  }
  return values;
}

template <typename Value>
double Median(const Runs& runs, Value&& value) {
  return Quantile(Collect(runs, value), 0.5);
}

template <typename Condition>
Runs Those(const Runs& runs, Condition&& condition) {
  Runs those;
  std::copy_if(runs.begin(), runs.end(), std::back_inserter(those),
               [&](const BenchRun* run) { return condition(*run); });
  return those;
}

Runs Found(const Runs& runs) {
  return Those(runs, [](const BenchRun& run) { return run.found; });
}

Runs Unproven(const Runs& runs) {
  return Those(runs, [](const BenchRun& run) {
    return run.found && run.verdict != planning::PathProof::Verdict::kFree;
  });
}

Runs WithValidEnds(const Runs& runs) {
  return Those(runs, [](const BenchRun& run) { return run.HasValidEnds(); });
}

Runs FailingCheck(const Runs& runs) {
  return Those(runs, [](const BenchRun& run) { return run.found && !run.passes_check; });
}

std::string Count(std::size_t count) { return std::to_string(count); }

// Median, mean and 95th percentile; NaN of nothing.
struct Summary {
  explicit Summary(const std::vector<double>& values) {
    if (!values.empty()) {
      median = Quantile(values, 0.5);
      mean = std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
      high = Quantile(values, 0.95);
    }
  }

  double median = std::nan("");
  double mean = std::nan("");
  double high = std::nan("");
};

// What is measured of the runs of one planner.
struct Figures {
  // Of some of the runs: those that every planner in a comparison has solved.
  Figures(const Runs& runs, const Runs& solved)
      : search(Collect(runs, [](const BenchRun& run) { return run.report.search_seconds; })),
        shortening(Collect(runs, [](const BenchRun& run) { return run.report.shortening_seconds; })),
        both(Collect(runs, [](const BenchRun& run) { return run.Seconds(); })),
        raw_waypoints(Collect(solved, [](const BenchRun& run) { return run.report.num_raw_waypoints; })),
        waypoints(Collect(solved, [](const BenchRun& run) { return run.path.size(); })),
        raw_length(Collect(solved, [](const BenchRun& run) { return run.report.raw_length; })),
        length(Collect(solved, [](const BenchRun& run) { return run.length; })),
        nodes(Collect(solved,
                      [](const BenchRun& run) {
                        return std::accumulate(run.report.num_nodes.begin(), run.report.num_nodes.end(),
                                               std::uint64_t{0});
                      })),
        motions(Collect(solved, [](const BenchRun& run) { return run.report.num_motions; })),
        placements(Collect(solved, [](const BenchRun& run) {
          return run.IsOfMotions() ? run.report.num_placements : run.report.num_validity_checks;
        })) {}

  // Of runs with valid ends, solved or not.
  Summary search;
  Summary shortening;
  Summary both;
  Summary raw_waypoints;
  Summary waypoints;
  Summary raw_length;
  Summary length;
  Summary nodes;
  Summary motions;
  // Configurations in which the robot was placed.
  Summary placements;
};

// A cell for a number that may be missing.
template <typename Text>
std::string Cell(double value, const Text& text) {
  return std::isnan(value) ? "-" : text(value);
}
std::string TimeCell(double seconds) { return Cell(seconds, Time); }
std::string NumberCell(double value) {
  return Cell(value, [](double number) { return Number(number, 4); });
}

using Row = std::vector<std::string>;

Row OutcomeRow(const std::string& family, const Runs& runs) {
  std::set<std::size_t> problems;
  for (const BenchRun* run : runs) {
    problems.insert(run->problem);
  }
  const Runs valid = WithValidEnds(runs);
  const std::vector<double> seconds = Collect(valid, [](const BenchRun& run) { return run.Seconds(); });
  const Summary both(seconds);
  return {
      Printable(family),
      Count(problems.size()),
      Count(runs.size()),
      Count(runs.size() - valid.size()),
      Count(Found(runs).size()),
      valid.empty()
          ? "-"
          : Number(100.0 * static_cast<double>(Found(runs).size()) / static_cast<double>(valid.size()), 3) +
                " %",
      Count(FailingCheck(runs).size()),
      Count(Unproven(runs).size()),
      TimeCell(both.median),
      TimeCell(both.mean),
      TimeCell(both.high),
      valid.empty() ? "-" : Time(Quantile(seconds, 1.0))};
}

const Row kOutcomeTitles = {"family", "problems", "runs",   "invalid", "solved", "",
                            "bad",    "unproven", "median", "mean",    "95 %",   "longest"};

Row TimeRow(const std::string& name, const Figures& figures) {
  Row row = {Printable(name)};
  for (const Summary& part : {figures.search, figures.shortening}) {
    for (const double seconds : {part.median, part.mean, part.high}) {
      row.push_back(TimeCell(seconds));
    }
  }
  return row;
}

// As `kPathTitles` names them.
std::vector<double> PathValues(const Figures& figures) {
  return {figures.raw_waypoints.median, figures.waypoints.median, figures.raw_length.median,
          figures.length.median,        figures.length.mean,      figures.nodes.median,
          figures.motions.median,       figures.placements.median};
}

Row PathRow(const std::string& name, const Figures& figures) {
  const std::vector<double> values = PathValues(figures);
  Row row = {Printable(name)};
  std::transform(values.begin(), values.end(), std::back_inserter(row), NumberCell);
  return row;
}

const Row kTimeTitles = {"times", "search", "mean", "95 %", "shortening", "mean", "95 %"};
const Row kPathTitles = {"medians of solved", "raw waypoints", "waypoints", "raw length", "length",
                         "mean length",       "nodes",         "motions",   "placements"};

// What each number of a planner is times the same one of the first.
Row RatioRow(const std::vector<double>& values, const std::vector<double>& first) {
  Row row = {"  times the first"};
  for (std::size_t i = 0; i < values.size(); ++i) {
    row.push_back(Cell(first[i] > 0.0 ? values[i] / first[i] : std::nan(""),
                       [](double ratio) { return Number(ratio, 3); }));
  }
  return row;
}

// A row for each planner with the ratios below it.
// \param texts How each of the values is written.
template <typename Values>
std::string Compared(const Row& titles, const std::vector<std::string>& names,
                     const std::vector<Figures>& figures, const Values& values, std::string (*text)(double)) {
  std::vector<Row> rows = {titles};
  for (std::size_t k = 0; k < figures.size(); ++k) {
    const std::vector<double> of_planner = values(figures[k]);
    Row row = {names[k]};
    std::transform(of_planner.begin(), of_planner.end(), std::back_inserter(row), text);
    rows.push_back(row);
    if (k > 0) {
      rows.push_back(RatioRow(of_planner, values(figures[0])));
    }
  }
  return Table(rows);
}

std::string EdgeCounts(const Runs& runs) {
  const Runs failing = Those(FailingCheck(runs), [](const BenchRun& run) { return !run.IsOfMotions(); });
  if (failing.empty()) {
    return {};
  }
  static const std::array<std::pair<Edge, const char*>, 3> kEdges = {
      {{Edge::kConnection, "the connection of the two trees, longer than a step and not checked"},
       {Edge::kShort, "a segment shorter than a step, not checked"},
       {Edge::kBetween, "a checked segment, between two of the points that were checked"}}};
  std::string text = "\n" + Count(failing.size()) +
                     " found paths of sampled segments are bad. The first bad configuration lies on\n";
  for (const auto& [edge, name] : kEdges) {
    const auto is_there = [edge = edge](const BenchRun& run) { return run.first_bad_edge == edge; };
    text += "  " + Count(Those(failing, is_there).size()) + "  " + name + "\n";
  }
  const std::vector<double> depths = Collect(failing, [](const BenchRun& run) { return run.depth; });
  return text + "deepest contact of such a path: median " + Distance(Quantile(depths, 0.5)) + ", at most " +
         Distance(Quantile(depths, 1.0)) + "\n";
}

// What the verdicts do not hold for, in lines.
std::string ScopeText(const std::vector<Problem>& problems) {
  std::map<std::string, std::size_t> counts;
  std::string text;
  for (const Problem& problem : problems) {
    for (const std::string& name : problem.situation.scope.Ignored()) {
      ++counts[name];
    }
  }
  for (const auto& [name, count] : counts) {
    text += "ignored in " + Count(count) + " of " + Count(problems.size()) + " problems: " + name + "\n";
  }
  if (!problems.empty() && !problems.front().situation.scope.uncovered_links.empty()) {
    text += "for the covered links only (not " +
            JoinQuoted(problems.front().situation.scope.uncovered_links) + ")\n";
  }
  if (!problems.empty()) {
    text += "self-collision: " + problems.front().situation.scope.SelfCollision() + "\n";
  }
  return text.empty() ? text : "\n" + text;
}

Json ToJson(const BenchRun& run, const Problem& problem,
            const std::vector<planning::CSpacePlanner>& planners) {
  Json json = {{"problem", run.problem},
               {"repeat", run.repeat},
               {"planner", planning::ToString(planners[run.planner])},
               {"seed", run.seed},
               {"status", planning::ToString(run.report.status)},
               {"fault", run.fault},
               {"ignored", problem.situation.scope.Ignored()},
               {"uncovered_links", problem.situation.scope.uncovered_links},
               {"self_collision_pairs", problem.situation.scope.num_self_collision_pairs},
               {"held_joints", HeldJoints(*problem.situation.robot)},
               {"found", run.found},
               {"iterations", run.report.num_iterations},
               {"nodes", run.report.num_nodes},
               {"validity_checks", run.report.num_validity_checks},
               {"motions", run.report.num_motions},
               {"placements", run.report.num_placements},
               {"divisions", run.report.num_divisions},
               {"samples_drawn", run.report.num_samples_drawn},
               {"samples_rejected", run.report.num_samples_rejected},
               {"search_seconds", run.report.search_seconds},
               {"shortening_seconds", run.report.shortening_seconds}};
  if (run.found) {
    json.update({{"raw_waypoints", run.report.num_raw_waypoints},
                 {"raw_length", run.report.raw_length},
                 {"waypoints", run.path.size()},
                 {"length", run.length},
                 {"proof", planning::ToString(*run.verdict)},
                 {"check_step", run.check_step},
                 {"passes_check", run.passes_check},
                 {"path", Json::array()}});
    for (const Eigen::VectorXd& q : run.path) {
      json["path"].push_back(std::vector<double>(q.begin(), q.end()));
    }
    if (!run.passes_check) {
      json.update({{"first_bad_edge", ToString(run.first_bad_edge)}, {"depth", run.depth}});
    }
  }
  return json;
}

// \param robot_model That of most problems, null where none is to be drawn.
Json ToJson(const Problem& problem, const Json& robot_model) {
  Json json = {{"family", problem.family},
               {"name", problem.name},
               {"scene_file", problem.scene_file},
               {"request_file", problem.request_file},
               {"start", formats::ToArray(problem.query.start)},
               {"stages", formats::StagesToJson(problem.query.stages, {})},
               {"robot_model", nullptr},
               {"scene", nullptr}};
  if (!robot_model.is_null()) {
    const Situation& situation = problem.situation;
    json["scene"] = formats::SceneToJson(formats::DrawScene(situation.world, situation.base_pose));
    // It may hold something, and joints may stand elsewhere.
    Json own = formats::RobotToJson(formats::DrawRobot(*situation.robot, situation.held));
    if (own != robot_model) {
      json["robot_model"] = std::move(own);
    }
  }
  return json;
}

}  // namespace

namespace {

// Rows of families, in the order of the problems.
std::string FamilyTables(const std::vector<Problem>& problems, const Runs& runs) {
  std::vector<std::pair<std::string, Runs>> families;
  for (const BenchRun* run : runs) {
    const std::string& family = problems[run->problem].family;
    if (families.empty() || families.back().first != family) {
      families.emplace_back(family, Runs());
    }
    families.back().second.push_back(run);
  }
  if (families.size() > 1) {
    families.emplace_back("all", runs);
  }
  std::vector<Row> outcomes = {kOutcomeTitles};
  std::vector<Row> times = {kTimeTitles};
  std::vector<Row> paths = {kPathTitles};
  for (const auto& [family, of_family] : families) {
    const Figures figures(WithValidEnds(of_family), Found(of_family));
    outcomes.push_back(OutcomeRow(family, of_family));
    times.push_back(TimeRow(family, figures));
    paths.push_back(PathRow(family, figures));
  }
  return Table(outcomes) + "\n" + Table(times) + "\n" + Table(paths);
}

// Rows of planners. Lengths, nodes and so on are of the runs that all of them have solved.
std::string PlannerTables(const Runs& runs, const std::vector<planning::CSpacePlanner>& planners) {
  std::map<std::pair<std::size_t, std::size_t>, std::size_t> num_solving;
  for (const BenchRun* run : Found(runs)) {
    ++num_solving[{run->problem, run->repeat}];
  }
  std::vector<std::string> names;
  std::vector<Figures> figures;
  std::vector<Row> outcomes = {kOutcomeTitles};
  outcomes.front().front() = "planner";
  for (std::size_t k = 0; k < planners.size(); ++k) {
    const Runs own = Those(runs, [k](const BenchRun& run) { return run.planner == k; });
    const Runs solved = Those(Found(own), [&](const BenchRun& run) {
      return num_solving[{run.problem, run.repeat}] == planners.size();
    });
    names.emplace_back(ToString(planners[k]));
    figures.emplace_back(WithValidEnds(own), solved);
    outcomes.push_back(OutcomeRow(names.back(), own));
  }
  Row paths = kPathTitles;
  paths.front() = "medians of solved by all";
  const auto times_of = [](const Summary& summary) {
    return std::vector<double>{summary.median, summary.mean, summary.high};
  };
  std::string text = Table(outcomes);
  for (const auto& [title, part] :
       {std::pair("search", &Figures::search), std::pair("shortening", &Figures::shortening),
        std::pair("both", &Figures::both)}) {
    text += "\n" + Compared(
                       {title, "median", "mean", "95 %"}, names, figures,
                       [&, part = part](const Figures& f) { return times_of(f.*part); }, TimeCell);
  }
  return text + "\n" + Compared(paths, names, figures, PathValues, NumberCell);
}

}  // namespace

std::string BenchTables(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs,
                        const std::vector<planning::CSpacePlanner>& planners, std::size_t num_wanted) {
  Runs all;
  for (const BenchRun& run : runs) {
    all.push_back(&run);
  }
  const std::string stopped = runs.size() == num_wanted
                                  ? ""
                                  : "STOPPED after " + Count(runs.size()) + " of " + Count(num_wanted) +
                                        " runs; the tables are of these\n\n";
  return stopped + (planners.size() > 1 ? PlannerTables(all, planners) : FamilyTables(problems, all)) +
         EdgeCounts(all) + ScopeText(problems);
}

std::string BenchJson(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs,
                      const std::vector<planning::CSpacePlanner>& planners, std::size_t num_wanted,
                      const BenchOrigin& origin) {
  const Json robot_model = origin.drawing ? formats::RobotToJson(*origin.drawing) : Json();
  Json json = {{"format", formats::kBenchFormat},
               {"format_version", formats::kFormatVersion},
               {"version", Version()},
               {"arguments", origin.arguments},
               {"files", formats::FilesToJson(origin.files)},
               {"robot", origin.robot.name},
               {"joint_names", JointNames(*origin.robot.description)},
               {"settings", formats::SettingsToJson(AllSettings(origin.settings.Config()))},
               {"planners", Json::array()},
               {"num_wanted", num_wanted},
               {"stopped", runs.size() != num_wanted},
               {"robot_model", robot_model},
               {"problems", Json::array()},
               {"runs", Json::array()}};
  for (const planning::CSpacePlanner planner : planners) {
    json["planners"].push_back(ToString(planner));
  }
  for (const Problem& problem : problems) {
    json["problems"].push_back(ToJson(problem, robot_model));
  }
  for (const BenchRun& run : runs) {
    json["runs"].push_back(ToJson(run, problems[run.problem], planners));
  }
  return formats::JsonText(json);
}

}  // namespace kavo::command
