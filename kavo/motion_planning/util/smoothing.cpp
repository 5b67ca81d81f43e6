#include "kavo/motion_planning/util/smoothing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <optional>
#include <unordered_map>
#include <utility>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/environment/change_watch_internal.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/motion_planning/util/segment_check_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"

namespace kavo::planning {

namespace {

int LastIndex(const std::vector<Eigen::VectorXd>& path) { return static_cast<int>(path.size()) - 1; }

// Holds for equal indices too.
bool AreAdjacent(int index, int other_index) { return std::abs(index - other_index) <= 1; }

// Halves the waypoints between a reachable and an unreachable one until `index` is the farthest that is
// found reachable from the one at `start_index`.
template <typename IsValid>
void Search(int start_index, int& index, int reachable_index, int unreachable_index, int last_index,
            const IsValid& is_valid) {
  while (!AreAdjacent(index, start_index)) {
    const int candidate = index;
    if (is_valid(start_index, candidate)) {
      if (candidate == 0 || candidate == last_index || AreAdjacent(candidate, unreachable_index)) {
        return;
      }
      index = candidate + (unreachable_index - candidate) / 2;
      reachable_index = candidate;
    } else {
      if (AreAdjacent(reachable_index, candidate)) {
        index = reachable_index;
        return;
      }
      index = reachable_index + (candidate - reachable_index) / 2;
      unreachable_index = candidate;
    }
  }
}

// The short cuts of one path, which stays as it is meanwhile. Where whole turns of a coordinate change
// nothing, a short cut goes the short way round if it can, and all that follows is turned.
class Shortener {
 public:
  Shortener(const std::vector<Eigen::VectorXd>& path, const Environment& environment, double step_size,
            bool may_turn)
      : path_(path),
        environment_(environment),
        may_turn_(may_turn),
        left_(path.size()),
        is_turned_(path.size(), false),
        segment_check_(environment, step_size),
        change_watch_(environment) {
    std::iota(left_.begin(), left_.end(), 0);
  }

  // Index of the last of the waypoints that are left.
  int Last() const { return static_cast<int>(left_.size()) - 1; }

  // Cuts as far as a search from a waypoint reaches.
  void Shorten(int index, bool forward) {
    if (change_watch_.HasChanged()) {
      known_.clear();
    }
    const int target = forward ? Last() : 0;
    int reached = target;
    Search(index, reached, index, target, Last(),
           [this](int from, int to) { return FindCut(from, to) != Cut::kNone; });
    const auto [first_kept, last_kept] = std::minmax(index, reached);
    if (last_kept - 1 > first_kept) {
      is_turned_[Waypoint(last_kept)] = FindCut(index, reached) == Cut::kTurned;
      left_.erase(left_.begin() + first_kept + 1, left_.begin() + last_kept);
    }
  }

  // The waypoints that are left. Turned ones are other numbers than those that were checked: empty if they
  // are not valid.
  std::optional<std::vector<Eigen::VectorXd>> Result() {
    std::vector<Eigen::VectorXd> shortened;
    shortened.reserve(left_.size());
    Eigen::VectorXd turns = Eigen::VectorXd::Zero(path_.front().size());
    bool is_any_turned = false;
    for (const int index : left_) {
      const auto waypoint = static_cast<std::size_t>(index);
      shortened.push_back(path_[waypoint]);
      if (is_turned_[waypoint]) {
        const auto former = static_cast<std::size_t>(left_[shortened.size() - 2]);
        turns += TurnsBetween(waypoint, former);
        is_any_turned = true;
      }
      if (is_any_turned) {
        shortened.back() += turns;
        const bool is_cut = index != left_[shortened.size() - 2] + 1;
        if (!environment_.IsValidConfiguration(shortened.back()) ||
            (is_cut && !segment_check_.IsValid(shortened[shortened.size() - 2], shortened.back()))) {
          return std::nullopt;
        }
      }
    }
    return shortened;
  }

 private:
  enum class Cut { kNone, kAsItRuns, kTurned };

  std::size_t Waypoint(int index) const {
    return static_cast<std::size_t>(left_[static_cast<std::size_t>(index)]);
  }

  // What takes one waypoint as near as it can to another.
  Eigen::VectorXd TurnsBetween(std::size_t from, std::size_t to) const {
    Eigen::VectorXd turns = Eigen::VectorXd::Zero(path_[from].size());
    for (const Eigen::Index i : environment_.PeriodicCoordinates()) {
      turns[i] = WholeTurns(path_[from][i], path_[to][i]);
    }
    return turns;
  }

  Cut FindCut(int from, int to) {
    const std::size_t first = Waypoint(from);
    const std::size_t last = Waypoint(to);
    if (may_turn_ && !environment_.PeriodicCoordinates().empty()) {
      const Eigen::VectorXd turns = TurnsBetween(last, first);
      if (!turns.isZero(0.0)) {
        if (IsFree(first, last, Cut::kTurned, path_[last] + turns)) {
          return Cut::kTurned;
        }
        // Where the path was turned in between, the cut may be longer than what it cuts off.
        const auto [lower, upper] = std::minmax(from, to);
        for (int index = lower + 1; index <= upper; ++index) {
          if (is_turned_[Waypoint(index)]) {
            return Cut::kNone;
          }
        }
      }
    }
    return IsFree(first, last, Cut::kAsItRuns, path_[last]) ? Cut::kAsItRuns : Cut::kNone;
  }

  bool IsFree(std::size_t first, std::size_t last, Cut cut, const Eigen::VectorXd& q_last) {
    const std::uint64_t segment = 2 * (first * path_.size() + last) + (cut == Cut::kTurned ? 1 : 0);
    const auto [entry, is_new] = known_.try_emplace(segment, false);
    if (is_new) {
      entry->second = segment_check_.IsValid(path_[first], q_last);
    }
    return entry->second;
  }

  const std::vector<Eigen::VectorXd>& path_;
  const Environment& environment_;
  bool may_turn_;
  // Indices into `path_` of the waypoints that are left.
  std::vector<int> left_;
  // By index into `path_`: whether the cut that ends there goes the short way round.
  std::vector<bool> is_turned_;
  internal::SegmentCheck segment_check_;
  internal::ChangeWatch change_watch_;
  // What is known of a segment, start first, holds as long as the world stays as it is.
  std::unordered_map<std::uint64_t, bool> known_;
};

}  // namespace

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as compiled callers hand it over.
bool IsValidPath(const std::shared_ptr<Environment>& environment, double step_size, Eigen::VectorXd q_start,
                 Eigen::VectorXd q_end) {  // NOLINT(performance-unnecessary-value-param)
  return internal::SegmentCheck(*environment, step_size).IsValid(q_start, q_end);
}

std::vector<Eigen::VectorXd> DiscretizePath(const std::vector<Eigen::VectorXd>& path, double step_size) {
  std::vector<Eigen::VectorXd> points;
  Eigen::VectorXd next;
  for (std::size_t i = 0; i + 1 < path.size(); ++i) {
    const Eigen::VectorXd& end = path[i + 1];
    const Eigen::VectorXd step = math::StepToward(path[i], end, step_size);
    Eigen::VectorXd q = path[i];
    if (i > 0) {
      q += step;
    }
    double distance = math::Distance(q, end);
    for (bool comes_nearer = true; comes_nearer && distance > step_size;) {
      points.push_back(q);
      next = q + step;
      const double next_distance = math::Distance(next, end);
      comes_nearer = next_distance < distance;
      if (comes_nearer) {
        q.swap(next);
        distance = next_distance;
      }
    }
    points.push_back(q);
    points.push_back(end);
  }
  return points;
}

std::vector<Eigen::VectorXd> ConvertToConfigurations(const std::vector<std::shared_ptr<Node>>& nodes) {
  std::vector<Eigen::VectorXd> path;
  path.reserve(nodes.size());
  for (const std::shared_ptr<Node>& node : nodes) {
    path.push_back(node->Configuration());
  }
  return path;
}

void RemoveConfigurations(std::vector<Eigen::VectorXd>& path, int first_index, int last_index) {
  if (last_index - 1 > first_index) {
    path.erase(path.begin() + first_index + 1, path.begin() + last_index);
  }
}

std::vector<Eigen::VectorXd> ShortCircuitPath(const std::vector<Eigen::VectorXd>& path,
                                              const std::shared_ptr<Environment>& environment,
                                              double step_size, int max_iterations, unsigned int seed) {
  return ShortCircuitPathUntil(StopCondition(), path, environment, step_size, max_iterations, seed).path;
}

ShortenedPath ShortCircuitPathUntil(const StopCondition& stop_condition,
                                    const std::vector<Eigen::VectorXd>& path,
                                    const std::shared_ptr<Environment>& environment, double step_size,
                                    int max_iterations, unsigned int seed) {
  KAVO_CHECK(path.size() > 1, "motion_planning/util/smoothing", 134);
  if (path.size() == 2) {
    return {path};
  }
  const auto shorten_path = [&](bool may_turn) -> std::optional<ShortenedPath> {
    Shortener shortener(path, *environment, step_size, may_turn);
    // False when it is time to stop.
    const auto shorten = [&](int index, bool forward) {
      const bool goes_on = !stop_condition || !stop_condition();
      if (goes_on) {
        shortener.Shorten(index, forward);
      }
      return goes_on;
    };
    bool goes_on = shorten(0, true) && shorten(shortener.Last(), false);
    util::RandomGenerator<int> interior(seed);
    for (int iteration = 0; goes_on && iteration < max_iterations && shortener.Last() > 1; ++iteration) {
      interior.SetRange(1, shortener.Last() - 1);
      const int index = interior.Sample();
      // The forward search removes later waypoints only: the index still names the same one after it.
      goes_on = shorten(index, true) && shorten(index, false);
    }
    auto shortened = shortener.Result();
    return shortened ? std::optional(ShortenedPath{std::move(*shortened), !goes_on}) : std::nullopt;
  };
  const std::optional<ShortenedPath> shortened = shorten_path(true);
  return shortened ? *shortened : *shorten_path(false);
}

int GetShortCircuitIndex(int start_index, bool forward, const std::vector<Eigen::VectorXd>& path,
                         const std::shared_ptr<Environment>& environment, double step_size) {
  const int target = forward ? LastIndex(path) : 0;
  int index = target;
  ShortCircuitRecursive(start_index, index, start_index, target, path, environment, step_size);
  return index;
}

void ShortCircuitRecursive(int start_index, int& index, int reachable_index, int unreachable_index,
                           const std::vector<Eigen::VectorXd>& path,
                           const std::shared_ptr<Environment>& environment, double step_size) {
  internal::SegmentCheck segment_check(*environment, step_size);
  Search(start_index, index, reachable_index, unreachable_index, LastIndex(path), [&](int from, int to) {
    return segment_check.IsValid(path[static_cast<std::size_t>(from)], path[static_cast<std::size_t>(to)]);
  });
}

}  // namespace kavo::planning
