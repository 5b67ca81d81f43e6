// Trajectories of the Franka arm along random paths of five waypoints, against a plain phase-plane method on
// a dense grid, stops at all corners, and a lower bound that holds for every motion. Limits are checked.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "benchmarks/ratio.h"
#include "examples/shelf.h"
#include "kavo/motion_planning/environment/robot_environment.h"
#include "kavo/motion_planning/interface/motion_planner.h"
#include "kavo/motion_planning/interface/time_path.h"
#include "kavo/motion_planning/trajectory/jerk_limited.h"
#include "kavo/motion_planning/trajectory/time_optimal.h"

namespace {

using namespace kavo::planning;
using kavo::TimedPath;
using kavo::TimePath;
using Path = std::vector<Eigen::VectorXd>;

// Every curve is valid.
class Free : public Environment {
 public:
  int CSpaceDimension() const override { return static_cast<int>(limits_.Dimension()); }
  const kavo::kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const DistanceMetric& CSpaceDistanceMetric() const override { return metric_; }
  bool IsValidConfiguration(const Eigen::VectorXd&) const override { return true; }
  std::optional<Eigen::VectorXd> SampleConfiguration() const override { return {}; }
  bool IsValidCurve(const Eigen::Ref<const Eigen::MatrixXd>&, double) const override { return true; }

 private:
  kavo::kinematics::ConfigurationLimits limits_{Eigen::VectorXd::Constant(7, -4.0),
                                                Eigen::VectorXd::Constant(7, 4.0)};
  DistanceMetric metric_ = L2Norm;
};

// The optimum along a blended path but for the width of the grid: reachable rates are found by bisection.
class GridReference {
 public:
  GridReference(const BlendedPath& path, const MotionLimits& limits, int num_points) : limits_(limits) {
    for (const BlendedPath::Piece& piece : path.Pieces()) {
      for (int k = 0; k < num_points; ++k) {
        const Eigen::VectorXd turn = piece.direction_out - piece.direction_in;
        points_.push_back({piece.direction_in + turn * k / num_points, turn / piece.length,
                           piece.length / num_points, k == 0 && stops_});
      }
      stops_ = piece.stops_at_end;
    }
  }

  double Duration() const {
    std::vector<double> reachable(points_.size() + 1, 0.0);
    for (std::size_t i = points_.size(); i-- > 0;) {
      double low = 0.0;
      double high = points_[i].stops || i == 0 ? 0.0 : LargestSquare(points_[i]);
      if (Next(points_[i], high, reachable[i + 1]) >= 0.0) {
        low = high;
      }
      for (int k = 0; k < 60 && low < high; ++k) {
        const double middle = 0.5 * (low + high);
        (Next(points_[i], middle, reachable[i + 1]) >= 0.0 ? low : high) = middle;
      }
      reachable[i] = low;
    }
    double duration = 0.0;
    double x = 0.0;
    for (std::size_t i = 0; i < points_.size(); ++i) {
      const double y = std::max(Next(points_[i], x, reachable[i + 1], 1.0 + 1e-9), 0.0);
      duration += 2.0 * points_[i].length / (std::sqrt(x) + std::sqrt(y));
      x = y;
    }
    return duration;
  }

 private:
  struct Point {
    Eigen::VectorXd direction;
    Eigen::VectorXd curve;
    double length;
    bool stops;
  };

  double LargestSquare(const Point& point) const {
    double rate = std::numeric_limits<double>::infinity();
    for (Eigen::Index i = 0; i < point.direction.size(); ++i) {
      rate = std::min(rate, limits_.velocity[i] / std::max(std::fabs(point.direction[i]), 1e-12));
    }
    return rate * rate;
  }

  // The largest square of the rate at the next point, up to `most`; negative if there is none.
  // \param width Of the limits: a little more on the way forward, for rounding.
  double Next(const Point& point, double x, double most, double width = 1.0) const {
    double low = -std::numeric_limits<double>::infinity();
    double high = (most - x) / (2.0 * point.length);
    for (Eigen::Index i = 0; i < point.direction.size(); ++i) {
      // At both ends of the way there, on which the acceleration along the path is constant.
      const double curve = point.curve[i];
      for (const double by : {point.direction[i], point.direction[i] + 3.0 * point.length * curve}) {
        if (std::fabs(by) > 1e-12) {
          const double one = (width * limits_.acceleration[i] - curve * x) / by;
          const double other = (-width * limits_.acceleration[i] - curve * x) / by;
          low = std::max(low, std::min(one, other));
          high = std::min(high, std::max(one, other));
        } else if (std::fabs(curve * x) > width * limits_.acceleration[i]) {
          return -1.0;
        }
      }
    }
    return low <= high ? x + 2.0 * point.length * high : -1.0;
  }

  const MotionLimits& limits_;
  std::vector<Point> points_;
  bool stops_ = false;
};

// No motion from rest to rest that passes all waypoints at this distance takes less: a joint goes its way
// from waypoint to waypoint, and is no faster than its limits allow after the start and before the end.
double LowerBound(const Path& path, double deviation, const MotionLimits& limits) {
  double bound = 0.0;
  for (Eigen::Index i = 0; i < path.front().size(); ++i) {
    double way = 0.0;
    for (std::size_t k = 1; k < path.size(); ++k) {
      const int num_blended = (k > 1 ? 1 : 0) + (k + 1 < path.size() ? 1 : 0);
      way += std::max(0.0, std::fabs(path[k][i] - path[k - 1][i]) - num_blended * deviation);
    }
    const double v = limits.velocity[i];
    const double a = limits.acceleration[i];
    bound = std::max(bound, way > v * v / a ? way / v + v / a : 2.0 * std::sqrt(way / a));
  }
  return bound;
}

Path RandomPath(std::mt19937& engine) {
  Path path(5, Eigen::VectorXd(7));
  for (Eigen::VectorXd& q : path) {
    for (double& value : q) {
      value = 3.0 * static_cast<double>(engine()) / 4294967295.0 - 1.5;
    }
  }
  return path;
}

// A mean and the largest.
struct Figure {
  double sum = 0.0;
  double largest = 0.0;
  int number = 0;

  void Add(double value) {
    sum += value;
    largest = std::max(largest, value);
    ++number;
  }
  double Mean() const { return sum / number; }
};

bool KeepsLimits(const Trajectory& trajectory, const MotionLimits& limits) {
  const Trajectory::LimitUse use = trajectory.UseOf(limits);
  return use.velocity <= 1.0 && use.acceleration <= 1.0 && use.jerk <= 1.0;
}

bool CompareDurations(const Environment& environment, const MotionLimits& limits, double deviation) {
  MotionLimits without_jerk = limits;
  without_jerk.jerk.reset();
  std::mt19937 engine(5);
  Figure to_grid, to_stops, to_bound, jerk_to_optimal, jerk_to_stops;
  bool is_good = true;
  for (int i = 0; i < 200; ++i) {
    const Path path = RandomPath(engine);
    const TimedPath ours = TimePath(path, environment, without_jerk, {deviation, {}, false});
    const TimedPath stops = TimePath(path, environment, without_jerk, {0.0, {}, false});
    const TimedPath jerk = TimePath(path, environment, limits, {deviation, {}, true});
    const TimedPath jerk_stops = TimePath(path, environment, limits, {0.0, {}, true});
    const double duration = ours.trajectory.Duration();
    to_grid.Add(duration / GridReference(ours.path, limits, 1000).Duration());
    to_stops.Add(duration / stops.trajectory.Duration());
    to_bound.Add(duration / LowerBound(path, deviation, limits));
    jerk_to_optimal.Add(jerk.trajectory.Duration() / duration);
    jerk_to_stops.Add(jerk.trajectory.Duration() / jerk_stops.trajectory.Duration());
    is_good &= KeepsLimits(ours.trajectory, without_jerk) && KeepsLimits(jerk.trajectory, limits);
  }
  is_good &= to_stops.largest <= 1.0 && jerk_to_stops.largest <= 1.0 && to_grid.largest <= 1.02;
  std::printf("deviation %.2f: duration by that of (mean, largest)\n", deviation);
  for (const auto& [name, figure] : {std::pair{"the same path on a grid of 1000 points a piece", to_grid},
                                     {"stops at all corners", to_stops},
                                     {"the lower bound", to_bound},
                                     {"with limited jerk: without", jerk_to_optimal},
                                     {"with limited jerk: stops at all corners", jerk_to_stops}}) {
    std::printf("  %-48s %6.4f %6.4f\n", name, figure.Mean(), figure.largest);
  }
  return is_good;
}

// One segment, where the slowest joint says how long it takes.
bool CompareLines(const Environment& environment, const MotionLimits& limits) {
  std::mt19937 engine(6);
  Figure to_optimum;
  for (int i = 0; i < 200; ++i) {
    Path path = RandomPath(engine);
    path.resize(2);
    const Eigen::VectorXd way = (path[1] - path[0]).cwiseAbs();
    const double speed = (limits.velocity.array() / way.array()).minCoeff();
    const double acceleration = (limits.acceleration.array() / way.array()).minCoeff();
    const double optimum =
        speed * speed < acceleration ? 1.0 / speed + speed / acceleration : 2.0 / std::sqrt(acceleration);
    to_optimum.Add(TimePath(path, environment, limits).trajectory.Duration() / optimum);
  }
  std::printf("one segment: duration by the optimum (mean, largest) %.9f %.9f\n", to_optimum.Mean(),
              to_optimum.largest);
  return to_optimum.largest < 1.0 + 1e-6;
}

void PrintTimes(const Environment& environment, const MotionLimits& limits) {
  std::mt19937 engine(7);
  std::vector<Path> paths(20);
  std::generate(paths.begin(), paths.end(), [&] { return RandomPath(engine); });
  BlendOptions options;
  options.deviation = 0.05;
  options.top_speeds = limits.velocity;
  const auto seconds = [&](const auto& call) {
    return kavo::benchmarks::BestSeconds([&] { std::for_each(paths.begin(), paths.end(), call); });
  };
  const double reference = seconds([&](const Path& path) {
    return GridReference(BlendPath(path, environment, options), limits, 100).Duration();
  });
  kavo::benchmarks::PrintRatio("5 waypoints, 7 joints (plain, 100 points a piece)",
                               seconds([&](const Path& path) {
                                 TimeOptimalTrajectory(BlendPath(path, environment, options), limits);
                               }),
                               reference, 20.0);
  options.is_smooth = true;
  kavo::benchmarks::PrintRatio("the same with limited jerk", seconds([&](const Path& path) {
                                 JerkLimitedTrajectory(BlendPath(path, environment, options), limits);
                               }),
                               reference, 20.0);
}

// Into the shelf and out again, blends proven.
void PrintShelf(const MotionLimits& limits) {
  const std::shared_ptr<kavo::RobotDescription> robot = kavo::LoadFrankaRobotDescription();
  const kavo::World world = kavo::examples::MakeShelf();
  const auto planner = kavo::CreateMotionPlanner(robot, world.view());
  planner->setParam("planner", "bi_rrt");
  const auto results =
      planner->planToCSpaceTarget(kavo::examples::ShelfStart(), kavo::examples::ShelfGoal(), false);
  for (const double deviation : {0.01, 0.05, 0.2}) {
    const TimedPath timed = TimePath(results.path, *robot, world.view(), limits, {deviation, {}, false});
    const double stops =
        TimePath(results.path, *robot, world.view(), limits, {0.0, {}, false}).trajectory.Duration();
    std::printf(
        "into the shelf, %zu waypoints, deviation %.2f: %.3f s, %.3f of it with stops; %zu blends, %zu of "
        "them "
        "tightened, made in %.0f us\n",
        results.path.size(), deviation, timed.trajectory.Duration(), timed.trajectory.Duration() / stops,
        timed.path.NumBlends(), timed.path.NumTightened(),
        1e6 * kavo::benchmarks::BestSeconds([&] {
          TimePath(results.path, *robot, world.view(), limits, {deviation, {}, false});
        }));
  }
}

}  // namespace

int main() {
  const Free environment;
  const MotionLimits limits = FrankaMotionLimits();
  bool is_good = CompareLines(environment, limits);
  for (const double deviation : {0.01, 0.05, 0.2}) {
    is_good &= CompareDurations(environment, limits, deviation);
  }
  PrintTimes(environment, limits);
  PrintShelf(limits);
  if (!is_good) {
    std::fprintf(stderr, "a trajectory is beyond a limit or takes too long\n");
  }
  return is_good ? 0 : 1;
}
