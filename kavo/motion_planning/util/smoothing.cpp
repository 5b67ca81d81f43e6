#include "kavo/motion_planning/util/smoothing.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <unordered_map>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/environment/change_watch_internal.h"
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

}  // namespace

bool IsValidPath(const std::shared_ptr<Environment>& environment, double step_size, Eigen::VectorXd q_start,
                 Eigen::VectorXd q_end) {
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
  // Indices into `path` of the waypoints that are left.
  std::vector<int> left(path.size());
  std::iota(left.begin(), left.end(), 0);
  internal::SegmentCheck segment_check(*environment, step_size);
  // What is known of a segment, start first, holds as long as the world stays as it is.
  std::unordered_map<std::uint64_t, bool> known;
  internal::ChangeWatch change_watch(*environment);
  const auto is_valid = [&](int from, int to) {
    const auto first = static_cast<std::size_t>(left[static_cast<std::size_t>(from)]);
    const auto last = static_cast<std::size_t>(left[static_cast<std::size_t>(to)]);
    const auto [entry, is_new] = known.try_emplace(first * path.size() + last, false);
    if (is_new) {
      entry->second = segment_check.IsValid(path[first], path[last]);
    }
    return entry->second;
  };
  // False when it is time to stop.
  const auto shorten = [&](int index, bool forward) {
    if (stop_condition && stop_condition()) {
      return false;
    }
    if (change_watch.HasChanged()) {
      known.clear();
    }
    const int last = static_cast<int>(left.size()) - 1;
    const int target = forward ? last : 0;
    int reached = target;
    Search(index, reached, index, target, last, is_valid);
    const auto [first_kept, last_kept] = std::minmax(index, reached);
    if (last_kept - 1 > first_kept) {
      left.erase(left.begin() + first_kept + 1, left.begin() + last_kept);
    }
    return true;
  };

  bool goes_on = shorten(0, true) && shorten(static_cast<int>(left.size()) - 1, false);
  util::RandomGenerator<int> interior(seed);
  for (int iteration = 0; goes_on && iteration < max_iterations && left.size() > 2; ++iteration) {
    interior.SetRange(1, static_cast<int>(left.size()) - 2);
    const int index = interior.Sample();
    // The forward search removes later waypoints only: the index still names the same one after it.
    goes_on = shorten(index, true) && shorten(index, false);
  }
  ShortenedPath shortened;
  shortened.was_stopped = !goes_on;
  shortened.path.reserve(left.size());
  for (const int index : left) {
    shortened.path.push_back(path[static_cast<std::size_t>(index)]);
  }
  return shortened;
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
