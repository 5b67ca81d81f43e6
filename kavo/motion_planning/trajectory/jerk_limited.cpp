#include "kavo/motion_planning/trajectory/jerk_limited.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "kavo/motion_planning/trajectory/path_rates_internal.h"
#include "kavo/motion_planning/trajectory/trajectory_builder_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/trajectory/jerk_limited";

using Piece = BlendedPath::Piece;

// From above, until rounding stops it: the C library's is not the same everywhere.
double CubeRoot(double value) {
  double root = std::max(1.0, value);
  while (true) {
    const double next = (2.0 * root + value / (root * root)) / 3.0;
    if (!(next < root)) {
      return root;
    }
    root = next;
  }
}

// The value between two at which a condition ends that holds at the lower one.
template <typename Condition>
double Last(double low, double high, const Condition& holds) {
  if (holds(high)) {
    return high;
  }
  for (double middle = 0.5 * (low + high); low < middle && middle < high; middle = 0.5 * (low + high)) {
    (holds(middle) ? low : high) = middle;
  }
  return low;
}

// What the rate of s and its derivatives may be on a line.
struct RateLimits {
  double speed = 0.0;
  double acceleration = 0.0;
  double jerk = 0.0;
};

// From one speed to another, without acceleration at both ends, as fast as may be.
struct Ramp {
  // Two parts of jerk, and one of acceleration between them.
  double jerk_time = 0.0;
  double acceleration_time = 0.0;

  Ramp(double from, double to, const RateLimits& limits) {
    const double change = std::fabs(to - from);
    const double longest = limits.acceleration / limits.jerk;
    if (change > limits.acceleration * longest) {
      jerk_time = longest;
      acceleration_time = change / limits.acceleration - longest;
    } else {
      jerk_time = std::sqrt(change / limits.jerk);
    }
  }
  double Duration() const { return 2.0 * jerk_time + acceleration_time; }
};

// By symmetry the speed is that in the middle on the average.
double RampLength(double from, double to, const RateLimits& limits) {
  return 0.5 * (from + to) * Ramp(from, to, limits).Duration();
}

// The largest rate with which a smooth blend keeps all limits: its direction goes from one to the other
// without leaving what is between, its second derivative is largest in the middle and its third at the ends.
double LargestBlendRate(const Piece& blend, const MotionLimits& limits) {
  const Eigen::VectorXd turn = (blend.direction_out - blend.direction_in) / blend.length;
  return std::min({LargestRate(blend.direction_in, limits.velocity),
                   LargestRate(blend.direction_out, limits.velocity),
                   std::sqrt(LargestRate(1.5 * turn, limits.acceleration)),
                   CubeRoot(LargestRate(6.0 / blend.length * turn, *limits.jerk))});
}

class Timing {
 public:
  Timing(const BlendedPath& path, const MotionLimits& limits) : path_(path) {
    for (const Piece& piece : path.Pieces()) {
      const bool is_line = piece.kind == Piece::Kind::kLine;
      limits_.push_back(is_line ? RateLimits{LargestRate(piece.direction_in, limits.velocity),
                                             LargestRate(piece.direction_in, limits.acceleration),
                                             LargestRate(piece.direction_in, *limits.jerk)}
                                : RateLimits{LargestBlendRate(piece, limits), 0.0, 0.0});
    }
  }

  // The largest rates between pieces that the limits of both sides and the lengths of lines allow. False
  // where they are not those that the path is to begin and end with.
  bool FindRates(double start, double end) {
    const std::size_t n = limits_.size();
    rates_.assign(n + 1, start);
    rates_[n] = end;
    for (std::size_t i = 1; i < n; ++i) {
      rates_[i] = path_.Pieces()[i - 1].stops_at_end ? 0.0 : std::min(limits_[i - 1].speed, limits_[i].speed);
    }
    for (std::size_t i = n; i-- > 0;) {
      rates_[i] = LargestBeside(i, rates_[i + 1], rates_[i]);
    }
    for (std::size_t i = 0; i < n; ++i) {
      rates_[i + 1] = LargestBeside(i, rates_[i], rates_[i + 1]);
    }
    return rates_.front() == start && rates_.back() == end && start <= limits_.front().speed &&
           end <= limits_.back().speed;
  }

  void Build(TrajectoryBuilder& builder) const {
    for (std::size_t i = 0; i < limits_.size(); ++i) {
      const double length = path_.Pieces()[i].length;
      if (path_.Pieces()[i].kind != Piece::Kind::kLine) {
        builder.Add({i, 0.0, rates_[i], 0.0, 0.0, length / rates_[i]});
      } else {
        PassLine(i, length, builder);
      }
    }
  }

 private:
  // The largest rate, up to the one wanted, at one end of a piece that has another at its other end.
  double LargestBeside(std::size_t index, double other, double wanted) const {
    const Piece& piece = path_.Pieces()[index];
    if (piece.kind != Piece::Kind::kLine || wanted <= other) {
      return std::min(wanted, other);
    }
    return Last(other, wanted,
                [&](double rate) { return RampLength(other, rate, limits_[index]) <= piece.length; });
  }

  void PassLine(std::size_t index, double length, TrajectoryBuilder& builder) const {
    const RateLimits& limits = limits_[index];
    const double from = rates_[index];
    const double to = rates_[index + 1];
    const double top = Last(std::max(from, to), std::max({from, to, limits.speed}), [&](double rate) {
      return RampLength(from, rate, limits) + RampLength(rate, to, limits) <= length;
    });
    const double faster = RampLength(from, top, limits);
    const double slower = RampLength(top, to, limits);
    AddRamp(index, 0.0, from, top, builder);
    builder.Add({index, faster, top, 0.0, 0.0, (length - faster - slower) / top});
    AddRamp(index, std::max(length - slower, faster), top, to, builder);
  }

  void AddRamp(std::size_t index, double along, double from, double to, TrajectoryBuilder& builder) const {
    const RateLimits& limits = limits_[index];
    const Ramp ramp(from, to, limits);
    const double jerk = from < to ? limits.jerk : -limits.jerk;
    TrajectoryBuilder::Part part{index, along, from, 0.0, jerk, ramp.jerk_time};
    const auto add = [&](double next_jerk, double next_duration) {
      builder.Add(part);
      const double t = part.duration;
      part.along += t * (part.speed + t * (part.acceleration / 2.0 + t * part.jerk / 6.0));
      part.speed += t * (part.acceleration + t * part.jerk / 2.0);
      part.acceleration += t * part.jerk;
      part.jerk = next_jerk;
      part.duration = next_duration;
    };
    add(0.0, ramp.acceleration_time);
    add(-jerk, ramp.jerk_time);
    builder.Add(part);
  }

  const BlendedPath& path_;
  // Of each piece.
  std::vector<RateLimits> limits_;
  // At the start of each piece, and at the end of the path.
  std::vector<double> rates_;
};

}  // namespace

std::optional<Trajectory> JerkLimitedTrajectory(const BlendedPath& path, const MotionLimits& limits,
                                                const EndSpeeds& speeds) {
  KAVO_CHECK(path.IsSmooth() || path.NumBlends() == 0, kFile, 30)
      << "A trajectory of limited jerk takes a smooth path.";
  ValidateMotionLimits(limits, path.Start().size());
  KAVO_CHECK(limits.jerk, kFile, 31) << "A trajectory of limited jerk takes limits of jerk.";
  const std::optional<Rates> rates = RatesOf(path, speeds);
  if (!rates) {
    return {};
  }
  TrajectoryBuilder builder(path, limits);
  if (!path.Pieces().empty()) {
    const MotionLimits used{kUsedShare * limits.velocity, kUsedShare * limits.acceleration,
                            kUsedShare * *limits.jerk};
    Timing timing(path, used);
    if (!timing.FindRates(rates->start, rates->end)) {
      return {};
    }
    timing.Build(builder);
  }
  return builder.Build(rates->end);
}

Trajectory JerkLimitedTrajectory(const BlendedPath& path, const MotionLimits& limits) {
  return *JerkLimitedTrajectory(path, limits, {});
}

}  // namespace kavo::planning
