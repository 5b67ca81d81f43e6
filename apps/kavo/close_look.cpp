#include "apps/kavo/close_look.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <variant>

#include "kavo/motion_planning/util/configuration_inspection.h"

namespace kavo::command {

namespace {

using planning::ConfigurationFault;
using planning::ConfigurationInspection;

// About as many configurations are looked at along a path, and all its waypoints.
constexpr double kNumAlongPath = 400.0;

std::vector<formats::ContactRecord> ContactsOf(const ConfigurationInspection& found, const World& world) {
  std::vector<formats::ContactRecord> records;
  const std::vector<ObstacleHandle> obstacles =
      found.contacts.empty() ? std::vector<ObstacleHandle>() : world.obstacles();
  for (const ConfigurationFault::Contact& contact : found.contacts) {
    formats::ContactRecord& record = records.emplace_back();
    record.frame = contact.frame;
    record.sphere = contact.sphere;
    record.obstacle = contact.obstacle_name;
    record.obstacle_index = static_cast<std::size_t>(
        std::find(obstacles.begin(), obstacles.end(), contact.obstacle) - obstacles.begin());
    record.depth = contact.depth;
  }
  for (const ConfigurationFault::SelfContact& contact : found.self_contacts) {
    formats::ContactRecord& record = records.emplace_back();
    record.frame = contact.frames[0];
    record.sphere = contact.spheres[0];
    record.other_frame = contact.frames[1];
    record.other_sphere = contact.spheres[1];
    record.depth = contact.depth;
  }
  return records;
}

std::vector<ConfigurationInspection> Inspect(const Situation& situation,
                                             const std::vector<Eigen::VectorXd>& configurations,
                                             const StopCondition& stop) {
  return planning::InspectConfigurations(*situation.robot->description, situation.world.view(),
                                         configurations, stop);
}

// A configuration to look at, of an attempt.
struct Candidate {
  formats::InspectionRecord::What what;
  std::optional<std::size_t> goal;
  Eigen::VectorXd configuration;
};

// \param index Of all goals, those of the stages before too.
void AddGoal(std::size_t index, const Goal& goal, const GoalReport* report,
             std::vector<Candidate>& candidates) {
  using What = formats::InspectionRecord::What;
  if (const auto* const q = std::get_if<Eigen::VectorXd>(&goal)) {
    candidates.push_back({What::kGoal, index, *q});
  } else if (report != nullptr && report->refused) {
    candidates.push_back({What::kGoal, index, *report->refused});
  } else if (const auto* const range = std::get_if<ConfigurationGoal>(&goal)) {
    candidates.push_back({What::kGoal, index, range->configuration});
  } else if (report != nullptr && report->nearest) {
    candidates.push_back({What::kNearest, index, report->nearest->q});
  }
}

// Where the last line that was tried ends early, as far as that is known.
std::optional<Eigen::VectorXd> EndOfLine(const Attempt& attempt) {
  if (attempt.parts.empty()) {
    return std::nullopt;
  }
  const StagedResults::Part& part = attempt.parts.back();
  if (part.ahead) {
    return part.ahead->line.blocked;
  }
  if (!part.line || part.line->IsComplete() || part.line->blocked) {
    return part.line ? part.line->blocked : std::nullopt;
  }
  return attempt.searches.empty() || attempt.searches.back().raw_path.empty()
             ? std::nullopt
             : std::optional(attempt.searches.back().raw_path.back());
}

std::vector<Candidate> Candidates(const Attempt& attempt) {
  using What = formats::InspectionRecord::What;
  std::vector<Candidate> candidates = {{What::kStart, {}, attempt.query.start}};
  const std::size_t stage = attempt.parts.empty() ? 0 : attempt.parts.size() - 1;
  std::size_t num_before = 0;
  for (std::size_t i = 0; i < stage; ++i) {
    num_before += attempt.query.stages[i].goals.size();
  }
  const StagedResults::Part* const part = attempt.parts.empty() ? nullptr : &attempt.parts[stage];
  const std::vector<Goal>& goals = attempt.query.stages[stage].goals;
  for (std::size_t i = 0; i < goals.size(); ++i) {
    const bool has_report = part != nullptr && i < part->report.goals.size();
    AddGoal(num_before + i, goals[i], has_report ? &part->report.goals[i] : nullptr, candidates);
  }
  if (const std::optional<Eigen::VectorXd> end = EndOfLine(attempt)) {
    candidates.push_back({What::kFault, {}, *end});
  }
  if (attempt.check && attempt.check->bad) {
    candidates.push_back({What::kFault, {}, attempt.check->bad->configuration});
  }
  return candidates;
}

// A configuration of a path, `at` as in a profile.
struct Sample {
  double at;
  Eigen::VectorXd configuration;
};

// Waypoints, places between them, and those where the check of the path found what it tells.
std::vector<Sample> DividePath(const std::vector<Eigen::VectorXd>& path,
                               const std::optional<CheckedPath>& check) {
  const double step = Length(path) / kNumAlongPath;
  std::vector<Sample> samples = {{0.0, path.front()}};
  for (std::size_t i = 1; i < path.size(); ++i) {
    const double length = (path[i] - path[i - 1]).norm();
    const double num_parts = length > 0.0 ? std::max(1.0, std::round(length / step)) : 1.0;
    for (int k = 1; k <= static_cast<int>(num_parts); ++k) {
      const double fraction = k / num_parts;
      samples.push_back(
          {static_cast<double>(i - 1) + fraction, path[i - 1] + fraction * (path[i] - path[i - 1])});
    }
  }
  if (check) {
    std::vector<planning::PathPlace> places = check->nearest;
    if (check->bad) {
      places.push_back(*check->bad);
    }
    for (const planning::PathPlace& place : places) {
      const double at = static_cast<double>(place.segment) + place.fraction;
      const auto next = std::lower_bound(samples.begin(), samples.end(), at,
                                         [](const Sample& sample, double to) { return sample.at < to; });
      if (next == samples.end() || next->at > at) {
        samples.insert(next, {at, place.configuration});
      }
    }
  }
  return samples;
}

}  // namespace

formats::SearchDrawing Thinned(const SearchRecord& search, std::size_t max_nodes) {
  formats::SearchDrawing drawing;
  drawing.planner = search.planner;
  drawing.raw_path = search.raw_path;
  for (const SearchTree& tree : search.trees) {
    auto& [thin, num_nodes] = drawing.trees.emplace_back();
    thin.root = tree.root;
    num_nodes = tree.nodes.size();
    const std::size_t stride = (tree.nodes.size() + max_nodes - 1) / std::max<std::size_t>(max_nodes, 1);
    // Of each node what stands for it among those that are left: parents come first.
    std::vector<std::size_t> stand_ins;
    for (std::size_t i = 0; i < tree.nodes.size() && max_nodes > 0; ++i) {
      const std::optional<std::size_t>& parent = tree.parents[i];
      if (parent && i % stride != 0) {
        stand_ins.push_back(stand_ins[*parent]);
        continue;
      }
      stand_ins.push_back(thin.nodes.size());
      thin.nodes.push_back(tree.nodes[i]);
      thin.parents.push_back(parent ? std::optional(stand_ins[*parent]) : std::nullopt);
    }
  }
  return drawing;
}

std::vector<formats::InspectionRecord> InspectAttempt(const Attempt& attempt, const Situation& situation,
                                                      const StopCondition& stop) {
  std::vector<Candidate> candidates = Candidates(attempt);
  std::vector<Eigen::VectorXd> configurations;
  configurations.reserve(candidates.size());
  for (const Candidate& candidate : candidates) {
    configurations.push_back(candidate.configuration);
  }
  std::vector<formats::InspectionRecord> records;
  for (const ConfigurationInspection& found : Inspect(situation, configurations, stop)) {
    Candidate& candidate = candidates[records.size()];
    formats::InspectionRecord& record = records.emplace_back();
    record.what = candidate.what;
    record.goal = candidate.goal;
    record.configuration = std::move(candidate.configuration);
    if (found.clearance) {
      record.clearance = found.clearance->distance;
    }
    if (found.self_clearance) {
      record.self_clearance = found.self_clearance->distance;
    }
    record.contacts = ContactsOf(found, situation.world);
    for (const ConfigurationFault::Limit& limit : found.limits) {
      record.limits.push_back({limit.coordinate, limit.value, limit.lower, limit.upper});
    }
  }
  return records;
}

std::optional<formats::ProfileRecord> ProfileOf(const Attempt& attempt, const Situation& situation,
                                                const std::optional<formats::TrajectoryRecord>& trajectory,
                                                const StopCondition& stop) {
  if (!attempt.results.path_found) {
    return std::nullopt;
  }
  formats::ProfileRecord profile;
  profile.is_in_seconds = trajectory.has_value();
  std::vector<Eigen::VectorXd> configurations;
  if (trajectory) {
    profile.at = trajectory->samples.times;
    configurations = trajectory->samples.positions;
  } else {
    for (Sample& sample : DividePath(attempt.results.path, attempt.check)) {
      profile.at.push_back(sample.at);
      configurations.push_back(std::move(sample.configuration));
    }
  }
  for (const ConfigurationInspection& found : Inspect(situation, configurations, stop)) {
    auto& clearance = profile.clearance.emplace_back();
    auto& nearest = profile.nearest.emplace_back();
    if (found.moving_clearance) {
      clearance = found.moving_clearance->distance;
      nearest = {found.moving_clearance->frame, found.moving_clearance->obstacle_name};
    }
    auto& self_clearance = profile.self_clearance.emplace_back();
    auto& self_nearest = profile.self_nearest.emplace_back();
    if (found.self_clearance) {
      self_clearance = found.self_clearance->distance;
      self_nearest = {found.self_clearance->frames[0], found.self_clearance->frames[1]};
    }
    if (auto contacts = ContactsOf(found, situation.world); !contacts.empty()) {
      profile.contacts.push_back({profile.clearance.size() - 1, std::move(contacts)});
    }
  }
  profile.at.resize(profile.clearance.size());
  return profile;
}

}  // namespace kavo::command
