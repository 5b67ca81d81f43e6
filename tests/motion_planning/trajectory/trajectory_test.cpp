#include "kavo/motion_planning/trajectory/trajectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "kavo/math/bezier_internal.h"
#include "kavo/motion_planning/interface/time_path.h"
#include "kavo/motion_planning/trajectory/blended_path.h"
#include "kavo/motion_planning/trajectory/jerk_limited.h"
#include "kavo/motion_planning/trajectory/sample_interpolation.h"
#include "kavo/motion_planning/trajectory/sample_limits.h"
#include "kavo/motion_planning/trajectory/time_optimal.h"
#include "tests/motion_planning/scripted_environment.h"
#include "tests/support/vectors.h"

namespace kavo::planning {
namespace {

using Eigen::Vector2d;
using testing::Path;
using testing::RandomVec;
using testing::ScriptedEnvironment;

Trajectory Timed(const Path& path, const MotionLimits& limits, double deviation = 0.0) {
  const ScriptedEnvironment environment(static_cast<int>(path.front().size()), {});
  return TimePath(path, environment, limits, {deviation, {}, limits.jerk.has_value()}).trajectory;
}

double LargestShare(const Eigen::VectorXd& q, const Eigen::VectorXd& limits) {
  return q.cwiseQuotient(limits).cwiseAbs().maxCoeff();
}

// By differences of positions alone, which are means of what they stand for: none may be above a limit.
void ExpectWithinLimits(const Trajectory& trajectory, const MotionLimits& limits, double scale) {
  const double h = trajectory.Duration() / 3000.0;
  const auto position = [&](double t) { return trajectory.At(t).position; };
  // What rounding of positions makes of a difference.
  const double ulp = 1e-15 * scale;
  for (double t = 0.0; t <= trajectory.Duration() - 3.0 * h; t += h) {
    const Eigen::VectorXd a = position(t), b = position(t + h), c = position(t + 2.0 * h),
                          d = position(t + 3.0 * h);
    ASSERT_LE(LargestShare((b - a) / h, limits.velocity), 1.0 + 10.0 * ulp / h / limits.velocity.minCoeff())
        << t;
    ASSERT_LE(LargestShare((c - 2.0 * b + a) / (h * h), limits.acceleration),
              1.0 + 20.0 * ulp / (h * h) / limits.acceleration.minCoeff())
        << t;
    if (limits.jerk) {
      ASSERT_LE(LargestShare((d - 3.0 * c + 3.0 * b - a) / (h * h * h), *limits.jerk),
                1.0 + 40.0 * ulp / (h * h * h) / limits.jerk->minCoeff())
          << t;
    }
  }
}

TEST(TrajectoryTest, KeepsLimitsOnRandomPathsAndIsFasterThanStopping) {
  std::mt19937 engine(3);
  const auto power = [&](double most) { return std::exp(RandomVec(engine, 1, -most, most)[0]); };
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    const Eigen::Index n = 1 + round % 4;
    const double scale = power(4.0);
    Path path(static_cast<std::size_t>(2 + round % 5));
    for (Eigen::VectorXd& q : path) {
      q = RandomVec(engine, n, -scale, scale);
    }
    MotionLimits limits{Eigen::VectorXd(n), Eigen::VectorXd(n), {}};
    Eigen::VectorXd jerk(n);
    for (Eigen::Index i = 0; i < n; ++i) {
      limits.velocity[i] = power(1.5);
      limits.acceleration[i] = power(2.5);
      jerk[i] = 10.0 * power(3.0);
    }
    for (const bool is_smooth : {false, true}) {
      if (is_smooth) {
        limits.jerk = jerk;
      }
      const double deviation = 0.05 * scale;
      const Trajectory trajectory = Timed(path, limits, deviation);
      ExpectWithinLimits(trajectory, limits, scale);
      EXPECT_LE(trajectory.UseOf(limits).velocity, 1.0);
      EXPECT_LE(trajectory.UseOf(limits).acceleration, 1.0);
      EXPECT_LE(trajectory.UseOf(limits).jerk, 1.0);
      EXPECT_LE(trajectory.Duration(), Timed(path, limits).Duration());
      // From rest to rest, through the waypoints.
      EXPECT_EQ(trajectory.At(0.0).position, path.front());
      EXPECT_EQ(trajectory.At(trajectory.Duration()).position, path.back());
      EXPECT_EQ(trajectory.At(-1.0).velocity, Eigen::VectorXd::Zero(n));
      EXPECT_EQ(trajectory.At(trajectory.Duration()).velocity, Eigen::VectorXd::Zero(n));
      const std::vector<double>& times = trajectory.WaypointTimes();
      ASSERT_EQ(times.size(), path.size());
      EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
      for (std::size_t i = 0; i < path.size(); ++i) {
        EXPECT_LE((trajectory.At(times[i]).position - path[i]).cwiseAbs().maxCoeff(),
                  deviation * (1.0 + 1e-9));
      }
      // Pieces join, and states are derivatives of one another.
      for (std::size_t i = 0; i < trajectory.NumPieces(); ++i) {
        const Trajectory::Piece piece = trajectory.PieceAt(i);
        const double t = piece.duration;
        const Eigen::Matrix<double, 5, 1> powers(1.0, t, t * t, t * t * t, t * t * t * t);
        const Trajectory::State next = trajectory.At(piece.start + t);
        EXPECT_LT((piece.coefficients * powers - next.position).norm(), 1e-12 * scale);
        const Eigen::Matrix<double, 5, 1> slopes(0.0, 1.0, 2.0 * t, 3.0 * t * t, 4.0 * t * t * t);
        EXPECT_LT(LargestShare(piece.coefficients * slopes - next.velocity, limits.velocity), 1e-9);
        const Eigen::Matrix<double, 5, 1> curves(0.0, 0.0, 2.0, 6.0 * t, 12.0 * t * t);
        if (is_smooth) {
          EXPECT_LT(LargestShare(piece.coefficients * curves - next.acceleration, limits.acceleration), 1e-6);
        }
      }
    }
  }
}

// Along one line the optimum is known.
TEST(TrajectoryTest, TakesTheTimesOfClosedForms) {
  struct Case {
    std::string name;
    Path path;
    MotionLimits limits;
    double duration;
  };
  const Eigen::VectorXd one = Eigen::VectorXd::Ones(1);
  const auto at = [&](double q) { return Eigen::VectorXd(q * one); };
  const auto limits = [&](double v, double a) { return MotionLimits{v * one, a * one, {}}; };
  const auto with_jerk = [&](double v, double a, double j) {
    return MotionLimits{v * one, a * one, Eigen::VectorXd(j * one)};
  };
  const Case cases[] = {
      {"trapezoid", {at(0.0), at(3.0)}, limits(1.0, 2.0), 3.5},
      {"triangle", {at(0.0), at(2.0)}, limits(10.0, 2.0), 2.0},
      {"there and back", {at(0.0), at(2.0), at(0.0)}, limits(10.0, 2.0), 4.0},
      {"through", {at(0.0), at(0.5), at(2.0)}, limits(10.0, 2.0), 2.0},
      {"the slowest of two",
       {Vector2d(0.0, 0.0), Vector2d(3.0, 1.0)},
       {Vector2d(10.0, 1.0 / 3.0), Vector2d(2.0, 10.0), {}},
       3.5},
      // Ramps of 1.5 s, 0.5 s of each part, and 0.25 s between them.
      {"seven parts", {at(0.0), at(3.5)}, with_jerk(2.0, 2.0, 4.0), 3.25},
      {"no part at full speed", {at(0.0), at(3.0)}, with_jerk(10.0, 2.0, 4.0), 3.0},
      {"jerk alone", {at(0.0), at(2.0)}, with_jerk(10.0, 10.0, 1.0), 4.0},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    EXPECT_NEAR(Timed(item.path, item.limits).Duration(), item.duration, 1e-7);
  }
}

TEST(TrajectoryTest, BeginsAndEndsAtSpeedsThatArePossible) {
  const Path path = {Vector2d(0.0, 0.0), Vector2d(3.0, 4.0), Vector2d(3.0, 0.0)};
  MotionLimits limits{Vector2d(10.0, 10.0), Vector2d(10.0, 10.0), {}};
  for (const bool is_smooth : {false, true}) {
    if (is_smooth) {
      limits.jerk = Vector2d(1e3, 1e3);
    }
    const BlendedPath blended = BlendPath(path, ScriptedEnvironment(2, {}));
    const auto timed = [&](const EndSpeeds& speeds) {
      return is_smooth ? JerkLimitedTrajectory(blended, limits, speeds)
                       : TimeOptimalTrajectory(blended, limits, speeds);
    };
    const auto moving = timed({5.0, 2.0});
    ASSERT_TRUE(moving);
    EXPECT_LT((moving->At(0.0).velocity - Vector2d(3.0, 4.0)).norm(), 1e-7);
    EXPECT_LT((moving->At(moving->Duration()).velocity - Vector2d(0.0, -2.0)).norm(), 1e-7);
    ExpectWithinLimits(*moving, limits, 1.0);
    EXPECT_FALSE(timed({13.0, 0.0}));
    EXPECT_FALSE(timed({0.0, 11.0}));
    // Within the limit of velocity, but not to be had in this length.
    EXPECT_FALSE(timed({0.0, 9.0}));
  }
}

TEST(TrajectoryTest, ComesToAnEndForWhateverLimitsAndPaths) {
  const Path paths[] = {{Vector2d(1.0, 2.0)},
                        {Vector2d(1.0, 2.0), Vector2d(1.0, 2.0)},
                        {Vector2d(0.0, 2.0), Vector2d(0.0, 2.0), Vector2d(1.0, 2.0), Vector2d(1.0, 2.0)},
                        {Vector2d(0.0, 0.0), Vector2d(1e-8, 0.0), Vector2d(1e3, 1e-8), Vector2d(0.0, 1e-8)},
                        {Vector2d(0.0, 0.0), Vector2d(1.0, 1e-7), Vector2d(2.0, 0.0), Vector2d(0.0, 1e-7)}};
  for (const Path& path : paths) {
    for (const double v : {1e-6, 1e-3, 1.0, 1e3, 1e9}) {
      for (const double a : {1e-6, 1e-3, 1.0, 1e3, 1e9}) {
        for (const double j : {0.0, 1e-6, 1e-3, 1e3, 1e9}) {
          SCOPED_TRACE(std::to_string(v) + " " + std::to_string(a) + " " + std::to_string(j));
          MotionLimits limits{Vector2d(v, 1.0), Vector2d(a, 1.0), {}};
          if (j > 0.0) {
            limits.jerk = Vector2d(j, 1.0);
          }
          const Trajectory trajectory = Timed(path, limits, 0.01);
          ASSERT_TRUE(std::isfinite(trajectory.Duration()));
          ASSERT_LE(trajectory.UseOf(limits).velocity, 1.0);
          ASSERT_LE(trajectory.UseOf(limits).acceleration, 1.0);
          ASSERT_LE(trajectory.UseOf(limits).jerk, 1.0);
          for (int i = 0; i <= 50; ++i) {
            const Trajectory::State state = trajectory.At(trajectory.Duration() * i / 50.0);
            ASSERT_TRUE(state.position.allFinite() && state.velocity.allFinite() &&
                        state.acceleration.allFinite());
            for (Eigen::Index k = 0; k < 2; ++k) {
              const auto [low, high] = std::minmax_element(
                  path.begin(), path.end(), [&](const Eigen::VectorXd& one, const Eigen::VectorXd& other) {
                    return one[k] < other[k];
                  });
              ASSERT_TRUE((*low)[k] <= state.position[k] && state.position[k] <= (*high)[k]);
            }
          }
        }
      }
    }
  }
}

TEST(TrajectoryTest, SamplesAtAPeriodAndAtTheEnd) {
  const Trajectory trajectory =
      Timed({Vector2d(0.0, 0.0), Vector2d(3.0, 0.0)}, {Vector2d(1.0, 1.0), Vector2d(2.0, 2.0), {}});
  const std::vector<Trajectory::State> samples = trajectory.Samples(1.0);
  ASSERT_EQ(samples.size(), 5u);
  EXPECT_EQ(samples[3].time, 3.0);
  EXPECT_EQ(samples[4].time, trajectory.Duration());
  EXPECT_NEAR(samples[3].velocity[0], 1.0, 1e-8);
  EXPECT_EQ(samples[4].position, Vector2d(3.0, 0.0));
  // The last multiple is the end but for rounding.
  EXPECT_EQ(trajectory.Samples(trajectory.Duration() / 7.0 * (1.0 - 1e-12)).size(), 8u);
}

// Against the largest of many differences, which a bound is above, but not far.
TEST(TrajectoryTest, KnowsHowFarControllersAreFromIt) {
  const MotionLimits limits{Vector2d(1.1, 0.7), Vector2d(2.3, 1.9), {}};
  const Trajectory trajectory =
      Timed({Vector2d(0.1, 0.2), Vector2d(1.3, -0.7), Vector2d(0.4, -0.9)}, limits, 0.1);
  for (const double period : {0.01, 0.1, 1.0, 100.0}) {
    const std::vector<Trajectory::State> samples = trajectory.Samples(period);
    for (const SampleInterpolation interpolation :
         {SampleInterpolation::kLinear, SampleInterpolation::kCubic, SampleInterpolation::kQuintic}) {
      SCOPED_TRACE(std::to_string(period) + " " + ToString(interpolation));
      double largest = 0.0;
      for (std::size_t i = 1; i < samples.size(); ++i) {
        const double t = samples[i].time - samples[i - 1].time;
        const Eigen::MatrixXd curve = InterpolationCurve(samples[i - 1], samples[i], interpolation);
        for (int k = 0; k <= 50; ++k) {
          const Eigen::VectorXd q = math::BezierPoint(curve, k / 50.0);
          const Trajectory::State state = trajectory.At(samples[i - 1].time + t * k / 50.0);
          largest = std::max(largest, (q - state.position).cwiseAbs().maxCoeff());
        }
        if (interpolation != SampleInterpolation::kLinear) {
          EXPECT_LT((static_cast<double>(curve.cols() - 1) / t * (curve.col(1) - curve.col(0)) -
                     samples[i - 1].velocity)
                        .norm(),
                    1e-9);
        }
      }
      const double bound = InterpolationDeviation(trajectory, samples, interpolation);
      EXPECT_GE(bound, largest - 1e-12);
      EXPECT_LE(bound, 3.0 * largest + 1e-12);
    }
  }
}

TEST(MotionLimitsTest, DefaultsStandForWhatIsNotKnown) {
  const double inf = testing::kInf;
  const auto robot = LoadThreeLinkArmRobotDescription();
  const MotionLimits limits =
      WithDefaults({Eigen::Vector3d(inf, 3.0, 1e30), Eigen::Vector3d(inf, inf, 7.0), std::nullopt}, *robot);
  EXPECT_EQ(limits.velocity, Eigen::Vector3d(kDefaultTurningVelocity, 3.0, kGreatestMotionLimit));
  EXPECT_EQ(limits.acceleration,
            Eigen::Vector3d(kDefaultTurningAcceleration, kDefaultTurningAcceleration, 7.0));
  EXPECT_EQ(limits.jerk, Eigen::Vector3d::Constant(kDefaultTurningJerk));
  ValidateMotionLimits(limits, 3);
}

// The same in every build.
TEST(TrajectoryTest, HasTheSameBitsEverywhere) {
  const Path path = {Vector2d(0.1, 0.2), Vector2d(1.3, -0.7), Vector2d(0.4, -0.9), Vector2d(-1.0, 0.3)};
  MotionLimits limits{Vector2d(1.1, 0.7), Vector2d(2.3, 1.9), {}};
  const Trajectory optimal = Timed(path, limits, 0.03);
  EXPECT_EQ(optimal.Duration(), 4.7239810546118086);
  EXPECT_EQ(optimal.At(2.0).position[0], 1.1369364291658026);
  limits.jerk = Vector2d(13.0, 17.0);
  const Trajectory smooth = Timed(path, limits, 0.03);
  EXPECT_EQ(smooth.Duration(), 5.3623552673773975);
  EXPECT_EQ(smooth.At(2.0).position[0], 1.2633530343183563);
}

// Of random trajectories that use all of their limits: whatever controllers make of their samples is allowed,
// the peaks are those of dense samples of what they run, and a little faster is too fast.
TEST(TrajectoryTest, PeaksOfSamplesAreFoundAndAllowedOnlyWithinLimits) {
  std::mt19937 engine(8);
  std::map<bool, double> most;
  for (int round = 0; round < 60; ++round) {
    Path path(static_cast<std::size_t>(2 + round % 4));
    for (Eigen::VectorXd& q : path) {
      q = RandomVec(engine, 2, -2.0, 2.0);
    }
    const MotionLimits limits{RandomVec(engine, 2, 0.5, 2.0), RandomVec(engine, 2, 0.5, 8.0), {}};
    const auto samples = Timed(path, limits, round % 2 * 0.1).Samples(round % 3 == 0 ? 0.3 : 0.02);
    for (const auto interpolation :
         {SampleInterpolation::kLinear, SampleInterpolation::kCubic, SampleInterpolation::kQuintic}) {
      SCOPED_TRACE(ToString(interpolation) + std::to_string(round));
      const bool is_linear = interpolation == SampleInterpolation::kLinear;
      // Of what is between samples, in this order.
      Eigen::Array2d dense = Eigen::Array2d::Zero();
      for (std::size_t i = 1; i < samples.size(); ++i) {
        const double period = samples[i].time - samples[i - 1].time;
        const Eigen::MatrixXd rates =
            math::BezierDerivative(InterpolationCurve(samples[i - 1], samples[i], interpolation)) / period;
        for (double t = 0.0; t <= 1.0; t += 0.125) {
          const Eigen::VectorXd bend = math::BezierPoint(math::BezierDerivative(rates), t) / period;
          dense[0] = std::max(dense[0], LargestShare(math::BezierPoint(rates, t), limits.velocity));
          dense[1] = std::max(dense[1], LargestShare(bend, limits.acceleration));
        }
      }
      // What is allowed of velocities differs from one time between samples to the next, unless nothing
      // limits accelerations.
      MotionLimits only_velocity = limits;
      only_velocity.acceleration.setConstant(testing::kInf);
      const auto peaks = FindRatePeaks(samples, interpolation, limits);
      for (const bool is_acceleration : {false, true}) {
        for (const RatePeak& peak :
             is_acceleration ? peaks : FindRatePeaks(samples, interpolation, only_velocity)) {
          EXPECT_FALSE(peak.IsBeyond()) << peak.value << " " << peak.allowed;
          if (peak.is_interpolated && peak.is_acceleration == is_acceleration &&
              !(is_linear && is_acceleration)) {
            const double use = peak.value / peak.limit;
            EXPECT_GE(use, dense[is_acceleration ? 1 : 0] * (1.0 - 1e-9));
            EXPECT_LE(use, dense[is_acceleration ? 1 : 0] * 1.05);
            most[is_acceleration] = std::max(most[is_acceleration], use);
          }
        }
      }
      auto faster = samples;
      for (auto& sample : faster) {
        sample.time /= 1.2;
        sample.velocity *= 1.2;
        sample.acceleration *= 1.44;
      }
      const auto faster_peaks = FindRatePeaks(faster, interpolation, limits);
      EXPECT_TRUE(is_linear || std::any_of(faster_peaks.begin(), faster_peaks.end(),
                                           [](const RatePeak& peak) { return peak.IsBeyond(); }));
    }
  }
  // Interpolation does exceed what it interpolates.
  EXPECT_GT(most[false], 1.005);
  EXPECT_GT(most[true], 1.3);
}

}  // namespace
}  // namespace kavo::planning
