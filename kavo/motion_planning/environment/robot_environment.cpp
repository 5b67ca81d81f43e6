#include "kavo/motion_planning/environment/robot_environment.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "kavo/motion_planning/environment/limit_lanes_internal.h"
#include "kavo/motion_planning/environment/robot_collision_internal.h"
#include "kavo/motion_planning/tree/periodic_metric.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"

namespace kavo::planning {

namespace {

class RobotEnvironmentImpl final : public RobotEnvironment {
 public:
  explicit RobotEnvironmentImpl(const RobotEnvironmentConfig& config)
      : RobotEnvironment(internal::RobotCollision::kBatch, config.PeriodicCoordinates()),
        config_(config),
        dimension_(static_cast<std::size_t>(config.NumJoints())),
        distance_metric_(
            WithPeriods(WeightedSquaredL2Norm(config.distance_weights), config.PeriodicCoordinates())),
        limits_(config.JointLimits()),
        max_sampling_attempts_(static_cast<std::uint64_t>(std::int64_t{config.max_sampling_attempts})),
        kinematics_(config.Kinematics()),
        task_space_frame_(config.GetTaskSpaceFrame()),
        collision_(config),
        lanes_(limits_.Min(), limits_.Max()),
        samples_(config.NumJoints(), internal::RobotCollision::kBatch) {
    // The weights are open to change after the configuration has checked them.
    KAVO_CHECK(config.distance_weights.size() == config.NumJoints(),
               "motion_planning/environment/robot_environment", 40)
        << "Only " << config.distance_weights.size() << " 'distance_weights' provided for kinematics with "
        << config.NumJoints() << " joints.";
    InitializeSamplers(config);
  }

  int CSpaceDimension() const override { return static_cast<int>(dimension_); }
  const kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const DistanceMetric& CSpaceDistanceMetric() const override { return distance_metric_; }
  void UpdateWorldView() override { collision_.UpdateWorldView(); }

  void SetBasePose(const Pose3& base_pose) override {
    KAVO_CHECK(base_pose.isFinite(), "motion_planning/environment/robot_environment", 76)
        << "The base cannot be placed where it is not finite.";
    collision_.SetBasePose(base_pose);
  }

  Eigen::Vector3d TaskSpacePosition(const Eigen::VectorXd& q) const override {
    KAVO_CHECK(static_cast<int64_t>(dimension_) == q.size(), "motion_planning/environment/robot_environment",
               58);
    return kinematics_->position(q, task_space_frame_);
  }

  void GetTaskSpacePositionJacobian(const Eigen::VectorXd& q, Eigen::MatrixXd& jacobian) const override {
    KAVO_CHECK(static_cast<int64_t>(dimension_) == q.size(), "motion_planning/environment/robot_environment",
               64);
    KAVO_CHECK(static_cast<int64_t>(dimension_) == jacobian.cols(),
               "motion_planning/environment/robot_environment", 65);
    KAVO_CHECK(jacobian.rows() == 3, "motion_planning/environment/robot_environment", 66);
    jacobian = kinematics_->positionJacobian(q, task_space_frame_);
  }

  bool IsValidConfiguration(const Eigen::VectorXd& q) const override {
    ++statistics_.num_validity_checks;
    KAVO_CHECK(static_cast<size_t>(q.size()) == dimension_, "motion_planning/environment/robot_environment",
               150)
        << "Dimension of q [" << q.size() << "] must match number of configuration space coordinates ["
        << dimension_ << "].";
    return collision_.FindFree(lanes_.coordinates(), lanes_.TakeIn(q.data(), q.size(), 1), false) != 0;
  }

  int CountValid(const Eigen::Ref<const Eigen::MatrixXd>& configurations) const override {
    KAVO_CHECK(static_cast<size_t>(configurations.rows()) == dimension_,
               "motion_planning/environment/robot_environment", 160)
        << "Dimension of configurations [" << configurations.rows()
        << "] must match number of configuration space coordinates [" << dimension_ << "].";
    const int total = static_cast<int>(configurations.cols());
    const std::ptrdiff_t stride = configurations.outerStride();
    for (int first = 0; first < total; first += internal::RobotCollision::kBatch) {
      const int count = std::min(internal::RobotCollision::kBatch, total - first);
      const int num_within =
          CountLowest(lanes_.TakeIn(configurations.data() + first * stride, stride, count));
      const int num_valid =
          CountLowest(collision_.FindFree(lanes_.coordinates(), (1u << num_within) - 1u, true));
      // The questions that the one-by-one way would have asked.
      statistics_.num_validity_checks += static_cast<std::uint64_t>(std::min(num_valid + 1, count));
      if (num_valid < count) {
        return first + num_valid;
      }
    }
    return total;
  }

  bool IsValidMotion(const Eigen::Ref<const Eigen::VectorXd>& q_start,
                     const Eigen::Ref<const Eigen::VectorXd>& q_end, double /*resolution*/) const override {
    constexpr char kFile[] = "motion_planning/environment/robot_environment";
    KAVO_CHECK(
        static_cast<size_t>(q_start.size()) == dimension_ && static_cast<size_t>(q_end.size()) == dimension_,
        kFile, 170)
        << "A motion from [" << q_start.size() << "] to [" << q_end.size()
        << "] coordinates does not fit the [" << dimension_ << "] of the configuration space.";
    ++statistics_.num_motions;
    // Between two configurations within the limits all are.
    return IsWithinLimits(q_start) && IsWithinLimits(q_end) && IsFree(q_start, q_end);
  }

  bool IsValidCurve(const Eigen::Ref<const Eigen::MatrixXd>& control_points,
                    double resolution) const override {
    KAVO_CHECK(static_cast<size_t>(control_points.rows()) == dimension_ && control_points.cols() > 0,
               "motion_planning/environment/robot_environment", 180)
        << "A curve of [" << control_points.cols() << "] control points of [" << control_points.rows()
        << "] coordinates does not fit the [" << dimension_ << "] of the configuration space.";
    const Eigen::Index last = control_points.cols() - 1;
    if (last <= 1) {
      return IsValidMotion(control_points.col(0), control_points.col(last), resolution);
    }
    ++statistics_.num_motions;
    for (Eigen::Index i = 0; i <= last; ++i) {
      if (!IsWithinLimits(control_points.col(i))) {
        return false;
      }
    }
    return IsFree(control_points);
  }

  Eigen::VectorXd MotionSpeeds() const override { return collision_.MotionSpeeds(); }

  void SetRobot(const RobotDescription& robot) override {
    RobotEnvironmentConfig config = config_;
    config.SetRobot(&robot);
    collision_.SetRobot(config);
    kinematics_ = config.Kinematics();
    task_space_frame_ = config.GetTaskSpaceFrame();
    config_ = std::move(config);
  }

  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    for (std::uint64_t attempt = 0; attempt < max_sampling_attempts_; ++attempt) {
      const int index = NextSample();
      ++statistics_.num_samples_drawn;
      ++statistics_.num_validity_checks;
      if (((valid_samples_ >> index) & 1u) != 0) {
        return samples_.col(index);
      }
      ++statistics_.num_samples_rejected;
    }
    KAVO_LOG(LogLevel::kWarning) << "Unable to find a valid configuration.";
    return std::nullopt;
  }

  std::optional<Eigen::Vector3d> SampleTaskSpace() const override {
    if (!task_space_sampler_) {
      KAVO_LOG(LogLevel::kWarning) << "Task space limits not provided. Will NOT sample task space.";
      return std::nullopt;
    }
    ++statistics_.num_samples_drawn;
    return task_space_sampler_->Sample();
  }

  Statistics GetStatistics() const override { return statistics_; }
  std::uint64_t Revision() const override { return collision_.Revision(); }

  std::optional<ConfigurationFault> FindFault(const Eigen::VectorXd& q) const override {
    if (IsValidConfiguration(q)) {
      return std::nullopt;
    }
    ConfigurationFault fault;
    for (Eigen::Index i = 0; i < q.size() && !fault.limit; ++i) {
      const double lower = limits_.Min()[i];
      const double upper = limits_.Max()[i];
      if (!(lower <= q[i] && q[i] <= upper && std::isfinite(q[i]))) {
        fault.limit = {static_cast<std::size_t>(i), q[i], lower, upper};
      }
    }
    if (!fault.limit) {
      fault.contact = collision_.DeepestContact(q);
      if (!fault.contact) {
        fault.self_contact = collision_.DeepestSelfContact(q);
      }
      if (!fault.contact && !fault.self_contact) {
        fault.unplaced_frame = collision_.UnplacedFrame(q);
      }
    }
    return fault;
  }

 private:
  template <class... Motion>
  bool IsFree(const Motion&... motion) const {
    const internal::MotionProof::Work before = collision_.ProofWork();
    const bool is_free = collision_.IsFreeMotion(motion...);
    const internal::MotionProof::Work& after = collision_.ProofWork();
    statistics_.num_placements += after.num_placements - before.num_placements;
    statistics_.num_divisions += after.num_divisions - before.num_divisions;
    return is_free;
  }

  bool IsWithinLimits(const Eigen::Ref<const Eigen::VectorXd>& q) const {
    const Eigen::VectorXd& min = limits_.Min();
    const Eigen::VectorXd& max = limits_.Max();
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      // A limit of NaN is none, and no value is.
      if (min[i] > q[i] || q[i] > max[i] || !(std::fabs(q[i]) <= std::numeric_limits<double>::max())) {
        return false;
      }
    }
    return true;
  }

  // How many of the lowest bits are ones.
  static int CountLowest(std::uint32_t bits) {
    int count = 0;
    while (((bits >> count) & 1u) != 0) {
      ++count;
    }
    return count;
  }

  // The place of the next random configuration among those that are prefetched. Whether they are valid is
  // asked of all of them at once, and again when the world or the base has moved since.
  int NextSample() const {
    constexpr int kBatch = internal::RobotCollision::kBatch;
    const bool is_used_up = num_used_samples_ == kBatch;
    if (is_used_up) {
      for (int k = 0; k < kBatch; ++k) {
        for (std::size_t i = 0; i < c_space_samplers_.size(); ++i) {
          samples_(static_cast<Eigen::Index>(i), k) = c_space_samplers_[i].Sample();
        }
      }
      num_used_samples_ = 0;
    }
    if (const std::uint64_t revision = Revision(); is_used_up || revision != samples_revision_) {
      samples_revision_ = revision;
      valid_samples_ = collision_.FindFree(
          lanes_.coordinates(), lanes_.TakeIn(samples_.data(), samples_.outerStride(), kBatch), false);
    }
    return num_used_samples_++;
  }

  void InitializeSamplers(const RobotEnvironmentConfig& config) {
    for (std::size_t i = 0; i < limits_.Dimension(); ++i) {
      const kinematics::JointLimits range = config.JointLimits()[i].samplingRange();
      c_space_samplers_.emplace_back(static_cast<std::uint32_t>(config.c_space_seed) +
                                     static_cast<std::uint32_t>(i));
      c_space_samplers_.back().SetRange(range.min, range.max);
    }
    if (const auto task_space_limits = config.TryGetTaskSpaceLimits()) {
      task_space_sampler_.emplace(static_cast<std::uint32_t>(config.task_space_seed));
      task_space_sampler_->SetRange(task_space_limits->Min(), task_space_limits->Max());
    }
  }

  RobotEnvironmentConfig config_;
  std::size_t dimension_;
  DistanceMetric distance_metric_;
  kinematics::ConfigurationLimits limits_;
  std::uint64_t max_sampling_attempts_;
  // Sampling is const to a planner, but goes on in one random sequence.
  mutable std::vector<util::RandomGenerator<double>> c_space_samplers_;
  mutable std::optional<util::RandomGenerator<Eigen::Vector3d>> task_space_sampler_;
  mutable Statistics statistics_;
  // Shared with the configuration.
  std::shared_ptr<kavo::Kinematics> kinematics_;
  kavo::Kinematics::FrameHandle task_space_frame_;
  // Owns the scratch memory of checks, which are const to a planner.
  mutable internal::RobotCollision collision_;
  mutable internal::LimitLanes lanes_;
  // Prefetched random configurations, one to a column, how many of them have been used, and which are valid.
  mutable Eigen::MatrixXd samples_;
  mutable int num_used_samples_ = internal::RobotCollision::kBatch;
  mutable std::uint32_t valid_samples_ = 0;
  // Of the surroundings in which they are.
  mutable std::uint64_t samples_revision_ = 0;
};

}  // namespace

void RobotEnvironment::SetRobot(const RobotDescription&) {
  KAVO_CHECK(false, "motion_planning/environment/robot_environment", 190)
      << "This environment knows its robot in one form only.";
}

std::shared_ptr<RobotEnvironment> CreateRobotEnvironment(const RobotEnvironmentConfig& config) {
  return std::make_shared<RobotEnvironmentImpl>(config);
}

}  // namespace kavo::planning
