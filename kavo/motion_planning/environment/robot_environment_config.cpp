#include "kavo/motion_planning/environment/robot_environment_config.h"

#include <algorithm>
#include <utility>

#include "kavo/kinematics/interface/robot_description_internal.h"
#include "kavo/util/log_message.h"

namespace kavo::planning {

namespace {

constexpr int kExampleTaskSpaceSeed = 142;

const RobotDescription& Given(const RobotDescription* robot_description) {
  KAVO_CHECK(robot_description != nullptr, "motion_planning/environment/robot_environment_config", 20)
      << "No robot description was given.";
  return *robot_description;
}

}  // namespace

RobotEnvironmentConfig::RobotEnvironmentConfig(const RobotDescription* robot_description,
                                               const WorldView& world_view_in,
                                               const Eigen::VectorXd& distance_weights_in,
                                               int max_sampling_attempts_in, int c_space_seed_in,
                                               int task_space_seed_in)
    : world_view(world_view_in),
      max_sampling_attempts(max_sampling_attempts_in),
      c_space_seed(c_space_seed_in),
      task_space_seed(task_space_seed_in),
      distance_weights(distance_weights_in),
      kinematics_(Given(robot_description).kinematics()),
      num_joints_(static_cast<int>(kinematics_->numCSpaceCoords())),
      joint_limits_(ExtractJointLimits(robot_description)),
      periodic_coordinates_(ExtractPeriodicCoordinates(robot_description)),
      task_space_frame_(kinematics_->frame(kinematics_->frameNames().back())) {
  ValidateInput();
  AddCollisionSpheres(robot_description);
}

std::vector<math::Sphere> RobotEnvironmentConfig::CollisionSpheres(const std::string& frame_name) const {
  const auto found = collision_spheres_.find(frame_name);
  return found != collision_spheres_.end() ? found->second : std::vector<math::Sphere>{};
}

std::optional<kavo::Kinematics::FrameHandle> RobotEnvironmentConfig::SetTaskSpaceFrame(
    const std::string& frame_name) {
  const std::vector<std::string>& names = kinematics_->frameNames();
  if (std::find(names.begin(), names.end(), frame_name) == names.end()) {
    KAVO_LOG(LogLevel::kWarning) << "Unable to find \"" << frame_name << "\". Task space frame name will not "
                                 << "be updated";
    return std::nullopt;
  }
  task_space_frame_ = kinematics_->frame(frame_name);
  return task_space_frame_;
}

void RobotEnvironmentConfig::SetTaskSpaceLimits(kinematics::ConfigurationLimits task_space_limits) {
  KAVO_CHECK(task_space_limits.Dimension() == 3, "motion_planning/environment/robot_environment_config", 91)
      << "Dimension for 'task_space_limits' [" << task_space_limits.Dimension() << "] is expected to be 3.";
  task_space_limits_ = std::move(task_space_limits);
}

void RobotEnvironmentConfig::AddCollisionSphere(const std::string& frame_name, const math::Sphere& sphere) {
  const auto [entry, is_first] = collision_spheres_.try_emplace(frame_name);
  if (is_first) {
    collision_frame_names_.push_back(frame_name);
  }
  entry->second.push_back(sphere);
}

void RobotEnvironmentConfig::ValidateInput() const {
  KAVO_CHECK(static_cast<int>(joint_limits_.size()) == num_joints_,
             "motion_planning/environment/robot_environment_config", 101)
      << "Only " << joint_limits_.size() << " 'joint_limits' provided for kinematics with " << num_joints_
      << " joints.";
  KAVO_CHECK(distance_weights.size() == num_joints_, "motion_planning/environment/robot_environment_config",
             104)
      << "Only " << distance_weights.size() << " 'distance_weights' provided for kinematics with "
      << num_joints_ << " joints.";
}

void RobotEnvironmentConfig::AddCollisionSpheres(const RobotDescription* robot_description) {
  const auto* const internal = dynamic_cast<const RobotDescriptionInternal*>(&Given(robot_description));
  KAVO_CHECK(internal != nullptr, "motion_planning/environment/robot_environment_config", 115)
      << "The robot description is not of this library's making.";
  const RobotDescriptionInternal& description = *internal;
  for (const std::string& frame_name : description.collisionFrameNames()) {
    for (const math::Sphere& sphere : description.collisionSpheres(frame_name)) {
      AddCollisionSphere(frame_name, sphere);
    }
  }
  if (collision_pairs_.empty()) {
    collision_pairs_ = description.collisionPairs();
    return;
  }
  for (const std::pair<std::string, std::string>& pair : description.collisionPairs()) {
    const auto& [a, b] = pair;
    if (std::find(collision_pairs_.begin(), collision_pairs_.end(), pair) == collision_pairs_.end() &&
        std::find(collision_pairs_.begin(), collision_pairs_.end(), std::pair(b, a)) ==
            collision_pairs_.end()) {
      collision_pairs_.push_back(pair);
    }
  }
}

RobotEnvironmentConfig BuildFrankaRobotEnvironmentConfig(const WorldView& world_view,
                                                         const Eigen::VectorXd& distance_weights,
                                                         int max_sampling_attempts, int c_space_seed) {
  return {LoadFrankaRobotDescription().get(),
          world_view,
          distance_weights,
          max_sampling_attempts,
          c_space_seed,
          kExampleTaskSpaceSeed};
}

RobotEnvironmentConfig BuildThreeLinkRobotEnvironmentConfig(const WorldView& world_view,
                                                            const Eigen::Vector3d& distance_weights,
                                                            int max_sampling_attempts, int c_space_seed) {
  return {LoadThreeLinkArmRobotDescription().get(),
          world_view,
          distance_weights,
          max_sampling_attempts,
          c_space_seed,
          kExampleTaskSpaceSeed};
}

}  // namespace kavo::planning
