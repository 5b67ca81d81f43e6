#include "kavo/motion_planning/trajectory/trajectory.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr char kFile[] = "motion_planning/trajectory/trajectory";
constexpr double kMostSamples = 1e7;
// Of a period: the last sample but the end itself is no nearer to the end than this.
constexpr double kLeastShare = 1e-3;

// The motion of one coordinate on one piece.
class Polynomial {
 public:
  template <typename Row>
  explicit Polynomial(const Row& coefficients)
      : c_{coefficients[0], coefficients[1], coefficients[2], coefficients[3], coefficients[4]} {}

  double Position(double t) const { return c_[0] + t * (c_[1] + t * (c_[2] + t * (c_[3] + t * c_[4]))); }
  double Velocity(double t) const {
    return c_[1] + t * (2.0 * c_[2] + t * (3.0 * c_[3] + t * (4.0 * c_[4])));
  }
  double Acceleration(double t) const { return 2.0 * c_[2] + t * (6.0 * c_[3] + t * (12.0 * c_[4])); }
  double Jerk(double t) const { return 6.0 * c_[3] + t * (24.0 * c_[4]); }

  // The largest absolute values from 0 to `duration`.
  double LargestJerk(double duration) const {
    return std::max(std::fabs(Jerk(0.0)), std::fabs(Jerk(duration)));
  }

  double LargestAcceleration(double duration) const {
    double largest = std::max(std::fabs(Acceleration(0.0)), std::fabs(Acceleration(duration)));
    if (const double still = -c_[3] / (4.0 * c_[4]); still > 0.0 && still < duration) {
      largest = std::max(largest, std::fabs(Acceleration(still)));
    }
    return largest;
  }

  double LargestVelocity(double duration) const {
    double largest = std::max(std::fabs(Velocity(0.0)), std::fabs(Velocity(duration)));
    for (const double still : TimesWithoutAcceleration()) {
      if (still > 0.0 && still < duration) {
        largest = std::max(largest, std::fabs(Velocity(still)));
      }
    }
    return largest;
  }

 private:
  // NaN or infinity where there are none.
  std::array<double, 2> TimesWithoutAcceleration() const {
    const double a = 12.0 * c_[4];
    const double half_b = 3.0 * c_[3];
    const double c = 2.0 * c_[2];
    const double root = std::sqrt(half_b * half_b - a * c);
    const double sum = -(half_b + (half_b < 0.0 ? -root : root));
    return {sum / a, c / sum};
  }

  std::array<double, 5> c_;
};

}  // namespace

Trajectory::State Trajectory::At(double time) const {
  KAVO_CHECK(!std::isnan(time), kFile, 20) << "A trajectory has no state at the time NaN.";
  State state{time, end_, end_velocity_, Eigen::VectorXd::Zero(Dimension())};
  const double within = std::max(time, 0.0);
  if (within >= duration_) {
    return state;
  }
  const auto next = std::upper_bound(starts_.begin() + 1, starts_.end(), within);
  const auto piece = static_cast<Eigen::Index>(next - starts_.begin()) - 1;
  const double t = within - *(next - 1);
  for (Eigen::Index i = 0; i < Dimension(); ++i) {
    const Polynomial polynomial(coefficients_.row(i).segment<5>(5 * piece));
    state.position[i] = std::clamp(polynomial.Position(t), lower_[i], upper_[i]);
    // Zero has no sign for those who read it.
    state.velocity[i] = polynomial.Velocity(t) + 0.0;
    state.acceleration[i] = polynomial.Acceleration(t) + 0.0;
  }
  return state;
}

std::vector<Trajectory::State> Trajectory::Samples(double period) const {
  KAVO_CHECK(period > 0.0 && Duration() / period < kMostSamples, kFile, 40)
      << "A period must be positive and give less than " << kMostSamples << " samples of " << Duration()
      << " s, got " << period << ".";
  std::vector<State> samples;
  // Controllers divide by the time between samples: not by what rounding leaves of a period.
  const double last = Duration() - kLeastShare * period;
  for (double k = 0.0; k * period < last || (k == 0.0 && Duration() > 0.0); k += 1.0) {
    samples.push_back(At(k * period));
  }
  samples.push_back(At(Duration()));
  return samples;
}

Trajectory::Piece Trajectory::PieceAt(std::size_t index) const {
  KAVO_CHECK(index < NumPieces(), kFile, 50)
      << "There are " << NumPieces() << " pieces, none has the index " << index << ".";
  const double end = index + 1 < NumPieces() ? starts_[index + 1] : duration_;
  return {starts_[index], end - starts_[index],
          coefficients_.middleCols<5>(static_cast<Eigen::Index>(5 * index))};
}

Trajectory::LimitUse Trajectory::UseOf(const MotionLimits& limits) const {
  ValidateMotionLimits(limits, Dimension());
  LimitUse use;
  for (std::size_t k = 0; k < NumPieces(); ++k) {
    const double duration = (k + 1 < NumPieces() ? starts_[k + 1] : duration_) - starts_[k];
    for (Eigen::Index i = 0; i < Dimension(); ++i) {
      const Polynomial polynomial(coefficients_.row(i).segment<5>(static_cast<Eigen::Index>(5 * k)));
      use.velocity = std::max(use.velocity, polynomial.LargestVelocity(duration) / limits.velocity[i]);
      use.acceleration =
          std::max(use.acceleration, polynomial.LargestAcceleration(duration) / limits.acceleration[i]);
      if (limits.jerk) {
        use.jerk = std::max(use.jerk, polynomial.LargestJerk(duration) / (*limits.jerk)[i]);
      }
    }
  }
  return use;
}

}  // namespace kavo::planning
