#include "kavo/motion_planning/util/motion_shortening.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/motion_shortening";

class Shortener {
 public:
  Shortener(std::vector<Eigen::VectorXd> path, const Environment& environment, double resolution,
            const StopCondition& stop_condition)
      : path_(std::move(path)),
        environment_(environment),
        resolution_(resolution),
        stop_condition_(stop_condition) {}

  // From each waypoint straight to the last one that a motion leads to.
  void DropWaypoints() {
    for (std::size_t from = 0; from + 2 < path_.size(); ++from) {
      for (std::size_t to = path_.size() - 1; to > from + 1; --to) {
        if (IsValid(path_[from], path_[to])) {
          path_.erase(path_.begin() + static_cast<std::ptrdiff_t>(from) + 1,
                      path_.begin() + static_cast<std::ptrdiff_t>(to));
          break;
        }
      }
    }
  }

  ShortenedPath Result() && { return {std::move(path_), was_stopped_}; }

 private:
  bool IsValid(const Eigen::VectorXd& from, const Eigen::VectorXd& to) {
    was_stopped_ = was_stopped_ || (stop_condition_ && stop_condition_());
    return !was_stopped_ && environment_.IsValidMotion(from, to, resolution_);
  }

  std::vector<Eigen::VectorXd> path_;
  const Environment& environment_;
  double resolution_;
  const StopCondition& stop_condition_;
  bool was_stopped_ = false;
};

}  // namespace

ShortenedPath ShortenByMotions(std::vector<Eigen::VectorXd> path, const Environment& environment,
                               const MotionShorteningOptions& options) {
  KAVO_CHECK(!path.empty(), kFile, 1) << "There is no path to shorten.";
  double longest = 0.0;
  for (std::size_t i = 1; i < path.size(); ++i) {
    longest = std::max(longest, math::Distance(path[i - 1], path[i]));
  }
  const double resolution = options.resolution > 0.0 ? options.resolution : longest / 32.0;
  Shortener shortener(std::move(path), environment, resolution, options.stop_condition);
  if (options.effort > 0 && resolution > 0.0) {
    shortener.DropWaypoints();
  }
  return std::move(shortener).Result();
}

std::vector<Eigen::VectorXd> DivideEvenly(const std::vector<Eigen::VectorXd>& path, double step_size) {
  KAVO_CHECK(step_size > 0.0, kFile, 2) << "The step [" << step_size << "] must be positive.";
  std::vector<Eigen::VectorXd> points;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (i > 0) {
      const Eigen::VectorXd way = path[i] - path[i - 1];
      const double num_parts = std::ceil(math::Norm(way) / step_size);
      for (double part = 1.0; part < num_parts; ++part) {
        points.emplace_back(path[i - 1] + way * (part / num_parts));
      }
    }
    points.push_back(path[i]);
  }
  return points;
}

}  // namespace kavo::planning
