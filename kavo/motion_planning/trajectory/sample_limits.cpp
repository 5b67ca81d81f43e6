#include "kavo/motion_planning/trajectory/sample_limits.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kavo/math/bezier_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/trajectory/sample_limits";

// How far what is interpolated may exceed limits that the motion keeps.
struct Allowance {
  // Of the acceleration its limit times this; of the velocity, the time between samples times the limit of
  // acceleration times this.
  double acceleration;
  double velocity;
};

Allowance AllowanceOf(SampleInterpolation interpolation) {
  switch (interpolation) {
    case SampleInterpolation::kLinear:
      return {1.0, 0.0};
    case SampleInterpolation::kCubic:
      return {5.0 / 3.0, 0.26};
    case SampleInterpolation::kQuintic:
      break;
  }
  return {2.08, 0.36};
}

// The peak of one kind.
class Peak {
 public:
  Peak(bool is_acceleration, bool is_interpolated) {
    peak_.is_acceleration = is_acceleration;
    peak_.is_interpolated = is_interpolated;
  }

  void Look(std::size_t coordinate, double time, double value, double limit, double allowed) {
    const double use = std::fabs(value) / allowed;
    if (std::isfinite(limit) && (peak_.limit == 0.0 || use > use_)) {
      use_ = use;
      peak_.coordinate = coordinate;
      peak_.time = time;
      peak_.value = std::fabs(value);
      peak_.limit = limit;
      peak_.allowed = allowed;
    }
  }

  // The same for all of a Bezier curve over some time. Where its control points allow more than is known it
  // is looked at on halves.
  void LookAlong(std::size_t coordinate, const Eigen::MatrixXd& values, double begin, double end,
                 double limit, double allowed) {
    if (!std::isfinite(limit)) {
      return;
    }
    Look(coordinate, begin, values(0, 0), limit, allowed);
    Look(coordinate, end, values(0, values.cols() - 1), limit, allowed);
    const double middle = begin + 0.5 * (end - begin);
    if (values.cwiseAbs().maxCoeff() / allowed > use_ * (1.0 + 1e-9) && begin < middle && middle < end) {
      const auto [first, second] = math::SplitBezier(values, 0.5);
      LookAlong(coordinate, first, begin, middle, limit, allowed);
      LookAlong(coordinate, second, middle, end, limit, allowed);
    }
  }

  bool IsThere() const { return peak_.limit > 0.0; }
  const RatePeak& Get() const { return peak_; }

 private:
  RatePeak peak_;
  double use_ = 0.0;
};

void Validate(const std::vector<Trajectory::State>& samples, SampleInterpolation interpolation,
              const MotionLimits& limits) {
  KAVO_CHECK(limits.velocity.size() == limits.acceleration.size() && (limits.velocity.array() > 0.0).all() &&
                 (limits.acceleration.array() > 0.0).all(),
             kFile, 1)
      << "Limits must be positive, and as many of acceleration as of velocity.";
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const Trajectory::State& sample = samples[i];
    const auto fits = [&](const Eigen::VectorXd& value) {
      return value.size() == limits.velocity.size() && value.allFinite();
    };
    KAVO_CHECK(fits(sample.position) &&
                   (interpolation == SampleInterpolation::kLinear || fits(sample.velocity)) &&
                   (interpolation != SampleInterpolation::kQuintic || fits(sample.acceleration)),
               kFile, 2)
        << "Sample " << i << " must have " << limits.velocity.size() << " finite values of each kind.";
    KAVO_CHECK(std::isfinite(sample.time) && (i == 0 || samples[i - 1].time < sample.time), kFile, 3)
        << "Sample " << i << " at [" << sample.time << "] must be later than the one before.";
  }
}

}  // namespace

std::vector<RatePeak> FindRatePeaks(const std::vector<Trajectory::State>& samples,
                                    SampleInterpolation interpolation, const MotionLimits& limits) {
  Validate(samples, interpolation, limits);
  const Allowance allowance = AllowanceOf(interpolation);
  const bool is_linear = interpolation == SampleInterpolation::kLinear;
  Peak velocity(false, false);
  Peak velocity_between(false, true);
  Peak acceleration(true, false);
  Peak acceleration_between(true, true);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const Trajectory::State& to = samples[i];
    Eigen::MatrixXd rates;
    Eigen::MatrixXd bends;
    double period = 0.0;
    if (i > 0) {
      period = to.time - samples[i - 1].time;
      rates = math::BezierDerivative(InterpolationCurve(samples[i - 1], to, interpolation)) / period;
      bends = math::BezierDerivative(rates) / period;
    }
    for (Eigen::Index row = 0; row < to.position.size(); ++row) {
      const auto c = static_cast<std::size_t>(row);
      const double top_speed = limits.velocity[row];
      const double most = limits.acceleration[row];
      if (!is_linear) {
        velocity.Look(c, to.time, to.velocity[row], top_speed, top_speed);
      }
      if (interpolation == SampleInterpolation::kQuintic) {
        acceleration.Look(c, to.time, to.acceleration[row], most, most);
      }
      if (i == 0) {
        continue;
      }
      const double begin = samples[i - 1].time;
      // What rounding of positions makes of their differences, where samples are very near to each other.
      const double noise =
          2e-14 * std::max(std::fabs(to.position[row]), std::fabs(samples[i - 1].position[row])) / period;
      // Not by a factor of zero: the limit of acceleration may be infinite.
      const double allowed =
          noise +
          (is_linear ? top_speed : std::min(top_speed + allowance.velocity * most * period, 2.0 * top_speed));
      velocity_between.LookAlong(c, rates.row(row), begin, to.time, top_speed, allowed);
      if (!is_linear) {
        acceleration_between.LookAlong(c, bends.row(row), begin, to.time, most,
                                       allowance.acceleration * most + noise / period);
      } else if (i > 1) {
        const double before = begin - samples[i - 2].time;
        const double last = (samples[i - 1].position[row] - samples[i - 2].position[row]) / before;
        acceleration_between.Look(c, begin, 2.0 * (rates(row, 0) - last) / (before + period), most,
                                  most + noise / std::min(before, period));
      }
    }
  }
  std::vector<RatePeak> peaks;
  for (const Peak* const peak : {&velocity, &velocity_between, &acceleration, &acceleration_between}) {
    if (peak->IsThere()) {
      peaks.push_back(peak->Get());
    }
  }
  return peaks;
}

}  // namespace kavo::planning
