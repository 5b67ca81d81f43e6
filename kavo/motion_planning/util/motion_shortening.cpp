#include "kavo/motion_planning/util/motion_shortening.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "kavo/math/vector_math_internal.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/util/motion_shortening";
// Of the length of the path, in the first round.
constexpr double kLeastGain = 1.0 / 30.0;
constexpr std::uint64_t kMotionsToEffort = 128;
// No gain below it is worth a round: efforts above sixteen are as good as that.
constexpr double kNoGain = 1e-6;

using Path = std::vector<Eigen::VectorXd>;

double LengthOf(const Path& path, std::size_t first, std::size_t last) {
  double length = 0.0;
  for (std::size_t i = first; i < last; ++i) {
    length += math::Distance(path[i], path[i + 1]);
  }
  return length;
}

class MotionShortener {
 public:
  MotionShortener(Path path, const Environment& environment, const MotionShorteningOptions& options,
                  double resolution)
      : path_(std::move(path)),
        environment_(environment),
        stop_condition_(options.stop_condition),
        resolution_(resolution),
        num_motions_left_(kMotionsToEffort * static_cast<std::uint64_t>(options.effort)) {}

  bool MayGoOn() const { return path_.size() > 2 && num_motions_left_ > 0 && !was_stopped_; }

  // \param least_gain Share of the length of the path that is worth a motion.
  // \param depth How often coordinates that cannot go straight along a part are tried along its halves.
  void DoRound(double least_gain, int depth) {
    least_gain_ = least_gain * LengthOf(path_, 0, Last());
    DropWaypoints();
    const Eigen::Index dimension = environment_.CSpaceDimension();
    if (dimension > 1) {
      Straighten(0, dimension / 2, 0, Last(), depth);
      Straighten(dimension / 2, dimension, 0, Last(), depth);
    }
    DrawIn();
    CutCorners();
  }

  ShortenedPath Result() && { return {std::move(path_), was_stopped_}; }

 private:
  std::size_t Last() const { return path_.size() - 1; }

  bool IsValid(const Eigen::VectorXd& from, const Eigen::VectorXd& to) {
    was_stopped_ = was_stopped_ || (stop_condition_ && stop_condition_());
    if (was_stopped_ || num_motions_left_ == 0) {
      return false;
    }
    --num_motions_left_;
    return environment_.IsValidMotion(from, to, resolution_);
  }

  // Whether the path could go by other points between two of its waypoints, and now does.
  bool Replace(std::size_t first, std::size_t last, Path points) {
    points.insert(points.begin(), path_[first]);
    points.push_back(path_[last]);
    if (!(LengthOf(points, 0, points.size() - 1) < LengthOf(path_, first, last) - least_gain_)) {
      return false;
    }
    // What lies in the middle is farthest from the path as it was.
    const std::size_t middle = (points.size() - 1) / 2;
    for (std::size_t i = middle; i + 1 < points.size(); ++i) {
      if (!IsValid(points[i], points[i + 1])) {
        return false;
      }
    }
    for (std::size_t i = middle; i > 0; --i) {
      if (!IsValid(points[i - 1], points[i])) {
        return false;
      }
    }
    const auto begin = path_.begin() + static_cast<std::ptrdiff_t>(first);
    const auto place = path_.erase(begin, begin + static_cast<std::ptrdiff_t>(last - first) + 1);
    path_.insert(place, points.begin(), points.end());
    return true;
  }

  void DropWaypoints() {
    for (std::size_t from = 0; from + 2 < path_.size(); ++from) {
      std::size_t to = Last();
      while (to > from + 1 && !CutTo(from, to)) {
        --to;
      }
    }
  }

  bool CutTo(std::size_t from, std::size_t to) {
    if (!TurnTo(from, to) && !IsValid(path_[from], path_[to])) {
      return false;
    }
    path_.erase(path_.begin() + static_cast<std::ptrdiff_t>(from) + 1,
                path_.begin() + static_cast<std::ptrdiff_t>(to));
    return true;
  }

  // Turns what follows such that it is the short way to it, if it is not and that is valid.
  bool TurnTo(std::size_t from, std::size_t to) {
    Eigen::VectorXd turns = Eigen::VectorXd::Zero(path_[to].size());
    for (const Eigen::Index c : environment_.PeriodicCoordinates()) {
      turns[c] = WholeTurns(path_[to][c], path_[from][c]);
    }
    if (turns.isZero(0.0)) {
      return false;
    }
    Path turned(path_.begin() + static_cast<std::ptrdiff_t>(to), path_.end());
    const Eigen::VectorXd* previous = &path_[from];
    for (Eigen::VectorXd& q : turned) {
      const Eigen::VectorXd q_before = q;
      q += turns;
      if (!AreTurnsApart(q_before, q, environment_.PeriodicCoordinates()) || !IsValid(*previous, q)) {
        return false;
      }
      previous = &q;
    }
    std::move(turned.begin(), turned.end(), path_.begin() + static_cast<std::ptrdiff_t>(to));
    return true;
  }

  // Has some coordinates go evenly from one waypoint to another: all of them together where that is valid,
  // else as many as can.
  void Straighten(Eigen::Index begin, Eigen::Index end, std::size_t first, std::size_t last, int depth) {
    if (last < first + 2) {
      return;
    }
    Path points(path_.begin() + static_cast<std::ptrdiff_t>(first) + 1,
                path_.begin() + static_cast<std::ptrdiff_t>(last));
    const double length = LengthOf(path_, first, last);
    double way = 0.0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      way += math::Distance(path_[first + i], path_[first + i + 1]);
      for (Eigen::Index c = begin; c < end; ++c) {
        points[i][c] = path_[first][c] + (path_[last][c] - path_[first][c]) * (way / length);
      }
    }
    if (Replace(first, last, std::move(points))) {
      return;
    }
    if (end > begin + 1) {
      Straighten(begin, (begin + end) / 2, first, last, depth);
      Straighten((begin + end) / 2, end, first, last, depth);
    } else if (depth > 0 && last > first + 2) {
      Straighten(begin, end, first, (first + last + 1) / 2, depth - 1);
      Straighten(begin, end, (first + last) / 2, last, depth - 1);
    }
  }

  void DrawIn() {
    for (std::size_t i = 1; i < Last(); ++i) {
      const double before = math::Distance(path_[i - 1], path_[i]);
      const double after = math::Distance(path_[i], path_[i + 1]);
      const Eigen::VectorXd on_line =
          path_[i - 1] + (path_[i + 1] - path_[i - 1]) * (before / (before + after));
      Replace(i - 1, i + 1, {0.5 * (path_[i] + on_line)});
    }
  }

  void CutCorners() {
    for (std::size_t i = 1; i < Last(); ++i) {
      const bool is_cut =
          Replace(i - 1, i + 1, {0.5 * (path_[i - 1] + path_[i]), 0.5 * (path_[i] + path_[i + 1])});
      // The corners that come of it are for the next round.
      i += is_cut ? 1 : 0;
    }
  }

  Path path_;
  const Environment& environment_;
  const StopCondition& stop_condition_;
  double resolution_;
  std::uint64_t num_motions_left_;
  double least_gain_ = 0.0;
  bool was_stopped_ = false;
};

}  // namespace

ShortenedPath ShortenByMotions(Path path, const Environment& environment,
                               const MotionShorteningOptions& options) {
  KAVO_CHECK(!path.empty(), kFile, 1) << "There is no path to shorten.";
  for (const Eigen::VectorXd& q : path) {
    KAVO_CHECK(q.size() == environment.CSpaceDimension(), kFile, 3)
        << "A waypoint of [" << q.size() << "] coordinates does not fit the ["
        << environment.CSpaceDimension() << "] of the configuration space.";
  }
  double resolution = options.resolution;
  if (!(resolution > 0.0)) {
    for (std::size_t i = 0; i + 1 < path.size(); ++i) {
      resolution = std::max(resolution, math::Distance(path[i], path[i + 1]) / 32.0);
    }
  }
  if (options.effort <= 0 || !(resolution > 0.0)) {
    return {std::move(path)};
  }
  MotionShortener shortener(std::move(path), environment, options, resolution);
  double least_gain = kLeastGain;
  for (int round = 1; round <= options.effort && least_gain > kNoGain && shortener.MayGoOn(); ++round) {
    shortener.DoRound(least_gain, round);
    least_gain *= 0.5;
  }
  return std::move(shortener).Result();
}

std::vector<Eigen::VectorXd> DivideEvenly(const Path& path, double step_size) {
  KAVO_CHECK(step_size > 0.0, kFile, 2) << "The step [" << step_size << "] must be positive.";
  Path points;
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
