#include "kavo/motion_planning/environment/robot_environment.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kavo/math/bounding_sphere.h"
#include "kavo/math/rigid_transform.h"
#include "kavo/motion_planning/util/vector_math_internal.h"
#include "kavo/util/log_message.h"
#include "kavo/util/random_generator.h"
#include "kavo/util/sort.h"

namespace kavo::planning {

namespace {

class RobotEnvironmentImpl final : public RobotEnvironment {
 public:
  explicit RobotEnvironmentImpl(const RobotEnvironmentConfig& config)
      : dimension_(static_cast<std::size_t>(config.NumJoints())),
        distance_metric_(WeightedSquaredL2Norm(config.distance_weights)),
        limits_(config.JointLimits()),
        max_sampling_attempts_(static_cast<std::uint64_t>(std::int64_t{config.max_sampling_attempts})),
        world_view_(config.world_view),
        kinematics_(config.Kinematics()),
        task_space_frame_(config.GetTaskSpaceFrame()) {
    // The weights are open to change after the configuration has checked them.
    KAVO_CHECK(config.distance_weights.size() == config.NumJoints(),
               "motion_planning/environment/robot_environment", 40)
        << "Only " << config.distance_weights.size() << " 'distance_weights' provided for kinematics with "
        << config.NumJoints() << " joints.";
    ExtractCollisionSpheres(config);
    InitializeSamplers(config);
  }

  int CSpaceDimension() const override { return static_cast<int>(dimension_); }
  const kinematics::ConfigurationLimits& CSpaceCoordLimits() const override { return limits_; }
  const DistanceMetric& CSpaceDistanceMetric() const override { return distance_metric_; }
  void UpdateWorldView() override { world_view_.update(); }

  void SetBasePose(const Pose3& base_pose) override { base_ = math::RigidTransform(base_pose); }

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
    return !ExceedsConfigurationLimits(q) && !InCollision(q);
  }

  std::optional<Eigen::VectorXd> SampleConfiguration() const override {
    Eigen::VectorXd q(CSpaceDimension());
    for (std::uint64_t attempt = 0; attempt < max_sampling_attempts_; ++attempt) {
      RandomConfiguration(q);
      ++statistics_.num_samples_drawn;
      if (IsValidConfiguration(q)) {
        return q;
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
      fault.contact = DeepestContact(q);
      if (!fault.contact) {
        fault.self_contact = DeepestSelfContact(q);
      }
    }
    return fault;
  }

 private:
  // The spheres of one frame, in the frame's coordinates.
  struct CollisionSphereCollection {
    std::string frame_name;
    std::vector<math::Sphere> spheres;
    math::Sphere bounding_sphere;
  };

  bool ExceedsConfigurationLimits(const Eigen::VectorXd& q) const {
    const Eigen::VectorXd& min = limits_.Min();
    const Eigen::VectorXd& max = limits_.Max();
    for (Eigen::Index i = 0; i < q.size(); ++i) {
      if (min[i] > q[i] || q[i] > max[i]) {
        return true;
      }
    }
    return false;
  }

  bool InCollision(const Eigen::VectorXd& q) const {
    // NaN passes every limit, and a robot without spheres never asks the world.
    if (!internal::IsFinite(q)) {
      return true;
    }
    if (collections_.empty()) {
      return false;
    }
    const std::vector<math::RigidTransform>& frames = sweep_->compute(q);
    for (std::size_t i = 0; i < collections_.size(); ++i) {
      if (base_ ? CollectionTouches(collections_[i], *base_ * frames[i])
                : CollectionTouches(collections_[i], frames[i])) {
        return true;
      }
    }
    return !pairs_.empty() && TouchesItself(frames);
  }

  bool CollectionTouches(const CollisionSphereCollection& collection,
                         const math::RigidTransform& pose) const {
    if (!world_view_.inCollision(pose * collection.bounding_sphere.center,
                                 collection.bounding_sphere.radius)) {
      return false;
    }
    for (const math::Sphere& sphere : collection.spheres) {
      if (world_view_.inCollision(pose * sphere.center, sphere.radius)) {
        return true;
      }
    }
    return false;
  }

  bool TouchesItself(const std::vector<math::RigidTransform>& frames) const {
    for (const auto& [a, b] : pairs_) {
      if (MayTouch(a, b, frames)) {
        for (const math::Sphere& sphere_a : collections_[a].spheres) {
          for (const math::Sphere& sphere_b : collections_[b].spheres) {
            if (!(Gap(sphere_a, frames[a], sphere_b, frames[b]) > 0.0)) {
              return true;
            }
          }
        }
      }
    }
    return false;
  }

  // Distance between the surfaces of two spheres, negative where they overlap.
  static double Gap(const math::Sphere& sphere_a, const math::RigidTransform& frame_a,
                    const math::Sphere& sphere_b, const math::RigidTransform& frame_b) {
    const Eigen::Vector3d a = frame_a * sphere_a.center;
    const Eigen::Vector3d b = frame_b * sphere_b.center;
    const double dx = a[0] - b[0];
    const double dy = a[1] - b[1];
    const double dz = a[2] - b[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz) - (sphere_a.radius + sphere_b.radius);
  }

  // False only where no spheres of the two frames touch: rounding errors are far below the tolerance.
  bool MayTouch(std::size_t a, std::size_t b, const std::vector<math::RigidTransform>& frames) const {
    const math::Sphere& sphere_a = collections_[a].bounding_sphere;
    const math::Sphere& sphere_b = collections_[b].bounding_sphere;
    double size = sphere_a.radius + sphere_b.radius;
    for (int i = 0; i < 3; ++i) {
      size += std::fabs(sphere_a.center[i]) + std::fabs(sphere_b.center[i]) +
              std::fabs(frames[a].translation[i]) + std::fabs(frames[b].translation[i]);
    }
    return !(Gap(sphere_a, frames[a], sphere_b, frames[b]) > 1e-12 * size);
  }

  // The deepest contact between frames that must not touch each other.
  std::optional<ConfigurationFault::SelfContact> DeepestSelfContact(const Eigen::VectorXd& q) const {
    std::optional<ConfigurationFault::SelfContact> deepest;
    const std::vector<math::RigidTransform>& frames = sweep_->compute(q);
    for (const auto& [a, b] : pairs_) {
      for (std::size_t i = 0; i < collections_[a].spheres.size(); ++i) {
        for (std::size_t k = 0; k < collections_[b].spheres.size(); ++k) {
          const double depth =
              -Gap(collections_[a].spheres[i], frames[a], collections_[b].spheres[k], frames[b]);
          if (depth >= 0.0 && (!deepest || depth > deepest->depth)) {
            deepest = {{collections_[a].frame_name, collections_[b].frame_name}, {i, k}, depth};
          }
        }
      }
    }
    return deepest;
  }

  // Of a configuration that is in collision.
  std::optional<ConfigurationFault::Contact> DeepestContact(const Eigen::VectorXd& q) const {
    std::optional<ConfigurationFault::Contact> deepest;
    const std::vector<math::RigidTransform>& frames = sweep_->compute(q);
    for (std::size_t i = 0; i < collections_.size(); ++i) {
      const math::RigidTransform pose = base_ ? *base_ * frames[i] : frames[i];
      for (std::size_t k = 0; k < collections_[i].spheres.size(); ++k) {
        const math::Sphere& sphere = collections_[i].spheres[k];
        const Eigen::Vector3d center = pose * sphere.center;
        if (!world_view_.inCollision(center, sphere.radius)) {
          continue;
        }
        const std::optional<WorldView::Nearest> nearest = world_view_.nearestObstacle(center);
        if (nearest && (!deepest || sphere.radius - nearest->distance > deepest->depth)) {
          deepest = {collections_[i].frame_name,       k, center, sphere.radius, nearest->obstacle,
                     sphere.radius - nearest->distance};
        }
      }
    }
    if (deepest) {
      // A sphere that just touches may lie outside by a rounding error here.
      deepest->depth = std::max(0.0, deepest->depth);
    }
    return deepest;
  }

  void RandomConfiguration(Eigen::VectorXd& q) const {
    for (std::size_t i = 0; i < c_space_samplers_.size(); ++i) {
      q[static_cast<Eigen::Index>(i)] = c_space_samplers_[i].Sample();
    }
  }

  // Frames with larger indices lie farther along the chain and are checked first: they collide most often.
  void ExtractCollisionSpheres(const RobotEnvironmentConfig& config) {
    const std::vector<std::string>& names = config.FrameNames();
    const std::vector<util::IndexedValue> order = util::Sort(
        names,
        [this](const std::string& name) { return static_cast<double>(kinematics_->frame(name).index()); },
        std::greater<>());
    std::vector<kavo::Kinematics::FrameHandle> frames;
    for (const util::IndexedValue& entry : order) {
      const std::string& name = names[entry.index];
      std::vector<math::Sphere> spheres = config.CollisionSpheres(name);
      const math::Sphere bounding_sphere = math::ComputeBoundingSphere(spheres, math::SebbMethod::kSmallest);
      collections_.push_back({name, std::move(spheres), bounding_sphere});
      frames.push_back(kinematics_->frame(name));
    }
    sweep_ = kinematics_->frameSweep(frames);

    const auto find = [this](const std::string& name) {
      return std::find_if(collections_.begin(), collections_.end(),
                          [&](const auto& collection) { return collection.frame_name == name; });
    };
    for (const auto& [name_a, name_b] : config.CollisionPairs()) {
      const auto a = find(name_a);
      const auto b = find(name_b);
      // A frame without spheres touches nothing.
      if (a != collections_.end() && b != collections_.end()) {
        pairs_.emplace_back(a - collections_.begin(), b - collections_.begin());
      }
    }
  }

  void InitializeSamplers(const RobotEnvironmentConfig& config) {
    for (std::size_t i = 0; i < limits_.Dimension(); ++i) {
      const auto joint = static_cast<Eigen::Index>(i);
      c_space_samplers_.emplace_back(static_cast<std::uint32_t>(config.c_space_seed) +
                                     static_cast<std::uint32_t>(i));
      c_space_samplers_.back().SetRange(limits_.Min()[joint], limits_.Max()[joint]);
    }
    if (const auto task_space_limits = config.TryGetTaskSpaceLimits()) {
      task_space_sampler_.emplace(static_cast<std::uint32_t>(config.task_space_seed));
      task_space_sampler_->SetRange(task_space_limits->Min(), task_space_limits->Max());
    }
  }

  std::size_t dimension_;
  DistanceMetric distance_metric_;
  kinematics::ConfigurationLimits limits_;
  std::uint64_t max_sampling_attempts_;
  // Sampling is const to a planner, but goes on in one random sequence.
  mutable std::vector<util::RandomGenerator<double>> c_space_samplers_;
  mutable std::optional<util::RandomGenerator<Eigen::Vector3d>> task_space_sampler_;
  mutable Statistics statistics_;
  WorldView world_view_;
  // Shared with the configuration; `sweep_` must not outlive it.
  std::shared_ptr<kavo::Kinematics> kinematics_;
  // In the order of checking, one for each frame of `sweep_`.
  std::vector<CollisionSphereCollection> collections_;
  // Indices of collections that must not touch each other.
  std::vector<std::pair<std::size_t, std::size_t>> pairs_;
  std::unique_ptr<FrameSweep> sweep_;
  kavo::Kinematics::FrameHandle task_space_frame_;
  // Pose of the robot base in the world; empty for the identity, which changes no bit of a frame's pose.
  std::optional<math::RigidTransform> base_;
};

}  // namespace

std::shared_ptr<RobotEnvironment> CreateRobotEnvironment(const RobotEnvironmentConfig& config) {
  return std::make_shared<RobotEnvironmentImpl>(config);
}

}  // namespace kavo::planning
