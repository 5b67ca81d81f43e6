#include "kavo/motion_planning/environment/basic_3d_environment.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "kavo/math/bezier_internal.h"
#include "kavo/math/vector_math_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"

namespace kavo::planning {

Basic3dEnvironmentConfig::Basic3dEnvironmentConfig(const WorldView& world_view_in,
                                                   const kinematics::ConfigurationLimits& q_limits_in,
                                                   std::uint64_t max_sampling_attempts_in,
                                                   std::uint32_t seed_in)
    : world_view(world_view_in),
      q_limits(q_limits_in),
      max_sampling_attempts(max_sampling_attempts_in),
      seed(seed_in) {
  KAVO_CHECK(q_limits.Dimension() == 3, "motion_planning/environment/basic_3d_environment", 27)
      << "Dimension of 'q_limits' [" << q_limits.Dimension() << " for 'Basic3dWorldConfig' must be 3.";
}

namespace {

// Metres: what comes nearer than about half of this to an obstacle is not proven.
constexpr double kLeastPart = 1e-5;
// Enough for ten metres along an obstacle as near as the least part is long.
constexpr int kMostParts = 10000000;

class Basic3dEnvironmentImpl final : public Basic3dEnvironment {
 public:
  explicit Basic3dEnvironmentImpl(const Basic3dEnvironmentConfig& config)
      : limits_(config.q_limits),
        max_sampling_attempts_(config.max_sampling_attempts),
        sampler_(config.seed),
        world_view_(config.world_view) {
    sampler_.SetRange(limits_.Min(), limits_.Max());
  }

  int CSpaceDimension() const override { return static_cast<int>(dimension_); }
  const kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const DistanceMetric& CSpaceDistanceMetric() const override { return distance_metric_; }
  void UpdateWorldView() override { world_view_.update(); }

  bool IsValidConfiguration(const Eigen::VectorXd& q) const override {
    KAVO_CHECK(static_cast<size_t>(q.size()) == dimension_,
               "motion_planning/environment/basic_3d_environment", 89)
        << "Dimension of q [" << q.size() << "] must match number of configuration space coordinates ["
        << dimension_ << "].";
    return !IsOutsideConfigurationLimits(q) && !IsInCollision(q);
  }

  // Proven: the ball around the middle of a part that reaches its ends holds all of it.
  bool IsValidMotion(const Eigen::Ref<const Eigen::VectorXd>& q_start,
                     const Eigen::Ref<const Eigen::VectorXd>& q_end, double /*resolution*/) const override {
    constexpr char kFile[] = "motion_planning/environment/basic_3d_environment";
    KAVO_CHECK(q_start.size() == 3 && q_end.size() == 3, kFile, 100)
        << "A motion from [" << q_start.size() << "] to [" << q_end.size()
        << "] coordinates is none of a point in space.";
    const Eigen::Vector3d start = q_start;
    const Eigen::Vector3d end = q_end;
    return start.allFinite() && end.allFinite() && !IsOutsideConfigurationLimits(start) &&
           !IsOutsideConfigurationLimits(end) && IsFree(start, end);
  }

  // Likewise: the ball around the middle of a part that reaches its control points.
  bool IsValidCurve(const Eigen::Ref<const Eigen::MatrixXd>& control_points,
                    double /*resolution*/) const override {
    KAVO_CHECK(control_points.rows() == 3 && control_points.cols() > 0,
               "motion_planning/environment/basic_3d_environment", 110)
        << "A curve of [" << control_points.cols() << "] control points of [" << control_points.rows()
        << "] coordinates is none of a point in space.";
    for (Eigen::Index i = 0; i < control_points.cols(); ++i) {
      if (IsOutsideConfigurationLimits(control_points.col(i))) {
        return false;
      }
    }
    int num_left = kMostParts;
    return control_points.allFinite() && IsFree(control_points, num_left);
  }

  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    for (std::uint64_t attempt = 0; attempt < max_sampling_attempts_; ++attempt) {
      const Eigen::VectorXd q = sampler_.Sample();
      if (IsValidConfiguration(q)) {
        return q;
      }
    }
    KAVO_LOG(LogLevel::kWarning) << "Unable to find a valid configuration.";
    return std::nullopt;
  }

 private:
  bool IsOutsideConfigurationLimits(const Eigen::Ref<const Eigen::VectorXd>& q) const {
    for (Eigen::Index i = 0; i < 3; ++i) {
      if (limits_.Min()[i] > q[i] || q[i] > limits_.Max()[i]) {
        return true;
      }
    }
    return false;
  }

  bool IsFree(const Eigen::Vector3d& start, const Eigen::Vector3d& end) const {
    int num_left = kMostParts;
    const auto is_free = [&](const Eigen::Vector3d& a, const Eigen::Vector3d& b,
                             const auto& recurse) -> bool {
      const Eigen::Vector3d middle = 0.5 * a + 0.5 * b;
      const Eigen::Vector3d half = middle - a;
      const double length = std::sqrt(half[0] * half[0] + half[1] * half[1] + half[2] * half[2]);
      // Farther than either end by more than rounding costs.
      const double reach =
          length * (1.0 + 1e-9) + 1e-12 * (a.cwiseAbs().maxCoeff() + b.cwiseAbs().maxCoeff());
      if (!world_view_.inCollision(middle, reach)) {
        return true;
      }
      return length > 0.5 * kLeastPart && --num_left > 0 && !world_view_.inCollision(middle, 0.0) &&
             recurse(a, middle, recurse) && recurse(middle, b, recurse);
    };
    return is_free(start, end, is_free);
  }

  bool IsFree(const Eigen::MatrixXd& control_points, int& num_left) const {
    const Eigen::Vector3d middle = math::BezierPoint(control_points, 0.5);
    double length = 0.0;
    for (Eigen::Index i = 0; i < control_points.cols(); ++i) {
      length = std::max(length, math::Distance(middle, control_points.col(i)));
    }
    const double reach = length * (1.0 + 1e-9) + 1e-12 * control_points.cwiseAbs().maxCoeff();
    if (!world_view_.inCollision(middle, reach)) {
      return true;
    }
    if (!(length > 0.5 * kLeastPart) || --num_left <= 0 || world_view_.inCollision(middle, 0.0)) {
      return false;
    }
    const auto [first, second] = math::SplitBezier(control_points, 0.5);
    return IsFree(first, num_left) && IsFree(second, num_left);
  }

  bool IsInCollision(const Eigen::VectorXd& q) const {
    return world_view_.inCollision({q[0], q[1], q[2]}, 0.0);
  }

  std::size_t dimension_ = 3;
  DistanceMetric distance_metric_ = L2Norm;
  kinematics::ConfigurationLimits limits_;
  std::uint64_t max_sampling_attempts_;
  // Sampling is const to a planner, but goes on in one random sequence.
  mutable util::RandomGenerator<Eigen::Vector3d> sampler_;
  WorldView world_view_;
};

}  // namespace

std::shared_ptr<Basic3dEnvironment> CreateBasic3dEnvironment(const Basic3dEnvironmentConfig& config) {
  // The fields may have been edited since they were checked.
  KAVO_CHECK(config.q_limits.Dimension() == 3, "motion_planning/environment/basic_3d_environment", 60)
      << "Dimension of 'q_limits' [" << config.q_limits.Dimension() << "] must be 3.";
  return std::make_shared<Basic3dEnvironmentImpl>(config);
}

}  // namespace kavo::planning
