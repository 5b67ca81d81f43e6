#include "apps/kavo/bench_parts.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <tuple>

#include "apps/kavo/command.h"
#include "kavo/formats/result_json_internal.h"
#include "kavo/formats/unhonoured.h"

namespace kavo::command {

namespace {

using Json = nlohmann::ordered_json;
using planning::PathProof;
using planning::SearchStatus;

// Of the values from the first to the last one, that with this name.
template <typename Enum>
Enum Named(const Json& name, Enum last) {
  for (int i = 0; i <= static_cast<int>(last); ++i) {
    if (name == ToString(static_cast<Enum>(i))) {
      return static_cast<Enum>(i);
    }
  }
  throw std::out_of_range("found " + name.dump() + ", which is none of the words that stand there");
}

void ReadScope(const Json& run, Scope& scope) {
  for (const formats::Unhonoured::Kind kind : formats::UnhonouredKinds()) {
    const Json& ignored = run.at("ignored");
    if (std::find(ignored.begin(), ignored.end(), ToString(kind)) != ignored.end()) {
      scope.ignored.insert(kind);
    }
  }
  run.at("uncovered_links").get_to(scope.uncovered_links);
  run.at("self_collision_pairs").get_to(scope.num_self_collision_pairs);
}

// Numbers that no computation came to are null.
double NumberOf(const Json& value) { return value.is_null() ? std::nan("") : value.get<double>(); }

BenchRun ReadRun(const Json& json, const std::vector<planning::CSpacePlanner>& planners) {
  BenchRun run;
  json.at("problem").get_to(run.problem);
  json.at("repeat").get_to(run.repeat);
  json.at("seed").get_to(run.seed);
  json.at("found").get_to(run.found);
  const planning::CSpacePlanner planner = ParsePlanner("planner", json.at("planner").get<std::string>());
  run.planner =
      static_cast<std::size_t>(std::find(planners.begin(), planners.end(), planner) - planners.begin());
  QueryReport& report = run.report;
  report.status = Named(json.at("status"), SearchStatus::kLineEndsEarly);
  json.at("iterations").get_to(report.num_iterations);
  json.at("nodes").get_to(report.num_nodes);
  json.at("validity_checks").get_to(report.num_validity_checks);
  json.at("motions").get_to(report.num_motions);
  json.at("placements").get_to(report.num_placements);
  report.search_seconds = NumberOf(json.at("search_seconds"));
  report.shortening_seconds = NumberOf(json.at("shortening_seconds"));
  // Goals that other planners do not plan to are planned to by this one, which alone counts motions.
  report.planner = ToString(report.num_motions > 0 ? planning::CSpacePlanner::kBiRrt : planner);
  if (run.found) {
    json.at("raw_waypoints").get_to(report.num_raw_waypoints);
    report.raw_length = NumberOf(json.at("raw_length"));
    run.length = NumberOf(json.at("length"));
    // Tables count its waypoints.
    run.path.resize(json.at("waypoints").get<std::size_t>());
    run.verdict = Named(json.at("proof"), PathProof::Verdict::kStopped);
    json.at("passes_check").get_to(run.passes_check);
    if (!run.passes_check) {
      run.first_bad_edge = Named(json.at("first_bad_edge"), Edge::kBetween);
      run.depth = NumberOf(json.at("depth"));
    }
  }
  return run;
}

// Does what looks into a document.
template <typename Work>
auto Reading(const std::string& name, const Work& work) {
  const std::string begin = name + ": is not as 'kavo bench --json' writes it: ";
  try {
    return work();
  } catch (const Json::exception& error) {
    throw UnusableInput(begin + error.what());
  } catch (const std::out_of_range& error) {
    throw UnusableInput(begin + error.what());
  }
}

using BenchPart = std::pair<std::string, Json>;

// Adds those of a part, which has to be one of the benchmark that the first is a part of.
void AddRuns(const BenchPart& part, const BenchPart& first, Json& runs) {
  const auto& name = part.first;
  Reading(name, [&] {
    const Json& document = part.second;
    if (document.at("format") != formats::kBenchFormat) {
      throw UnusableInput(name + ": expected the JSON that 'kavo bench --json' writes");
    }
    for (const char* const key :
         {"version", "robot", "joint_names", "files", "settings", "planners", "problems", "num_wanted"}) {
      if (document.at(key) != first.second.at(key)) {
        throw UnusableInput(name + ": is no part of the benchmark of " + first.first + ", their '" + key +
                            "' differ");
      }
    }
    const Json& own = document.at("runs");
    runs.insert(runs.end(), own.begin(), own.end());
  });
}

Json JoinRuns(const std::vector<BenchPart>& parts) {
  Json joined = parts.front().second;
  Json runs = Json::array();
  for (const BenchPart& part : parts) {
    AddRuns(part, parts.front(), runs);
  }
  const Json& planners = joined.at("planners");
  const auto place = [&planners](const Json& run) {
    return std::tuple(run.at("problem").get<std::size_t>(), run.at("repeat").get<std::size_t>(),
                      std::find(planners.begin(), planners.end(), run.at("planner")) - planners.begin());
  };
  std::sort(runs.begin(), runs.end(), [&](const Json& a, const Json& b) { return place(a) < place(b); });
  for (std::size_t i = 1; i < runs.size(); ++i) {
    if (place(runs[i]) == place(runs[i - 1])) {
      throw UnusableInput("two parts have repeat " + runs[i].at("repeat").dump() + " of problem " +
                          runs[i].at("problem").dump() + ", expected each run once");
    }
  }
  joined["stopped"] = runs.size() != joined.at("num_wanted").get<std::size_t>();
  joined["runs"] = std::move(runs);
  return joined;
}

BenchDocument Read(const Json& document, const std::string& name) {
  BenchDocument bench;
  for (const Json& planner : document.at("planners")) {
    bench.planners.push_back(ParsePlanner(name, planner.get<std::string>()));
  }
  for (const Json& problem : document.at("problems")) {
    Problem& read = bench.problems.emplace_back();
    problem.at("family").get_to(read.family);
    problem.at("name").get_to(read.name);
  }
  for (const Json& run : document.at("runs")) {
    bench.runs.push_back(ReadRun(run, bench.planners));
    ReadScope(run, bench.problems.at(bench.runs.back().problem).situation.scope);
  }
  document.at("num_wanted").get_to(bench.num_wanted);
  return bench;
}

}  // namespace

nlohmann::ordered_json JoinBenches(const std::vector<std::pair<std::string, Json>>& parts) {
  return Reading(parts.front().first, [&] { return JoinRuns(parts); });
}

BenchDocument ReadBench(const Json& document, const std::string& name) {
  return Reading(name, [&] { return Read(document, name); });
}

}  // namespace kavo::command
