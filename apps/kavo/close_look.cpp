#include "apps/kavo/close_look.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <variant>

#include "apps/kavo/interrupt.h"
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
                                             const std::vector<Eigen::VectorXd>& configurations) {
  return planning::InspectConfigurations(*situation.robot->description, situation.world.view(),
                                         configurations, [] { return Signal() != 0; });
}

// A configuration to look at, of an attempt.
struct Candidate {
  formats::InspectionRecord::What what;
  std::optional<std::size_t> goal;
  Eigen::VectorXd configuration;
};

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

std::vector<Candidate> Candidates(const Attempt& attempt) {
  using What = formats::InspectionRecord::What;
  std::vector<Candidate> candidates = {{What::kStart, {}, attempt.query.start}};
  const std::size_t stage = attempt.parts.empty() ? 0 : attempt.parts.size() - 1;
  const StagedResults::Part* const part = attempt.parts.empty() ? nullptr : &attempt.parts[stage];
  const std::vector<Goal>& goals = attempt.query.stages[stage].goals;
  for (std::size_t i = 0; i < goals.size(); ++i) {
    const bool has_report = part != nullptr && i < part->report.goals.size();
    AddGoal(i, goals[i], has_report ? &part->report.goals[i] : nullptr, candidates);
  }
  if (part != nullptr && part->line && !part->line->IsComplete() && !attempt.searches.empty() &&
      !attempt.searches.back().raw_path.empty()) {
    candidates.push_back({What::kFault, {}, attempt.searches.back().raw_path.back()});
  }
  if (attempt.check && attempt.check->bad) {
    candidates.push_back({What::kFault, {}, *attempt.check->bad});
  }
  return candidates;
}

// Waypoints, and places between them: `at` as in a profile.
void DividePath(const std::vector<Eigen::VectorXd>& path, std::vector<double>& at,
                std::vector<Eigen::VectorXd>& configurations) {
  const double step = Length(path) / kNumAlongPath;
  at = {0.0};
  configurations = {path.front()};
  for (std::size_t i = 1; i < path.size(); ++i) {
    const double length = (path[i] - path[i - 1]).norm();
    const double num_parts = length > 0.0 ? std::max(1.0, std::round(length / step)) : 1.0;
    for (int k = 1; k <= static_cast<int>(num_parts); ++k) {
      const double fraction = k / num_parts;
      at.push_back(static_cast<double>(i - 1) + fraction);
      configurations.emplace_back(path[i - 1] + fraction * (path[i] - path[i - 1]));
    }
  }
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

std::vector<formats::InspectionRecord> InspectAttempt(const Attempt& attempt, const Situation& situation) {
  std::vector<Candidate> candidates = Candidates(attempt);
  std::vector<Eigen::VectorXd> configurations;
  for (const Candidate& candidate : candidates) {
    configurations.push_back(candidate.configuration);
  }
  std::vector<formats::InspectionRecord> records;
  for (const ConfigurationInspection& found : Inspect(situation, configurations)) {
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
                                                const formats::TrajectoryRecord* trajectory) {
  if (!attempt.results.path_found) {
    return std::nullopt;
  }
  formats::ProfileRecord profile;
  profile.is_in_seconds = trajectory != nullptr;
  std::vector<Eigen::VectorXd> configurations;
  if (trajectory != nullptr) {
    profile.at = trajectory->samples.times;
    configurations = trajectory->samples.positions;
  } else {
    DividePath(attempt.results.path, profile.at, configurations);
  }
  for (const ConfigurationInspection& found : Inspect(situation, configurations)) {
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
