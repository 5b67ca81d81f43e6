#include "kavo/motion_planning/trajectory/time_optimal.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "kavo/motion_planning/trajectory/path_rates_internal.h"
#include "kavo/motion_planning/trajectory/trajectory_builder_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/trajectory/time_optimal";
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Of a blend; even, so that its middle is an end of one.
constexpr int kNumParts = 32;

// In the pass from the start strips are this much wider, within what `kUsedShare` leaves: where the square of
// the rate is as large as a strip allows, rounding must not leave nothing.
constexpr double kWidthForward = 1.0 + 1e-10;

// All (x, y) with |by_x x + by_y y| <= 1.
struct Strip {
  double by_x = 0.0;
  double by_y = 0.0;
};

struct Range {
  double low = 0.0;
  double high = 0.0;

  bool IsEmpty() const { return !(low <= high); }
  // What keeps |by v + rest| <= width.
  void CutBy(double by, double rest, double width = 1.0) {
    if (by != 0.0) {
      const double one = (width - rest) / by;
      const double other = (-width - rest) / by;
      low = std::max(low, std::min(one, other));
      high = std::min(high, std::max(one, other));
    }
  }
};

// A part of the path, and what may be said about the squares of the rate of s at its start, x, and at its
// end, y, as long as it is passed under constant acceleration.
struct Part {
  std::size_t piece = 0;
  double along = 0.0;
  double length = 0.0;
  // Both are no larger.
  double largest = 0.0;
  // On a line: (y - x) / (2 length) is no larger either way.
  double acceleration = 0.0;
  // On a blend: begin and end among the strips; none on a line.
  std::size_t first_strip = 0;
  std::size_t end_strip = 0;
};

class Timing {
 public:
  Timing(const BlendedPath& path, const MotionLimits& limits)
      : velocity_(kUsedShare * limits.velocity), acceleration_(kUsedShare * limits.acceleration) {
    for (std::size_t i = 0; i < path.Pieces().size(); ++i) {
      const BlendedPath::Piece& piece = path.Pieces()[i];
      if (piece.kind == BlendedPath::Piece::Kind::kLine) {
        const double rate = LargestRate(piece.direction_in, velocity_);
        parts_.push_back(
            {i, 0.0, piece.length, rate * rate, LargestRate(piece.direction_in, acceleration_), 0, 0});
      } else {
        AddBlend(i, piece);
      }
      stops_.resize(parts_.size(), false);
      stops_.back() = piece.stops_at_end;
    }
  }

  // From which squares of the rate the rest of the path can be done, part by part from the end. False where
  // there are none, or not the one to start with.
  bool LookBack(double start, double end) {
    reachable_.assign(parts_.size() + 1, {end, end});
    for (std::size_t i = parts_.size(); i-- > 0;) {
      const Part& part = parts_[i];
      Range after = reachable_[i + 1];
      if (stops_[i] && i + 1 < parts_.size()) {
        after.high = 0.0;
      }
      after.high = std::min(after.high, part.largest);
      if (after.IsEmpty()) {
        return false;
      }
      reachable_[i + 1] = after;
      if (part.first_strip == part.end_strip) {
        const double change = 2.0 * part.acceleration * part.length;
        reachable_[i] = {std::max(0.0, after.low - change), std::min(part.largest, after.high + change)};
      } else {
        reachable_[i] = {after.low > 0.0 ? ExtremeStart(part, after, -1.0) : 0.0,
                         ExtremeStart(part, after, 1.0)};
      }
    }
    return reachable_.front().low <= start && start <= reachable_.front().high;
  }

  void GoForward(double start, TrajectoryBuilder& builder) const {
    double x = start;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
      const Part& part = parts_[i];
      if (part.first_strip == part.end_strip) {
        x = PassLine(part, x, reachable_[i + 1], builder);
        continue;
      }
      Range next = reachable_[i + 1];
      for (std::size_t k = part.first_strip; k < part.end_strip; ++k) {
        next.CutBy(strips_[k].by_y, strips_[k].by_x * x, kWidthForward);
      }
      const double y = std::clamp(next.high, reachable_[i + 1].low, reachable_[i + 1].high);
      builder.Add({part.piece, part.along, std::sqrt(x), (y - x) / (2.0 * part.length), 0.0,
                   2.0 * part.length / (std::sqrt(x) + std::sqrt(y))});
      x = y;
    }
  }

 private:
  // A coordinate's acceleration is direction (y - x) / (2 length) + curve x at the start of a part, and the
  // same with y and the direction there at its end.
  void AddBlend(std::size_t index, const BlendedPath::Piece& piece) {
    const double length = piece.length / kNumParts;
    for (int k = 0; k < kNumParts; ++k) {
      Part part{index, k * length, length, kInfinity, 0.0, strips_.size(), 0};
      for (Eigen::Index i = 0; i < velocity_.size(); ++i) {
        const double in = piece.direction_in[i];
        const double turn = piece.direction_out[i] - in;
        const double here = in + turn * k / kNumParts;
        const double there = in + turn * (k + 1) / kNumParts;
        const double fastest = std::max(std::fabs(here), std::fabs(there));
        if (fastest == 0.0) {
          continue;
        }
        part.largest = std::min(part.largest, velocity_[i] / fastest);
        const double unit = 2.0 * length * acceleration_[i];
        const double curve = 2.0 * turn / kNumParts;
        strips_.push_back({(curve - here) / unit, here / unit});
        strips_.push_back({-there / unit, (curve + there) / unit});
      }
      part.largest *= part.largest;
      part.end_strip = strips_.size();
      parts_.push_back(part);
    }
  }

  // The largest x (or, with a sign of -1, the smallest) from which some y of a range is reached: a linear
  // program in two unknowns, solved by one strip after the other (Seidel, 1991). NaN if there is none.
  double ExtremeStart(const Part& part, const Range& after, double sign) const {
    double x = sign > 0.0 ? part.largest : 0.0;
    double y = after.high;
    bool is_possible = true;
    for (std::size_t k = part.first_strip; k < part.end_strip; ++k) {
      const Strip& strip = strips_[k];
      const double value = strip.by_x * x + strip.by_y * y;
      if (std::fabs(value) <= 1.0) {
        continue;
      }
      // Then the best place is on the edge that was passed.
      const double edge = value > 0.0 ? 1.0 : -1.0;
      if (std::fabs(strip.by_x) >= std::fabs(strip.by_y)) {
        // x = (edge - by_y y) / by_x
        const double slope = -strip.by_y / strip.by_x;
        const double zero = edge / strip.by_x;
        Range range = after;
        CutByBounds(slope, zero, part.largest, range);
        for (std::size_t j = part.first_strip; j < k; ++j) {
          range.CutBy(strips_[j].by_x * slope + strips_[j].by_y, strips_[j].by_x * zero);
        }
        y = (sign * slope >= 0.0) ? range.high : range.low;
        x = zero + slope * y;
        is_possible = is_possible && !range.IsEmpty();
      } else {
        // y = (edge - by_x x) / by_y
        const double slope = -strip.by_x / strip.by_y;
        const double zero = edge / strip.by_y;
        Range range{0.0, part.largest};
        CutByBounds(slope, zero - after.low, after.high - after.low, range);
        for (std::size_t j = part.first_strip; j < k; ++j) {
          range.CutBy(strips_[j].by_x + strips_[j].by_y * slope, strips_[j].by_y * zero);
        }
        x = sign > 0.0 ? range.high : range.low;
        y = zero + slope * x;
        is_possible = is_possible && !range.IsEmpty();
      }
    }
    // Standing still is always possible: only rounding says otherwise.
    return is_possible || after.low == 0.0 ? std::clamp(x, 0.0, part.largest) : kNaN;
  }

  // What keeps zero + slope v from 0 to `largest`.
  static void CutByBounds(double slope, double zero, double largest, Range& range) {
    if (slope != 0.0) {
      const double one = -zero / slope;
      const double other = (largest - zero) / slope;
      range.low = std::max(range.low, std::min(one, other));
      range.high = std::min(range.high, std::max(one, other));
    }
  }

  // Faster, at one speed, slower.
  static double PassLine(const Part& part, double x, const Range& after, TrajectoryBuilder& builder) {
    const double twice = 2.0 * part.acceleration;
    const double y = std::min(after.high, x + twice * part.length);
    const double peak = std::max({x, y, std::min(part.largest, 0.5 * (x + y + twice * part.length))});
    const double faster = std::min((peak - x) / twice, part.length);
    const double slower = std::min((peak - y) / twice, part.length - faster);
    const double top = std::sqrt(peak);
    builder.Add({part.piece, 0.0, std::sqrt(x), part.acceleration, 0.0, 2.0 * faster / (std::sqrt(x) + top)});
    builder.Add({part.piece, faster, top, 0.0, 0.0, (part.length - faster - slower) / top});
    builder.Add({part.piece, part.length - slower, top, -part.acceleration, 0.0,
                 2.0 * slower / (top + std::sqrt(y))});
    return y;
  }

  Eigen::VectorXd velocity_;
  Eigen::VectorXd acceleration_;
  std::vector<Part> parts_;
  std::vector<Strip> strips_;
  // Whether the robot stops at the end of a part.
  std::vector<bool> stops_;
  // At the start of each part, and at the end of the path.
  std::vector<Range> reachable_;
};

}  // namespace

std::optional<Trajectory> TimeOptimalTrajectory(const BlendedPath& path, const MotionLimits& limits,
                                                const EndSpeeds& speeds) {
  KAVO_CHECK(!path.IsSmooth(), kFile, 30) << "A smooth path is for a trajectory of limited jerk.";
  const MotionLimits without_jerk{limits.velocity, limits.acceleration, {}};
  ValidateMotionLimits(without_jerk, path.Start().size());
  const std::optional<Rates> rates = RatesOf(path, speeds);
  TrajectoryBuilder builder(path, without_jerk);
  if (!rates) {
    return {};
  }
  if (!path.Pieces().empty()) {
    Timing timing(path, without_jerk);
    const double start = rates->start * rates->start;
    if (!timing.LookBack(start, rates->end * rates->end)) {
      return {};
    }
    timing.GoForward(start, builder);
  }
  return builder.Build(rates->end);
}

Trajectory TimeOptimalTrajectory(const BlendedPath& path, const MotionLimits& limits) {
  return *TimeOptimalTrajectory(path, limits, {});
}

}  // namespace kavo::planning
