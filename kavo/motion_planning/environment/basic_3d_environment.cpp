#include "kavo/motion_planning/environment/basic_3d_environment.h"

#include <cstddef>

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
  bool IsOutsideConfigurationLimits(const Eigen::VectorXd& q) const {
    for (Eigen::Index i = 0; i < 3; ++i) {
      if (limits_.Min()[i] > q[i] || q[i] > limits_.Max()[i]) {
        return true;
      }
    }
    return false;
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
