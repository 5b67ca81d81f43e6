#include "kavo/motion_planning/util/smoothing.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>

#include "kavo/motion_planning/rrt/rrt_util.h"
#include "kavo/motion_planning/util/vector_math_internal.h"
#include "kavo/util/binary_search_order.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"

namespace kavo::planning {

namespace {

int LastIndex(const std::vector<Eigen::VectorXd>& path) { return static_cast<int>(path.size()) - 1; }

// Holds for equal indices too.
bool AreAdjacent(int index, int other_index) { return std::abs(index - other_index) <= 1; }

}  // namespace

bool IsValidPath(const std::shared_ptr<Environment>& environment, double step_size, Eigen::VectorXd q_start,
                 Eigen::VectorXd q_end) {
  KAVO_CHECK(environment->CSpaceDimension() == q_start.size(), "motion_planning/util/smoothing", 27);
  KAVO_CHECK(q_start.size() == q_end.size(), "motion_planning/util/smoothing", 28);
  KAVO_CHECK(step_size > 0., "motion_planning/util/smoothing", 31);
  const double length = internal::Distance(q_start, q_end);
  if (step_size > length) {
    return true;
  }
  if (!std::isfinite(length)) {
    return false;
  }
  const Eigen::VectorXd step = internal::StepToward(q_start, q_end, step_size);
  const double num_steps = std::floor(length / internal::Norm(step));
  KAVO_CHECK(num_steps <= std::numeric_limits<int>::max(), "motion_planning/util/smoothing", 38)
      << "A segment of length [" << length << "] has too many steps of [" << step_size << "] to be checked.";
  Eigen::VectorXd q(q_start.size());
  for (const int k : util::GetBinarySearchOrder(static_cast<int>(num_steps))) {
    q = q_start + k * step;
    if (!environment->IsValidConfiguration(q)) {
      return false;
    }
  }
  return environment->IsValidConfiguration(q_end);
}

std::vector<Eigen::VectorXd> DiscretizePath(const std::vector<Eigen::VectorXd>& path, double step_size) {
  std::vector<Eigen::VectorXd> points;
  for (std::size_t i = 0; i + 1 < path.size(); ++i) {
    const Eigen::VectorXd& end = path[i + 1];
    const Eigen::VectorXd step = internal::StepToward(path[i], end, step_size);
    Eigen::VectorXd q = path[i];
    if (i > 0) {
      q += step;
    }
    bool moved = true;
    while (moved && internal::Distance(q, end) > step_size) {
      points.push_back(q);
      moved = internal::Advance(step, q);
    }
    points.push_back(q);
    points.push_back(end);
  }
  return points;
}

std::vector<Eigen::VectorXd> ConvertToConfigurations(const std::vector<std::shared_ptr<Node>>& nodes) {
  std::vector<Eigen::VectorXd> path;
  ExtractConfigurations(nodes, path);
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
  return *TryToShortCircuitPath(path, environment, step_size, max_iterations, seed, StopCondition());
}

std::optional<std::vector<Eigen::VectorXd>> TryToShortCircuitPath(
    const std::vector<Eigen::VectorXd>& path, const std::shared_ptr<Environment>& environment,
    double step_size, int max_iterations, unsigned int seed, const StopCondition& stop_condition) {
  KAVO_CHECK(path.size() > 1, "motion_planning/util/smoothing", 134);
  std::vector<Eigen::VectorXd> shortened = path;
  if (shortened.size() == 2) {
    return shortened;
  }
  // Both are false when it is time to stop.
  const auto shorten_forward = [&](int index) {
    if (stop_condition && stop_condition()) {
      return false;
    }
    RemoveConfigurations(shortened, index,
                         GetShortCircuitIndex(index, true, shortened, environment, step_size));
    return true;
  };
  const auto shorten_backward = [&](int index) {
    if (stop_condition && stop_condition()) {
      return false;
    }
    RemoveConfigurations(shortened, GetShortCircuitIndex(index, false, shortened, environment, step_size),
                         index);
    return true;
  };

  if (!shorten_forward(0) || !shorten_backward(LastIndex(shortened))) {
    return std::nullopt;
  }
  util::RandomGenerator<int> interior(seed);
  for (int iteration = 0; iteration < max_iterations && shortened.size() > 2; ++iteration) {
    interior.SetRange(1, LastIndex(shortened) - 1);
    const int index = interior.Sample();
    // The forward search removes later waypoints only: the index still names the same one after it.
    if (!shorten_forward(index) || !shorten_backward(index)) {
      return std::nullopt;
    }
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
  if (AreAdjacent(index, start_index)) {
    return;
  }
  const int candidate = index;
  if (IsValidPath(environment, step_size, path[static_cast<std::size_t>(start_index)],
                  path[static_cast<std::size_t>(candidate)])) {
    if (candidate == 0 || candidate == LastIndex(path) || AreAdjacent(candidate, unreachable_index)) {
      return;
    }
    index = candidate + (unreachable_index - candidate) / 2;
    ShortCircuitRecursive(start_index, index, candidate, unreachable_index, path, environment, step_size);
  } else {
    if (AreAdjacent(reachable_index, candidate)) {
      index = reachable_index;
      return;
    }
    index = reachable_index + (candidate - reachable_index) / 2;
    ShortCircuitRecursive(start_index, index, reachable_index, candidate, path, environment, step_size);
  }
}

}  // namespace kavo::planning
