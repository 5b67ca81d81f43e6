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

#include "apps/kavo/provenance.h"
#include "apps/kavo/text.h"

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

Runs FailingCheck(const Runs& runs) {
  return Those(runs, [](const BenchRun& run) { return run.found && !run.passes_check; });
}

std::string Count(std::size_t count) { return std::to_string(count); }

std::vector<std::string> OutcomeRow(const std::string& family, const Runs& runs) {
  std::set<std::size_t> problems;
  for (const BenchRun* run : runs) {
    problems.insert(run->problem);
  }
  const Runs valid = Those(runs, [](const BenchRun& run) { return run.HasValidEnds(); });
  std::vector<std::string> row = {Printable(family),
                                  Count(problems.size()),
                                  Count(runs.size()),
                                  Count(runs.size() - valid.size()),
                                  Count(Found(runs).size()),
                                  "-",
                                  Count(FailingCheck(runs).size())};
  if (valid.empty()) {
    row.insert(row.end(), 4, "-");
    return row;
  }
  row[5] =
      Number(100.0 * static_cast<double>(Found(runs).size()) / static_cast<double>(valid.size()), 3) + " %";
  const std::vector<double> seconds = Collect(valid, [](const BenchRun& run) { return run.Seconds(); });
  const double sum = std::accumulate(seconds.begin(), seconds.end(), 0.0);
  for (const double time : {Quantile(seconds, 0.5), sum / static_cast<double>(seconds.size()),
                            Quantile(seconds, 0.95), Quantile(seconds, 1.0)}) {
    row.push_back(Time(time));
  }
  return row;
}

std::vector<std::string> PathRow(const std::string& family, const Runs& runs) {
  const Runs found = Found(runs);
  if (found.empty()) {
    std::vector<std::string> row(8, "-");
    row[0] = Printable(family);
    return row;
  }
  const auto nodes = [](const BenchRun& run) {
    return std::accumulate(run.report.num_nodes.begin(), run.report.num_nodes.end(), std::uint64_t{0});
  };
  return {Printable(family),
          Time(Median(found, [](const BenchRun& run) { return run.report.search_seconds; })),
          Time(Median(found, [](const BenchRun& run) { return run.report.shortening_seconds; })),
          Number(Median(found, [](const BenchRun& run) { return run.report.num_raw_waypoints; })),
          Number(Median(found, [](const BenchRun& run) { return run.path.size(); })),
          Number(Median(found, [](const BenchRun& run) { return run.report.raw_length; }), 4),
          Number(Median(found, [](const BenchRun& run) { return run.length; }), 4),
          Number(Median(found, nodes))};
}

std::string EdgeCounts(const Runs& runs) {
  const Runs failing = FailingCheck(runs);
  if (failing.empty()) {
    return {};
  }
  static const std::array<std::pair<Edge, const char*>, 3> kEdges = {
      {{Edge::kConnection, "the connection of the two trees, longer than a step and not checked"},
       {Edge::kShort, "a segment shorter than a step, not checked"},
       {Edge::kBetween, "a checked segment, between two of the points that were checked"}}};
  std::string text = "\n" + Count(failing.size()) +
                     " found paths fail the check at a tenth of the step. The first bad " +
                     "configuration lies on\n";
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

Json ToJson(const BenchRun& run, const Problem& problem) {
  Json json = {{"family", problem.family},
               {"problem", problem.name},
               {"scene", problem.scene_file},
               {"request", problem.request_file},
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
               {"samples_drawn", run.report.num_samples_drawn},
               {"samples_rejected", run.report.num_samples_rejected},
               {"search_seconds", run.report.search_seconds},
               {"shortening_seconds", run.report.shortening_seconds}};
  if (run.found) {
    json.update({{"raw_waypoints", run.report.num_raw_waypoints},
                 {"raw_length", run.report.raw_length},
                 {"waypoints", run.path.size()},
                 {"length", run.length},
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

}  // namespace

std::string BenchTables(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs,
                        std::size_t num_wanted) {
  // Families in the order of the problems.
  std::vector<std::pair<std::string, Runs>> families;
  Runs all;
  for (const BenchRun& run : runs) {
    const std::string& family = problems[run.problem].family;
    if (families.empty() || families.back().first != family) {
      families.emplace_back(family, Runs());
    }
    families.back().second.push_back(&run);
    all.push_back(&run);
  }
  if (families.size() > 1) {
    families.emplace_back("all", all);
  }
  std::vector<std::vector<std::string>> outcomes = {{"family", "problems", "runs", "invalid", "solved", "",
                                                     "bad paths", "median", "mean", "95 %", "longest"}};
  std::vector<std::vector<std::string>> paths = {{"medians of solved", "search", "shortening",
                                                  "raw waypoints", "waypoints", "raw length", "length",
                                                  "nodes"}};
  for (const auto& [family, of_family] : families) {
    outcomes.push_back(OutcomeRow(family, of_family));
    paths.push_back(PathRow(family, of_family));
  }
  const std::string stopped = runs.size() == num_wanted
                                  ? ""
                                  : "STOPPED after " + Count(runs.size()) + " of " + Count(num_wanted) +
                                        " runs; the tables are of these\n\n";
  return stopped + Table(outcomes) + "\n" + Table(paths) + EdgeCounts(all) + ScopeText(problems);
}

std::string BenchJson(const std::vector<Problem>& problems, const std::vector<BenchRun>& runs,
                      std::size_t num_wanted, const formats::LoadedRobot& robot,
                      const PlannerSettings& settings, const std::vector<formats::InputFile>& files) {
  Json json = {{"version", Version()},       {"files", Json::array()},
               {"robot", robot.name},        {"joint_names", JointNames(*robot.description)},
               {"settings", Json::object()}, {"stopped", runs.size() != num_wanted},
               {"runs", Json::array()}};
  for (const auto& [name, setting] : AllSettings(settings.Config())) {
    std::visit([&json, &name = name](const auto& value) { json["settings"][name] = value; }, setting);
  }
  for (const formats::InputFile& file : files) {
    json["files"].push_back({{"role", file.role},
                             {"name", file.name},
                             {"sha256", file.sha256.empty() ? Json() : Json(file.sha256)}});
  }
  for (const BenchRun& run : runs) {
    json["runs"].push_back(ToJson(run, problems[run.problem]));
  }
  return json.dump(2) + "\n";
}

}  // namespace kavo::command
